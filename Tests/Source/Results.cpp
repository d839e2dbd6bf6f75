#include <gtest/gtest.h>

#include <new>
#include <stdexcept>
#include <string>

#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

namespace {

TEST(AResult, OfACompilationIsTheTemplate) {
  const KorTemplateResult<Ref<KorTemplate>> result = KorTemplate::tryCompile("a<?= 1 ?>", {.name = "page"});
  ASSERT_TRUE(result);
  EXPECT_EQ((*result)->name(), "page");
  EXPECT_EQ(result.value()->statements().count(), 2);
  EXPECT_EQ(raisedBy([&] { (void)result.failure(); }), failedCheck("the call has failed"));
}

TEST(AResult, WithoutAValueRaisesWhatTheCallWouldHaveRaised) {
  const KorTemplateResult<Ref<KorTemplate>> result = KorTemplate::tryCompile("<?= ?>");
  ASSERT_FALSE(result);
  EXPECT_THROW((void)result.value(), NSException);
  EXPECT_NE(result.failure().exception(), nullptr);
  EXPECT_EQ(raisedBy([] { KorTemplateFailure("Name", "reason", nullptr).raise(); }), "Name: reason");
}

TEST(AResult, OfAnExecutionTellsOfTheWholeFamily) {
  struct Row {
    const char* what;
    void (*raise)();
    const char* name;
    const char* reason;
  };
  const Row rows[] = {
      {"an exception", [] { throw NSException("Boom", "bang"); }, "Boom", "bang"},
      {"a standard exception", [] { throw std::runtime_error("what"); }, "std::exception", "what"},
      {"a lack of memory", [] { throw std::bad_alloc(); }, "std::bad_alloc", "There is not enough memory"},
      {"a limit", [] { raiseLimit(KorTemplateLimit::Stack, 1); }, "KorTemplateLimitException", nullptr},
  };
  for (const Row& row : rows) {
    const Stage stage;
    const Ref<KorTemplate> whole =
        templateOf({output("a"), makeRef<HostStatement>([&](KorTemplateEnvironment*) { row.raise(); })});
    const KorTemplateResult<void> result = whole->tryExecuteWithEnvironment(stage.get());
    ASSERT_FALSE(result) << row.what;
    EXPECT_EQ(result.failure().name(), row.name) << row.what;
    if (row.reason != nullptr) {
      EXPECT_EQ(result.failure().reason(), row.reason) << row.what;
    }
    EXPECT_ANY_THROW(result.value()) << row.what;
    EXPECT_EQ(stage.text(), "a") << row.what;
  }
}

TEST(AResult, LetsPassWhatIsNoExceptionOfTheFamily) {
  const Stage stage;
  const Ref<KorTemplate> whole = templateOf({makeRef<HostStatement>([](KorTemplateEnvironment*) { throw 42; })});
  EXPECT_THROW((void)whole->tryExecuteWithEnvironment(stage.get()), int);
  const KorTemplateResult<void> next = templateOf({output("b")})->tryExecuteWithEnvironment(stage.get());
  EXPECT_TRUE(next);
  next.value();
  EXPECT_EQ(raisedBy([&] { (void)next.failure(); }), failedCheck("the call has failed"));
}

TEST(AResult, WithoutAnEnvironmentIsAFailure) {
  const KorTemplateResult<void> result = templateOf({})->tryExecuteWithEnvironment(nullptr);
  ASSERT_FALSE(result);
  EXPECT_EQ(result.failure().name() + ": " + result.failure().reason(), failedCheck("environment != nil"));
}

// What an execution has kept ends behind it, and may run templates in the same environment.
TEST(AResult, IsOfTheExecutionThatWasAskedForWhateverEndsRun) {
  for (const char* const text : {"<? 1 / 0 ?>", "fine"}) {
    const Ref<KorTemplate> inner = KorTemplate::compile(text);
    const Stage stage;
    int ends = 0;
    Ref<EndingObject> kept = makeRef<EndingObject>([&] {
      ++ends;
      (void)inner->tryExecuteWithEnvironment(stage.get());
    });
    stage.define("f", [kept](auto&&...) -> Value { return NSNull::null(); });
    kept = nullptr;
    stage.define("drop", [](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
      environment->removeFunctionForName("f");
      return NSNull::null();
    });
    const KorTemplateResult<void> result =
        KorTemplate::compile("\n<? drop() ?><? 1 - \"x\" ?>", {.name = "page"})->tryExecuteWithEnvironment(stage.get());
    EXPECT_EQ(ends, 1) << text;
    ASSERT_FALSE(result) << text;
    EXPECT_EQ(raisedBy([&] { result.value(); }), result.failure().name() + ": " + result.failure().reason()) << text;
    EXPECT_EQ(result.failure().place().description(), "page:2:13") << text;
    ASSERT_NE(stage.environment->lastFailure(), nullptr) << text;
    EXPECT_EQ(stage.environment->lastFailure()->text(), result.failure().text()) << text;
    EXPECT_EQ(stage.environment->failedStatement().offset, 13U) << text;
  }
}

TEST(AResult, InsideARunningTemplateIsPlacedInTheInnerOne) {
  const Stage stage;
  const Ref<KorTemplate> inner = KorTemplate::compile("\n<? 1 / 0 ?>", {.name = "inner"});
  std::string told;
  stage.define("attempt", [&](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
    const KorTemplateResult<void> result = inner->tryExecuteWithEnvironment(environment);
    told = result ? "nothing" : result.failure().text();
    return NSNull::null();
  });
  stage.run("a<? attempt() ?>b");
  EXPECT_EQ(told, "inner:2:1: NSGenericException: Divide by zero\n<? 1 / 0 ?>\n^\n");
  EXPECT_EQ(stage.text(), "a\nb");
  EXPECT_EQ(stage.environment->lastFailure(), nullptr);
}

}  // namespace

}  // namespace tavlo::test
