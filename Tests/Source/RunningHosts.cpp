#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <new>
#include <stdexcept>

#include "Foundation/NSArray.h"
#include "Source/KorTemplateConditionalStatement.h"
#include "Source/KorTemplateReturnIndication.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

void popAll(KorTemplateEnvironment* environment) {
  while (environment->stack()->frames().count() > 0) environment->stack()->pop();
}

// A stage with a function "popAll" that leaves no frame on the stack.
struct PoppingStage : Stage {
  PoppingStage() {
    define("popAll", [](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
      popAll(environment);
      return NSNull::null();
    });
  }
};

Ref<KorTemplateStatement> inBranch(const Ref<KorTemplateStatement>& statement) {
  const auto node = KorTemplateConditionalStatement::statementWithExpression(literal(true));
  node->addTrueStatement(statement);
  return node;
}

TEST(AHostThatPopsTooFar, FailsTheScopeThatIsPoppedNext) {
  struct Row {
    const char* text;
    const char* written;
  };
  const Row rows[] = {
      {"<? if (true) ?>a<? popAll() ?>b<? endif ?>c", "ab"},
      {"<? foreach ($e in $list) ?>a<? popAll() ?>b<? endforeach ?>c", "ab"},
      {"<? if (true) ?>a<? if (true) ?><? popAll() ?><? endif ?>b<? endif ?>c", "a"},
      {"<? if (true) ?>a<? popAll() ?><? return ?><? endif ?>c", "a"},
  };
  for (const Row& row : rows) {
    const PoppingStage stage;
    stage.set("list", NSArray::arrayWithObjects({1, 2}));
    EXPECT_EQ(raisedBy([&] { stage.run(row.text); }), failedAssertion("Stack frame is empty")) << row.text;
    EXPECT_EQ(stage.text(), row.written) << row.text;
    EXPECT_EQ(stage.depth(), 0) << row.text;
  }
}

TEST(AHostThatPopsTooFar, FailsTheFunctionWhoseScopeIsGone) {
  const PoppingStage stage;
  stage.run("<? function f() ?><? popAll() ?>x<? endfunction ?><?= f() ?>y");
  EXPECT_EQ(stage.text(), "xy");
  EXPECT_EQ(stage.diagnostics(), "Stack frame is empty");
}

TEST(AHostThatPopsTooFar, HidesTheExceptionThatIsOnItsWay) {
  const auto popAndRaise = makeRef<HostStatement>([](KorTemplateEnvironment* environment) {
    popAll(environment);
    throw NSException("Boom", "bang");
  });
  const Stage stage;
  EXPECT_EQ(raisedBy([&] { inBranch(popAndRaise)->executeWithEnvironment(stage.get()); }),
            failedAssertion("Stack frame is empty"));
  const Stage second;
  const Ref<KorTemplateInternalFunction> function = KorTemplateInternalFunction::function();
  function->addStatement(inBranch(popAndRaise));
  second.environment->setFunctionForName(function, "f");
  second.run("<? f() ?>a");
  EXPECT_EQ(second.diagnostics(), "Stack frame is empty");
  EXPECT_EQ(second.text(), "a");
}

TEST(AHostThatPopsTooFar, HidesAReturnThatIsOnItsWay) {
  const auto popAndReturn = makeRef<HostStatement>([](KorTemplateEnvironment* environment) {
    popAll(environment);
    throw KorTemplateReturnIndication::indicationWithReturnValue(1);
  });
  const Stage stage;
  const Ref<KorTemplate> whole = templateOf({inBranch(popAndReturn), output("a")});
  EXPECT_EQ(raisedBy([&] { whole->executeWithEnvironment(stage.get()); }), failedAssertion("Stack frame is empty"));
  const Stage second;
  const Ref<KorTemplateInternalFunction> function = KorTemplateInternalFunction::function();
  function->addStatement(popAndReturn);
  EXPECT_EQ(raisedBy([&] { (void)function->invokeWithEnvironment(second.get(), {}); }),
            failedAssertion("Stack frame is empty"));
  EXPECT_THAT(stage.output->writes, IsEmpty());
}

TEST(AHostThatPopsTooFar, DoesNotSpoilTheNextExecution) {
  const PoppingStage stage;
  EXPECT_NE(raisedBy([&] { stage.run("<? if (true) ?><? popAll() ?><? endif ?>"); }), "nothing");
  stage.environment->stack()->push(KorTemplateStackFrame::stackFrame());
  stage.define("boom", [](auto&&...) -> Value { throw NSException("Boom", "bang"); });
  stage.run("<? boom() ?>a");
  EXPECT_EQ(stage.diagnostics(), "bang");
}

