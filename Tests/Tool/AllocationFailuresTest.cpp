#include "Tests/Memory/FailingMemory.h"

#ifndef TAVLO_MEMORY_IS_HIDDEN

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Foundation/NSDictionary.h"
#include "Tests/Memory/FailingWork.h"
#include "Tests/Tool/WorkFolder.h"
#include "Tool/JSONReader.h"
#include "Tool/Program.h"

namespace tavlo::test {

namespace {

std::string manyNames() {
  std::string members;
  for (int number = 0; number < 70; ++number) members += ",\"name" + std::to_string(number) + "\":\"a\"";
  return members;
}

TEST(AllocationFailures, EndTheReadingOfJSONAndNoMore) {
  const std::string text =
      "\xEF\xBB\xBF{\"text\":\"a text that is longer than any short one\",\"escapes\":\"\\u00e9\\ud83d\\ude00\\n and "
      "so on "
      "until it is "
      "long\",\"numbers\":[1,-2,1.5,1e300,18446744073709551615,0.1234567890123456789],\"flags\":[true,false,"
      "null],\"text\":\"again\",\"deep\":[[[[{\"a\":{}}]]]]" +
      manyNames() + "}";
  const std::string expected = readJSONObject(text)->description();
  FailingWork("a text").check([&](std::int64_t count, Failing failing) {
    Ref<NSDictionary> object;
    const Outcome outcome = runWith(count, failing, [&] { object = readJSONObject(text); });
    EXPECT_NE(outcome.isOutOfMemory, object != nullptr);
    EXPECT_EQ(readJSONObject(text)->description(), expected);
    return outcome.hasFailed;
  });
}

TEST(AllocationFailures, EndTheRefusalOfJSONAndNoMore) {
  for (const char* text : {"[1]", "{\"a\": nul}", "{\"a\":\"\xFF\"}", "{\"a\":\"\\ud800\"}", "{\"a\":1e999}", "{"}) {
    FailingWork(text).check([&](std::int64_t count, Failing failing) {
      bool isRefused = false;
      const Outcome outcome = runWith(count, failing, [&] {
        try {
          (void)readJSONObject(text);
        } catch (const JSONError&) {
          isRefused = true;
        }
      });
      EXPECT_NE(outcome.isOutOfMemory, isRefused);
      return outcome.hasFailed;
    });
    if (HasFailure()) return;
  }
}

// Sends this program's standard error to a file.
class ErrorsInFile {
 public:
  explicit ErrorsInFile(const std::string& path) : before_(::dup(STDERR_FILENO)) {
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    ::dup2(file, STDERR_FILENO);
    ::close(file);
  }
  ~ErrorsInFile() {
    ::dup2(before_, STDERR_FILENO);
    ::close(before_);
  }
  ErrorsInFile(const ErrorsInFile&) = delete;
  ErrorsInFile& operator=(const ErrorsInFile&) = delete;

 private:
  int before_;
};

struct ProgramRow {
  const char* what;
  std::vector<std::string> options;
  const char* text;
  int status;
};

const char kPage[] =
    "<? function f($a) ?><? return $a.b / 2 ?><? endfunction ?>Hello <?= $name ?>, <?= f(1) ?><? f(1, 2) ?>\n"
    "<? foreach ($n in $list) ?><?= $n ?><? endforeach ?><? if ($name =~ /A+/) ?>matches<? endif ?>";

const ProgramRow kPrograms[] = {
    {"a page", {}, kPage, 0},
    {"a page, told of in JSON", {"--error-format", "json", "-D", "other:={\"a\":[1]}", "--stats"}, kPage, 0},
    {"a failure", {}, "one\n<?= $name % 0 ?>", 1},
    {"a failure, told of in JSON", {"--error-format=json"}, "one\n<?= 1 2 ?>", 1},
    {"data that cannot be read", {"--data", "/no such file"}, "text", 2},
    {"an option that nobody knows", {"--what"}, "text", 2},
};

// What the program leaves behind where an allocation fails: the file as it was, or replaced as a whole, and a word why.
class ProgramAttempt {
 public:
  explicit ProgramAttempt(const ProgramRow& row) : row_(row) {
    folder_.write("template", row.text);
    folder_.write("data", R"({"name": "Ada", "list": [1, 2, 3]})");
    arguments_ = {
        "tavlo", "render", folder_.path("template"), "-d", folder_.path("data"), "-o", folder_.path("result")};
    arguments_.insert(arguments_.end(), row.options.begin(), row.options.end());
    for (std::string& argument : arguments_) argv_.push_back(argument.data());
    argv_.push_back(nullptr);
  }

