#pragma once

#include <cstdint>
#include <utility>

#include "Source/KorTemplateChildList.h"
#include "Source/KorTemplateEnvironment.h"
#include "Source/KorTemplateStatement.h"

namespace tavlo {

// Pairs every scope that is opened with one pop, on every exit. On the normal way out pop() is called and may raise;
// while an exception is on its way the guard pops quietly and leaves word where that failed.
class FrameGuard {
 public:
  explicit FrameGuard(KorTemplateEnvironment& environment) noexcept : environment_(environment) {}
  FrameGuard(const FrameGuard&) = delete;
  FrameGuard& operator=(const FrameGuard&) = delete;

  ~FrameGuard() {
    for (; depth_ > 0; --depth_) {
      const Ref<KorTemplateStack>& stack = environment_.stack();
      if (stack != nullptr && !stack->popIfAny()) environment_.notePopFailure();
    }
  }

  // A frame for push() that nobody else holds.
  Ref<KorTemplateStackFrame> makeFrame() const {
    KorTemplateStack* stack = environment_.stack().get();
    return stack == nullptr ? KorTemplateStackFrame::stackFrame() : stack->takeFrame();
  }

  // Opens a scope. The frame is lent until it is popped.
  void push(Ref<KorTemplateStackFrame> frame) {
    KorTemplateStack* stack = environment_.stack().get();
    if (stack != nullptr) {
      stack->pushFrame(std::move(frame));
    } else {
      unstacked_ = std::move(frame);
    }
    ++depth_;
  }
  KorTemplateStackFrame* push() {
    Ref<KorTemplateStackFrame> frame = makeFrame();
    KorTemplateStackFrame* const lent = frame.get();
    push(std::move(frame));
    return lent;
  }

  // Pops the environment's stack, whatever host code has made of it, once for each push. Raises "Stack frame is empty".
  void pop() {
    while (depth_ > 0) {
      --depth_;
      const Ref<KorTemplateStack>& stack = environment_.stack();
      if (stack != nullptr) stack->pop();
    }
  }

  // The same on the way out of a statement, whose returned value is let go of where popping fails.
  Completion pop(Completion completion) {
    if (!completion.isReturn()) {
      pop();
      return completion;
    }
    Value value = Value::adopt(completion.value());
    pop();
    return Completion::returned(value.leak());
  }

 private:
  KorTemplateEnvironment& environment_;
  Ref<KorTemplateStackFrame> unstacked_;  // the latest frame, where there is no stack to hold it
  std::int32_t depth_ = 0;
};

// Runs statements in order until one returns. The list may change while it is walked.
inline Completion executeStatements(const KorTemplateChildList<Ref<KorTemplateStatement>>& statements,
                                    KorTemplateEnvironment& environment) {
  for (std::int32_t index = 0; index < statements.count(); ++index) {
    KorTemplateStatement& statement = *statements[index];
    environment.step();
    environment.enterStatement(statement);
    const Completion completion = statement.execute(environment);
    if (completion.isReturn()) return completion;
  }
  return Completion::wentOn();
}

}  // namespace tavlo