TEST(AHostThatPushes, LeavesItsFrameToBePoppedInPlaceOfTheScope) {
  const Stage stage;
  stage.define("push", [](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
    environment->stack()->push(KorTemplateStackFrame::stackFrame());
    return NSNull::null();
  });
  stage.run("<? if (true) ?><? $x = 1 ?><? push() ?><? $y = 2 ?><? endif ?>[<?= $x ?><?= $y ?>]");
  EXPECT_EQ(stage.text(), "[1]");
  EXPECT_EQ(stage.depth(), 2);
}

TEST(AHostThatReplacesTheStack, HasTheNewOnePopped) {
  const Stage stage;
  const Ref<KorTemplateStack> old = stage.environment->stack();
  stage.define("replace", [](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
    const Ref<KorTemplateStack> stack = KorTemplateStack::stack();
    stack->push(KorTemplateStackFrame::stackFrame());
    stack->push(KorTemplateStackFrame::stackFrame());
    environment->setStack(stack);
    return NSNull::null();
  });
  stage.run(
      "<? if (true) ?><? $w = 0 ?><? replace() ?><? $x = 1 ?><?= $x ?><? endif ?><? $y = 2 ?>[<?= $w ?><?= $x ?><?= $y "
      "?>]");
  EXPECT_EQ(stage.text(), "1[2]");
  EXPECT_EQ(stage.depth(), 1);
  EXPECT_EQ(old->frames().count(), 2);
}

TEST(AHostThatReplacesTheStack, MayTakeItAway) {
  const Stage stage;
  const Ref<KorTemplateStack> old = stage.environment->stack();
  stage.define("take", [](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
    environment->setStack(nullptr);
    return NSNull::null();
  });
  stage.run("<? function f($p) ?><? take() ?>[<?= $p ?>]<? endfunction ?><? if (true) ?><? f(1) ?><? endif ?>end");
  EXPECT_EQ(stage.text(), "[]end");
  EXPECT_EQ(old->frames().count(), 3);
}

TEST(AHostThatReplacesFunctions, LetsTheRunningOneFinish) {
  const Stage stage;
  stage.run("<? function f() ?>1<? function f() ?>2<? endfunction ?>3<? endfunction ?><? f() ?><? f() ?>");
  EXPECT_EQ(stage.text(), "132");
}

TEST(AHostThatReplacesFunctions, KeepsTheOldOneUntilTheOutermostExecutionEnds) {
  class EndingFunction final : public KorTemplateFunction {
   public:
    EndingFunction(bool& ended, int& state) : ended_(ended), state_(state) {}
    ~EndingFunction() override { ended_ = true; }
    Value invokeWithEnvironment(KorTemplateEnvironment* environment, ListArgument<Value>) override {
      environment->removeFunctionForName("f");
      EXPECT_EQ(environment->functionForName("f"), nullptr);
      EXPECT_FALSE(ended_);
      return ++state_;
    }

   private:
    bool& ended_;
    int& state_;
  };
  const Stage stage;
  bool ended = false;
  int state = 0;
  stage.environment->setFunctionForName(makeRef<EndingFunction>(ended, state), "f");
  bool endedDuring = false;
  stage.define("look", [&](auto&&...) -> Value {
    endedDuring = ended;
    return NSNull::null();
  });
  stage.run("<?= f() ?><? look() ?><?= f() ?>");
  EXPECT_EQ(stage.text(), "1");
  EXPECT_FALSE(endedDuring);
  EXPECT_TRUE(ended);
}

TEST(AHostThatReplacesStreams, IsHeardAtTheNextOutput) {
  const Stage stage;
  const Ref<RecordingStream> next = makeRef<RecordingStream>();
  stage.define("swap", [&](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
    environment->setOutputStream(next);
    return NSNull::null();
  });
  stage.define("drop", [](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
    environment->setOutputStream(nullptr);
    environment->setErrorStream(nullptr);
    throw NSException("Boom", "unheard");
  });
  stage.run("a<? swap() ?>b<?= drop() ?>c");
  EXPECT_EQ(stage.text(), "a");
  EXPECT_THAT(next->writes, ElementsAre("b"));
  EXPECT_THAT(stage.errors->writes, IsEmpty());
}

