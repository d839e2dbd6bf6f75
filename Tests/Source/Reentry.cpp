#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "Source/KorTemplateRendering.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

namespace {

using testing::IsEmpty;

// A stage whose function "again" runs a template, at most so deep.
struct ReenteringStage : Stage {
  ReenteringStage(const std::string& text, int depth) : whole(KorTemplate::compile(text)), left(depth) {
    define("again", [this](KorTemplateEnvironment* running, ListArgument<Value>) -> Value {
      if (left-- <= 0) return bottom ? bottom() : Value(NSNull::null());
      whole->executeWithEnvironment(running);
      return NSNull::null();
    });
  }
  void start() const { whole->executeWithEnvironment(get()); }

  Ref<KorTemplate> whole;
  int left;
  std::function<Value()> bottom;  // what the innermost call does; nothing where it is empty
};

TEST(Reentry, RunsTheSameTemplateInTheSameEnvironment) {
  const ReenteringStage stage("<? $n = ($n + 1) ?>(<?= $n ?><? again() ?>)", 2);
  stage.set("n", 0);
  stage.start();
  EXPECT_EQ(stage.text(), "(1(2(3)))");
  EXPECT_EQ(stage.depth(), 1);
}

TEST(Reentry, RunsTheSameTemplateFromWithinItsScopes) {
  const ReenteringStage stage("<? if (true) ?>[<? $x = ($x + \"i\") ?><?= $x ?><? again() ?><?= $x ?>]<? endif ?>", 1);
  stage.set("x", "");
  stage.start();
  EXPECT_EQ(stage.text(), "[i[iiii]i]");
}

TEST(Reentry, RunsTheSameTemplateInAnEnvironmentOfItsOwn) {
  const Stage stage;
  const Ref<KorTemplate> page = KorTemplate::compile("<?= $n ?><?= inner() ?>.");
  stage.set("n", 1);
  stage.define("inner", [&](auto&&...) -> Value { return render(page, {{"n", 2}}); });
  page->executeWithEnvironment(stage.get());
  EXPECT_EQ(stage.text(), "12..");
}

TEST(Reentry, LetsAForeignExceptionThroughUnharmed) {
  struct Foreign {
    int number;
  };
  ReenteringStage stage("a<? function f() ?><? if (true) ?><? again() ?><? endif ?><? endfunction ?><? f() ?>b", 3);
  stage.bottom = []() -> Value { throw Foreign{42}; };
  try {
    stage.start();
    FAIL();
  } catch (const Foreign& foreign) {
    EXPECT_EQ(foreign.number, 42);
  }
  EXPECT_EQ(stage.text(), "aaaa");
  EXPECT_EQ(stage.depth(), 1);
  EXPECT_THAT(stage.errors->writes, IsEmpty());
  stage.bottom = nullptr;
  stage.left = 1;
  stage.start();
  EXPECT_EQ(stage.text(), "aaaaaabb");
  EXPECT_EQ(stage.environment->lastFailure(), nullptr);
}

TEST(Reentry, CountsRunningFunctionsAsBeforeWhateverHasBeenRaised) {
  const Stage stage;
  KorTemplateLimits limits;
  limits.functionDepth = 2;
  stage.environment->setLimits(limits);
  stage.define("foreign", [](auto&&...) -> Value { throw 42; });
  stage.define("boom", [](auto&&...) -> Value { throw NSException("Boom", "bang"); });
  const std::string function = "<? function f() ?><? foreign() ?><? endfunction ?>";
  for (int run = 0; run < 5; ++run) {
    EXPECT_THROW(stage.run(function + "<? f() ?>"), int);
    stage.run("<? function g() ?><? boom() ?><? endfunction ?><? g() ?>");
  }
  EXPECT_THROW(stage.run(function + "<? function h() ?><? f() ?><? endfunction ?><? h() ?>"),
               KorTemplateLimitException);
}

TEST(Reentry, LeavesTheOuterRunItsOutputAndItsPlace) {
  ReenteringStage stage("<? again() ?>x", 1);
  stage.bottom = []() -> Value { throw NSException("Boom", "bang"); };
  const Ref<KorTemplate> page = KorTemplate::compile("1<? again() ?>2\n<?= 1 / 0 ?>", {.name = "page"});
  EXPECT_NE(raisedBy([&] { page->executeWithEnvironment(stage.get()); }), "nothing");
  EXPECT_EQ(stage.text(), "1x2\n");
  EXPECT_EQ(stage.diagnostics(), "bang");
  EXPECT_EQ(stage.environment->lastFailure()->place().description(), "page:2:1");
}

TEST(Reentry, LetsAFunctionChangeTheEnvironmentThatRuns) {
  const Stage stage;
  const auto next = makeRef<RecordingStream>();
  stage.define("change", [&](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
    environment->setGlobal("added", "global");
    environment->setFunctionForName(makeRef<HostFunction>([](auto&&...) -> Value { return "function"; }), "added");
    environment->setOutputStream(next);
    environment->setObserver(KorTemplateObserver::observer());
    environment->setDiagnosticCallback([](const KorTemplateFailure&) {});
    return NSNull::null();
  });
  stage.run("a<? change() ?><?= $added ?>,<?= added() ?>,<?= $missing ?>");
  EXPECT_EQ(stage.text(), "a");
  EXPECT_EQ(next->joined(""), "global,function,");
  EXPECT_EQ(stage.environment->observer()->count(), 1U);
}

}  // namespace

}  // namespace tavlo::test
