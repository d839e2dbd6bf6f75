#include "Source/KorTemplateStack.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "Foundation/NSDictionary.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

Ref<KorTemplateStackFrame> newFrame() {
  return KorTemplateStackFrame::stackFrame();
}

// A stack of two frames.
struct TwoFrames {
  TwoFrames() {
    stack->push(below);
    stack->push(above);
  }
  Ref<KorTemplateStack> stack = KorTemplateStack::stack();
  Ref<KorTemplateStackFrame> below = newFrame();
  Ref<KorTemplateStackFrame> above = newFrame();
};

TEST(KorTemplateStack, StartsWithoutFrames) {
  for (const Ref<KorTemplateStack>& stack : {KorTemplateStack::stack(), makeRef<KorTemplateStack>()}) {
    EXPECT_EQ(stack->firstFrame(), nullptr);
    EXPECT_EQ(stack->currentFrame(), nullptr);
    EXPECT_EQ(stack->frames().count(), 0);
  }
}

TEST(KorTemplateStack, WithOneFrameHasItAsFirstAndCurrent) {
  const Ref<KorTemplateStack> stack = KorTemplateStack::stack();
  const Ref<KorTemplateStackFrame> frame = newFrame();
  stack->push(frame);
  EXPECT_EQ(stack->firstFrame(), frame);
  EXPECT_EQ(stack->currentFrame(), frame);
  EXPECT_EQ(frame->parentFrame(), nullptr);
}

TEST(KorTemplateStack, LinksFramesInPushAndUnlinksThemInPop) {
  const TwoFrames two;
  EXPECT_EQ(two.stack->firstFrame(), two.below);
  EXPECT_EQ(two.stack->currentFrame(), two.above);
  EXPECT_THAT(two.stack->frames().items(), ElementsAre(two.below, two.above));
  EXPECT_EQ(two.above->parentFrame(), two.below.get());
  two.stack->pop();
  EXPECT_EQ(two.stack->currentFrame(), two.below);
  EXPECT_EQ(two.above->parentFrame(), nullptr);
}

TEST(KorTemplateStack, ReplacesALinkSetByHandInPush) {
  const TwoFrames two;
  const Ref<KorTemplateStackFrame> frame = newFrame();
  const Ref<KorTemplateStack> empty = KorTemplateStack::stack();
  frame->setParentFrame(two.above.get());
  empty->push(frame);
  EXPECT_EQ(frame->parentFrame(), nullptr);
}

TEST(KorTemplateStack, FailsToPopWithoutFrames) {
  const Ref<KorTemplateStack> stack = KorTemplateStack::stack();
  EXPECT_EQ(raisedBy([&] { stack->pop(); }), failedAssertion("Stack frame is empty"));
  stack->push(newFrame());
  stack->pop();
  EXPECT_EQ(stack->frames().count(), 0);
  EXPECT_EQ(raisedBy([&] { stack->pop(); }), failedAssertion("Stack frame is empty"));
  EXPECT_EQ(stack->frames().count(), 0);
}

TEST(KorTemplateStack, ShowsItsLiveList) {
  const Ref<KorTemplateStack> stack = KorTemplateStack::stack();
  const auto& frames = stack->frames();
  stack->push(newFrame());
  EXPECT_EQ(frames.count(), 1);
  EXPECT_EQ(frames[0], stack->currentFrame());
}

TEST(KorTemplateStack, TakesAFrameOfItsOwnListAgain) {
  const Ref<KorTemplateStack> stack = KorTemplateStack::stack();
  for (int count = 0; count < 20; ++count) stack->push(KorTemplateStackFrame::stackFrame());
  for (int count = 0; count < 20; ++count) stack->push(stack->frames()[0]);
  EXPECT_EQ(stack->frames().count(), 40);
  EXPECT_EQ(stack->currentFrame(), stack->firstFrame());
  while (stack->frames().count() > 0) stack->pop();
}

TEST(KorTemplateStack, CopiedYieldsAnEmptyStackAndDoublesItself) {
  const TwoFrames two;
  const Value shared = Ref<HostObject>(makeRef<HostObject>());
  two.below->setValueForVariableWithName(shared, "x");
  two.above->setValueForVariableWithName(2, "y");
  const Ref<KorTemplateStack> copy = two.stack->copyWithZone();
  EXPECT_EQ(copy->frames().count(), 0);
  const auto& frames = two.stack->frames();
  ASSERT_EQ(frames.count(), 4);
  EXPECT_EQ(frames[0], two.below);
  EXPECT_EQ(frames[1], two.above);
  EXPECT_TRUE(frames[2]->valueForLocalVariableWithName("x").isIdenticalTo(shared));
  EXPECT_THAT(frames[2]->localVariableNames(), ElementsAre(Name("x")));
  EXPECT_THAT(frames[3]->localVariableNames(), ElementsAre(Name("y")));
  EXPECT_EQ(frames[2]->parentFrame(), frames[1].get());
  EXPECT_EQ(frames[3]->parentFrame(), frames[2].get());
}