TEST(AHostThatRunsTemplates, NestsThemInOneAnother) {
  const Stage stage;
  stage.define("include", [](KorTemplateEnvironment* environment, ListArgument<Value> arguments) -> Value {
    KorTemplate::compile(arguments[0].description())->executeWithEnvironment(environment);
    return NSNull::null();
  });
  stage.run("a<? if (true) ?><? $x = 1 ?><? include(\"<\" + \"?= $x ?\" + \">\") ?><? endif ?>b<? include(\"c\") ?>");
  EXPECT_EQ(stage.text(), "a1bc");
  EXPECT_EQ(stage.depth(), 1);
}

TEST(AHostThatThrows, LeavesTheDepthAsItWasWhateverItThrows) {
  const auto throwing = [](int kind) {
    return makeRef<HostStatement>([kind](KorTemplateEnvironment*) {
      if (kind == 0) throw 42;
      if (kind == 1) throw std::runtime_error("what");
      if (kind == 2) throw std::bad_alloc();
      throw NSException("Boom", "bang");
    });
  };
  for (int kind = 0; kind < 4; ++kind) {
    const Stage stage;
    const Ref<KorTemplate> whole = templateOf({output("a"), inBranch(inBranch(throwing(kind))), output("b")});
    EXPECT_ANY_THROW(whole->executeWithEnvironment(stage.get())) << kind;
    EXPECT_EQ(stage.depth(), 1) << kind;
    EXPECT_EQ(stage.text(), "a") << kind;
    EXPECT_THAT(stage.errors->writes, IsEmpty()) << kind;
    const Ref<KorTemplateInternalFunction> function = KorTemplateInternalFunction::function();
    function->addStatement(inBranch(throwing(kind)));
    stage.environment->setFunctionForName(function, "f");
    const bool isReported = kind == 1 || kind == 3;
    if (isReported) {
      stage.run("<? f() ?>");
    } else {
      EXPECT_ANY_THROW(stage.run("<? f() ?>")) << kind;
    }
    EXPECT_EQ(stage.errors->writes.size(), isReported ? 1u : 0u) << kind;
    EXPECT_EQ(stage.depth(), 1) << kind;
  }
}

TEST(AHostsStream, EndsTheExecutionByAnException) {
  const Stage stage;
  stage.output->onWrite = [](const Text& text) {
    if (text.view() == "b") throw NSException("Full", "no room");
  };
  EXPECT_EQ(raisedBy([&] { stage.run("a<? if (true) ?>b<? endif ?>c"); }), "Full: no room");
  EXPECT_EQ(stage.text(), "a");
  EXPECT_EQ(stage.depth(), 1);
  stage.run("<? function f() ?>b<? endfunction ?><? f() ?>d");
  EXPECT_EQ(stage.text(), "ad");
  EXPECT_EQ(stage.diagnostics(), "no room");
}

class alignas(64) WideExpression final : public KorTemplateExpression {
 public:
  WideExpression() = default;
  Value evaluateWithEnvironment(KorTemplateEnvironment*) override { return 1; }
  Ref<KorTemplateExpression> copyWithZone(NSZone*) const override { return makeRef<WideExpression>(); }
};
class alignas(64) WideStatement final : public KorTemplateStatement {
 public:
  WideStatement() = default;
  void executeWithEnvironment(KorTemplateEnvironment* environment) override { environment->outputStream()->write("2"); }
  Ref<KorTemplateStatement> copyWithZone(NSZone*) const override { return makeRef<WideStatement>(); }
};
class alignas(64) WideFunction final : public KorTemplateFunction {
 public:
  WideFunction() = default;
  Value invokeWithEnvironment(KorTemplateEnvironment*, ListArgument<Value>) override { return 3; }
};

TEST(AHostsNode, LiesWhereItsAlignmentAsks) {
  const Stage stage;
  for (int time = 0; time < 20; ++time) {
    const Ref<KorTemplateExpression> expression = makeRef<WideExpression>();
    const Ref<KorTemplateStatement> statement = makeRef<WideStatement>();
    const Ref<KorTemplateFunction> function = makeRef<WideFunction>();
    for (const NSObject* const node :
         {static_cast<NSObject*>(expression.get()), static_cast<NSObject*>(statement.get()),
          static_cast<NSObject*>(function.get())}) {
      EXPECT_EQ(reinterpret_cast<std::uintptr_t>(dynamic_cast<const void*>(node)) % 64, 0U);
    }
    output(expression)->executeWithEnvironment(stage.get());
    statement->executeWithEnvironment(stage.get());
    stage.environment->setFunctionForName(function, "three");
    stage.run("<?= three() ?>");
  }
  EXPECT_EQ(stage.text().substr(0, 9), "123123123");
}

}  // namespace

}  // namespace tavlo::test
