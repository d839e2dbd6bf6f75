#include <gtest/gtest.h>

#include <filesystem>
#include <future>
#include <string>
#include <vector>

#include "Tests/Structure/Command.h"
#include "Tests/Structure/SourceTree.h"

namespace tavlo::test {

namespace {

// What the compiler says about the headers, each compiled by itself; empty where it says nothing.
std::string complaintsAbout(const std::vector<SourceFile>& headers, const char* standard) {
  std::string complaints;
  for (const SourceFile& header : headers) {
    const CommandResult result =
        runCommand(quoted(TAVLO_COMPILER) + " -std=" + standard + " -Wall -Wextra -Werror -fsyntax-only -I " +
                   quoted(TAVLO_SOURCE_DIR) + " -x c++ -include " + quoted(header.path) + " /dev/null");
    if (result.status != 0) complaints += header.path + " as " + standard + ":\n" + result.output;
  }
  return complaints;
}

// A source file that includes its own header before all others shows by compiling that the header stands alone.
bool isFirstInItsSource(const SourceFile& header) {
  const std::string source = header.path.substr(0, header.path.size() - 2) + ".cpp";
  if (!std::filesystem::exists(std::filesystem::path(TAVLO_SOURCE_DIR) / source)) return false;
  return readFile(std::filesystem::path(TAVLO_SOURCE_DIR) / source).starts_with("#include \"" + header.path + "\"\n");
}

TEST(Headers, CompileAlone) {
  std::vector<SourceFile> headers =
      sourceFiles({"tavlo", "Tool", "Functions", "Source", "Lexwright", "Matchery", "Foundation"}, {".h"});
  ASSERT_GT(headers.size(), 60U);
  std::erase_if(headers, isFirstInItsSource);
  std::future<std::string> newer = std::async(std::launch::async, complaintsAbout, headers, "c++2b");
  EXPECT_EQ(complaintsAbout(headers, "c++20"), "");
  EXPECT_EQ(newer.get(), "");
}

}  // namespace

}  // namespace tavlo::test
