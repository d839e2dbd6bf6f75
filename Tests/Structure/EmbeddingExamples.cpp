#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "Tests/Structure/Command.h"
#include "Tests/Structure/Markdown.h"
#include "Tests/Structure/SourceTree.h"

namespace tavlo::test {

namespace {

// A folder of its own for the run of one test.
class TemporaryFolder {
 public:
  TemporaryFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "tavlo-XXXXXX").string();
    if (mkdtemp(pattern.data()) != nullptr) path_ = pattern;
  }
  ~TemporaryFolder() { std::filesystem::remove_all(path_); }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;

  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path path_;
};

// What a program prints, or what the compiler has against it.
std::string outcomeOfProgram(const std::string& source) {
  const TemporaryFolder folder;
  const std::filesystem::path program = folder.path() / "program";
  std::ofstream(program.string() + ".cpp") << source;
  const std::string library = std::filesystem::path(TAVLO_LIBRARY).parent_path().string();
  const CommandResult compiled =
      runCommand(quoted(TAVLO_COMPILER) + " -std=c++20 -Wall -Wextra -Werror -I " + quoted(TAVLO_SOURCE_DIR) + " " +
                 quoted(program.string() + ".cpp") + " -L " + quoted(library) + " -ltavlo -pthread -Wl,-rpath," +
                 quoted(library) + " -o " + quoted(program.string()));
  if (compiled.status != 0) return compiled.output;
  return runCommand(quoted(program.string())).output;
}

// Every block of the kind "cpp" that is a whole program is followed by a block of the kind "text": what it prints.
class Programs : public testing::TestWithParam<const char*> {};

TEST_P(Programs, CompileAndPrintWhatTheDocumentSays) {
  const std::vector<FencedBlock> blocks = fencedBlocks(readFile(std::string(TAVLO_SOURCE_DIR "/") + GetParam()));
  std::size_t programs = 0;
  for (std::size_t index = 0; index + 1 < blocks.size(); ++index) {
    if (blocks[index].kind != "cpp" || blocks[index].text.find("int main") == std::string::npos) continue;
    ++programs;
    EXPECT_EQ(blocks[index + 1].kind, "text") << GetParam() << ":" << blocks[index].line;
    EXPECT_EQ(outcomeOfProgram(blocks[index].text), blocks[index + 1].text) << GetParam() << ":" << blocks[index].line;
  }
  EXPECT_GT(programs, 0U);
}

INSTANTIATE_TEST_SUITE_P(Documents, Programs, testing::Values("README.md", "Documentation/embedding.md"),
                         [](const testing::TestParamInfo<const char*>& info) {
                           return std::string(info.param).starts_with("README") ? "Readme" : "HostGuide";
                         });

}  // namespace

}  // namespace tavlo::test
