#include <gtest/gtest.h>

#include <future>
#include <string>
#include <vector>

#include "Tests/Structure/Command.h"
#include "Tests/Structure/SourceTree.h"

namespace tavlo::test {

namespace {

// What the compiler says about the headers, each compiled by itself; empty where it says nothing.
std::string complaintsAbout(const std::vector<SourceFile>& headers, std::size_t first, std::size_t step) {
  std::string complaints;
  for (std::size_t index = first; index < headers.size(); index += step) {
    const CommandResult result =
        runCommand(quoted(TAVLO_COMPILER) + " -std=c++20 -Wall -Wextra -Werror -fsyntax-only -I " +
                   quoted(TAVLO_SOURCE_DIR) + " -x c++ -include " + quoted(headers[index].path) + " /dev/null");
    if (result.status != 0) complaints += headers[index].path + ":\n" + result.output;
  }
  return complaints;
}

TEST(Headers, CompileAlone) {
  const std::vector<SourceFile> headers =
      sourceFiles({"Tool", "Functions", "Source", "Lexwright", "Matchery", "Foundation"}, {".h"});
  ASSERT_GT(headers.size(), 60U);
  std::future<std::string> odd = std::async(std::launch::async, complaintsAbout, headers, 1, 2);
  EXPECT_EQ(complaintsAbout(headers, 0, 2), "");
  EXPECT_EQ(odd.get(), "");
}

}  // namespace

}  // namespace tavlo::test
