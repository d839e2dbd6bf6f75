#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <vector>

#include "Tests/Structure/SourceTree.h"

namespace tavlo::test {

namespace {

// Words that a finished tree does not hold: work left undone, tests switched off, folders of one machine. They are put
// together from halves, so that this file may be read too.
struct Forbidden {
  const char* why;
  std::string pattern;
};

std::vector<Forbidden> forbiddenWords() {
  return {
      {"work left undone", R"(\b(TO)"
                           R"(DO|FIX)"
                           R"(ME|XX)"
                           R"(X|HA)"
                           R"(CK)\b)"},
      {"a test switched off", R"(\b(DIS)"
                              R"(ABLED_|GTEST_)"
                              R"(SKIP))"},
      {"a path of one machine", R"((^|[\s"'(=])/(wo)"
                                R"(rk|ho)"
                                R"(me|ro)"
                                R"(ot|Us)"
                                R"(ers)/)"},
  };
}

struct WordRow {
  std::string text;
  bool isForbidden;
};

bool isForbidden(const std::string& line) {
  for (const Forbidden& word : forbiddenWords()) {
    if (std::regex_search(line, std::regex(word.pattern))) return true;
  }
  return false;
}

TEST(ForbiddenWords, AreRecognised) {
  const WordRow rows[] = {
      {std::string("// TO") + "DO: later", true},
      {std::string("TEST(Suite, DIS") + "ABLED_case)", true},
      {std::string("GTEST_") + "SKIP();", true},
      {std::string("open(\"/wo") + "rk/file\")", true},
      {"a network/work/path", false},
      {"method", false},
      {"DISABLE", false},
  };
  for (const WordRow& row : rows) EXPECT_EQ(isForbidden(row.text), row.isForbidden) << row.text;
}

TEST(ForbiddenWords, StandInNoFile) {
  const std::vector<SourceFile> files =
      sourceFiles({"", "Tool", "Functions", "Source", "Lexwright", "Matchery", "Foundation", "Tests", "Benchmarks",
                   "Documentation", "Examples", "Packaging", "Scripts", "tavlo", ".ci"},
                  {".h", ".cpp", ".txt", ".md", ".json", ".case", ".tavlo", ".cmake", ".in", ""});
  ASSERT_GT(files.size(), 200U);
  std::vector<std::regex> patterns;
  for (const Forbidden& word : forbiddenWords()) patterns.emplace_back(word.pattern, std::regex::optimize);
  for (const SourceFile& file : files) {
    for (const std::regex& pattern : patterns) {
      std::smatch match;
      EXPECT_FALSE(std::regex_search(file.text, match, pattern)) << file.path << ": " << match.str();
    }
  }
}

}  // namespace

}  // namespace tavlo::test
