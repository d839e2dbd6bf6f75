#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "Tests/Structure/Command.h"
#include "Tests/Structure/SourceTree.h"

namespace tavlo::test {

namespace {

const std::filesystem::path kHeaders = TAVLO_HEADERS;

// The public headers as programs name them: "tavlo/Source/KorTemplate.h".
std::vector<std::string> publicHeaders() {
  std::vector<std::string> headers;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(kHeaders)) {
    if (entry.is_regular_file()) headers.push_back(entry.path().lexically_relative(kHeaders).generic_string());
  }
  std::ranges::sort(headers);
  return headers;
}

// A header of the standard library has neither a folder nor an extension in its name.
bool isOfTheStandardLibrary(const std::string& include) {
  return std::regex_match(include, std::regex("<[a-z_]+>"));
}

TEST(PublicHeaders, IncludeOnlyPublicHeadersAndTheStandardLibrary) {
  const std::vector<std::string> headers = publicHeaders();
  ASSERT_GT(headers.size(), 60U);
  for (const std::string& header : headers) {
    for (const std::string& include : includesOf(readFile(kHeaders / header))) {
      const std::string name = include.substr(1, include.size() - 2);
      EXPECT_TRUE(isOfTheStandardLibrary(include) || std::ranges::binary_search(headers, name))
          << header << " includes " << include;
    }
  }
}

TEST(PublicHeaders, AreAllReachedFromTheOneForAll) {
  std::set<std::string> reached;
  std::vector<std::string> pending = {"tavlo/tavlo.h"};
  while (!pending.empty()) {
    const std::string header = pending.back();
    pending.pop_back();
    if (!reached.insert(header).second) continue;
    for (const std::string& include : includesOf(readFile(kHeaders / header))) {
      if (include.front() == '"') pending.push_back(include.substr(1, include.size() - 2));
    }
  }
  for (const std::string& header : publicHeaders()) {
    EXPECT_TRUE(reached.contains(header)) << "tavlo/tavlo.h in the tree must include " << header.substr(6);
  }
}

// That each compiles by itself is tested in the tree, where most are first in a source file of their own.
TEST(PublicHeaders, CompileInEveryStandardWithoutAWarning) {
  for (const char* standard : {"c++20", "c++2b"}) {
    const CommandResult result =
        runCommand(quoted(TAVLO_COMPILER) + " -std=" + standard +
                   " -Wall -Wextra -Wpedantic -Werror -fsyntax-only -fvisibility=hidden -I " + quoted(TAVLO_HEADERS) +
                   " -x c++ -include " + quoted(TAVLO_HEADERS "/tavlo/tavlo.h") + " /dev/null");
    EXPECT_EQ(result.output, "") << standard;
    EXPECT_EQ(result.status, 0) << standard;
  }
}

// A class is hidden for good where it is first named so, whatever its own header says: programs cannot link with it.
TEST(PublicHeaders, NameNoPublicClassWhereAllIsHidden) {
  const std::regex naming(R"((?:class|struct) (\w+);)");
  const std::regex definition(R"((?:class|struct) (?:\[\[[^\]]*\]\] )?(\w+)\b.*\{.*)");
  std::set<std::string> seen;
  std::set<std::string> hidden;
  for (const SourceFile& file : sourceFiles({"Foundation", "Lexwright", "Matchery", "Source"}, {".h", ".cpp"})) {
    bool isHidden = false;
    for (const std::string& line : linesOf(file.text)) {
      if (line.starts_with("#pragma GCC visibility")) isHidden = line.ends_with("push(hidden)");
      std::smatch match;
      if (isHidden && std::regex_match(line, match, naming)) hidden.insert(match[1]);
      if (!isHidden && std::regex_match(line, match, definition)) seen.insert(match[1]);
    }
  }
  ASSERT_GT(seen.size(), 80U);
  std::vector<std::string> wrong;
  std::ranges::set_intersection(seen, hidden, std::back_inserter(wrong));
  EXPECT_EQ(wrong, std::vector<std::string>{});
}

}  // namespace

}  // namespace tavlo::test
