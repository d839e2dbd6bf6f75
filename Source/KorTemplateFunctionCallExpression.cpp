#include "Source/KorTemplateFunctionCallExpression.h"

#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "Foundation/Description.h"
#include "Foundation/NSException.h"
#include "Foundation/StackGuard.h"
#include "Foundation/Utf8.h"
#include "Source/KorTemplateEnvironment.h"
#include "Source/KorTemplateInternalFunction.h"
#include "Source/Operand.h"

namespace tavlo {

namespace {

// An argument's value, owned. An absent one raises `NSInvalidArgumentException`.
[[gnu::always_inline]] inline RawValue argumentOf(KorTemplateExpression& expression,
                                                  KorTemplateEnvironment& environment) {
  const RawValue value = Value::retaining(lentOrEvaluated(expression, environment)).leak();
  if (value.kind() == ValueKind::Absent) [[unlikely]] {
    NSException::raise(NSInvalidArgumentException, "A function's argument cannot be absent");
  }
  return value;
}

// The values of one call's arguments, let go of with the call. A few lie here, more in the environment.
class ArgumentValues {
 public:
  ArgumentValues(KorTemplateEnvironment& environment,
                 const KorTemplateChildList<Ref<KorTemplateExpression>>& expressions)
      : environment_(environment), expected_(static_cast<std::size_t>(expressions.count())) {
    if (expected_ > kFew) values_ = environment.argumentStorage().reserve(expected_);
  }
  ArgumentValues(const ArgumentValues&) = delete;
  ArgumentValues& operator=(const ArgumentValues&) = delete;
  ~ArgumentValues() {
    if (expected_ > kFew) {
      environment_.argumentStorage().release(values_, expected_);
    } else {
      for (std::size_t index = 0; index < count_; ++index) few_[index].~Value();
    }
  }

  // As many as there were when the call began; a list that has become shorter since raises `NSRangeException`.
  void evaluate(const KorTemplateChildList<Ref<KorTemplateExpression>>& expressions) {
    while (count_ < expected_) {
      const RawValue value = argumentOf(*expressions.at(static_cast<std::int32_t>(count_)), environment_);
      if (expected_ > kFew) {
        values_[count_] = Value::adopt(value);
      } else {
        std::construct_at(few_ + count_, Value::adopt(value));
      }
      ++count_;
      environment_.lookIfDue();  // finding it may have taken a while
    }
  }

  std::span<const Value> values() const noexcept { return {expected_ > kFew ? values_ : few_, count_}; }

 private:
  static constexpr std::size_t kFew = 3;

  KorTemplateEnvironment& environment_;
  std::size_t expected_;
  std::size_t count_ = 0;  // of those that are there
  union {
    // NOLINTBEGIN(readability-identifier-naming): members of the class like the others
    Value few_[kFew];  // the first count_ of them are alive
    Value* values_;    // in the environment's storage
    // NOLINTEND(readability-identifier-naming)
  };
};

// Keeps the level of a function for as long as that runs.
class RunningFunction {
 public:
  RunningFunction(KorTemplateEnvironment& environment, KorTemplateActivation& level)
      : environment_(environment), level_(level) {
    environment.enterFunction(level);
  }
  RunningFunction(const RunningFunction&) = delete;
  RunningFunction& operator=(const RunningFunction&) = delete;
  [[gnu::always_inline]] ~RunningFunction() {  // in registers, which a call would spill
    if (!hasLeft_) [[unlikely]]
      environment_.noteUnwinding();
    environment_.leaveFunction(level_);
  }

  // The function has ended, and no exception of its goes any further.
  void leave() noexcept { hasLeft_ = true; }

