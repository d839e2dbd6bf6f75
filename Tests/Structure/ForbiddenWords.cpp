#include <gtest/gtest.h>

#include <cstddef>
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
  const char* before;  // what a word stands behind, as a pattern
  const char* after;
  std::vector<std::string> words;
};

std::vector<Forbidden> forbiddenWords() {
  return {
      {"work left undone",
       "\\b",
       "\\b",
       {std::string("TO") + "DO", std::string("FIX") + "ME", "XX" + std::string("X"), std::string("HA") + "CK"}},
      {"a test switched off", "\\b", "", {std::string("DIS") + "ABLED_", std::string("GTEST_") + "SKIP"}},
      {"a path of one machine",
       R"((^|[\s"'(=]))",
       "",
       {std::string("/wo") + "rk/", std::string("/ho") + "me/", std::string("/ro") + "ot/",
        std::string("/Us") + "ers/"}},
  };
}

std::string lineAround(const std::string& text, std::size_t at) {
  const std::size_t before = text.rfind('\n', at);
  const std::size_t begin = before == std::string::npos ? 0 : before + 1;
  return text.substr(begin, text.find('\n', at) - begin);
}

// The first line that holds a forbidden word, with the reason; empty where none does.
std::string forbiddenLine(const std::string& text) {
  for (const Forbidden& kind : forbiddenWords()) {
    for (const std::string& word : kind.words) {
      for (std::size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) {
        const std::string line = lineAround(text, at);
        if (std::regex_search(line, std::regex(kind.before + word + kind.after))) return kind.why + (": " + line);
      }
    }
  }
  return {};
}

struct WordRow {
  std::string text;
  bool isForbidden;
};

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
  for (const WordRow& row : rows) EXPECT_EQ(!forbiddenLine(row.text).empty(), row.isForbidden) << row.text;
}

TEST(ForbiddenWords, StandInNoFile) {
  const std::vector<SourceFile> files =
      sourceFiles({"", "Tool", "Functions", "Source", "Lexwright", "Matchery", "Foundation", "Tests", "Benchmarks",
                   "Fuzzers", "Documentation", "Examples", "Packaging", "Scripts", "tavlo", ".ci"},
                  {".h", ".cpp", ".txt", ".md", ".json", ".case", ".tavlo", ".cmake", ".in", ""});
  ASSERT_GT(files.size(), 200U);
  for (const SourceFile& file : files) EXPECT_EQ(forbiddenLine(file.text), "") << file.path;
}

}  // namespace

}  // namespace tavlo::test
