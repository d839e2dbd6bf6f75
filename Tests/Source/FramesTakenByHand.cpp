#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

namespace {

Ref<KorTemplateStack> stackOfThree() {
  const Ref<KorTemplateStack> stack = KorTemplateStack::stack();
  for (int number = 0; number < 3; ++number) {
    const Ref<KorTemplateStackFrame> frame = KorTemplateStackFrame::stackFrame();
    stack->push(frame);
    frame->setValueForVariableWithName(std::string(100, static_cast<char>('a' + number)), std::string(1, 'a' + number));
  }
  return stack;
}

// Each name reads its own text, or nothing.
void readThrough(const KorTemplateStackFrame& frame) {
  for (const std::string name : {"a", "b", "c", "none"}) {
    const Value value = frame.valueForVariableWithName(name);
    EXPECT_EQ(frame.isVariableDefinedWithName(name), !value.isAbsent());
    EXPECT_EQ(value.description(), value.isAbsent() ? "(null)" : std::string(100, name.front()));
  }
}

// A frame that is kept, and taken out of the list, is read after the stack has gone.
TEST(FramesTakenOutOfTheList, AreReadWhenTheStackIsGone) {
  for (const std::int32_t index : {0, 1, 2}) {
    Ref<KorTemplateStack> stack = stackOfThree();
    const Ref<KorTemplateStackFrame> taken = stack->frames()[index];
    stack->frames().removeAt(index);
    stack = nullptr;
    readThrough(*taken);
  }
}

// The frames above one that nobody keeps.
TEST(FramesTakenOutOfTheList, LeaveTheFramesAboveReadable) {
  for (const std::int32_t index : {0, 1}) {
    const Ref<KorTemplateStack> stack = stackOfThree();
    stack->frames().removeAt(index);
    readThrough(*stack->currentFrame());
  }
}

TEST(FramesTakenOutOfTheList, AllAtOnceAreDroppedInAnyOrder) {
  const std::vector<std::vector<int>> orders = {{0, 1, 2}, {2, 1, 0}, {1, 0, 2}, {1, 2, 0}, {0, 2, 1}, {2, 0, 1}};
  for (const std::vector<int>& order : orders) {
    Ref<KorTemplateStack> stack = stackOfThree();
    std::vector<Ref<KorTemplateStackFrame>> frames = stack->frames().items();
    stack->frames().removeAll();
    for (const int index : order) {
      for (const Ref<KorTemplateStackFrame>& frame : frames) {
        if (frame != nullptr) readThrough(*frame);
      }
      frames[static_cast<std::size_t>(index)] = nullptr;
    }
  }
}

TEST(FramesTakenOutOfTheList, WhileATemplateRunsInThem) {
  for (const std::int32_t index : {0, 1, 2}) {
    const Stage stage;
    stage.set("a", "global");
    stage.define("take", [&](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
      environment->stack()->frames().removeAt(index);
      return NSNull::null();
    });
    const std::string raised = raisedBy([&] {
      stage.run(
          "<? if (true) ?><? $b = 1 ?><? if (true) ?><? $c = 2 ?><? take() ?>[<?= $a ?><?= $b ?><?= $c ?><? $d = 3 "
          "?><?= $d ?>]"
          "<? endif ?><?= $a ?><? endif ?><?= $a ?>");
    });
    EXPECT_EQ(raised, "nothing") << index;
    EXPECT_EQ(stage.environment->stack()->frames().count(), 0) << index;  // of three one was taken, and two were popped
    EXPECT_THAT(stage.text(), testing::HasSubstr("3]")) << index;
  }
}

TEST(FramesPutIntoTheListByHand, AreReadAfterOthersWereTaken) {
  const Ref<KorTemplateStack> stack = stackOfThree();
  Ref<KorTemplateStackFrame> extra = KorTemplateStackFrame::stackFrame();
  stack->frames().add(extra);
  stack->push(KorTemplateStackFrame::stackFrame());
  stack->frames().removeAt(3);
  extra = nullptr;
  readThrough(*stack->currentFrame());
}

TEST(FramesSetByHand, AreReadAfterTheOldOnesAreGone) {
  const Ref<KorTemplateStack> stack = stackOfThree();
  const Ref<KorTemplateStackFrame> top = stack->currentFrame();
  stack->frames().set({top});
  readThrough(*top);
  stack->pop();
  readThrough(*top);
}

}  // namespace

}  // namespace tavlo::test
