#include <gtest/gtest.h>

#include "Source/KorTemplateParser.h"
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

}  // namespace

}  // namespace tavlo::test
