#include "Source/KorTemplateInternalFunction.h"

#include "Foundation/NSException.h"
#include "Foundation/StackGuard.h"
#include "Source/FrameGuard.h"
#include "Source/KorTemplateExpression.h"
#include "Source/KorTemplateReturnIndication.h"

namespace tavlo {

Value KorTemplateInternalFunction::invokeWithEnvironment(KorTemplateEnvironment* environment,
                                                         ListArgument<Value> arguments) {
  requireParameter(environment != nullptr, "environment != nil");
  requireParameter(!arguments.isAbsent(), "args != nil");
  return environment->enter([&] { return Value::adopt(invoke(*environment, arguments.span())); });
}

RawValue KorTemplateInternalFunction::invoke(KorTemplateEnvironment& environment, std::span<const Value> arguments) {
  if (arguments.size() != static_cast<std::size_t>(arguments_.count())) {
    NSException::raise(NSInvalidArgumentException,
                       "Incorrect number of arguments for function. %d supplied, %d expected", arguments.size(),
                       arguments_.count());
  }
  environment.checkStack();
  try {
    return run(environment, arguments);
  } catch (const KorTemplateReturnIndication& indication) {  // from a host's statement
    if (environment.takePopFailure()) failAssertion("Stack frame is empty");
    return Value(indication.returnValue()).leak();
  }
}

RawValue KorTemplateInternalFunction::run(KorTemplateEnvironment& environment, std::span<const Value> arguments) {
  FrameGuard guard(environment);
  KorTemplateStackFrame* const frame = guard.push();
  for (std::size_t index = 0; index < arguments.size(); ++index) {
    requireParameter(!arguments[index].isAbsent(), "variable != nil");
    frame->set(arguments_[static_cast<std::int32_t>(index)], arguments[index]);
  }
  const Completion completion = guard.pop(executeStatements(statements_, environment));
  return completion.isReturn() ? completion.value() : RawValue::null();
}

Ref<KorTemplateFunction> KorTemplateInternalFunction::copyWithZone(NSZone* /*zone*/) const {
  checkStack();
  Ref<KorTemplateInternalFunction> copy = function();
  copy->setArguments(arguments_.items());
  for (const Ref<KorTemplateStatement>& statement : statements_) copy->addStatement(copyOf(statement));
  return copy;
}

}  // namespace tavlo
