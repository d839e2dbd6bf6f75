#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "Foundation/HostObject.h"
#include "Foundation/NSArray.h"
#include "Foundation/NSDictionary.h"
#include "Source/KorTemplateCallableFunction.h"
#include "Tests/Foundation/Raised.h"
#include "Tests/Foundation/Repeated.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

namespace {

// How finding a variable counts, wherever it stands.

struct FarPart {
  int number = 1;
};
void describeHostClass(HostClass<FarPart>& part) {
  part.name("FarPart").property("number", &FarPart::number);
}

constexpr int kScopes = 640;  // between a variable and who reads it: ten steps

std::string farFromItsVariables(const std::string& text) {
  return repeated("<? if (1) ?><? $other = 1 ?>", kScopes) + text + repeated("<? endif ?>", kScopes);
}

KorTemplateLimits limitsOf(std::uint64_t steps) {
  KorTemplateLimits limits;
  limits.steps = steps;
  return limits;
}

// A variable that stands below thousands of frames which all hold others is found by going through them.
TEST(LookupSteps, CountTheFramesBetweenAVariableAndWhoReadsIt) {
  const auto stepsBelow = [](int frames) {
    const Stage stage;
    stage.set("g", 1);
    for (int index = 0; index < frames; ++index) {
      stage.environment->stack()->push(KorTemplateStackFrame::stackFrame());
      stage.environment->stack()->currentFrame()->setValueForVariableWithName(index, "other");
    }
    stage.run("<?= $g ?>");
    EXPECT_EQ(stage.text(), "1");
    return stage.environment->stepsTaken();
  };
  EXPECT_EQ(stepsBelow(50), 2U);
  EXPECT_EQ(stepsBelow(640), 2U + 10U);
  EXPECT_EQ(stepsBelow(6'400), 2U + 100U);
}

// What lookups leave behind for later ones saves time, and depends on addresses and hashes: not so the steps.
TEST(LookupSteps, AreTheSameStepsEachTime) {
  std::string text = "<? function f($n) ?>";
  for (int scope = 0; scope < 5; ++scope) text += "<? if ($n >= 0) ?><? $v" + std::to_string(scope) + " = $n ?>";
  for (int name = 0; name < 12; ++name) text += "<? $x = $undefined" + std::to_string(name) + " ?>";
  text += "<? if ($n > 0) ?><? f($n - 1) ?><? endif ?>";
  for (int scope = 0; scope < 5; ++scope) text += "<? endif ?>";
  text += "<? endfunction ?><? f(500) ?>";
  const Ref<KorTemplate> page = KorTemplate::compile(text);
  std::set<std::uint64_t> steps;
  std::vector<Ref<KorTemplateEnvironment>> environments;
  for (int round = 0; round < 20; ++round) {
    environments.push_back(KorTemplateEnvironment::environment());  // its frames lie elsewhere
    page->executeWithEnvironment(environments.back().get());
    steps.insert(environments.back()->stepsTaken());
  }
  EXPECT_EQ(steps.size(), 1U);
}

// Whether a name in a scope of many is found quickly hangs on its hash.
TEST(LookupSteps, CountNoOperatorOfNumbersHoweverTheyAreFound) {
  std::string text = "<? function f() ?>";
  for (int name = 0; name < 20; ++name) text += "<? $v" + std::to_string(name) + " = 1 ?>";
  const std::string names[] = {"a", "b", "c", "d", "e", "f", "g", "h"};
  text += "<? if (1) ?>";
  for (const std::string& name : names) text += "<?= $" + name + " + 1 ?>";
  const Stage stage;
  for (const std::string& name : names) stage.set(name.c_str(), 1);
  stage.run(text + "<? endif ?><? endfunction ?><? f() ?>");
  EXPECT_EQ(stage.text(), "22222222");
  EXPECT_EQ(stage.environment->stepsTaken(), 4U + 20U * 2U + 1U + 8U);  // the template, its two statements and the call
}

// None of the arguments is a step, nor is what stands between numbers in them.
TEST(LookupSteps, AreLookedAtBetweenTheArgumentsOfACall) {
  constexpr std::uint64_t kSteps = kScopes * 4;
  for (const std::string argument : {"$g", "$g + 1"}) {
    const Stage stage;
    stage.define("f", [](KorTemplateEnvironment*, ListArgument<Value>) -> Value { return NSNull::null(); });
    stage.set("g", 1);
    stage.environment->setLimits(limitsOf(kSteps));
    const std::string text = farFromItsVariables("<? f(" + argument + repeated(", " + argument, 2'000) + ") ?>");
    EXPECT_EQ(limitReached([&] { stage.run(text); }), KorTemplateLimit::Steps) << argument;
    EXPECT_LE(stage.environment->stepsTaken(), kSteps + 2'000 + 100) << argument;  // the arguments count in advance
  }
}

TEST(LookupSteps, AreLookedAtBetweenTheOperandsOfAChain) {
  constexpr std::uint64_t kSteps = kScopes * 4;
  const Stage stage;
  stage.set("g", 1);
  stage.environment->setLimits(limitsOf(kSteps));
  const std::string text = farFromItsVariables("<? $g" + repeated(" && $g", 1'000) + " ?>");
  EXPECT_EQ(limitReached([&] { stage.run(text); }), KorTemplateLimit::Steps);
  EXPECT_LE(stage.environment->stepsTaken(), kSteps + 1'000 + 100);  // the operators count in advance
}

// The execution ends behind the look-up.
TEST(LookupSteps, AreLookedAtWhereTheyAreTheLastOnes) {
  const std::string text = farFromItsVariables("<?= $g ?>");
  const Stage stage;
  stage.set("g", 1);
  stage.run(text);
  const std::uint64_t steps = stage.environment->stepsTaken();
  stage.environment->setLimits(limitsOf(steps));
  EXPECT_EQ(limitReached([&] { stage.run(text); }), std::nullopt);
  stage.environment->setLimits(limitsOf(steps - 1));
  EXPECT_EQ(limitReached([&] { stage.run(text); }), KorTemplateLimit::Steps);
}

// Nothing is written beyond the steps, though the time is not limited and so is not looked at.
TEST(LookupSteps, AreLookedAtBeforeWhatTheyHaveFoundIsWritten) {
  for (const std::string written : {"$g", "$g + 1", "$list.@count", "$part.number", "$dictionary.a", "$nothing"}) {
    const std::string text = farFromItsVariables("<?= " + written + " ?>.");
    const auto run = [&](std::optional<std::uint64_t> steps) {
      const Stage stage;
      stage.set("g", 1);
      stage.set("list", NSArray::arrayWithObjects({1, 2}));
      stage.set("part", hostShared(std::make_shared<FarPart>()));
      stage.set("dictionary", NSDictionary::dictionaryWithEntries({{"a", 1}}));
      if (steps.has_value()) stage.environment->setLimits(limitsOf(*steps));
      EXPECT_EQ(limitReached([&] { stage.run(text); }).has_value(), steps.has_value()) << written;
      EXPECT_EQ(stage.text().empty(), steps.has_value()) << written;
      return stage.environment->stepsTaken();
    };
    const std::uint64_t all = run(std::nullopt);
    run(all - 2);  // a step for the text behind it
  }
}

struct Told {
  std::string diagnostics;
  int calls = 0;            // of the host's function and its observer
  std::uint64_t steps = 0;  // that were taken
};

Told toldBy(KorTemplate& page, const KorTemplateLimits& limits) {
  Told told;
  const Stage stage;
  stage.set("text", "x");
  stage.environment->setFunction("host", [&told](std::span<const Value> /*arguments*/) { return ++told.calls; });
  stage.environment->setFunction("pair", [&told](const Value&, const Value&) { return ++told.calls; });
  const Ref<KorTemplateObserver> observer = KorTemplateObserver::observer();
  observer->setCallback([&told](const KorTemplateObservation&) { ++told.calls; });
  stage.environment->setObserver(observer);
  stage.environment->setLimits(limits);
  (void)limitReached([&] { page.executeWithEnvironment(stage.get()); });
  told.diagnostics = stage.diagnostics();
  told.steps = stage.environment->stepsTaken();
  return told;
}

// Of what has failed or is not defined the host is not told beyond the steps, nor are its functions called, though the
// time is not limited.
TEST(LookupSteps, AreLookedAtBeforeWhatTheyHaveFoundIsToldOf) {
  const std::string failing =
      "<? function f() ?>" + farFromItsVariables("<? $text - 1 ?>") + "<? endfunction ?><? f() ?>";
  for (const std::string& text :
       {failing, farFromItsVariables("<? $x = $nobody ?>"), farFromItsVariables("<? host($text) ?>"),
        farFromItsVariables("<? pair($text, $text) ?>"), farFromItsVariables("<? host($text, 1, 2, 3) ?>")}) {
    const Ref<KorTemplate> page = KorTemplate::compile(text);
    const Told all = toldBy(*page, {});
    EXPECT_TRUE(!all.diagnostics.empty() || all.calls == 1);
    for (std::uint64_t steps = all.steps - 15; steps <= all.steps; ++steps) {
      KorTemplateLimits limits = limitsOf(steps);
      const Told told = toldBy(*page, limits);
      limits.time = std::chrono::hours(1);
      const Told watched = toldBy(*page, limits);
      EXPECT_EQ(told.diagnostics, watched.diagnostics) << steps << " of " << all.steps;
      EXPECT_EQ(told.calls, watched.calls) << steps << " of " << all.steps;
    }
  }
}

}  // namespace

}  // namespace tavlo::test
