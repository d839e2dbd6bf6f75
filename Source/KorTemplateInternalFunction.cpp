#include "Source/KorTemplateInternalFunction.h"

#include "Foundation/NSException.h"
#include "Foundation/StackGuard.h"
#include "Source/KorTemplateExpression.h"
#include "Source/LevelGuard.h"

namespace tavlo {

Value KorTemplateInternalFunction::invokeWithEnvironment(KorTemplateEnvironment* environment,
                                                         ListArgument<Value> arguments) {
  requireParameter(environment != nullptr, "environment != nil");
  requireParameter(!arguments.isAbsent(), "args != nil");
  return environment->enter([&] {
    environment->checkStack();
    KorTemplateActivation level(source_.get());
    LevelGuard guard(*environment, level);
    Value result = Value::adopt(run(*environment, arguments.span()));
    guard.leave();
    return result;
  });
}

void KorTemplateInternalFunction::bindMore(std::span<const Value> arguments, KorTemplateStackFrame* frame) const {
  for (std::size_t index = 1; index < arguments.size(); ++index) {
    requireParameter(!arguments[index].isAbsent(), "variable != nil");
    if (frame != nullptr) frame->set(arguments_[static_cast<std::int32_t>(index)], arguments[index]);
  }
}

void KorTemplateInternalFunction::raiseArgumentCount(std::size_t supplied) const {
  NSException::raise(NSInvalidArgumentException, "Incorrect number of arguments for function. %d supplied, %d expected",
                     supplied, arguments_.count());
}

RawValue KorTemplateInternalFunction::valueOf(const KorTemplateReturnIndication& indication,
                                              KorTemplateEnvironment& environment) {
  if (environment.takePopFailure()) failAssertion("Stack frame is empty");
  return Value(indication.returnValue()).leak();
}

Ref<KorTemplateFunction> KorTemplateInternalFunction::copyWithZone(NSZone* /*zone*/) const {
  checkStack();
  Ref<KorTemplateInternalFunction> copy = function();
  copy->setSource(source_);
  copy->setArguments(arguments_.items());
  statements_.forEach([&](const Ref<KorTemplateStatement>& statement) { copy->addStatement(copyOf(statement)); });
  return copy;
}

}  // namespace tavlo
