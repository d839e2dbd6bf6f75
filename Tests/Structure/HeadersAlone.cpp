#include <gtest/gtest.h>

#include <filesystem>
#include <future>
#include <string>
#include <vector>

#include "Tests/Structure/Command.h"
#include "Tests/Structure/SourceTree.h"

namespace tavlo::test {

namespace {

// What the compiler says about every `step`-th header from `first` on, each compiled by itself; empty where it says
// nothing. As programs of a later standard they are compiled together; see Tests/Package/PublicHeaders.cpp.
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
  std::future<std::string> odd = std::async(std::launch::async, complaintsAbout, headers, 1, 2);
  EXPECT_EQ(complaintsAbout(headers, 0, 2), "");
  EXPECT_EQ(odd.get(), "");
}

}  // namespace

}  // namespace tavlo::test
