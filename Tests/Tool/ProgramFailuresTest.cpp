#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "Tests/Foundation/Repeated.h"
#include "Tests/Memory/FailingMemory.h"
#include "Tests/Tool/ProgramRun.h"
#include "Tests/Tool/WorkFolder.h"

namespace tavlo {

namespace {

using testing::HasSubstr;

// Longer than anybody waits.
constexpr const char* kEndless =
    "<? function f($n) ?><? if ($n > 0) ?><? f($n - 1) ?><? f($n - 1) ?><? endif ?><? endfunction ?><? f(60) ?>";

// A run whose `count`-th call of that name fails with the error; 0 makes it do half of what was asked for.
struct FailingCall {
  const char* name;
  int error;

  // Whether there was such a call.
  bool run(int count, const std::function<void(const WorkFolder&, ProgramRun&)>& look,
           const std::vector<std::string>& output = {"-o", "result"}) const {
    const WorkFolder marks;
    const WorkFolder folder;
    folder.write("template",
                 "<? function f($a) ?><? endfunction ?>Hello <?= $name ?><? f() ?>\n" + std::string(70'000, 'x'));
    folder.write("data", R"({"name": "Ada"})");
    folder.write("result", "old");
    std::vector<std::string> arguments = {"render", "template", "-d", "data"};
    arguments.insert(arguments.end(), output.begin(), output.end());
    const std::string call = std::string(name) + ':' + std::to_string(count) + ':' + std::to_string(error);
    ProgramRun run(folder, arguments,
                   {.environment = {"LD_PRELOAD=" TAVLO_FAILING_CALLS, "TAVLO_FAILING_CALL=" + call,
                                    "TAVLO_FAILED_CALL=" + marks.path("failed")}});
    run.status();
    const bool hasFailed = !marks.names().empty();
    SCOPED_TRACE(call + ", status " + std::to_string(run.status()) + ": " + run.errors().substr(0, 200));
    if (hasFailed) look(folder, run);
    EXPECT_EQ(folder.names(), (std::vector<std::string>{"data", "result", "template"}));
    return hasFailed;
  }
};

const std::string kWhole = "Hello Ada\n" + std::string(70'000, 'x');

// Whichever call fails, the file is replaced as a whole, or left as it was and the failure told of.
TEST(ProgramFailures, LeaveTheOldFileOrTheWholeNewOne) {
  constexpr FailingCall kCalls[] = {
      {"open", EMFILE},  {"open", EINTR},   {"read", EIO},     {"write", ENOSPC},    {"write", EIO},
      {"write", EDQUOT}, {"rename", EIO},   {"close", EIO},    {"close", ENOSPC},    {"fstat", EOVERFLOW},
      {"stat", EACCES},  {"fchmod", EPERM}, {"fchown", EPERM}, {"faccessat", EROFS},
  };
  for (const FailingCall& call : kCalls) {
    int count = 1;
    int failures = 0;
    const auto look = [&](const WorkFolder& folder, ProgramRun& run) {
      const std::string result = folder.read("result");
      if (run.status() == 0) {
        EXPECT_EQ(result == kWhole, true);
      } else {
        ++failures;
        EXPECT_EQ(run.status(), 2);
        EXPECT_EQ(result, "old");
        EXPECT_THAT(run.errors(), HasSubstr(std::string("put: "))) << "input or output";
        EXPECT_THAT(run.errors(), HasSubstr(std::string(": ") + std::strerror(call.error) + "\n"));
      }
    };
    while (call.run(count, look)) ++count;
    const bool isHarmless = std::string(call.name) == "fchown" || std::string(call.name) == "fstat";
    EXPECT_TRUE(isHarmless || failures > 0) << call.name << ' ' << call.error;
    EXPECT_LT(count, 50) << call.name;
  }
}

// What a signal interrupts, or the system does in part, goes on.
TEST(ProgramFailures, AreNoneWhereTheCallCanGoOn) {
  constexpr FailingCall kCalls[] = {{"read", EINTR},   {"read", EAGAIN}, {"read", 0},     {"write", EINTR},
                                    {"write", EAGAIN}, {"write", 0},     {"close", EINTR}};
  for (const FailingCall& call : kCalls) {
    int count = 1;
    const auto look = [](const WorkFolder& folder, ProgramRun& run) {
      EXPECT_EQ(run.status(), 0);
      EXPECT_EQ(run.errors(), "Incorrect number of arguments for function. 0 supplied, 1 expected\n");
      EXPECT_TRUE(folder.read("result") == kWhole);
    };
    while (call.run(count, look)) ++count;
    EXPECT_GT(count, 1) << call.name;
  }
}

struct ToldRow {
  FailingCall call;
  int count;
  std::vector<std::string> output;
  const char* errors;
};

TEST(ProgramFailures, AreToldOfByTheFileThatTheyBelongTo) {
  const ToldRow rows[] = {
      {{"read", EIO}, 1, {}, "template: input: The file cannot be read: Input/output error\n"},
      {{"read", EIO}, 3, {}, "data: input: The file cannot be read: Input/output error\n"},
      {{"rename", EXDEV},
       1,
       {"-o", "result"},
       "result: output: The file cannot be written: Invalid cross-device link\n"},
      {{"write", EIO}, 3, {}, "-: output: The text cannot be written: Input/output error\n"},
      {{"write", EPIPE}, 3, {}, ""},
  };
  for (const ToldRow& row : rows) {
    const auto look = [&](const WorkFolder& folder, ProgramRun& run) {
      EXPECT_THAT(run.errors(), testing::EndsWith(row.errors));
      EXPECT_EQ(run.status(), *row.errors == '\0' ? 0 : 2);
      EXPECT_EQ(folder.read("result"), "old");
    };
    EXPECT_TRUE(row.call.run(row.count, look, row.output)) << row.errors;
  }
}

// The size that the process may give a file stands for a full disk.
TEST(ProgramFailures, OfAFileThatMayNotGrowLeaveTheOldOne) {
  for (const std::size_t size : {2'000U, 200'000U}) {
    const WorkFolder folder;
    folder.write("template", std::string(size, 'x'));
    folder.write("result", "old");
    ProgramRun run(folder, {"render", "template", "-o", "result"}, {.largestFile = 1'000});
    EXPECT_EQ(run.status(), 2);
    EXPECT_THAT(run.errors(), testing::StartsWith("result: output: The text cannot be written: File too large\n"));
    EXPECT_EQ(folder.read("result"), "old");
    EXPECT_EQ(folder.names(), (std::vector<std::string>{"result", "template"}));
  }
}

bool waitForNames(const WorkFolder& folder, std::size_t count) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (folder.names().size() < count && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return folder.names().size() == count;
}

TEST(ProgramFailures, BySignalsRemoveEveryTemporaryFile) {
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGXCPU, SIGALRM, SIGVTALRM, SIGPROF, SIGUSR1, SIGUSR2,
                           SIGIO, SIGPWR, SIGSTKFLT, SIGABRT, SIGSYS, SIGTRAP}) {
    const WorkFolder folder;
    folder.write("template", kEndless);
    folder.write("result", "old");
    folder.write("profile", "old profile");
    ProgramRun run(folder, {"render", "template", "-o", "result", "--profile", "profile"});
    ASSERT_TRUE(waitForNames(folder, 5)) << "no two temporary files were seen";
    ::kill(run.process(), signal);
    EXPECT_EQ(run.status(), 128 + signal);
    EXPECT_EQ(folder.read("result"), "old");
    EXPECT_EQ(folder.names(), (std::vector<std::string>{"profile", "result", "template"})) << signal;
  }
}

// As a program that ends others after some time sends it: to the process, and to all processes beside it.
TEST(ProgramFailures, BySignalsThatComeTwiceRemoveTheTemporaryFile) {
  const WorkFolder folder;
  folder.write("template", kEndless);
  for (int round = 0; round < 100; ++round) {
    ProgramRun run(folder, {"render", "template", "-o", "result"});
    ASSERT_TRUE(waitForNames(folder, 2));
    ::kill(run.process(), SIGTERM);
    for (int wait = 0; wait < round * 100; ++wait) std::atomic_signal_fence(std::memory_order_seq_cst);
    ::kill(run.process(), SIGTERM);
    EXPECT_EQ(run.status(), 128 + SIGTERM);
    ASSERT_EQ(folder.names(), (std::vector<std::string>{"template"})) << round;
  }
}

// Nothing can be removed then; what is left is in nobody's way.
TEST(ProgramFailures, ByKillingLeaveTheOldFileAndHinderNoLaterRun) {
  const WorkFolder folder;
  folder.write("template", kEndless);
  folder.write("result", "old");
  ProgramRun run(folder, {"render", "template", "-o", "result"});
  ASSERT_TRUE(waitForNames(folder, 3));
  ::kill(run.process(), SIGKILL);
  EXPECT_EQ(run.status(), 128 + SIGKILL);
  EXPECT_EQ(folder.read("result"), "old");
  folder.write("template", "new");
  ProgramRun later(folder, {"render", "template", "-o", "result"});
  EXPECT_EQ(later.status(), 0) << later.errors();
  EXPECT_EQ(folder.read("result"), "new");
}

TEST(ProgramFailures, OfAProfileLeaveTheOldFileToo) {
  const WorkFolder folder;
  folder.write("template", "text");
  folder.write("result", "old");
  ProgramRun run(folder, {"render", "template", "-o", "result", "--profile", "profile"},
                 {.environment = {"LD_PRELOAD=" TAVLO_FAILING_CALLS, "TAVLO_FAILING_CALL=rename:1:5"}});
  EXPECT_EQ(run.status(), 2);
  EXPECT_EQ(run.errors(), "profile: output: The file cannot be written: Input/output error\n");
  EXPECT_EQ(folder.read("result"), "old");
  EXPECT_EQ(folder.names(), (std::vector<std::string>{"result", "template"}));
}

#ifndef TAVLO_MEMORY_IS_WATCHED

using test::repeated;

// With less memory than the run asks for the program ends as it does of any other failure, wherever it runs out.
TEST(ProgramFailures, OfMemoryAreToldOf) {
  struct Row {
    const char* what;
    std::string text;
  };
  const Row rows[] = {
      {"many patterns", repeated("<? $a =~ /^(GET|PUT) (a|b)*\\d{2,3}[^x]/ ?>", 5'000)},
      {"long strings", "<? $s = \"0123456789abcdef\" ?>" + repeated("<? $s = ($s + $s) ?>", 23) + "<?= $s.length ?>"},
      {"many variables", "<? function f($n) ?>" + repeated("<? $v = ($n + \"0123456789\") ?>", 9) +
                             "<? f($v + $v) ?><? endfunction ?><? f(\"0123456789abcdef\") ?>"},
      {"much text", repeated("<?= $name ?> and more of it. ", 60'000)},
  };
  constexpr std::uint64_t kMiB = 1024 * 1024;
  for (const Row& row : rows) {
    int failures = 0;
    for (const std::uint64_t memory : {20, 24, 28, 32}) {
      const WorkFolder folder;
      folder.write("template", row.text);
      folder.write("result", "old");
      ProgramRun run(folder, {"render", "template", "-o", "result"}, {.memory = memory * kMiB});
      if (run.status() == 0) continue;
      ++failures;
      EXPECT_TRUE(run.status() == 1 || run.status() == 2) << row.what << ", " << memory << " MiB: " << run.status();
      EXPECT_THAT(run.errors(), HasSubstr("std::bad_alloc")) << row.what << ", " << memory << " MiB";
      EXPECT_EQ(folder.read("result"), "old") << row.what;
      EXPECT_EQ(folder.names(), (std::vector<std::string>{"result", "template"})) << row.what;
    }
    EXPECT_GT(failures, 0) << row.what;
  }
}

#endif

}  // namespace

}  // namespace tavlo