TEST(KorTemplateStack, LeavesNoLinkToItsFramesWhenItEnds) {
  TwoFrames two;
  two.below->setValueForVariableWithName(1, "x");
  two.stack = nullptr;
  two.below = nullptr;
  ASSERT_EQ(two.above->parentFrame(), nullptr);
  EXPECT_TRUE(two.above->valueForVariableWithName("x").isAbsent());
}

TEST(KorTemplateStackFrame, StartsWithoutVariablesAndParent) {
  for (const Ref<KorTemplateStackFrame>& frame : {newFrame(), makeRef<KorTemplateStackFrame>()}) {
    EXPECT_THAT(frame->localVariableNames(), IsEmpty());
    EXPECT_EQ(frame->parentFrame(), nullptr);
    EXPECT_TRUE(frame->valueForVariableWithName("x").isAbsent());
    EXPECT_TRUE(frame->valueForLocalVariableWithName("x").isAbsent());
    EXPECT_FALSE(frame->isVariableDefinedWithName("x"));
    EXPECT_FALSE(frame->isLocalVariableDefinedWithName("x"));
  }
}

TEST(KorTemplateStackFrame, TakesACopyOfTheDictionaryItIsMadeFrom) {
  const Value shared = Ref<HostObject>(makeRef<HostObject>());
  const Ref<NSMutableDictionary> variables = NSMutableDictionary::dictionary();
  variables->setObjectForKey(shared, "x");
  const Ref<NSDictionary> given = variables;
  for (const Ref<KorTemplateStackFrame>& frame :
       {KorTemplateStackFrame::stackFrameWithLocalVariables(given), makeRef<KorTemplateStackFrame>(given)}) {
    variables->setObjectForKey(2, "y");
    EXPECT_THAT(frame->localVariableNames(), ElementsAre(Name("x")));
    EXPECT_TRUE(frame->valueForLocalVariableWithName("x").isIdenticalTo(shared));
    EXPECT_EQ(frame->parentFrame(), nullptr);
    frame->setValueForVariableWithName(3, "z");
    EXPECT_EQ(variables->find("z"), nullptr);
    variables->removeObjectForKey("y");
  }
}

TEST(KorTemplateStackFrame, ReadsThroughToTheFramesBelow) {
  const TwoFrames two;
  two.below->setValueForVariableWithName("outer", "x");
  EXPECT_EQ(two.above->valueForVariableWithName("x").description(), "outer");
  EXPECT_TRUE(two.above->isVariableDefinedWithName("x"));
  EXPECT_FALSE(two.above->isLocalVariableDefinedWithName("x"));
  EXPECT_TRUE(two.above->valueForLocalVariableWithName("x").isAbsent());
  EXPECT_FALSE(two.below->isVariableDefinedWithName("y"));
}

TEST(KorTemplateStackFrame, WritesIntoItselfOnly) {
  const TwoFrames two;
  two.below->setValueForVariableWithName("outer", "x");
  two.above->setValueForVariableWithName("inner", "x");
  EXPECT_EQ(two.above->valueForVariableWithName("x").description(), "inner");
  EXPECT_EQ(two.below->valueForVariableWithName("x").description(), "outer");
  two.stack->pop();
  EXPECT_EQ(two.stack->currentFrame()->valueForVariableWithName("x").description(), "outer");
}

TEST(KorTemplateStackFrame, TakesTheNullObjectForAValue) {
  const TwoFrames two;
  two.below->setValueForVariableWithName("outer", "x");
  two.above->setValueForVariableWithName(NSNull::null(), "x");
  EXPECT_TRUE(two.above->isLocalVariableDefinedWithName("x"));
  EXPECT_TRUE(two.above->valueForVariableWithName("x").isNull());
  EXPECT_TRUE(two.above->valueForLocalVariableWithName("x").isNull());
}

