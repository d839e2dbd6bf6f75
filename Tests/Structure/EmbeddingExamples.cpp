#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <future>
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

constexpr const char* kCompiled = " -std=c++20 -pthread -Wall -Wextra -Werror -I ";

// The library's headers, read by the compiler once: that takes half the time of each program.
class CompiledHeaders {
 public:
  CompiledHeaders() {
    std::ofstream(path()) << "#include <tavlo/tavlo.h>\n";
    (void)runCommand(quoted(TAVLO_COMPILER) + kCompiled + quoted(TAVLO_HEADERS) + " -x c++-header " + quoted(path()) +
                     " -o " + quoted(path() + ".gch"));
  }
  std::string path() const { return (folder_.path() / "headers.h").string(); }

 private:
  TemporaryFolder folder_;
};

// What a program prints, or what the compiler has against it.
std::string outcomeOfProgram(const std::string& source, const CompiledHeaders& headers) {
  if (source.find("#include <tavlo/tavlo.h>") == std::string::npos) return "includes no header of the library";
  const TemporaryFolder folder;
  const std::filesystem::path program = folder.path() / "program";
  std::ofstream(program.string() + ".cpp") << source;
  const std::string library = std::filesystem::path(TAVLO_LIBRARY).parent_path().string();
  const CommandResult compiled =
      runCommand(quoted(TAVLO_COMPILER) + kCompiled + quoted(TAVLO_HEADERS) + " -include " + quoted(headers.path()) +
                 " " + quoted(program.string() + ".cpp") + " -L " + quoted(library) + " -ltavlo -Wl,-rpath," +
                 quoted(library) + " -o " + quoted(program.string()));
  if (compiled.status != 0) return compiled.output;
  return runCommand(quoted(program.string())).output;
}

// A program that a document shows, and what it prints there.
struct Program {
  std::string source;
  std::string printed;
  std::size_t line = 0;  // where it begins
};

// Every block of the kind "cpp" is a whole program, and the block behind it, of the kind "text", is what that prints.
std::vector<Program> programsOf(const std::string& document) {
  std::vector<Program> programs;
  const std::vector<FencedBlock> blocks = fencedBlocks(document);
  for (std::size_t index = 0; index < blocks.size(); ++index) {
    if (blocks[index].kind != "cpp") continue;
    const bool isFollowed = index + 1 < blocks.size() && blocks[index + 1].kind == "text";
    const std::string printed = isFollowed ? blocks[index + 1].text : "(no block of text follows)";
    programs.push_back({blocks[index].text, printed, blocks[index].line});
  }
  return programs;
}

// What the programs print, in their order. Compiling one takes seconds, so that two are compiled at a time.
std::vector<std::string> outcomesOf(const std::vector<Program>& programs) {
  std::vector<std::string> outcomes(programs.size());
  static const CompiledHeaders headers;
  std::atomic<std::size_t> next = 0;
  const auto work = [&] {
    for (std::size_t index = next++; index < programs.size(); index = next++) {
      outcomes[index] = outcomeOfProgram(programs[index].source, headers);
    }
  };
  std::future<void> other = std::async(std::launch::async, work);
  work();
  other.get();
  return outcomes;
}

class Programs : public testing::TestWithParam<const char*> {};

TEST_P(Programs, CompileAndPrintWhatTheDocumentSays) {
  const std::vector<Program> programs = programsOf(readFile(std::string(TAVLO_SOURCE_DIR "/") + GetParam()));
  ASSERT_FALSE(programs.empty());
  const std::vector<std::string> outcomes = outcomesOf(programs);
  for (std::size_t index = 0; index < programs.size(); ++index) {
    EXPECT_EQ(outcomes[index], programs[index].printed) << GetParam() << ":" << programs[index].line;
  }
}

INSTANTIATE_TEST_SUITE_P(Documents, Programs, testing::Values("README.md", "Documentation/host-guide.md"),
                         [](const testing::TestParamInfo<const char*>& info) {
                           return std::string(info.param).starts_with("README") ? "Readme" : "HostGuide";
                         });

}  // namespace

}  // namespace tavlo::test
