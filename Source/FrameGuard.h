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

  // Opens a scope and lends its frame until that is popped; null where the environment has no stack.
  KorTemplateStackFrame* push() {
    KorTemplateStack* const stack = environment_.stack().get();
    KorTemplateStackFrame* const frame = stack == nullptr ? nullptr : stack->pushNew();
    ++depth_;
    return frame;
  }

  // Pops the environment's stack, whatever host code has made of it, once for each push. Raises "Stack frame is empty".
  void pop() {
    while (depth_ > 0) popOne();
  }

  // The same on the way out of a statement, whose returned value is let go of where popping fails.
  Completion pop(Completion completion) {
    return popping(completion, [this] { pop(); });
  }
  // The same after a single push.
  [[gnu::always_inline]] Completion popOnly(Completion completion) {
    return popping(completion, [this] { popOne(); });
  }

 private:
  static void popQuietly(KorTemplateEnvironment& environment, std::int32_t depth) noexcept;

  [[gnu::always_inline]] void popOne() {
    --depth_;
    KorTemplateStack* const stack = environment_.stack().get();
    if (stack != nullptr && !stack->popIfAny()) failAssertion("Stack frame is empty");
  }

  template <class Pop>
  [[gnu::always_inline]] static Completion popping(Completion completion, const Pop& pop) {
    if (!completion.isReturn() || !completion.value().isOwned()) {
      pop();
      return completion;
    }
    Value value = Value::adopt(completion.value());
    pop();
    return Completion::returned(value.leak());
  }

  KorTemplateEnvironment& environment_;
  std::int32_t depth_ = 0;
};

// Runs the statement where that can neither look at the scopes nor change them, as most literal text, most output and
// most early returns do; false, and nothing done, where it must be executed. `text` is where output goes, null until
// that is asked for.
[[gnu::always_inline]] inline bool runQuietly(const KorTemplateStatement& statement,
                                              KorTemplateEnvironment& environment, TextBuffer*& text,
                                              Completion& completion) {
  if (statement.kind() == kOutputKind) {
    if (text == nullptr || text->size() >= KorTemplateEnvironment::kLongText) text = environment.outputText();
    return text != nullptr &&
           static_cast<const KorTemplateOutputStatement&>(statement).executeQuietly(environment, *text);
  }
  if (statement.kind() != kReturnKind) return false;
  completion = static_cast<const KorTemplateReturnStatement&>(statement).executeQuietly(environment);
  return completion.isReturn();
}

// Runs statements from `index` on for as long as they run so and none returns. Leaves in `index` the statement that is
// entered but must be executed; the list's count where none is.
[[gnu::always_inline]] inline Completion runQuietly(const KorTemplateChildList<Ref<KorTemplateStatement>>& statements,
                                                    std::int32_t& index, KorTemplateEnvironment& environment) {
  TextBuffer* text = nullptr;
  Completion completion = Completion::wentOn();
  for (; index < statements.count() && !completion.isReturn(); ++index) {
    const KorTemplateStatement& statement = *statements[index];
    environment.enterStatement(statement);
    environment.step();
    if (!runQuietly(statement, environment, text, completion)) break;
  }
  return completion;
}

// Runs statements in order until one returns. The list may change while it is walked.
[[gnu::always_inline]] inline Completion executeStatements(
    const KorTemplateChildList<Ref<KorTemplateStatement>>& statements, KorTemplateEnvironment& environment) {
  TextBuffer* text = nullptr;
  Completion completion = Completion::wentOn();
  for (std::int32_t index = 0; index < statements.count(); ++index) {
    KorTemplateStatement& statement = *statements[index];
    environment.enterStatement(statement);
    environment.step();
    if (!runQuietly(statement, environment, text, completion)) {
      // Most of what returns is a function's body, whose last statement needs no virtual call.
      completion = statement.kind() == kReturnKind
                       ? static_cast<const KorTemplateReturnStatement&>(statement).executeEvaluating(environment)
                       : statement.execute(environment);
      text = nullptr;  // the statement may have replaced the stream
    }
    if (completion.isReturn()) return completion;
  }
  return completion;
}

}  // namespace tavlo
