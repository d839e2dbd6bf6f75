#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <string>
#include <vector>

#include "Tests/Memory/WorkBound.h"
#include "Tests/Tool/ProgramRun.h"
#include "Tests/Tool/WorkFolder.h"

namespace tavlo {

namespace {

constexpr const char* kRecursion =
    "<? function t($n)\n?><? if ($n > 0) ?><? t($n - 1) ?><? t($n - 1) ?><? endif ?><? endfunction\n?>a<? t(60) ?>";

// Takes some milliseconds.
constexpr const char* kBusy =
    "<? function t($n)\n?><? if ($n > 0) ?><? t($n - 1) ?><? t($n - 1) ?><? endif ?><? endfunction\n?>a<? t(14) ?>";

TEST(ProgramLimits, EndATemplateThatTakesMore) {
  struct Row {
    std::vector<std::string> options;
    std::string output;
    std::string reason;  // empty where the template ends well
  };
  const Row rows[] = {
      {{"--max-steps", "6"}, "a123", ""},
      {{"--max-steps", "5"}, "a12", "page:2:4: KorTemplateLimitException: The execution takes more than 5 steps"},
      {{"--max-output=4"}, "a123", ""},
      {{"--max-output=3"}, "a12", "page:2:4: KorTemplateLimitException: The execution writes more than 3 bytes"},
      {{"--max-seconds", "0"}, "", "page: KorTemplateLimitException: The execution takes longer than 0 milliseconds"},
      {{"--max-seconds", "1e9"}, "a123", ""},
      {{"--max-nesting", "0"}, "a123", ""},
      {{"--max-function-depth", "0"}, "a123", ""},
      {{"--max-string", "0"}, "a123", ""},
  };
  for (const Row& row : rows) {
    const WorkFolder folder;
    folder.write("page", "a<?= 1 ?><?= 2 ?><? 0\n ?><?= 3 ?>");
    std::vector<std::string> arguments = {"render", "page"};
    arguments.insert(arguments.end(), row.options.begin(), row.options.end());
    ProgramRun run(folder, arguments);
    EXPECT_EQ(run.status(), row.reason.empty() ? 0 : 1) << row.options[0];
    EXPECT_EQ(run.output(), row.output) << row.options[0];
    EXPECT_EQ(run.errors().substr(0, run.errors().find('\n')), row.reason) << row.options[0];
  }
}

TEST(ProgramLimits, EndATemplateThatGoesOnForTooLong) {
  const WorkFolder folder;
  folder.write("page", kRecursion);
  ProgramRun run(folder, {"render", "page", "--max-seconds", "0.05"});
  EXPECT_EQ(run.status(), 1);
  EXPECT_LT(run.processorSeconds(), test::WorkBound::seconds());
  EXPECT_EQ(run.output(), "a");
  EXPECT_NE(run.errors().find("The execution takes longer than 50 milliseconds"), std::string::npos) << run.errors();
}

TEST(ProgramLimits, AreThoseThatAreGiven) {
  struct Row {
    const char* option;
    const char* text;
    const char* reason;
  };
  const Row rows[] = {
      {"--max-nesting=2", "<?= (((1))) ?>", "Blocks and parentheses are nested deeper than 2"},
      {"--max-function-depth=1", "<? function f() ?><? f() ?><? endfunction ?><? f() ?>",
       "Functions are running deeper than 1 inside one another"},
      {"--max-string=3", "<? $a = \"ab\" + \"cd\" ?>", "A string is longer than 3 bytes"},
  };
  for (const Row& row : rows) {
    const WorkFolder folder;
    folder.write("page", row.text);
    ProgramRun run(folder, {"render", "page", row.option});
    EXPECT_EQ(run.status(), 1) << row.option;
    EXPECT_NE(run.errors().find(std::string("KorTemplateLimitException: ") + row.reason + '\n'), std::string::npos)
        << run.errors();
  }
}

TEST(ProgramLimits, RefuseWhatIsNoNumber) {
  for (const char* option :
       {"--max-steps=x", "--max-steps=-1", "--max-output=1.5", "--max-seconds=-1", "--max-seconds=soon",
        "--max-seconds=nan", "--max-seconds=1e400", "--max-nesting=2147483648", "--max-nesting=18446744073709551617",
        "--max-function-depth=18446744073709551617", "--max-steps=18446744073709551616",
        "--max-steps=18446744073709551617", "--max-output=36893488147419103233", "--max-string=18446744073709551617"}) {
    const WorkFolder folder;
    folder.write("page", "a");
    ProgramRun run(folder, {"render", "page", option});
    EXPECT_EQ(run.status(), 2) << option;
    EXPECT_EQ(run.output(), "") << option;
    EXPECT_NE(run.errors().find("tavlo: usage: --max-"), std::string::npos) << run.errors();
  }
}

TEST(ProgramStatistics, AreToldOnStandardError) {
  const std::regex form(
      "read         \\d+\\.\\d{6} s\n"
      "compile      \\d+\\.\\d{6} s\n"
      "render       \\d+\\.\\d{6} s\n"
      "steps        3\n"
      "output       4 bytes\n"
      "allocations  [1-9]\\d*\n"
      "peak memory  [1-9]\\d* KiB\n");
  const WorkFolder folder;
  folder.write("page", "a<?= \"b\xC3\xA9\" ?>");
  ProgramRun run(folder, {"render", "page", "--stats"});
  EXPECT_EQ(run.status(), 0);
  EXPECT_EQ(run.output(), "ab\xC3\xA9");
  EXPECT_TRUE(std::regex_match(run.errors(), form)) << run.errors();
}

TEST(ProgramStatistics, StandBeforeAFailureAndInItsForm) {
  const WorkFolder folder;
  folder.write("page", "a<?= 1 / 0 ?>");
  ProgramRun run(folder, {"render", "page", "--stats", "--error-format", "json"});
  EXPECT_EQ(run.status(), 1);
  const std::regex form(
      R"(\{"kind":"statistics","read":[^,]+,"compile":[^,]+,"render":[^,]+,"steps":3,"output":1,"allocations":\d+,)"
      R"("peakMemory":\d+\}\n\{"kind":"error","name":"NSGenericException".*\}\n)");
  EXPECT_TRUE(std::regex_match(run.errors(), form)) << run.errors();
}

TEST(ProgramStatistics, AreNotToldUnlessAskedFor) {
  const WorkFolder folder;
  folder.write("page", "a");
  ProgramRun run(folder, {"render", "page"});
  EXPECT_EQ(run.status(), 0);
  EXPECT_EQ(run.errors(), "");
}

TEST(ProgramProfile, NamesTheLinesWhereTheTimeWent) {
  const WorkFolder folder;
  folder.write("page",
               "<? function outer($n)\n?><?= inner($n)\n?><? endfunction\n?><? function inner($n)\n?>"
               "<?= $n.uppercaseString.lowercaseString.capitalizedString\n?><? endfunction\n?>"
               "<? outer($long) ?>\n<? outer($long) ?>");
  folder.write("data.json", "{\"long\":\"" + std::string(300'000, 'x') + "\"}");
  ProgramRun run(folder, {"render", "page", "-d", "data.json", "--profile", "stacks", "-o", "out"});
  EXPECT_EQ(run.status(), 0) << run.errors();
  EXPECT_EQ(run.errors(), "");
  const std::string stacks = folder.read("stacks");
  EXPECT_TRUE(std::regex_match(stacks, std::regex("([^\n;]+(;[^\n;]+)* [1-9]\\d*\n)+"))) << stacks;
  for (const char* stack : {"page:8;outer page:2;inner page:5 ", "page:7;outer page:2;inner page:5 "}) {
    EXPECT_NE(("\n" + stacks).find(std::string("\n") + stack), std::string::npos) << stacks;
  }
}

TEST(ProgramProfile, IsWrittenOfATemplateThatFailsToo) {
  const WorkFolder folder;
  folder.write("page", kRecursion);
  ProgramRun run(folder, {"render", "page", "--profile=stacks", "--max-seconds=0.05"});
  EXPECT_EQ(run.status(), 1);
  EXPECT_NE(folder.read("stacks").find("page:3;t page:2;t page:2"), std::string::npos);
}

TEST(ProgramProfile, IsWrittenWhereNobodyReadsTheTextAnyMore) {
  const WorkFolder folder;
  folder.write("page", kBusy);
  ProgramRun run(folder, {"render", "page", "--profile=stacks"}, {.readerIsGone = true});
  EXPECT_EQ(run.status(), 0) << run.errors();
  EXPECT_NE(folder.read("stacks").find("page:"), std::string::npos);
}

TEST(ProgramProfile, HoldsUpNoTextWhereNobodyReadsItAnyMore) {
  const WorkFolder folder;
  folder.write("page", kBusy);
  ProgramRun run(folder, {"render", "page", "-o", "out", "--profile=/dev/stdout"}, {.readerIsGone = true});
  EXPECT_EQ(run.status(), 0) << run.errors();
  EXPECT_EQ(run.errors(), "");
  EXPECT_NE(folder.read("out"), "");
}

TEST(ProgramProfile, IsRefusedWhereTheTextGoes) {
  for (const char* const name : {"out", "./out", "link"}) {
    const WorkFolder folder;
    folder.write("page", "a");
    folder.write("out", "old");
    std::filesystem::create_symlink("out", folder.path("link"));
    ProgramRun run(folder, {"render", "page", "-o", "out", "--profile", name});
    EXPECT_EQ(run.status(), 2);
    EXPECT_EQ(run.output(), "");
    EXPECT_EQ(run.errors(), name + std::string(": output: The profile and the text cannot be written to one file\n"));
    EXPECT_EQ(folder.read("out"), "old");
  }
}

TEST(ProgramProfile, IsRefusedWhereTheTextMakesANewFile) {
  const WorkFolder folder;
  folder.write("page", "a");
  for (const std::string& name : {std::string("./out"), folder.path("out"), std::string("out")}) {
    ProgramRun run(folder, {"render", "page", "-o", "out", "--profile", name});
    EXPECT_EQ(run.status(), 2) << name;
    EXPECT_EQ(run.errors(), name + ": output: The profile and the text cannot be written to one file\n");
    EXPECT_EQ(folder.names(), std::vector<std::string>{"page"}) << name;
  }
}

TEST(ProgramProfile, ThatCannotBeWrittenHidesNoFailure) {
  const WorkFolder folder;
  folder.write("page", "a<? 1 / 0 ?>");
  ProgramRun run(folder, {"render", "page", "--profile", "/dev/full"});
  EXPECT_EQ(run.status(), 1);
  EXPECT_EQ(run.output(), "a");
  EXPECT_THAT(run.errors(), testing::StartsWith("/dev/full: output: The profile cannot be written: "));
  EXPECT_THAT(run.errors(), testing::HasSubstr("page:1:2: NSGenericException: Divide by zero"));
}

TEST(ProgramProfile, IsRefusedWhereItCannotBeWritten) {
  const WorkFolder folder;
  folder.write("page", "a");
  ProgramRun run(folder, {"render", "page", "--profile", "absent/stacks"});
  EXPECT_EQ(run.status(), 2);
  EXPECT_EQ(run.output(), "");
  EXPECT_NE(run.errors().find("absent/stacks: output: The file cannot be written"), std::string::npos) << run.errors();
}

}  // namespace

}  // namespace tavlo
