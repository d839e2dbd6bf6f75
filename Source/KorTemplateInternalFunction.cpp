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
  return environment->enter([&] {
    environment->checkStack();
    return Value::adopt(invoke(*environment, arguments.span()));
  });
}

RawValue KorTemplateInternalFunction::invoke(KorTemplateEnvironment& environment, std::span<const Value> arguments) {
  if (arguments.size() != static_cast<std::size_t>(arguments_.count())) {
    NSException::raise(NSInvalidArgumentException,
                       "Incorrect number of arguments for function. %d supplied, %d expected", arguments.size(),
                       arguments_.count());
  }
  try {
    FrameGuard guard(environment);
    bind(arguments, guard.push());
    const Completion completion = executeStatements(statements_, environment);
    if (completion.isReturn()) return guard.pop(completion).value();
    guard.pop();
    return RawValue::null();
  } catch (const KorTemplateReturnIndication& indication) {  // from a host's statement
    if (environment.takePopFailure()) failAssertion("Stack frame is empty");
    return Value(indication.returnValue()).leak();
  }
}

// Stores the values in the function's frame; of parameters of one name the last value stands.
void KorTemplateInternalFunction::bind(std::span<const Value> arguments, KorTemplateStackFrame* frame) const {
  for (std::size_t index = 0; index < arguments.size(); ++index) {
    requireParameter(!arguments[index].isAbsent(), "variable != nil");
    if (frame == nullptr) continue;
    const Name& name = arguments_[static_cast<std::int32_t>(index)];
    index == 0 ? frame->setFirst(name, arguments[index]) : frame->set(name, arguments[index]);
  }
}

Ref<KorTemplateFunction> KorTemplateInternalFunction::copyWithZone(NSZone* /*zone*/) const {
  checkStack();
  Ref<KorTemplateInternalFunction> copy = function();
  copy->setArguments(arguments_.items());
  for (const Ref<KorTemplateStatement>& statement : statements_) copy->addStatement(copyOf(statement));
  return copy;
}

}  // namespace tavlo
