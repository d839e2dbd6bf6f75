#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string>

#include "Foundation/NSArray.h"
#include "Tests/Foundation/Repeated.h"
#include "Tests/Memory/WorkBound.h"
#include "Tests/Source/HostClasses.h"
#include "Tests/Source/SmallThread.h"

namespace tavlo::test {

namespace {

using testing::IsEmpty;

constexpr const char* kEndless = "<? function f() ?><? f() ?><? endfunction ?>";

template <class Action>
std::optional<KorTemplateLimit> limitReachedBy(Action&& action) {
  try {
    std::forward<Action>(action)();
  } catch (const KorTemplateLimitException& exception) {
    return exception.limit();
  }
  return {};
}

// A list in a list in a list, that many times.
Value nestedLists(int depth) {
  Value value = NSArray::array();
  for (int level = 1; level < depth; ++level) value = NSArray::arrayWithObjects({value});
  return value;
}

TEST(Limits, RefuseATextThatNoStringCanHoldWhateverTheHostAllows) {
  const Stage stage;
  KorTemplateLimits limits;
  limits.stringLength = UINT64_MAX;
  stage.environment->setLimits(limits);
  constexpr std::size_t kEighth = NSString::kMaximumByteLength / 8 + 1;
  stage.set("a", NSString::stringWithValidUTF8(std::string(kEighth, 'a')));
  EXPECT_THROW(stage.run("<?= $a + $a + $a + $a + $a + $a + $a + $a ?>"), std::length_error);
  EXPECT_EQ(stage.text(), "");
}

TEST(Limits, LetFunctionsRunAThousandDeep) {
  const Stage stage;
  stage.run("<? function f($n) ?><? if ($n > 1) ?><? f($n - 1) ?><? endif ?><? endfunction ?><? f(1000) ?>a");
  EXPECT_EQ(limitReachedBy([&] { stage.run("<? f(1001) ?>b"); }), KorTemplateLimit::FunctionDepth);
  EXPECT_EQ(stage.text(), "a");
  EXPECT_EQ(stage.depth(), 1);
}

TEST(Limits, CountTheFunctionsOfTheHostToo) {
  const Stage stage;
  KorTemplateLimits limits;
  limits.functionDepth = 2;
  stage.environment->setLimits(limits);
  stage.define("h", [](KorTemplateEnvironment* environment, ListArgument<Value> arguments) -> Value {
    return arguments[0].intValue() <= 1 ? Value("end") : call("h", {literal(1)})->evaluateWithEnvironment(environment);
  });
  stage.run("<?= h(1) ?>,<?= h(2) ?>");
  EXPECT_EQ(stage.text(), "end,end");
  stage.run("<? function f() ?><? return h(1) ?><? endfunction ?><? function g() ?><? return f() ?><? endfunction ?>");
  stage.run(",<?= f() ?>");
  EXPECT_EQ(limitReachedBy([&] { stage.run("<?= g() ?>"); }), KorTemplateLimit::FunctionDepth);
  EXPECT_EQ(stage.text(), "end,end,end");
  EXPECT_THAT(stage.errors->writes, IsEmpty());
}

TEST(Limits, SayWhichItWasAndItsValue) {
  const Stage stage;
  KorTemplateLimits limits;
  limits.functionDepth = 7;
  stage.environment->setLimits(limits);
  try {
    stage.run(std::string(kEndless) + "<? f() ?>");
    FAIL() << "no limit was reached";
  } catch (const KorTemplateLimitException& exception) {
    EXPECT_EQ(exception.limit(), KorTemplateLimit::FunctionDepth);
    EXPECT_EQ(exception.value(), 7u);
    EXPECT_STREQ(exception.what(), "Functions are running deeper than 7 inside one another");
  }
}

TEST(Limits, AreNoDiagnosticsAndLeaveTheEnvironmentAsItWas) {
  struct Row {
    KorTemplateLimit limit;
    const char* body;
  };
  const Row rows[] = {
      {KorTemplateLimit::FunctionDepth, "<? fail() ?>"},
      {KorTemplateLimit::RegexRetries, "<? \"aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaab\" =~ /(?:a|a|aa)+$/ ?>"},
      {KorTemplateLimit::StringLength, "<? $a = $long + $long ?>"},
      {KorTemplateLimit::StringLength, "<? $a = \"\" + $list ?>"},
      {KorTemplateLimit::StringLength, "<?= $list ?>"},
      {KorTemplateLimit::StringLength, "<? $list < 1 ?>"},
      {KorTemplateLimit::StringLength, "<? $list =~ /x/ ?>"},
      {KorTemplateLimit::StringLength, "<?= $grows.lowercaseString ?>"},
      {KorTemplateLimit::StringLength, "<?= $huge.description ?>"},
      {KorTemplateLimit::ValueDepth, "<?= $deep ?>"},
      {KorTemplateLimit::ValueDepth, "<?= $deep == $equal ?>"},
  };
  for (const Row& row : rows) {
    const Stage stage;
    KorTemplateLimits limits;
    limits.functionDepth = 10;
    limits.regexRetries = 1000;
    if (row.limit == KorTemplateLimit::StringLength) limits.stringLength = 100;
    stage.set("grows", std::string(repeated("\u023A", 40)));  // of two bytes, and of three in lower case
    stage.environment->setLimits(limits);
    stage.set("long", std::string(60, 'x'));
    stage.set("huge", std::string(101, 'x'));
    stage.set("list", NSArray::arrayWithObjects({std::string(99, 'x')}));
    stage.set("deep", nestedLists(1002));
    stage.set("equal", nestedLists(1002));
    const std::string text = std::string("<? function fail() ?>") + row.body +
                             "tail<? endfunction ?>a<? if (true) ?><?= fail() ?><? endif ?>b";
    EXPECT_EQ(limitReachedBy([&] { stage.run(text); }), row.limit) << row.body;
    EXPECT_THAT(stage.errors->writes, IsEmpty()) << row.body;
    EXPECT_EQ(stage.text(), "a") << row.body;
    EXPECT_EQ(stage.depth(), 1) << row.body;
    stage.run("<? function f() ?>again<? endfunction ?><? f() ?>");
    EXPECT_EQ(stage.text(), "aagain") << row.body;
  }
}

TEST(Limits, OfStringsHoldForTheTextsOfNumbers) {
  const Stage stage;
  KorTemplateLimits limits;
  limits.stringLength = 3;
  stage.environment->setLimits(limits);
  stage.set("n", 1234);
  for (const char* key : {"stringValue", "description"}) {
    EXPECT_EQ(limitReachedBy([&] { stage.run(std::string("<?= $n.") + key + " ?>"); }), KorTemplateLimit::StringLength)
        << key;
  }
  stage.set("n", 123);
  stage.run("<?= $n.stringValue ?>");
  EXPECT_EQ(stage.text(), "123");
}

TEST(Limits, EndRecursionAtOnceHoweverOftenAFunctionCallsItself) {
  for (const char* body :
       {"<? f() ?>", "<? f() ?><? f() ?>", "<?= f() + f() ?>", "<? if (true) ?><? f() ?><? endif ?><? f() ?>"}) {
    const Stage stage;
    int calls = 0;
    stage.define("note", [&](auto&&...) -> Value { return ++calls; });
    const std::string text = std::string("<? function f() ?><? note() ?>") + body + "<? endfunction ?><? f() ?>";
    const WorkBound bound(body);
    EXPECT_EQ(limitReachedBy([&] { stage.run(text); }), KorTemplateLimit::FunctionDepth) << body;
    EXPECT_GE(calls, 999) << body;
    EXPECT_LE(calls, 1001) << body;
    EXPECT_EQ(stage.depth(), 1) << body;
  }
}

TEST(Limits, CannotBeSwallowedByAHost) {
  const auto swallow = [](KorTemplateEnvironment* environment) {
    EXPECT_EQ(limitReachedBy([&] { (void)call("f")->evaluateWithEnvironment(environment); }),
              KorTemplateLimit::FunctionDepth);
  };
  const Ref<KorTemplateStatement> swallowing[] = {
      makeRef<HostStatement>(swallow),
      evaluation(makeRef<HostExpression>([&](KorTemplateEnvironment* environment) -> Value {
        swallow(environment);
        return 1;
      })),
      evaluation(call("h")),
  };
  for (const Ref<KorTemplateStatement>& statement : swallowing) {
    const Stage stage;
    stage.run(kEndless);
    stage.define("h", [&](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
      swallow(environment);
      return 1;
    });
    const Ref<KorTemplate> whole = templateOf({output("a"), templateOf({statement, output("b")}), output("c")});
    EXPECT_EQ(limitReachedBy([&] { whole->executeWithEnvironment(stage.get()); }), KorTemplateLimit::FunctionDepth);
    EXPECT_EQ(stage.text(), "a");
    EXPECT_EQ(stage.depth(), 1);
    EXPECT_THAT(stage.errors->writes, IsEmpty());
    stage.run("d");
    EXPECT_EQ(stage.text(), "ad");
  }
}

TEST(Limits, RaisedByAHostFunctionStayReachedToo) {
  const Stage stage;
  stage.define("limit", [](auto&&...) -> Value { raiseLimit(KorTemplateLimit::StringLength, 5); });
  stage.define("swallow", [](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
    EXPECT_THROW((void)call("limit")->evaluateWithEnvironment(environment), KorTemplateLimitException);
    return 1;
  });
  EXPECT_EQ(limitReachedBy([&] { stage.run("a<? swallow() ?>b"); }), KorTemplateLimit::StringLength);
  EXPECT_EQ(stage.text(), "a");
}

TEST(Limits, SetWhileRunningHoldFromTheNextExecutionOn) {
  const Stage stage;
  stage.define("tighten", [](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
    KorTemplateLimits limits;
    limits.functionDepth = 1;
    environment->setLimits(limits);
    return NSNull::null();
  });
  stage.run(
      "<? function f() ?>f<? endfunction ?><? function g() ?><? f() ?><? endfunction ?><? g() ?><? tighten() ?><? g() "
      "?>");
  EXPECT_EQ(stage.text(), "ff");
  EXPECT_EQ(limitReachedBy([&] { stage.run("<? g() ?>"); }), KorTemplateLimit::FunctionDepth);
}

TEST(Limits, EndCleanlyOnASmallStack) {
  runOnSmallThread([] {
    const Stage stage;
    KorTemplateLimits limits;
    limits.functionDepth = 1'000'000;
    stage.environment->setLimits(limits);
    const std::string text =
        "<? function f($n) ?><? if (true) ?><?= \"\" + (1 + f($n + 1)) ?><? endif ?><? endfunction ?>";
    EXPECT_EQ(limitReachedBy([&] { stage.run(text + "a<? f(1) ?>"); }), KorTemplateLimit::Stack);
    EXPECT_EQ(stage.text(), "a");
    EXPECT_EQ(stage.depth(), 1);
    stage.run("b");
    EXPECT_EQ(stage.text(), "ab");
  });
}

TEST(Limits, OfTheStackAreSeenWhereLittleIsLeft) {
  const Stage stage;
  KorTemplateLimits limits;
  limits.stackLeft = std::uint64_t{1} << 40;
  stage.environment->setLimits(limits);
  EXPECT_EQ(limitReachedBy([&] { stage.run("a"); }), KorTemplateLimit::Stack);
  EXPECT_EQ(stage.text(), "");
  stage.environment->setLimits({});
  stage.run("b");
  EXPECT_EQ(stage.text(), "b");
}

TEST(Limits, OfTheStackMayBeAnyNumber) {
  for (const std::uint64_t bytes : {std::uint64_t{0}, std::uint64_t{1}, KorTemplateLimits::kLeastStackLeft,
                                    std::numeric_limits<std::uint64_t>::max()}) {
    runOnSmallThread([bytes] {
      const Stage stage;
      KorTemplateLimits limits;
      limits.stackLeft = bytes;
      limits.functionDepth = std::numeric_limits<std::int32_t>::max();
      stage.environment->setLimits(limits);
      EXPECT_EQ(limitReachedBy([&] { stage.run("<? function f() ?><? f() ?><? endfunction ?><? f() ?>"); }),
                KorTemplateLimit::Stack)
          << bytes;
      EXPECT_EQ(stage.depth(), 1);
    });
  }
}

}  // namespace

}  // namespace tavlo::test
