#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "Tests/Structure/Command.h"
#include "Tests/Structure/SourceTree.h"

namespace tavlo::test {

namespace {

std::vector<std::string> exportedSymbols() {
  const CommandResult result =
      runCommand(quoted(TAVLO_SOURCE_DIR "/Scripts/exported-symbols") + " " + quoted(TAVLO_LIBRARY));
  EXPECT_EQ(result.status, 0) << result.output;
  return linesOf(result.output);
}

std::vector<std::string> difference(const std::vector<std::string>& from, const std::vector<std::string>& without) {
  std::vector<std::string> rest;
  std::ranges::set_difference(from, without, std::back_inserter(rest));
  return rest;
}

// After a change on purpose "Scripts/exported-symbols --renew" writes the list anew.
TEST(ExportedSymbols, AreThoseOfTheList) {
  const std::vector<std::string> listed = linesOf(readFile(TAVLO_SOURCE_DIR "/Packaging/exported-symbols.txt"));
  const std::vector<std::string> exported = exportedSymbols();
  ASSERT_GT(exported.size(), 300U);
  EXPECT_EQ(difference(listed, exported), std::vector<std::string>{}) << "are gone; see Documentation/stability.md";
  EXPECT_EQ(difference(exported, listed), std::vector<std::string>{}) << "are new; see Scripts/exported-symbols";
}

TEST(ExportedSymbols, AreAllOurs) {
  for (const std::string& symbol : exportedSymbols()) EXPECT_NE(symbol.find("tavlo::"), std::string::npos) << symbol;
}

}  // namespace

}  // namespace tavlo::test
