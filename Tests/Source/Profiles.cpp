#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "Foundation/NSArray.h"
#include "Source/KorTemplateCallableFunction.h"
#include "Tests/Foundation/Raised.h"
#include "Tests/Memory/WorkBound.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

namespace {

using testing::AllOf;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::IsSupersetOf;
using testing::Not;
using testing::WhenSorted;

// An environment with a profile, and a function `wait` that takes some milliseconds.
struct ProfiledStage : Stage {
  ProfiledStage() {
    environment->setProfile(profile);
    define("wait", [](auto&&...) -> Value {
      std::this_thread::sleep_for(std::chrono::milliseconds(3));
      return NSNull::null();
    });
  }

  void runNamed(const std::string& name, const std::string& text) const {
    KorTemplate::compile(text, {name, {}})->executeWithEnvironment(get());
  }
  // The stacks without the times, which must be there.
  std::string stacks() const {
    std::string text;
    std::istringstream lines(profile->foldedStacks());
    for (std::string line; std::getline(lines, line);) text += line.substr(0, line.rfind(' ')) + '\n';
    return '\n' + text;
  }

  Ref<KorTemplateProfile> profile = KorTemplateProfile::profile();
};

TEST(KorTemplateProfile, IsEmptyBeforeAnythingRan) {
  EXPECT_EQ(KorTemplateProfile::profile()->foldedStacks(), "");
}

TEST(KorTemplateProfile, AscribesTimeToTheStatementThatTookIt) {
  const ProfiledStage stage;
  stage.runNamed("page", "a\n<? wait() ?>\nb<? function f() ?>\n<? wait() ?>\n<? endfunction ?>\n<? f() ?><? f() ?>");
  EXPECT_THAT(stage.stacks(), HasSubstr("\npage:2\n"));
  EXPECT_THAT(stage.stacks(), HasSubstr("\npage:6;f page:4\n"));
}

TEST(KorTemplateProfile, GathersOneExecutionAfterAnother) {
  const ProfiledStage stage;
  stage.runNamed("a;b", "<? wait() ?>");
  stage.runNamed("", "\r\n\r<? wait() ?>");
  EXPECT_THAT(stage.stacks(), HasSubstr("\na,b:1\n"));
  EXPECT_THAT(stage.stacks(), HasSubstr("\ntemplate:3\n"));
  stage.environment->setProfile(nullptr);
  stage.runNamed("later", "<? wait() ?>");
  EXPECT_THAT(stage.stacks(), Not(HasSubstr("later")));
}

TEST(KorTemplateProfile, TellsOfNoMoreTimeThanTheExecutionsTook) {
  using Clock = std::chrono::steady_clock;
  const ProfiledStage stage;
  Clock::duration taken{};
  for (int round = 0; round < 2; ++round) {
    const Clock::time_point begin = Clock::now();
    stage.runNamed("page", "<? wait() ?>");
    taken += Clock::now() - begin;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  std::chrono::microseconds told{};
  std::istringstream lines(stage.profile->foldedStacks());
  for (std::string line; std::getline(lines, line);) {
    told += std::chrono::microseconds(std::stoll(line.substr(line.rfind(' '))));
  }
  EXPECT_GE(told, std::chrono::milliseconds(6) - std::chrono::microseconds(10));
  EXPECT_LE(told, taken);
}

TEST(KorTemplateProfile, PutsNestedTemplatesUnderTheFunctionThatRunsThem) {
  const ProfiledStage stage;
  const Ref<KorTemplate> inner = KorTemplate::compile("\n<? wait() ?>", {"inner", {}});
  stage.define("include", [&](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
    inner->executeWithEnvironment(environment);
    return NSNull::null();
  });
  stage.runNamed("outer", "<? include() ?>");
  EXPECT_THAT(stage.stacks(), HasSubstr("\nouter:1;include;inner:2\n"));
}

TEST(KorTemplateProfile, KeepsWhatItTellsOf) {
  const Ref<KorTemplateProfile> profile = KorTemplateProfile::profile();
  {
    const ProfiledStage stage;
    stage.environment->setProfile(profile);
    stage.runNamed("gone", "<? function f() ?><? wait() ?><? endfunction ?><? f() ?>");
    stage.environment->removeFunctionForName("f");
  }
  EXPECT_THAT(profile->foldedStacks(), HasSubstr("gone:1;f gone:1 "));
}

TEST(KorTemplateProfile, KeepsNoFunctionOfTheHost) {
  const Stage stage;
  const Ref<KorTemplateProfile> profile = KorTemplateProfile::profile();
  stage.environment->setProfile(profile);
  const auto captured = std::make_shared<int>(1);
  const Ref<KorTemplate> page = KorTemplate::compile("<? f($list) ?>");
  stage.set("list", NSArray::arrayWithObjects(std::vector<Value>(100, 1)));
  for (int request = 0; request < 3; ++request) {
    // The steps of its arguments are its own.
    stage.environment->setFunction("f", [captured](const std::vector<int>& each) { return each.size() + *captured; });
    page->executeWithEnvironment(stage.get());
  }
  stage.environment->setFunction("f", [] {});
  EXPECT_EQ(captured.use_count(), 1);
}

TEST(KorTemplateProfile, ChangesNothingOfWhatRuns) {
  const char* text =
      "<? function fib($n) ?><? if ($n < 2) ?><? return $n ?><? endif ?><? return fib($n - 1) + fib($n - 2) ?>"
      "<? endfunction ?><?= fib(12) ?><? g() ?>";
  const Stage plain;
  plain.run(text);
  const ProfiledStage profiled;
  profiled.run(text);
  EXPECT_EQ(profiled.text(), plain.text());
  EXPECT_EQ(profiled.environment->stepsTaken(), plain.environment->stepsTaken());
  KorTemplateLimits limits;
  limits.steps = plain.environment->stepsTaken();
  profiled.environment->setLimits(limits);
  profiled.run(text);
  limits.steps = *limits.steps - 1;
  profiled.environment->setLimits(limits);
  EXPECT_THROW(profiled.run(text), KorTemplateLimitException);
}

// Two functions of two templates, which one call of a host's function calls one after the other.
TEST(KorTemplateProfile, TellsTheTemplatesOfFunctionsApartThatBeginInOnePlace) {
  const ProfiledStage stage;
  stage.runNamed("a", "<? function first() ?><? wait() ?><? endfunction ?>");
  stage.runNamed("b", "\n\n\n<? function second() ?><? wait() ?><? endfunction ?>");
  stage.define("both", [](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
    for (const char* name : {"first", "second"})
      environment->functionForName(name)->invokeWithEnvironment(environment, {});
    return NSNull::null();
  });
  stage.runNamed("main", "<? both() ?>");
  EXPECT_THAT(stage.stacks(), HasSubstr("\nmain:1;both;a:1\n"));
  EXPECT_THAT(stage.stacks(), HasSubstr("\nmain:1;both;b:4\n"));
}

TEST(KorTemplateProfile, IsInTheOrderOfTheText) {
  const ProfiledStage stage;
  stage.run("<? function g($n) ?><? wait() ?><? endfunction ?>");
  stage.runNamed("p", "<? wait() ?><? g(1) ?>" + std::string(9, '\n') + "<? g(2) ?><? wait() ?>");
  std::vector<std::string> lines;
  std::istringstream text(stage.stacks());
  for (std::string line; std::getline(text, line);) {
    if (!line.empty()) lines.push_back(line);
  }
  EXPECT_THAT(lines, IsSupersetOf({"p:1", "p:10", "p:10;g template:1", "p:1;g template:1"}));
  EXPECT_THAT(lines, WhenSorted(ElementsAreArray(lines)));
  EXPECT_EQ(std::set<std::string>(lines.begin(), lines.end()).size(), lines.size());
}

std::string depthTemplate(const std::string& name, int lines) {
  std::string text = "<? function " + name + "($n) ?>\n";
  for (int line = 0; line < lines; ++line) text += "<? $v = $n * 2 + 1 ?>\n";
  return text + "<? if ($n > 0) ?><? " + name + "($n - 1) ?><? else ?><? wait() ?><? endif ?>\n<? endfunction ?>\n";
}

std::string repeatedFrame(const std::string& frame, int times) {
  std::string text;
  for (int time = 0; time < times; ++time) text += frame + ";";
  return text;
}

TEST(KorTemplateProfile, ShowsTheEndsOfDeepStacks) {
  const ProfiledStage stage;
  stage.runNamed("p", depthTemplate("f", 0));
  const auto stackAt = [&stage](int depth) {
    stage.runNamed("main", "<? f(" + std::to_string(depth) + ") ?>");
    return stage.stacks();
  };
  // The template, the functions, and the one that waits: 64 of them are shown as they are.
  EXPECT_THAT(stackAt(62), AllOf(HasSubstr("\nmain:1;" + repeatedFrame("f p:2", 62) + "f p:2\n"), Not(HasSubstr("…"))));
  const std::string cut = "\nmain:1;" + repeatedFrame("f p:2", 31) + "…;" + repeatedFrame("f p:2", 31) + "f p:2\n";
  EXPECT_THAT(stackAt(63), HasSubstr(cut));
  // However deep they are, they look alike but for the innermost line.
  const std::string stacks = stackAt(500);
  std::size_t cuts = 0;
  for (std::size_t at = 0; (at = stacks.find("…", at)) != std::string::npos; ++at) ++cuts;
  EXPECT_LE(cuts, 3U);
}

TEST(KorTemplateProfile, OfDeepRecursionIsQuickAndShort) {
  const std::string longName(100'000, 'f');
  for (const std::string& name : {std::string("f"), longName}) {
    const ProfiledStage stage;
    stage.runNamed("p", depthTemplate(name, 24));
    stage.runNamed("main", "<? " + name + "(900) ?>");
    const WorkBound bound("folding the stacks of a deep recursion");
    EXPECT_LT(stage.profile->foldedStacks().size(), 50'000'000U);
  }
}

TEST(KorTemplateProfile, OfManyStatementsInDeepRecursionTakesTheTextOfThoseThatTookTime) {
  std::string text = "<? function " + std::string(250, 'f') + "($n) ?>\n";
  for (int statement = 0; statement < 300; ++statement) text += "<? 1 ?>\n";
  text +=
      "<? if ($n < 62) ?>\n<? $m = ($n + 1) ?><? " + std::string(250, 'f') + "($m) ?>\n<? endif ?><? endfunction ?>";
  const WorkBound bound("folding the stacks of many statements");
  const ProfiledStage stage;
  stage.runNamed("p", text + "<? " + std::string(250, 'f') + "(1) ?>");
  EXPECT_FALSE(stage.profile->foldedStacks().empty());
}

// Hundreds of thousands of ways lead to a few frames with long names.
TEST(KorTemplateProfile, OfManyWaysToOneFrameTakesItsTextOnce) {
  const std::string name(256, 'f');
  std::string text = "<? function " + name + "($p) ?><? if ($p > 0) ?>";
  for (int call = 0; call < 4; ++call) text += "<? " + name + "($p - 1) ?>\n";
  const ProfiledStage stage;
  stage.runNamed("p", text + "<? endif ?><? endfunction ?><? " + name + "(9) ?>");
  const WorkBound bound("folding the stacks of many ways");
  EXPECT_FALSE(stage.profile->foldedStacks().empty());
}

// There are as many ways as the template takes steps.
TEST(KorTemplateProfile, KeepsSoManyWaysAndTellsOfTheTimeOfOthersTogether) {
  const ProfiledStage stage;
  KorTemplateLimits limits;
  limits.steps = 1'500'000;
  stage.environment->setLimits(limits);
  const WorkBound bound("ways without end");
  const std::string text =
      "<? function f($n) ?><? if ($n < 30) ?><? f($n + 1) ?>\n<? f($n + 1) ?><? endif ?><? endfunction ?><? f(0) ?>";
  EXPECT_EQ(limitReached([&] { stage.runNamed("p", text); }), KorTemplateLimit::Steps);
  EXPECT_THAT(stage.profile->foldedStacks(), HasSubstr("\n… "));
}

// Two thousand statements, each behind 64 frames with long names.
TEST(KorTemplateProfile, LeavesOutWhereTheLeastTimeWentOfVeryLongTexts) {
  const std::string name(250, 'f');
  std::string text = "<? function " + name + "($n) ?>\n<? if ($n < 64) ?><? " + name + "($n + 1) ?><? else ?>";
  for (int statement = 0; statement < 2'000; ++statement) text += "\n<? foreach ($e in $list) ?><? endforeach ?>";
  text += "\n<? endif ?><? endfunction ?><? foreach ($e in $list) ?><? foreach ($f in $list) ?><? endforeach ?>";
  const ProfiledStage stage;
  stage.set("list", makeRef<NSArray>(std::vector<Value>(300, 1)));
  stage.runNamed(name, text + "<? endforeach ?>\n<? " + name + "(1) ?>");
  const WorkBound bound("a text of many long stacks");
  const std::string stacks = stage.profile->foldedStacks();
  EXPECT_GT(stacks.size(), 15'000'000U);
  EXPECT_LT(stacks.size(), 17'000'000U);
  EXPECT_NE(stacks.find("\n… "), std::string::npos);
  EXPECT_NE(stacks.find(name + ":2003 "), std::string::npos);  // the loops in loops took the most
}

TEST(KorTemplateProfile, CutsLongNames) {
  const ProfiledStage stage;
  const std::string longest(256, 'n');
  stage.runNamed(longest, "<? wait() ?>");
  EXPECT_THAT(stage.stacks(), HasSubstr("\n" + longest + ":1\n"));
  stage.runNamed("x" + longest, "<? wait() ?>");
  EXPECT_THAT(stage.stacks(), HasSubstr("\nx" + longest.substr(1) + "…:1\n"));
  stage.runNamed(longest.substr(1) + "é", "<? wait() ?>");  // never in the midst of a character
  EXPECT_THAT(stage.stacks(), HasSubstr("\n" + longest.substr(1) + "…:1\n"));
}

}  // namespace

}  // namespace tavlo::test
