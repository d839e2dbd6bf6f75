#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Foundation/LazyCollections.h"
#include "Foundation/NSArray.h"
#include "Foundation/NSDictionary.h"
#include "Source/KorTemplateCallableFunction.h"
#include "Source/KorTemplateCallbackStream.h"
#include "Source/KorTemplateExternalFunction.h"
#include "Tests/Foundation/Raised.h"
#include "Tests/Foundation/Repeated.h"
#include "Tests/Memory/WorkBound.h"
#include "Tests/Source/HostClasses.h"
#include "Tests/Source/SmallThread.h"

namespace tavlo::test {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

// What an execution ended with; nothing where it ended well.
template <class Action>
std::optional<KorTemplateLimitException> limitIn(Action&& action) {
  try {
    std::forward<Action>(action)();
  } catch (const KorTemplateLimitException& exception) {
    return exception;
  }
  return {};
}

template <class Action>
std::string limitTextOf(Action&& action) {
  const std::optional<KorTemplateLimitException> limit = limitIn(std::forward<Action>(action));
  return limit.has_value() ? limit->what() : "none";
}

KorTemplateLimits limitedSteps(std::uint64_t steps) {
  KorTemplateLimits limits;
  limits.steps = steps;
  return limits;
}

KorTemplateLimits limitedOutput(std::uint64_t bytes) {
  KorTemplateLimits limits;
  limits.output = bytes;
  return limits;
}

KorTemplateLimits limitedTime(std::chrono::milliseconds time) {
  KorTemplateLimits limits;
  limits.time = time;
  return limits;
}

// Numbers without an end.
Value endless() {
  return lazySequence([] { return [number = 0]() mutable { return std::optional<int>(number++); }; });
}

// Variables that the rows below use.
void setVariables(const Stage& stage) {
  stage.set("list", NSArray::arrayWithObjects({1, 2, 3}));
  stage.set("words", NSArray::arrayWithObjects({"b", "a", "b"}));
  stage.set("pair", NSDictionary::dictionaryWithEntries({{"b", 1}, {"a", 2}}));
  Value deep = 1;
  for (int level = 0; level < 64; ++level) deep = NSDictionary::dictionaryWithEntries({{"n", deep}});
  stage.set("deep", deep);
  stage.set("long", std::string(2560, 'x'));
  stage.set("same", std::string(2560, 'x'));
  for (const char* const name : {"keyed", "alike"}) {
    stage.set(name, NSDictionary::dictionaryWithEntries({{std::string(2560, 'k'), 1}}));
  }
  stage.set("numbers", lazySequence([] {
              return [number = 0]() mutable { return number < 4 ? std::optional<int>(number++) : std::nullopt; };
            }));
}

// What a host has, and functions that take and answer copies of it.
void setHostsData(const Stage& stage) {
  const std::string text(2560, 'x');
  std::unordered_map<std::string, int> hashed;
  std::map<std::string, int> sorted;
  for (int number = 0; number < 64; ++number) {
    hashed["key " + std::to_string(number)] = number;
    sorted["key " + std::to_string(number)] = number;
  }
  const auto valueFor = [](std::string_view key) { return key == "key" ? Value(1) : Value(); };
  const auto keys = [] { return std::vector<std::string>(64, "key"); };
  stage.environment->setGlobal("hashed", lazyDictionary(std::move(hashed)));
  stage.environment->setGlobal("ordered", lazyDictionary(std::map<std::string, int>(sorted)));
  stage.environment->setGlobal("sorted", sorted);
  stage.environment->setGlobal("asked", lazyDictionary(valueFor, keys));
  stage.environment->setGlobal("texts", lazyList(std::vector<std::string>{text}));
  stage.environment->setGlobal("hundred", std::vector<int>(100, 1));
  stage.environment->setFunction("copy", [](const std::string& copied) { return copied.size(); });
  stage.environment->setFunction("view", [](std::string_view viewed) { return viewed.size(); });
  stage.environment->setFunction("wide", [](const std::u16string& copied) { return copied.size(); });
  stage.environment->setFunction("closed", [](const char* text) { return text[0] == 'x'; });
  stage.environment->setFunction("answer", [text] { return text; });
  stage.environment->setFunction("list", [](const std::vector<int>& copied) { return copied.size(); });
  stage.environment->setFunction("map", [](const std::map<std::string, int>& copied) { return copied.size(); });
  stage.environment->setFunction("answerList", [] { return std::vector<int>(100, 1); });
}

// The functions `f`, which counts down, and `g`, which fails.
constexpr const char* kFunctions =
    "<? function f($n) ?><? if ($n > 0) ?><? f($n - 1) ?><? endif ?><? endfunction ?>"
    "<? function g() ?><? (1 / 0) ?><? endfunction ?>";

TEST(ExecutionLimits, TakeExactlyAsManyStepsAsTheyAllow) {
  struct Row {
    std::string text;
    std::uint64_t steps;
  };
  const std::string key(2560, 'k');
  const Row rows[] = {
      {"a", 2},  // the template itself is a statement
      {"a<?= 1 ?>b", 4},
      {"<?= 1 + 2 ?>", 2},
      {"<?= 1 + 2 + 3 + \"a\" ?>", 2 + 3},
      {"<? foreach ($e in $list) ?>a<? endforeach ?>", 8},
      {"<? foreach ($e in $numbers) ?>a<? endforeach ?>", 10},
      {"<? if (true) ?>a<? endif ?>", 3},
      {"<? f(0) ?>", 4},
      {"<? g() ?>", 4},
      {"<?= $list.@sum ?>", 5},
      {"<?= $numbers.@count ?>", 6},
      {"<?= $words.@distinctUnionOfObjects ?>", 2 + 3 + 3 + 3},
      {"<?= $list == $list ?>", 3},
      {"<?= $long ?>", 2 + 10},
      {"<?= $long == $same ?>", 3 + 10},
      {"<?= $keyed == $alike ?>", 3 + 1 + 10},
      {"<?= $long.uppercaseString ?>", 2 + 10 + 10},
      {"<?= $long =~ /^y/ ?>", 3 + 10},
      {"<?= copy($long) ?>", 3 + 10},
      {"<?= view($long) ?>", 3},
      {"<?= wide($long) ?>", 3 + 10},
      {"<?= closed($long) ?>", 3 + 10},
      {"<?= $hashed." + key + " ?>", 2 + 10 + 2 * 10},
      {"<?= $pair." + key + " ?>", 2 + 10},
      {"<?= $deep" + repeated(".n", 64) + " ?>", 2 + 64 / 16},
      {"<?= $ordered." + key + " ?>", 2 + 10 + 7 * 10},  // one of 64 keys
      {"<? answer() ?>", 3 + 10},
      {"<?= list($hundred) ?>", 3 + 1 + 100 / 16},
      {"<?= map($sorted) ?>", 3 + 1 + 64 / 16},
      {"<? answerList() ?>", 3 + 1 + 100 / 16},
      {"<? foreach ($e in $hashed) ?><? endforeach ?>", 2 + 64 + 64 / 16},
      {"<? foreach ($e in $asked) ?><? endforeach ?>", 2 + 64 + 64 / 16},
      {"<?= $asked.@count ?>", 2 + 64 / 16},
      {"<? foreach ($e in $texts) ?><? endforeach ?>", 2 + 1 + 10},
  };
  for (const Row& row : rows) {
    for (const bool isToString : {false, true}) {
      const Stage stage;
      setVariables(stage);
      setHostsData(stage);
      stage.run(kFunctions);
      if (isToString) stage.environment->setOutputStream(KorTemplateStringStream::stringStream());
      stage.run(row.text);
      EXPECT_EQ(stage.environment->stepsTaken(), row.steps) << row.text;
      const std::string reason = "The execution takes more than " + std::to_string(row.steps - 1) + " steps";
      stage.environment->setLimits(limitedSteps(row.steps - 1));
      EXPECT_EQ(limitTextOf([&] { stage.run(row.text); }), reason) << row.text;
      EXPECT_EQ(stage.environment->stepsTaken(), row.steps - 1) << row.text;
      stage.environment->setLimits(limitedSteps(row.steps));
      EXPECT_EQ(limitTextOf([&] { stage.run(row.text); }), "none") << row.text;
    }
  }
}

// Of one hash, although no two are equal.
class Alike final : public NSObject {
 public:
  std::size_t hash() const override { return 7; }
};

TEST(ExecutionLimits, CountTheComparisonsOfValuesWithOneHash) {
  constexpr std::size_t kCount = 100;
  const Stage stage;
  std::vector<Value> values;
  while (values.size() < kCount) values.push_back(makeRef<Alike>());
  stage.set("alike", makeRef<NSArray>(std::move(values)));
  stage.run("<? $distinct = $alike.@distinctUnionOfObjects ?><?= $distinct.@count ?>");
  EXPECT_EQ(stage.text(), "100");
  EXPECT_GE(stage.environment->stepsTaken(), kCount * (kCount - 1) / 2);
}

// Each takes a step of its own, and so do sixteen of those that are gone through once more.
TEST(ExecutionLimits, CountTheElementsEachTimeThatTheyAreGoneThrough) {
  constexpr std::size_t kElements = 3'200;
  const Stage stage;
  stage.set("words", makeRef<NSArray>(std::vector<Value>(kElements, "1")));
  stage.set("numbers", makeRef<NSArray>(std::vector<Value>(kElements, 1)));
  stage.set("lists", makeRef<NSArray>(std::vector<Value>(kElements, NSArray::array())));
  for (const char* text : {"<?= $words.@sum ?>", "<?= $words.@avg ?>", "<?= $words.@min ?>", "<?= $words.@max ?>",
                           "<?= $numbers ?>", "<? $all = $lists.@unionOfArrays ?>"}) {
    stage.run(text);
    EXPECT_GE(stage.environment->stepsTaken(), kElements + kElements / 16) << text;
  }
}

TEST(ExecutionLimits, OfTimeEndTheJoiningOfLongLists) {
  const Value millions = makeRef<NSArray>(std::vector<Value>(2'000'000, 1));
  const Stage stage;
  stage.set("lists", NSArray::arrayWithObjects({millions}));
  stage.environment->setLimits(limitedTime(1ms));
  const std::optional<KorTemplateLimitException> limit =
      limitIn([&] { stage.run("<? $all = $lists.@unionOfArrays ?>"); });
  ASSERT_TRUE(limit.has_value());
  EXPECT_EQ(limit->limit(), KorTemplateLimit::Time);
}

// They may be more than there is memory for.
TEST(ExecutionLimits, EndTheJoiningOfOneListManyTimes) {
  const Value million = makeRef<NSArray>(std::vector<Value>(1'000'000, 1));
  const Stage stage;
  stage.set("lists", makeRef<NSArray>(std::vector<Value>(300'000, million)));
  stage.environment->setLimits(limitedSteps(1'000'000));
  EXPECT_EQ(limitReached([&] { stage.run("<? $all = $lists.@unionOfArrays ?>"); }), KorTemplateLimit::Steps);
}

// No two are equal, and so none need be compared with all others.
TEST(ExecutionLimits, CountFewComparisonsOfListsThatHoldANotANumber) {
  constexpr std::size_t kCount = 1'000;
  const Value nothing = std::numeric_limits<double>::quiet_NaN();
  const Stage stage;
  std::vector<Value> lists;
  while (lists.size() < kCount) lists.push_back(NSArray::arrayWithObjects({NSArray::arrayWithObjects({nothing})}));
  lists.push_back(lists.front());
  stage.set("lists", makeRef<NSArray>(std::move(lists)));
  stage.run("<? $distinct = $lists.@distinctUnionOfObjects ?><?= $distinct.@count ?>");
  EXPECT_EQ(stage.text(), "1000");
  EXPECT_LE(stage.environment->stepsTaken(), kCount * 10);
}

// An empty list answers every key, so that each element is asked for all of them.
TEST(ExecutionLimits, CountTheKeysThatEachElementIsAskedFor) {
  constexpr std::size_t kElements = 100;
  constexpr std::size_t kKeys = 1'600;
  std::string keys;
  while (keys.size() < kKeys * 2) keys += ".a";
  const Stage stage;
  stage.set("lists", makeRef<NSArray>(std::vector<Value>(kElements, NSArray::array())));
  stage.run("<?= $lists.@sum" + keys + " ?>");
  EXPECT_GE(stage.environment->stepsTaken(), kElements * kKeys / 16);
}

TEST(ExecutionLimits, CountTheKeysOfAPathThatIsObserved) {
  std::string keys;
  while (keys.size() < 3'200) keys += ".a";
  std::uint64_t steps[2];
  for (const bool isObserved : {false, true}) {
    const Stage stage;
    if (isObserved) stage.environment->setObserver(KorTemplateObserver::observer());
    stage.set("list", NSArray::array());
    stage.run("<? $x = $list" + keys + " ?>");
    steps[isObserved ? 1 : 0] = stage.environment->stepsTaken();
  }
  EXPECT_GE(steps[0], 100U);
  EXPECT_EQ(steps[1], steps[0]);
}

TEST(TheMeterOfAThread, IsThatOfTheLatestScopeThatIsLeft) {
  const Stage stage;
  ExecutionMeter first(*stage.environment);
  ExecutionMeter second(*stage.environment);
  std::optional<WorkMeter::Scope> outer(std::in_place, first);
  std::optional<WorkMeter::Scope> inner(std::in_place, second);
  EXPECT_EQ(WorkMeter::ofThread(), &second);
  outer.reset();
  EXPECT_EQ(WorkMeter::ofThread(), &second);
  inner.reset();
  EXPECT_EQ(WorkMeter::ofThread(), nullptr);
}

TEST(ExecutionLimits, CountHardSearchesInProportion) {
  struct Row {
    const char* pattern;
    std::string subject;
    std::uint64_t least;
  };
  const Row rows[] = {
      {"/(?:a|a|aa)+$/", "aaaaaaaaaab", 1'000},
      {"/(?x)(?:a|a|aa)+$/", "aaaaaab", 64},  // cannot be watched
      {"/(?:a|a|aa)+$/", "aaaaaaaaaaaab", 10'000},
  };
  for (const Row& row : rows) {
    const Stage stage;
    stage.set("subject", row.subject);
    stage.environment->setLimits(limitedSteps(100'000'000));
    const std::string text = std::string("<? $subject =~ ") + row.pattern + " ?>";
    EXPECT_EQ(limitTextOf([&] { stage.run(text); }), "none") << row.pattern;
    EXPECT_GE(stage.environment->stepsTaken(), row.least) << row.pattern;
    stage.environment->setLimits(limitedSteps(stage.environment->stepsTaken() - 1));
    EXPECT_TRUE(limitIn([&] { stage.run(text); }).has_value()) << row.pattern;
  }
}

TEST(ExecutionLimits, CountSearchesWithoutLoopsByTheirPlaces) {
  constexpr std::uint64_t kPlaces = 100'000;
  for (const char* pattern : {"[^ab]", "(c|d)e", "(?x)(?:c|d)", "a(?=c|d)"}) {
    const Stage stage;
    stage.set("subject", repeated("ab", kPlaces / 2));
    KorTemplateLimits limits = limitedSteps(2 * kPlaces);
    limits.regexRetries = kPlaces / 10;  // at one place, of which a plain search may take no more in all
    stage.environment->setLimits(limits);
    EXPECT_EQ(limitTextOf([&] { stage.run(std::string("<? $subject =~ /") + pattern + "/ ?>"); }), "none") << pattern;
  }
}

// A search that is never retried, or once at each place, goes through the whole pattern all the same; half of that
// counts at least.
TEST(ExecutionLimits, CountTheWaysThroughALongPattern) {
  struct Row {
    std::string pattern;
    std::string subject;
    std::uint64_t least;
  };
  const Row rows[] = {
      {repeated("(a)?", 15'000), "abc", 60'000 / 256},
      {repeated("\\b", 30'000) + "(?!a| )", repeated("a ", 20), 20 * 60'000 / 256},
      {repeated("\\y", 30'000) + "(?!\\w|-)", std::string(30, 'a'), 15 * 60'000 / 256},
      {"(?x)" + repeated("\\b", 30'000) + "(?!a| )", repeated("a ", 20), 20 * 60'000 / 256},
      {"(?:(?:|a){1000}){1000}", "", 1'000'000 / 256},
      {"(?:a(?=a*))+" + repeated("\\B", 30'000) + "(?!a)", std::string(3'000, 'a'), 200'000},  // is watched
  };
  for (const Row& row : rows) {
    const Stage stage;
    stage.set("subject", row.subject);
    stage.environment->setLimits(limitedSteps(1'000'000'000));
    const std::string text = "<? $subject =~ /" + row.pattern + "/ ?>";
    (void)limitTextOf([&] { stage.run(text); });  // the last one may take too long
    EXPECT_GE(stage.environment->stepsTaken(), row.least) << row.pattern.substr(0, 20);
  }
}

TEST(ExecutionLimits, MatchTheSameWhereStepsAreCounted) {
  struct Row {
    const char* pattern;
    const char* subject;
    const char* answer;
  };
  const Row rows[] = {
      {"/b+c/", "abbbc", "1"},
      {"/b+c/", "abbbd", "0"},
      {"/(?:a|a|aa)+$/", "aaaaaaaaaaab", "0"},
      {"/(?:a|a|aa)+$/", "baaaaaaaaaaa", "1"},
      {"/(?x) (?:a|a|aa)+ $/", "aaaaaab", "0"},
      {"/(?x) (?:a|a|aa)+ $/", "baaaaaa", "1"},
      {"/\\Gb/", "ab", "0"},
  };
  for (const Row& row : rows) {
    const Stage stage;
    stage.set("subject", std::string(row.subject));
    stage.environment->setLimits(limitedSteps(100'000'000));
    stage.run(std::string("<?= $subject =~ ") + row.pattern + " ?>");
    EXPECT_EQ(stage.text(), row.answer) << row.pattern;
  }
}

TEST(ExecutionLimits, StayReachedInsideFunctions) {
  for (const char* body : {"<? foreach ($e in $endless) ?><? g() ?><? endforeach ?>", "<? h() ?>", "<? h() ?><? h() ?>",
                           "<?= h() + $endless.@count ?>", "<?= $endless.@sum ?>", "<?= $endless.stringValue ?>"}) {
    const Stage stage;
    stage.set("endless", endless());
    stage.run(std::string(kFunctions) + "<? function h() ?>" + body + "<? endfunction ?>");
    KorTemplateLimits limits = limitedSteps(5000);
    limits.functionDepth = 1'000'000;
    stage.environment->setLimits(limits);
    EXPECT_EQ(limitTextOf([&] { stage.run("a<?= h() ?>b"); }), "The execution takes more than 5000 steps") << body;
    EXPECT_EQ(stage.text(), "a") << body;
    EXPECT_EQ(stage.diagnostics().find("5000"), std::string::npos) << body;
    EXPECT_EQ(stage.environment->lastFailure()->name(), "KorTemplateLimitException") << body;
    stage.run("c");
    EXPECT_EQ(stage.text(), "ac") << body;
  }
}

TEST(ExecutionLimits, LeaveTheStepsThatWereTakenCounted) {
  const Stage stage;
  stage.run("<?= 1 ?><?= 2 ?>");
  const std::uint64_t steps = stage.environment->stepsTaken();
  stage.environment->setLimits(limitedOutput(1));
  EXPECT_EQ(limitTextOf([&] { stage.run("<?= 1 ?><?= 2 ?><?= 3 ?>"); }), "The execution writes more than 1 bytes");
  EXPECT_EQ(stage.environment->stepsTaken(), steps);
}

TEST(ExecutionLimits, CannotBeSwallowedWhereAHostReadsValues) {
  const Stage stage;
  stage.set("long", std::string(100'000, 'x'));
  stage.environment->setLimits(limitedSteps(100));
  stage.define("swallow", [](KorTemplateEnvironment*, ListArgument<Value> arguments) -> Value {
    EXPECT_THROW((void)arguments[0].doubleValue(), KorTemplateLimitException);
    return 1;
  });
  EXPECT_EQ(limitTextOf([&] { stage.run("a<? swallow($long) ?>b"); }), "The execution takes more than 100 steps");
  EXPECT_EQ(stage.text(), "a");
}

TEST(ExecutionLimits, AreThoseOfTheOutermostExecution) {
  const Stage stage;
  const Ref<KorTemplate> inner = KorTemplate::compile("<? foreach ($e in $list) ?>x<? endforeach ?>");
  stage.set("list", NSArray::arrayWithObjects({1, 2, 3}));
  stage.define("nested", [&](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
    environment->setLimits({});  // for the next one
    inner->executeWithEnvironment(environment);
    return 1;
  });
  KorTemplateLimits limits;
  limits.steps = 30;
  limits.output = 5;
  stage.environment->setLimits(limits);
  EXPECT_EQ(limitTextOf([&] { stage.run("ab<? nested() ?><? nested() ?>"); }),
            "The execution writes more than 5 bytes");
  EXPECT_EQ(stage.text(), "abxxx");
  limits.output.reset();
  stage.environment->setLimits(limits);
  EXPECT_EQ(limitTextOf([&] { stage.run("<? nested() ?><? nested() ?><? nested() ?>"); }),
            "The execution takes more than 30 steps");
}

TEST(ExecutionLimits, OfAnotherEnvironmentAreItsOwn) {
  const Stage outer;
  const Stage inner;
  inner.set("long", std::string(100'000, 'x'));
  outer.set("long", std::string(100'000, 'x'));
  outer.define("other", [&](auto&&...) -> Value {
    inner.run("<? $long.uppercaseString ?>");
    return 1;
  });
  outer.environment->setLimits(limitedSteps(100));
  outer.run("<? other() ?>a");
  EXPECT_EQ(outer.text(), "a");
  EXPECT_GT(inner.environment->stepsTaken(), 100u);
  EXPECT_EQ(limitTextOf([&] { outer.run("<? other() ?><? $long.uppercaseString ?>"); }),
            "The execution takes more than 100 steps");
}

TEST(ExecutionLimits, OfOutputLetExactlySoManyBytesPass) {
  struct Row {
    const char* text;
    std::uint64_t bytes;
    bool isReached;
    const char* written;
  };
  const Row rows[] = {
      {"abc", 3, false, "abc"},
      {"abc", 2, true, ""},
      {"ab<?= \"cd\" ?>e", 4, true, "abcd"},
      {"ab<?= \"cd\" + \"ef\" ?>", 5, true, "ab"},  // a statement's text is written as a whole, or not at all
      {"a<?= 12345 ?>", 5, true, "a"},
      {"a<?= 12345 ?>", 6, false, "a12345"},
      {"a<?= $list ?>", 9, true, "a"},
      {"a<?= $list ?>", 10, false, "a(\n    1\n)"},
      {"\xC3\xA9<?= null ?>\xC3\xA9", 3, true, "\xC3\xA9"},
      {"<? function f() ?>cd<? endfunction ?>ab<? f() ?>", 3, true, "ab"},
      {"ab", 0, true, ""},
      {"<? $a = \"long\" ?>", 0, false, ""},
  };
  for (const Row& row : rows) {
    std::string host;
    const Ref<KorTemplateStringStream> own = KorTemplateStringStream::stringStream();
    const Ref<KorTemplateStream> streams[] = {makeRef<RecordingStream>(), own,
                                              KorTemplateStringStream::stringStreamAppendingTo(host)};
    for (const Ref<KorTemplateStream>& stream : streams) {
      const Stage stage;
      stage.set("list", NSArray::arrayWithObjects({1}));
      stage.environment->setOutputStream(stream);
      stage.environment->setLimits(limitedOutput(row.bytes));
      const std::string reached = "The execution writes more than " + std::to_string(row.bytes) + " bytes";
      EXPECT_EQ(limitTextOf([&] { stage.run(row.text); }), row.isReached ? reached : "none") << row.text;
      EXPECT_THAT(stage.diagnostics(), testing::IsEmpty()) << row.text;
    }
    EXPECT_EQ(static_cast<const RecordingStream&>(*streams[0]).joined(""), row.written) << row.text;
    EXPECT_EQ(own->buffer()->string(), row.written) << row.text;
    EXPECT_EQ(host, row.written) << row.text;
  }
}

TEST(ExecutionLimits, OfOutputCountAllStreamsOfAnExecutionTogether) {
  const Stage stage;
  const Ref<KorTemplateStringStream> second = KorTemplateStringStream::stringStream();
  stage.environment->setLimits(limitedOutput(4));
  stage.define("redirect", [&](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
    environment->setOutputStream(second);
    return NSNull::null();
  });
  EXPECT_EQ(limitTextOf([&] { stage.run("abc<? redirect() ?>d<?= 1 ?>"); }), "The execution writes more than 4 bytes");
  EXPECT_EQ(stage.text(), "abc");
  EXPECT_EQ(second->buffer()->string(), "d");
  stage.run("efgh");
  EXPECT_EQ(second->buffer()->string(), "defgh");
}

// What goes on for far longer than a test may, in the environment with what setVariables() sets.
const char* const kLongWork[] = {
    "<? foreach ($e in $endless) ?><? endforeach ?>",
    "<?= $endless.@count ?>",
    ("<? function t($n) ?><? if ($n > 0) ?><? t($n - 1) ?><? t($n - 1) ?><? endif ?><? (1 / 0) ?><? endfunction ?>"
     "<? t(60) ?>"),
    "<?= $tangle == $sameTangle ?>",
    "<? foreach ($e in $endless) ?><? $hard =~ /(?:a|a|aa)+$/ ?><? endforeach ?>",
    "<? foreach ($e in $endless) ?><? $few =~ /(?x)(?:a|a|aa)+$/ ?><? endforeach ?>",
    "<? foreach ($e in $endless) ?><? $large.capitalizedString ?><? endforeach ?>",
};

// A list of twice the list before, so many times: of 2 to that power ends.
Value tangle(int depth) {
  Value value = 1;
  for (int level = 0; level < depth; ++level) value = NSArray::arrayWithObjects({value, value});
  return value;
}

void setLongWork(const Stage& stage) {
  setVariables(stage);
  stage.set("endless", endless());
  stage.set("tangle", tangle(60));
  stage.set("sameTangle", tangle(60));
  stage.set("hard", std::string("aaaaaaaaaaab"));
  stage.set("few", std::string("aaaaaab"));
  stage.set("large", std::string(1'000'000, 'x'));
}

TEST(ExecutionLimits, OfTimeEndAllKindsOfWorkSoon) {
  for (const char* text : kLongWork) {
    const Stage stage;
    setLongWork(stage);
    KorTemplateLimits limits = limitedTime(30ms);
    stage.environment->setLimits(limits);
    const WorkBound bound(text);
    const Clock::time_point start = Clock::now();
    const std::optional<KorTemplateLimitException> limit = limitIn([&] { stage.run(text); });
    const auto taken = Clock::now() - start;
    ASSERT_TRUE(limit.has_value()) << text;
    EXPECT_EQ(limit->limit(), KorTemplateLimit::Time) << text;
    EXPECT_EQ(limit->value(), 30u) << text;
    EXPECT_STREQ(limit->what(), "The execution takes longer than 30 milliseconds") << text;
    EXPECT_GE(taken, 30ms) << text;
  }
}

TEST(ExecutionLimits, AreToldAlsoWhereAScopeCannotBePoppedOnTheWayOut) {
  const Stage stage;
  stage.environment->setLimits(limitedSteps(20));
  stage.environment->setFunction("f", [](KorTemplateEnvironment& environment) {
    const Ref<KorTemplateStack> other = KorTemplateStack::stack();
    other->push(KorTemplateStackFrame::stackFrame());
    environment.setStack(other);
    KorTemplate::compile(repeated("<? $a = 1 ?>", 20))->executeWithEnvironment(&environment);
  });
  const char* const text = "<? if (1) ?><? if (1) ?><? f() ?><? endif ?><? endif ?>";
  EXPECT_EQ(limitTextOf([&] { stage.run(text); }), "The execution takes more than 20 steps");
  ASSERT_NE(stage.environment->lastFailure(), nullptr);
  EXPECT_EQ(stage.environment->lastFailure()->reason(), "The execution takes more than 20 steps");
}

// A stream that keeps a limit to itself which a template of its own has reached.
class SwallowingStream final : public KorTemplateStream {
 public:
  explicit SwallowingStream(KorTemplateEnvironment& environment) : environment_(environment) {}
  void write(const Text& /*text*/) override {
    EXPECT_THROW(KorTemplate::compile(repeated("<? $a = 1 ?>", 30))->executeWithEnvironment(&environment_),
                 KorTemplateLimitException);
  }

 private:
  KorTemplateEnvironment& environment_;
};

TEST(ExecutionLimits, EndTheExecutionAlsoWhereItsLastStatementKeepsThemToItself) {
  const Stage stage;
  stage.environment->setLimits(limitedSteps(20));
  stage.environment->setOutputStream(makeRef<SwallowingStream>(*stage.environment));
  EXPECT_EQ(limitTextOf([&] { stage.run("text"); }), "The execution takes more than 20 steps");
}

TEST(ExecutionLimits, OfTimeBeginAnewWithEachExecution) {
  const Stage stage;
  stage.environment->setLimits(limitedTime(10s));
  stage.run("a");
  std::this_thread::sleep_for(5ms);
  stage.environment->setLimits(limitedTime(0ms));
  EXPECT_EQ(limitTextOf([&] { stage.run("b"); }), "The execution takes longer than 0 milliseconds");
  stage.environment->setLimits(limitedTime(std::chrono::milliseconds::max()));
  stage.run("c");
  EXPECT_EQ(stage.text(), "ac");
}

TEST(ExecutionLimits, CancelFromAnotherThread) {
  for (const char* text : kLongWork) {
    const Stage stage;
    setLongWork(stage);
    const Ref<KorTemplateCancellation> cancellation = KorTemplateCancellation::cancellation();
    stage.environment->setCancellation(cancellation);
    std::thread other([&] {
      std::this_thread::sleep_for(20ms);
      cancellation->cancel();
    });
    const WorkBound bound(text);
    const std::optional<KorTemplateLimitException> limit = limitIn([&] { stage.run(text); });
    other.join();
    ASSERT_TRUE(limit.has_value()) << text;
    EXPECT_EQ(limit->limit(), KorTemplateLimit::Cancellation) << text;
    EXPECT_STREQ(limit->what(), "The execution was cancelled") << text;
    EXPECT_EQ(stage.depth(), 1) << text;
  }
}

TEST(ExecutionLimits, CancelEveryExecutionUntilThatIsTakenBack) {
  const Stage stage;
  const Ref<KorTemplateCancellation> cancellation = KorTemplateCancellation::cancellation();
  stage.environment->setCancellation(cancellation);
  stage.run("a");
  cancellation->cancel();
  EXPECT_TRUE(cancellation->isCancelled());
  for (int time = 0; time < 2; ++time) {
    EXPECT_EQ(limitTextOf([&] { stage.run("b"); }), "The execution was cancelled");
  }
  cancellation->reset();
  stage.run("c");
  cancellation->cancel();
  stage.environment->setCancellation(nullptr);
  stage.run("d");
  EXPECT_EQ(stage.text(), "acd");
}

KorTemplateCancellation* signalled = nullptr;

TEST(ExecutionLimits, StayReachedWhereAFunctionOfTheHostCatchesThem) {
  for (const char* const text :
       {"<? f() ?>", "<?= f() ?>", "<? f() ?>b", "<? if (f()) ?><? endif ?>", "<?= \"\" + f() ?>"}) {
    const Stage stage;
    stage.environment->setLimits(limitedSteps(100));
    stage.define("f", [&](auto&&...) -> Value {
      (void)limitIn([&] { stage.run("<? foreach ($e in $endless) ?><? endforeach ?>"); });
      return std::string(1'000, 'x');
    });
    stage.set("endless", endless());
    EXPECT_EQ(limitTextOf([&] { stage.run("a" + std::string(text)); }), "The execution takes more than 100 steps")
        << text;
    EXPECT_EQ(stage.text(), "a") << text;
    stage.run("c");
    EXPECT_EQ(stage.text(), "ac") << text;
  }
}

// What a function of one environment renders in another one runs by that one's limits, and what a function there
// renders in the first by those of the first again.
TEST(ExecutionLimits, HoldAlsoBehindAnotherEnvironment) {
  for (const KorTemplateLimits& limits : {limitedSteps(1'000'000), limitedTime(100ms)}) {
    const Stage outer;
    const Stage inner;
    outer.environment->setLimits(limits);
    outer.set("endless", endless());
    outer.define("inside", [&](auto&&...) -> Value { return (inner.run("<? back() ?>"), NSNull::null()); });
    inner.define("back", [&](auto&&...) -> Value { return (outer.run("<?= $endless.@count ?>"), NSNull::null()); });
    const WorkBound bound("another environment");
    EXPECT_NE(limitTextOf([&] { outer.run("<? inside() ?>"); }), "none");
    EXPECT_EQ(outer.depth(), 1);
    EXPECT_EQ(inner.depth(), 1);
    inner.run("<?= \"a\" + 1 ?>");
    EXPECT_EQ(inner.text(), "a1");
  }
}

// Another thread may run what a function renders, while the one that runs the function waits.
TEST(ExecutionLimits, OfTheStackAreThoseOfTheThreadThatRuns) {
  const Stage stage;
  KorTemplateLimits limits;
  limits.functionDepth = 1'000'000;
  limits.time = 100ms;
  stage.environment->setLimits(limits);
  stage.set("endless", endless());
  std::optional<KorTemplateLimitException> deep;
  stage.define("elsewhere", [&](auto&&...) -> Value {
    runOnSmallThread(
        [&] { deep = limitIn([&] { stage.run("<? function f() ?><?= 1 + f() ?><? endfunction ?><? f() ?>"); }); });
    return NSNull::null();
  });
  (void)limitIn([&] { stage.run("<? elsewhere() ?>"); });
  ASSERT_TRUE(deep.has_value());
  EXPECT_EQ(deep->limit(), KorTemplateLimit::Stack);
  stage.define("elsewhere", [&](auto&&...) -> Value {
    runOnSmallThread([&] { deep = limitIn([&] { stage.run("<?= $endless.@count ?>"); }); });
    return NSNull::null();
  });
  (void)limitIn([&] { stage.run("<? elsewhere() ?>"); });
  EXPECT_EQ(deep->limit(), KorTemplateLimit::Time);
}

TEST(ExecutionLimits, CancelFromASignalHandler) {
  const Stage stage;
  const Ref<KorTemplateCancellation> cancellation = KorTemplateCancellation::cancellation();
  signalled = cancellation.get();
  stage.environment->setCancellation(cancellation);
  stage.set("endless", endless());
  stage.define("interrupt", [](auto&&...) -> Value { return std::raise(SIGUSR1); });
  const auto old = std::signal(SIGUSR1, [](int) { signalled->cancel(); });
  EXPECT_EQ(limitTextOf([&] { stage.run("<? interrupt() ?><? foreach ($e in $endless) ?><? endforeach ?>"); }),
            "The execution was cancelled");
  std::signal(SIGUSR1, old);
}

TEST(ExecutionLimits, OfTheDepthOfValuesAreASetting) {
  for (const std::int32_t depth : {1, 3, 2000}) {
    const Stage stage;
    KorTemplateLimits limits;
    limits.valueDepth = depth;
    stage.environment->setLimits(limits);
    const auto nested = [](int levels) {
      Value value = NSArray::array();
      for (int level = 1; level < levels; ++level) value = NSArray::arrayWithObjects({value});
      return value;
    };
    const std::string reason = "A value is nested deeper than " + std::to_string(depth);
    for (const char* text : {"<? \"\" + $left ?>", "<?= $left ?>", "<? $left == $right ?>"}) {
      stage.set("left", nested(depth));
      stage.set("right", nested(depth));
      EXPECT_EQ(limitTextOf([&] { stage.run(text); }), "none") << text;
      stage.set("left", nested(depth + 1));
      stage.set("right", nested(depth + 1));
      EXPECT_EQ(limitTextOf([&] { stage.run(text); }), reason) << text;
    }
  }
}

TEST(ExecutionLimits, BelowZeroAreZero) {
  for (const std::int32_t negative : {0, -1, INT32_MIN}) {
    const Stage stage;
    stage.define("host", [](auto&&...) -> Value { return 1; });
    stage.set("list", NSArray::array());
    KorTemplateLimits limits;
    limits.nesting = limits.functionDepth = limits.valueDepth = negative;
    EXPECT_EQ(limitTextOf([&] { (void)KorTemplate::compile("<?= (1) ?>", limits); }),
              "Blocks and parentheses are nested deeper than 0");
    EXPECT_EQ(limitTextOf([&] { (void)KorTemplate::compile("<?= 1 ?>", limits); }), "none");
    stage.environment->setLimits(limits);
    EXPECT_EQ(limitTextOf([&] { stage.run("<? host() ?>"); }),
              "Functions are running deeper than 0 inside one another");
    EXPECT_EQ(limitTextOf([&] { stage.run("<?= $list ?>"); }), "A value is nested deeper than 0");
    EXPECT_EQ(limitTextOf([&] { stage.run("<?= 1 ?>"); }), "none");
  }
  for (const std::chrono::milliseconds negative : {-1ms, std::chrono::milliseconds::min()}) {
    const Stage stage;
    stage.environment->setLimits(limitedTime(negative));
    EXPECT_EQ(limitTextOf([&] { stage.run("<?= 1 ?>"); }), "The execution takes longer than 0 milliseconds");
  }
}

}  // namespace

}  // namespace tavlo::test
