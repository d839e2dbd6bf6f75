#pragma once

#include <cstdint>

#include "Source/KorTemplateChildList.h"
#include "Source/KorTemplateEnvironment.h"
#include "Source/KorTemplateOutputStatement.h"
#include "Source/KorTemplateReturnStatement.h"
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
    if (depth_ > 0) [[unlikely]]
      popQuietly(environment_, depth_);
  }

  // Opens a scope once settle() is called: until then nobody can see whether it is there.
  void pushLater() noexcept { ++owed_; }
  void settle() {
    for (; owed_ > 0; --owed_) push();
  }

  // Opens a scope and lends its frame until that is popped; null where the environment has no stack.
  KorTemplateStackFrame* push() {
    KorTemplateStack* const stack = environment_.stack().get();
    KorTemplateStackFrame* const frame = stack == nullptr ? nullptr : stack->pushNew();
    ++depth_;
    return frame;
  }

  // Pops the environment's stack, whatever host code has made of it, once for each push. Raises "Stack frame is empty".
  void pop() {
    while (depth_ > 0) {
      --depth_;
      KorTemplateStack* const stack = environment_.stack().get();
      if (stack != nullptr && !stack->popIfAny()) failAssertion("Stack frame is empty");
    }
  }

  // The same on the way out of a statement, whose returned value is let go of where popping fails.
  Completion pop(Completion completion) {
    if (!completion.isReturn() || !completion.value().isOwned()) {
      pop();
      return completion;
    }
    Value value = Value::adopt(completion.value());
    pop();
    return Completion::returned(value.leak());
  }

 private:
  static void popQuietly(KorTemplateEnvironment& environment, std::int32_t depth) noexcept;

  KorTemplateEnvironment& environment_;
  std::int32_t depth_ = 0;
  std::int32_t owed_ = 0;
};

// Runs statements one after another where that can neither look at the scopes nor change them, as most literal text,
// most output and most early returns do.
class QuietRunner {
 public:
  explicit QuietRunner(KorTemplateEnvironment& environment) noexcept : environment_(environment) {}

  // False, and nothing done, where the statement must be executed; then forget() must follow.
  bool run(const KorTemplateStatement& statement, Completion& completion) {
    if (statement.kind() == kOutputKind) {
      if (text_ == nullptr) text_ = environment_.outputText();
      return text_ != nullptr &&
             static_cast<const KorTemplateOutputStatement&>(statement).executeQuietly(environment_, *text_);
    }
    if (statement.kind() != kReturnKind) return false;
    completion = static_cast<const KorTemplateReturnStatement&>(statement).executeQuietly(environment_);
    return completion.isReturn();
  }
  // Whatever was executed may have replaced the output stream.
  void forget() noexcept { text_ = nullptr; }

 private:
  KorTemplateEnvironment& environment_;
  TextBuffer* text_ = nullptr;  // where output goes, once asked for
};

// Runs statements in order until one returns. The list may change while it is walked.
inline Completion executeStatements(const KorTemplateChildList<Ref<KorTemplateStatement>>& statements,
                                    KorTemplateEnvironment& environment) {
  QuietRunner quiet(environment);
  Completion completion = Completion::wentOn();
  for (std::int32_t index = 0; index < statements.count(); ++index) {
    KorTemplateStatement& statement = *statements[index];
    environment.step();
    environment.enterStatement(statement);
    if (!quiet.run(statement, completion)) {
      completion = statement.execute(environment);
      quiet.forget();
    }
    if (completion.isReturn()) break;
  }
  return completion;
}

}  // namespace tavlo