 private:
  KorTemplateEnvironment& environment_;
  KorTemplateActivation& level_;
  bool hasLeft_ = false;
};

// What is told of a call that has failed.
struct FailedCall {
  std::string description;
  std::optional<KorTemplateFailure> failure;  // for the host's callback
};

// The exception being in hand.
[[gnu::noinline]] std::unique_ptr<FailedCall> failedCall(KorTemplateEnvironment& environment, std::string description) {
  auto failed = std::make_unique<FailedCall>();
  failed->description = std::move(description);
  failed->failure = environment.diagnosticInHand();
  return failed;
}

// What a failed call leaves: a diagnostic, and the null object. Where a scope could not be popped on the way out, that
// is the failure. Called in no handler: what is told may run a template, which may end the thread.
[[gnu::noinline]] RawValue report(KorTemplateEnvironment& environment, const KorTemplateActivation& level,
                                  const FailedCall& failed) {
  environment.leaveTo(level.caller);
  environment.writeDiagnostic(environment.takePopFailure() ? Text("Stack frame is empty") : Text(failed.description));
  if (failed.failure.has_value()) environment.reportDiagnostic(*failed.failure);
  return RawValue::null();
}

// A limit that the host's function has reached and caught itself ends what called it all the same.
[[gnu::always_inline]] inline RawValue invokeHosts(KorTemplateFunction& function, std::span<const Value> arguments,
                                                   KorTemplateEnvironment& environment) {
  environment.lookBeforeHost();
  const RawValue result = function.invoke(environment, arguments);
  if (environment.hasReachedLimit()) [[unlikely]] {
    const Value held = Value::adopt(result);
    environment.raiseReachedLimit();
  }
  return result;
}

[[gnu::always_inline]] inline RawValue call(const Name& name, KorTemplateFunction& function,
                                            std::span<const Value> arguments, KorTemplateEnvironment& environment) {
  KorTemplateActivation level(function, name);
  RunningFunction running(environment, level);
  std::unique_ptr<FailedCall> failed;
  try {
    const RawValue result = function.kind() == kInternalFunctionKind
                                ? static_cast<KorTemplateInternalFunction&>(function).run(environment, arguments)
                                : invokeHosts(function, arguments, environment);
    running.leave();
    environment.leaveTo(level.caller);
    return result;
  } catch (const KorTemplateLimitException& limit) {
    environment.noteLimit(limit);
    throw;
  } catch (const NSException& exception) {
    running.leave();
    failed = failedCall(environment, std::string(exception.description()));
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::length_error&) {
    throw;
  } catch (const std::exception& exception) {
    running.leave();
    failed = failedCall(environment, asValidUTF8(reasonOf(exception)));
  }
  return report(environment, level, *failed);
}

}  // namespace

RawValue KorTemplateFunctionCallExpression::evaluate(KorTemplateEnvironment& environment) {
  KorTemplateFunction* function = environment.findFunction(functionName_);
  if (function == nullptr) [[unlikely]] {
    requireParameter(!functionName_.isAbsent(), "name != nil");
    if (environment.isObserved()) environment.observe(KorTemplateUndefined::Function, "", functionName_.view());
    return RawValue::null();
  }
  environment.checkStack();
  environment.step();
  if (argumentExpressions_.count() != 1) return callWithArguments(*function, environment);
  const Value argument = Value::adopt(argumentOf(*argumentExpressions_[0], environment));  // the commonest call
  return call(functionName_, *function, {&argument, 1}, environment);
}

RawValue KorTemplateFunctionCallExpression::callWithArguments(KorTemplateFunction& function,
                                                              KorTemplateEnvironment& environment) {
  if (argumentExpressions_.count() == 2) {
    const Value arguments[] = {Value::adopt(argumentOf(*argumentExpressions_.at(0), environment)),
                               Value::adopt(argumentOf(*argumentExpressions_.at(1), environment))};
    return call(functionName_, function, arguments, environment);
  }
  environment.countSteps(static_cast<std::size_t>(argumentExpressions_.count()));
  ArgumentValues arguments(environment, argumentExpressions_);
  arguments.evaluate(argumentExpressions_);
  return call(functionName_, function, arguments.values(), environment);
}

Value KorTemplateFunctionCallExpression::evaluateWithEnvironment(KorTemplateEnvironment* environment) {
  if (environment == nullptr) return Value::null();
  return environment->enter([&] { return Value::adopt(evaluate(*environment)); });
}

Ref<KorTemplateExpression> KorTemplateFunctionCallExpression::copyWithZone(NSZone* /*zone*/) const {
  checkStack();
  argumentExpressions_.forEach([](const Ref<KorTemplateExpression>& expression) { (void)copyOf(expression); });
  return makeRef<KorTemplateFunctionCallExpression>(functionName_);
}

void KorTemplateFunctionCallExpression::describe(Description& out) const {
  out.format("{ %@ functionName: \"%@\", argumentExpressions: %@ }", Description::base(*this), functionName_,
             argumentExpressions_.items());
}

}  // namespace tavlo
