#include <gtest/gtest.h>

#include "Foundation/NSArray.h"
#include "Foundation/NSSet.h"
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
      const std::string outcome = outcomeOnStackOf(kilobytes * 1024, [&] { (void)left.isEqual(right); });
      EXPECT_TRUE(outcome == "stack" || outcome == "well") << kilobytes << ": " << outcome;  // the levels' size decides
    }
  }
}

}  // namespace

}  // namespace tavlo::test
