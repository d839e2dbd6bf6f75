#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "Tests/Tool/ProgramRun.h"
#include "Tests/Tool/WorkFolder.h"
#include "Tool/TemporaryFile.h"

namespace tavlo {

namespace {

constexpr const char* kNoSpace = "output: The text cannot be written: No space left on device\n";

mode_t modeOf(const std::string& path) {
  struct stat status = {};
  ::stat(path.c_str(), &status);
  return status.st_mode & 07777;
}

TEST(ProgramOutput, GoesToANewFile) {
  const WorkFolder folder;
  folder.write("template", "text");
  ProgramRun run(folder, {"render", "template", "-o", "result"});
  EXPECT_EQ(run.status(), 0);
  EXPECT_EQ(run.output() + run.errors(), "");
  EXPECT_EQ(folder.read("result"), "text");
  EXPECT_EQ(modeOf(folder.path("result")), modeOf(folder.path("template")));
  EXPECT_EQ(folder.names(), (std::vector<std::string>{"result", "template"}));
}

TEST(ProgramOutput, ReplacesAFileAsAWholeAndKeepsItsMode) {
  for (const mode_t mode : {0600U, 0640U, 0755U, 0666U}) {
    const WorkFolder folder;
    folder.write("template", "new");
    folder.write("result", "a longer old text");
    ::chmod(folder.path("result").c_str(), mode);
    ProgramRun run(folder, {"render", "template", "--output", "result"});
    EXPECT_EQ(run.status(), 0) << run.errors();
    EXPECT_EQ(folder.read("result"), "new");
    EXPECT_EQ(modeOf(folder.path("result")), mode);
    EXPECT_EQ(folder.names(), (std::vector<std::string>{"result", "template"}));
  }
}

TEST(ProgramOutput, IsNobodyElsesToReadWhileItIsWritten) {
  const WorkFolder folder;
  const TemporaryFile file(folder.path("result"));
  ASSERT_EQ(folder.names().size(), 1U);
  EXPECT_EQ(modeOf(folder.path(folder.names().front())), 0600U);
}

TEST(ProgramOutput, GivesANewFileTheModeThatTheProcessGivesFiles) {
  for (const mode_t mask : {0077U, 0027U, 0022U, 0000U}) {
    const WorkFolder folder;
    folder.write("template", "text");
    const mode_t before = ::umask(mask);
    ProgramRun run(folder, {"render", "template", "-o", "result"});
    EXPECT_EQ(run.status(), 0) << run.errors();
    ::umask(before);
    EXPECT_EQ(modeOf(folder.path("result")), 0666U & ~mask);
  }
}

TEST(ProgramOutput, GoesOnWhereAnOpenFileStandsThatItIsSentTo) {
  for (const char* path : {"/dev/stdout", "/dev/fd/1", "/proc/self/fd/1", "link", "result"}) {
    const WorkFolder folder;
    folder.write("template", "<? function f($a) ?><? endfunction ?>one<? f() ?>two");
    folder.write("result", std::string(80, '.'));
    std::filesystem::create_symlink("/dev/stdout", folder.path("link"));
    ProgramRun run(folder, {"render", "template", "-o", path},
                   {.outputFile = folder.path("result").c_str(), .errorsGoToOutput = true});
    EXPECT_EQ(run.status(), 0) << path;
    EXPECT_EQ(folder.read("result"),
              "oneIncorrect number of arguments for function. 0 supplied, 1 expected\ntwo.......")
        << path;
    EXPECT_EQ(folder.names(), (std::vector<std::string>{"link", "result", "template"})) << path;
  }
}

TEST(ProgramOutput, GoesToStandardErrorWhereThatIsAFile) {
  for (const char* path : {"/dev/stderr", "/dev/fd/2"}) {
    const WorkFolder folder;
    folder.write("template", "<? function f($a) ?><? endfunction ?>one<? f() ?>two");
    ProgramRun run(folder, {"render", "template", "-o", path});
    EXPECT_EQ(run.status(), 0) << path;
    EXPECT_EQ(run.errors(), "oneIncorrect number of arguments for function. 0 supplied, 1 expected\ntwo") << path;
    EXPECT_EQ(run.output(), "") << path;
  }
}

TEST(ProgramOutput, IsAddedToTheOpenFileOfAnotherProcess) {
  const WorkFolder folder;
  folder.write("template", "new");
  folder.write("result", "old,");
  const int opened = ::open(folder.path("result").c_str(), O_WRONLY | O_CLOEXEC);
  const std::string path = "/proc/" + std::to_string(::getpid()) + "/fd/" + std::to_string(opened);
  ProgramRun run(folder, {"render", "template", "-o", path});
  EXPECT_EQ(run.status(), 0) << run.errors();
  ::close(opened);
  EXPECT_EQ(folder.read("result"), "old,new");
}

TEST(ProgramOutput, GoesThroughLinks) {
  const WorkFolder folder;
  folder.write("template", "new");
  std::filesystem::create_directory(folder.path("inner"));
  folder.write("inner/result", "old");
  std::filesystem::create_symlink("result", folder.path("inner/second"));
  std::filesystem::create_symlink("inner/second", folder.path("first"));
  ProgramRun run(folder, {"render", "template", "-o", "first"});
  EXPECT_EQ(run.status(), 0) << run.errors();
  EXPECT_EQ(folder.read("inner/result"), "new");
  EXPECT_TRUE(std::filesystem::is_symlink(folder.path("first")));
  EXPECT_TRUE(std::filesystem::is_symlink(folder.path("inner/second")));
}

TEST(ProgramOutput, MakesTheFileThatALinkLeadsTo) {
  const WorkFolder folder;
  folder.write("template", "new");
  std::filesystem::create_symlink("result", folder.path("link"));
  ProgramRun run(folder, {"render", "template", "-o", "link"});
  EXPECT_EQ(run.status(), 0) << run.errors();
  EXPECT_TRUE(std::filesystem::is_symlink(folder.path("link")));
  EXPECT_EQ(folder.read("result"), "new");
}

TEST(ProgramOutput, LeavesTheFileAloneWhenTheTemplateFails) {
  for (const char* text : {"some text <? 1 % 0 ?>", "<? if (1 ?>"}) {
    const WorkFolder folder;
    folder.write("template", text);
    folder.write("result", "old");
    ProgramRun run(folder, {"render", "template", "-o", "result"});
    EXPECT_EQ(run.status(), 1) << text;
    EXPECT_EQ(run.output(), "") << text;
    EXPECT_EQ(folder.read("result"), "old") << text;
    EXPECT_EQ(folder.names(), (std::vector<std::string>{"result", "template"})) << text;
  }
}

TEST(ProgramOutput, MakesNoFileWhenTheTemplateFails) {
  const WorkFolder folder;
  folder.write("template", std::string(200'000, 'x') + "<? 1 % 0 ?>");
  ProgramRun run(folder, {"render", "template", "-o", "result"});
  EXPECT_EQ(run.status(), 1);
  EXPECT_EQ(folder.names(), std::vector<std::string>{"template"});
}

struct UnwritableRow {
  const char* path;
  const char* errors;
};

TEST(ProgramOutput, NamesWhatItCannotWrite) {
  const UnwritableRow rows[] = {
      {".", ".: output: The file cannot be written: Is a directory\n"},
      {"template/result", "template/result: output: The file cannot be written: Not a directory\n"},
      {"absent/result", "absent/result: output: The file cannot be written: No such file or directory\n"},
      {"/proc/result", "/proc/result: output: The file cannot be written: No such file or directory\n"},
      {"circle", "circle: output: The file cannot be written: Too many levels of symbolic links\n"},
      {"/dev/full", "/dev/full: output: The text cannot be written: No space left on device\n"},
  };
  for (const UnwritableRow& row : rows) {
    const WorkFolder folder;
    folder.write("template", "text");
    std::filesystem::create_symlink("circle", folder.path("circle"));
    ProgramRun run(folder, {"render", "template", "-o", row.path});
    EXPECT_EQ(run.status(), 2) << row.path;
    EXPECT_EQ(run.errors(), row.errors) << row.path;
    EXPECT_EQ(folder.names(), (std::vector<std::string>{"circle", "template"})) << row.path;
  }
}

TEST(ProgramOutput, WritesToWhatIsNoRegularFile) {
  const WorkFolder folder;
  folder.write("template", "text");
  ASSERT_EQ(::mkfifo(folder.path("pipe").c_str(), 0600), 0);
  const int reader = ::open(folder.path("pipe").c_str(), O_RDONLY | O_NONBLOCK);
  ProgramRun run(folder, {"render", "template", "-o", "pipe"});
  EXPECT_EQ(run.status(), 0) << run.errors();
  char text[16];
  const ssize_t size = ::read(reader, text, sizeof text);
  ::close(reader);
  EXPECT_EQ(std::string(text, size > 0 ? static_cast<std::size_t>(size) : 0), "text");
  EXPECT_EQ(folder.names(), (std::vector<std::string>{"pipe", "template"}));
}

TEST(ProgramOutput, ToAFullDeviceFails) {
  for (const std::size_t size : {1U, 1'000'000U}) {
    const WorkFolder folder;
    folder.write("template", std::string(size, 'x'));
    ProgramRun run(folder, {"render", "template"}, {.outputFile = "/dev/full"});
    EXPECT_EQ(run.status(), 2) << size;
    EXPECT_EQ(run.errors(), std::string("-: ") + kNoSpace) << size;
  }
}

TEST(ProgramOutput, OfHelpToAFullDeviceFails) {
  const WorkFolder folder;
  ProgramRun run(folder, {"--help"}, {.outputFile = "/dev/full"});
  EXPECT_EQ(run.status(), 2);
  EXPECT_EQ(run.errors(), std::string("-: ") + kNoSpace);
}

TEST(ProgramOutput, ThatIsClosedFails) {
  const WorkFolder folder;
  folder.write("template", "text");
  ProgramRun run(folder, {"render", "template"}, {.outputIsClosed = true});
  EXPECT_EQ(run.status(), 2);
  EXPECT_EQ(run.errors(), "-: output: The text cannot be written: Bad file descriptor\n");
}

TEST(ProgramOutput, WhoseReaderWentAwayEndsInSilence) {
  const char* const templates[] = {"short",
                                   "<? function f() ?><? foreach ($each in $many) ?>0123456789abcdef<? endforeach ?>"
                                   "<? endfunction ?><? f() ?>"};
  std::string many = "[0";
  for (int index = 1; index < 20'000; ++index) many += ",0";
  for (const char* text : templates) {
    const WorkFolder folder;
    folder.write("template", text);
    folder.write("data", "{\"many\":" + many + "]}");
    ProgramRun run(folder, {"render", "template", "-d", "data"}, {.readerIsGone = true});
    EXPECT_EQ(run.status(), 0) << text;
    EXPECT_EQ(run.errors(), "") << text;
  }
}

TEST(ProgramOutput, StandsBeforeTheDiagnosticThatFollowsIt) {
  const WorkFolder folder;
  folder.write("template", "<? function f($a) ?><? endfunction ?>one<? f() ?>two");
  ProgramRun run(folder, {"render", "template"}, {.errorsGoToOutput = true});
  EXPECT_EQ(run.status(), 0);
  EXPECT_EQ(run.output(), "oneIncorrect number of arguments for function. 0 supplied, 1 expected\ntwo");
}

TEST(ProgramOutput, LeavesNoTemporaryFileWhenASignalEndsTheProgram) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    const WorkFolder folder;
    folder.write("template",
                 "<? function f($n) ?><? if ($n > 0) ?><? f($n - 1) ?><? f($n - 1) ?><? endif ?>"
                 "<? endfunction ?><? f(60) ?>");  // longer than anybody waits
    folder.write("result", "old");
    ProgramRun run(folder, {"render", "template", "-o", "result"});
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (folder.names().size() < 3 && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    ASSERT_EQ(folder.names().size(), 3U) << "no temporary file was seen";
    ::kill(run.process(), signal);
    EXPECT_EQ(run.status(), 128 + signal);
    EXPECT_EQ(folder.read("result"), "old");
    EXPECT_EQ(folder.names(), (std::vector<std::string>{"result", "template"}));
  }
}

}  // namespace

}  // namespace tavlo
