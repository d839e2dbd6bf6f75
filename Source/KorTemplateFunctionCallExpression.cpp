#include "Source/KorTemplateFunctionCallExpression.h"

#include <new>
#include <stdexcept>

#include "Foundation/Description.h"
#include "Foundation/NSException.h"
#include "Source/KorTemplateEnvironment.h"

namespace tavlo {

namespace {

// The values of one call's arguments, let go of with the call. A few lie here, more in the environment.
class ArgumentValues {
 public:
  ArgumentValues(KorTemplateEnvironment& environment, std::size_t count)
      : environment_(environment),
        count_(count),
        values_(count <= kFew ? few_ : environment.argumentStorage().reserve(count)) {}
  ArgumentValues(const ArgumentValues&) = delete;
  ArgumentValues& operator=(const ArgumentValues&) = delete;
  ~ArgumentValues() {
    if (values_ != few_) environment_.argumentStorage().release(values_, count_);
  }

  void evaluate(const KorTemplateChildList<Ref<KorTemplateExpression>>& expressions) {
    for (std::size_t index = 0; index < count_; ++index) {
      values_[index] = Value::adopt(expressions[static_cast<std::int32_t>(index)]->evaluate(environment_));
      if (values_[index].isAbsent()) [[unlikely]] {
        NSException::raise(NSInvalidArgumentException, "A function's argument cannot be absent");
      }
    }
  }

  std::span<const Value> values() const noexcept { return {values_, count_}; }

 private:
  static constexpr std::size_t kFew = 3;

  KorTemplateEnvironment& environment_;
  std::size_t count_;
  Value few_[kFew];
  Value* values_;  // few_, or in the environment's storage
};

// One function that runs, and the statement that goes on when it has ended.
class RunningFunction {
 public:
  explicit RunningFunction(KorTemplateEnvironment& environment)
      : environment_(environment), statement_(environment.statement()) {
    environment.enterFunction();
  }
  RunningFunction(const RunningFunction&) = delete;
  RunningFunction& operator=(const RunningFunction&) = delete;
  ~RunningFunction() { environment_.leaveFunction(); }

  void leave() const noexcept { environment_.leaveTo(statement_); }

 private:
  KorTemplateEnvironment& environment_;
  const KorTemplateStatement* statement_;
};

// What a failed call leaves: a diagnostic, and the null object. Where a scope could not be popped on the way out, that
// is the failure.
RawValue report(KorTemplateEnvironment& environment, const Text& description) {
  environment.writeDiagnostic(environment.takePopFailure() ? Text("Stack frame is empty") : description);
  return RawValue::null();
}

RawValue call(KorTemplateFunction& function, std::span<const Value> arguments, KorTemplateEnvironment& environment) {
  const RunningFunction running(environment);
  try {
    const RawValue result = function.invoke(environment, arguments);
    running.leave();
    return result;
  } catch (const KorTemplateLimitException& limit) {
    environment.noteLimit(limit);
    throw;
  } catch (const NSException& exception) {
    running.leave();
    return report(environment, exception.description());
  } catch (const std::bad_alloc&) {
    throw;
  } catch (const std::length_error&) {
    throw;
  } catch (const std::exception& exception) {
    running.leave();
    return report(environment, exception.what());
  }
}

}  // namespace

RawValue KorTemplateFunctionCallExpression::evaluate(KorTemplateEnvironment& environment) {
  KorTemplateFunction* function = environment.findFunction(functionName_);
  if (function == nullptr) [[unlikely]] {
    requireParameter(!functionName_.isAbsent(), "name != nil");
    return RawValue::null();
  }
  environment.checkStack();
  environment.step();
  ArgumentValues arguments(environment, static_cast<std::size_t>(argumentExpressions_.count()));
  arguments.evaluate(argumentExpressions_);
  return call(*function, arguments.values(), environment);
}

Value KorTemplateFunctionCallExpression::evaluateWithEnvironment(KorTemplateEnvironment* environment) {
  if (environment == nullptr) return Value::null();
  return environment->enter([&] { return Value::adopt(evaluate(*environment)); });
}

Ref<KorTemplateExpression> KorTemplateFunctionCallExpression::copyWithZone(NSZone* /*zone*/) const {
  for (const Ref<KorTemplateExpression>& expression : argumentExpressions_) (void)copyOf(expression);
  return makeRef<KorTemplateFunctionCallExpression>(functionName_);
}

void KorTemplateFunctionCallExpression::describe(Description& out) const {
  out.format("{ %@ functionName: \"%@\", argumentExpressions: %@ }", Description::base(*this), functionName_,
             argumentExpressions_.items());
}

}  // namespace tavlo
