#include <gtest/gtest.h>

#include "Foundation/KorTemplateLimits.h"
#include "Foundation/NSArray.h"
#include "Foundation/NSSet.h"
#include "Source/KorTemplateConditionalStatement.h"
#include "Source/KorTemplateParser.h"
#include "Tests/Foundation/SmallStack.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

namespace {

// One frame on two stacks.

TEST(AFrameOnTwoStacks, IsSeenByItsOtherChildWhenItGainsAVariable) {
  const Ref<KorTemplateStackFrame> shared = KorTemplateStackFrame::stackFrame();
  const Ref<KorTemplateStack> stacks[] = {KorTemplateStack::stack(), KorTemplateStack::stack()};
  for (const Ref<KorTemplateStack>& stack : stacks) stack->push(shared);
  const Ref<KorTemplateStackFrame> child = KorTemplateStackFrame::stackFrame();
  stacks[0]->push(child);
  EXPECT_FALSE(child->isVariableDefinedWithName("x"));
  stacks[1]->push(KorTemplateStackFrame::stackFrame());
  stacks[1]->pop();
  shared->setValueForVariableWithName(7, "x");
  EXPECT_EQ(child->valueForVariableWithName("x").description(), "7");
}

TEST(AFrameOnTwoStacks, ServesGlobalsThatAHostSetsAfterAnIsolatedRun) {
  const Stage stage;
  stage.define("isolated", [&](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
    const Ref<KorTemplateStack> old = environment->stack();
    const Ref<KorTemplateStack> fresh = KorTemplateStack::stack();
    fresh->push(old->firstFrame());
    environment->setStack(fresh);
    stage.run("<? if (true) ?><? $i = 1 ?>i<? endif ?>");
    environment->setStack(old);
    environment->setValueForGlobalVariableWithName("G", "g");
    return NSNull::null();
  });
  stage.run("<? if (true) ?><? isolated() ?>[<?= $g ?>]<? endif ?>{<?= $g ?>}");
  EXPECT_EQ(stage.text(), "i[G]{G}");
}

TEST(AFrameOnTwoStacks, SeesNothingBelowWhereItIsPushedFirst) {
  const Ref<KorTemplateStack> first = KorTemplateStack::stack();
  first->push(KorTemplateStackFrame::stackFrame());
  first->currentFrame()->setValueForVariableWithName(1, "x");
  const Ref<KorTemplateStackFrame> frame = KorTemplateStackFrame::stackFrame();
  first->push(frame);
  EXPECT_TRUE(frame->isVariableDefinedWithName("x"));
  const Ref<KorTemplateStack> second = KorTemplateStack::stack();
  second->push(frame);
  second->push(KorTemplateStackFrame::stackFrame());
  EXPECT_FALSE(frame->isVariableDefinedWithName("x"));
  EXPECT_FALSE(second->currentFrame()->isVariableDefinedWithName("x"));
}

TEST(AFrameWhoseParentHasEnded, IsPoppedAllTheSame) {
  const Ref<KorTemplateStack> stack = KorTemplateStack::stack();
  stack->push(KorTemplateStackFrame::stackFrame());
  stack->push(KorTemplateStackFrame::stackFrame());
  Ref<KorTemplateStackFrame> parent = KorTemplateStackFrame::stackFrame();
  stack->currentFrame()->setParentFrame(parent.get());
  parent = nullptr;
  stack->pop();
  stack->pop();
  EXPECT_EQ(stack->currentFrame(), nullptr);
}

// A host's node that changes the list it is copied from.
class ShrinkingStatement final : public KorTemplateStatement {
 public:
  explicit ShrinkingStatement(std::function<void()> copied) : copied_(std::move(copied)) {}
  void executeWithEnvironment(KorTemplateEnvironment* /*environment*/) override {}
  Ref<KorTemplateStatement> copyWithZone(NSZone* /*zone*/) const override {
    const std::function<void()> copied = copied_;
    copied();
    return makeRef<HostStatement>([](KorTemplateEnvironment*) {});
  }

 private:
  std::function<void()> copied_;
};

TEST(ListsThatShrink, AreCopiedAsFarAsTheyGo) {
  const Ref<KorTemplate> whole = makeRef<KorTemplate>();
  whole->addStatement(makeRef<ShrinkingStatement>([&] { whole->removeAllStatements(); }));
  for (int index = 0; index < 3; ++index) whole->addStatement(makeRef<HostStatement>([](KorTemplateEnvironment*) {}));
  const Ref<KorTemplateStatement> copy = whole->copyWithZone();
  EXPECT_EQ(static_cast<KorTemplate&>(*copy).statements().count(), 1);

  const Ref<KorTemplateConditionalStatement> branch = makeRef<KorTemplateConditionalStatement>();
  branch->addFalseStatement(makeRef<ShrinkingStatement>([&] { branch->removeAllFalseStatements(); }));
  branch->addFalseStatement(makeRef<HostStatement>([](KorTemplateEnvironment*) {}));
  const Ref<KorTemplateStatement> branchCopy = branch->copyWithZone();
  EXPECT_EQ(static_cast<KorTemplateConditionalStatement&>(*branchCopy).falseStatements().count(), 1);
}

// Whether the body ends with the limit of the stack, or well, on a thread with a small one.
std::string outcomeOnSmallStack(std::size_t bytes, const std::function<void()>& body) {
  std::string outcome;
  runOnStackOf(bytes, [&] {
    try {
      body();
      outcome = "well";
    } catch (const KorTemplateLimitException& exception) {
      outcome = exception.limit() == KorTemplateLimit::Stack ? "stack" : exception.what();
    }
  });
  return outcome;
}

TEST(NestedCalls, AreCopiedAsFarAsTheStackGoes) {
  Ref<KorTemplateExpression> call = KorTemplateFunctionCallExpression::expressionWithFunctionName("f");
  for (int depth = 0; depth < 5000; ++depth) {
    const Ref<KorTemplateFunctionCallExpression> outer =
        KorTemplateFunctionCallExpression::expressionWithFunctionName("f");
    outer->addArgumentExpression(call);
    call = outer;
  }
  EXPECT_EQ(outcomeOnSmallStack(256 * 1024, [&] { (void)call->copyWithZone(); }), "stack");
}

TEST(DeepValues, AreComparedAsFarAsTheStackGoes) {
  const auto nested = [](bool asSets) {
    Value value = 1;
    for (int depth = 0; depth < 900; ++depth) {
      value = asSets ? Value(NSSet::setWithObjects({value})) : Value(NSArray::arrayWithObjects({value}));
    }
    return value;
  };
  for (const bool asSets : {false, true}) {
    const Value left = nested(asSets);
    const Value right = nested(asSets);
    EXPECT_TRUE(left.isEqual(right));
    for (const std::size_t kilobytes : {80, 96, 128, 256}) {
      const std::string outcome = outcomeOnSmallStack(kilobytes * 1024, [&] { (void)left.isEqual(right); });
      EXPECT_TRUE(outcome == "stack" || outcome == "well") << kilobytes << ": " << outcome;  // the levels' size decides
    }
  }
}

TEST(AbsentValues, AreNotEqualToAnything) {
  const KorTemplateBinaryExpression node(KorTemplateOperatorEquals);
  EXPECT_TRUE(node.operatorEquals(Value(), Value()).isIdenticalTo(KorNO));
  EXPECT_TRUE(node.operatorNotEquals(Value(), Value()).isIdenticalTo(KorYES));
}

}  // namespace

}  // namespace tavlo::test
