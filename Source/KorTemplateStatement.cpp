#include "Source/KorTemplateStatement.h"

#include "Foundation/NSException.h"
#include "Source/KorTemplateEnvironment.h"
#include "Source/KorTemplateExpression.h"
#include "Source/KorTemplateFunction.h"
#include "Source/KorTemplateReturnIndication.h"

namespace tavlo {

Completion KorTemplateStatement::execute(KorTemplateEnvironment& environment) {
  environment.lookBeforeHost();  // the classes of this system override this
  executeWithEnvironment(&environment);
  return Completion::wentOn();
}

void KorTemplateStatement::executePublicly(KorTemplateEnvironment& environment) {
  environment.enter([&] {
    environment.enterStatement(*this);
    environment.step();
    const Completion completion = execute(environment);
    if (completion.isReturn()) throw KorTemplateReturnIndication(Value::adopt(completion.value()));
  });
}

RawValue KorTemplateExpression::evaluate(KorTemplateEnvironment& environment) {
  environment.lookBeforeHost();
  return evaluateWithEnvironment(&environment).leak();
}

RawValue KorTemplateFunction::invoke(KorTemplateEnvironment& environment, std::span<const Value> arguments) {
  return invokeWithEnvironment(&environment, ListArgument<Value>(arguments)).leak();
}

Ref<KorTemplateFunction> KorTemplateFunction::copyWithZone(NSZone* /*zone*/) const {
  return Ref<KorTemplateFunction>::retaining(const_cast<KorTemplateFunction*>(this));  // NOLINT(*-const-cast): counted
}

}  // namespace tavlo