TEST(KorTemplateStackFrame, ReplacesItsOwnValueOfAName) {
  const Ref<KorTemplateStackFrame> frame = newFrame();
  frame->setValueForVariableWithName(1, "x");
  frame->setValueForVariableWithName(2, "x");
  frame->setValueForVariableWithName(3, "@@index");
  EXPECT_EQ(frame->valueForVariableWithName("x").description(), "2");
  EXPECT_THAT(frame->localVariableNames(), UnorderedElementsAre(Name("x"), Name("@@index")));
}

TEST(KorTemplateStackFrame, KeepsManyVariables) {
  const Ref<KorTemplateStackFrame> frame = newFrame();
  for (int number = 0; number < 1000; ++number) {
    frame->setValueForVariableWithName(number, "v" + std::to_string(number));
  }
  frame->setValueForVariableWithName("changed", "v500");
  EXPECT_EQ(frame->localVariableNames().size(), 1000u);
  EXPECT_EQ(frame->valueForVariableWithName("v0").intValue(), 0);
  EXPECT_EQ(frame->valueForVariableWithName("v999").intValue(), 999);
  EXPECT_EQ(frame->valueForVariableWithName("v500").description(), "changed");
  EXPECT_FALSE(frame->isVariableDefinedWithName("v1000"));
}

TEST(KorTemplateStackFrame, CopiesItsVariablesButNotItsParent) {
  const TwoFrames two;
  const Value shared = Ref<HostObject>(makeRef<HostObject>());
  two.below->setValueForVariableWithName(1, "outer");
  two.above->setValueForVariableWithName(shared, "x");
  const Ref<KorTemplateStackFrame> copy = two.above->copyWithZone();
  EXPECT_EQ(copy->parentFrame(), nullptr);
  EXPECT_TRUE(copy->valueForVariableWithName("outer").isAbsent());
  EXPECT_TRUE(copy->valueForVariableWithName("x").isIdenticalTo(shared));
  copy->setValueForVariableWithName(2, "y");
  EXPECT_FALSE(two.above->isVariableDefinedWithName("y"));
}

TEST(KorTemplateStackFrame, FollowsLinksThatAreSetByHand) {
  const Ref<KorTemplateStackFrame> parent = newFrame();
  const Ref<KorTemplateStackFrame> child = newFrame();
  child->setParentFrame(parent.get());
  EXPECT_EQ(child->parentFrame(), parent.get());
  EXPECT_FALSE(child->isVariableDefinedWithName("x"));
  parent->setValueForVariableWithName(1, "x");
  EXPECT_TRUE(child->isVariableDefinedWithName("x"));
  child->setParentFrame(nullptr);
  EXPECT_FALSE(child->isVariableDefinedWithName("x"));
}

TEST(KorTemplateStackFrame, FollowsALinkByHandAfterThatParentCarriedAnotherFrame) {
  const Ref<KorTemplateStack> stack = KorTemplateStack::stack();
  const Ref<KorTemplateStackFrame> parent = newFrame();
  const Ref<KorTemplateStackFrame> child = newFrame();
  stack->push(parent);
  child->setParentFrame(parent.get());
  stack->push(newFrame());
  stack->pop();
  EXPECT_FALSE(child->isVariableDefinedWithName("x"));
  parent->setValueForVariableWithName(1, "x");
  EXPECT_TRUE(child->isVariableDefinedWithName("x"));
}

TEST(KorTemplateStackFrame, SeesAVariableThatALowerEmptyFrameGainsLater) {
  const Ref<KorTemplateStack> stack = KorTemplateStack::stack();
  for (int frame = 0; frame < 5; ++frame) stack->push(newFrame());
  const Ref<KorTemplateStackFrame> top = stack->currentFrame();
  for (int frame = 0; frame < 4; ++frame) {
    EXPECT_FALSE(top->isVariableDefinedWithName("x")) << frame;
    stack->frames()[frame]->setValueForVariableWithName(frame, std::string("x") + std::to_string(frame));
    EXPECT_EQ(top->valueForVariableWithName("x" + std::to_string(frame)).intValue(), frame);
  }
}

TEST(KorTemplateStackFrame, FindsItsVariablesInAThreadThatTakesItOver) {
  const TwoFrames two;
  EXPECT_FALSE(two.above->isVariableDefinedWithName("x"));
  two.below->setValueForVariableWithName(1, "x");
  bool found = false;
  std::thread([&] { found = two.above->isVariableDefinedWithName("x"); }).join();
  EXPECT_TRUE(found);
}

}  // namespace

}  // namespace tavlo::test