  bool operator()(std::int64_t count, Failing failing) {
    folder_.write("result", "old");
    int status = -1;
    Outcome outcome;
    {
      const ErrorsInFile errors(folder_.path("errors"));
      outcome =
          runWith(count, failing, [&] { status = runProgram(static_cast<int>(arguments_.size()), argv_.data()); });
    }
    const std::string errors = folder_.read("errors");
    const std::string result = folder_.read("result");
    EXPECT_FALSE(outcome.isOutOfMemory);
    EXPECT_TRUE(status == row_.status || (outcome.hasFailed && (status == 1 || status == 2))) << status;
    EXPECT_TRUE(status == 0 || errors.ends_with("\n")) << errors;
    EXPECT_TRUE(status == row_.status || errors.find("std::bad_alloc") != std::string::npos) << errors;
    if (status == 0) {
      EXPECT_THAT(result, testing::StartsWith("Hello "));
    } else {
      EXPECT_EQ(result, "old");
    }
    EXPECT_EQ(folder_.names(), (std::vector<std::string>{"data", "errors", "result", "template"}));
    return outcome.hasFailed;
  }

  // What the last run has told.
  std::string errors() const { return folder_.read("errors"); }

 private:
  const ProgramRow& row_;
  WorkFolder folder_;
  std::vector<std::string> arguments_;
  std::vector<char*> argv_;
};

TEST(AllocationFailures, EndTheProgramAndNoMore) {
  for (const ProgramRow& row : kPrograms) {
    ProgramAttempt attempt(row);
    FailingWork(row.what, 7).check([&](std::int64_t count, Failing failing) { return attempt(count, failing); });
    if (HasFailure()) return;
  }
}

TEST(AllocationFailures, OfWhatIsToldBehindAFailureDoNotTakeItsPlace) {
  const ProgramRow row = {"a failure behind statistics", {"--stats"}, "<?= 1 % 0 ?>", 1};
  ProgramAttempt attempt(row);
  int tellsBoth = 0;
  FailingWork(row.what).check([&](std::int64_t count, Failing failing) {
    const bool hasFailed = attempt(count, failing);
    const std::string errors = attempt.errors();
    if (errors.starts_with("tavlo: input: std::bad_alloc\n") &&
        errors.find("NSGenericException") != std::string::npos) {
      ++tellsBoth;
    }
    return hasFailed;
  });
  EXPECT_GT(tellsBoth, 0);
}

// The status of the program in a process of its own, where the allocation behind so many fails; nothing where it ends
// otherwise. Adds kAllSucceeded where it makes no more.
constexpr int kAllSucceeded = 64;
std::optional<int> statusWithoutMemory(std::vector<char*>& argv, std::int64_t count) {
  const pid_t child = ::fork();
  if (child == 0) {
    const int nowhere = ::open("/dev/null", O_WRONLY);
    ::dup2(nowhere, STDERR_FILENO);
    const FailingMemory memory(count, Failing::Once);
    const int status = runProgram(static_cast<int>(argv.size()) - 1, argv.data());
    ::_exit(FailingMemory::hasFailed() ? status : status + kAllSucceeded);
  }
  int status = 0;
  if (child < 0 || ::waitpid(child, &status, 0) != child || !WIFEXITED(status)) return {};
  return WEXITSTATUS(status);
}

// The library of options copies what may be a command where it may not fail.
TEST(AllocationFailures, EndTheProgramAlsoWhereItTakesItsArguments) {
  std::vector<std::string> arguments = {"tavlo", "render", "template", std::string(40, 'y'), std::string(2'000, 'x')};
  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  constexpr int kUsage = 2;
  std::optional<int> status = kUsage;
  for (std::int64_t count = 0; status == kUsage; ++count) status = statusWithoutMemory(argv, count);
  EXPECT_EQ(status, kUsage + kAllSucceeded);
}

}  // namespace

}  // namespace tavlo::test

#endif
