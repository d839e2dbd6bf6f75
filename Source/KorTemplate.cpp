#include "Source/KorTemplate.h"

#include "Foundation/StackGuard.h"
#include "Source/FrameGuard.h"
#include "Source/KorTemplateExpression.h"
#include "Source/KorTemplateReturnIndication.h"

namespace tavlo {

void KorTemplate::executeWithEnvironment(KorTemplateEnvironment* environment) {
  requireParameter(environment != nullptr, "environment != nil");
  executePublicly(*environment);
}

Completion KorTemplate::execute(KorTemplateEnvironment& environment) {
  environment.checkStack();
  try {
    const Completion completion = executeStatements(statements_, environment);
    if (completion.isReturn()) (void)Value::adopt(completion.value());  // dropped with the rest of the template
  } catch (const KorTemplateReturnIndication&) {
    if (environment.takePopFailure()) failAssertion("Stack frame is empty");
  }
  return Completion::wentOn();
}

Ref<KorTemplateStatement> KorTemplate::copyWithZone(NSZone* /*zone*/) const {
  checkStack();
  Ref<KorTemplate> copy = makeRef<KorTemplate>();
  copy->setSourceRange(sourceRange());
  statements_.forEach([&](const Ref<KorTemplateStatement>& statement) { copy->addStatement(copyOf(statement)); });
  return copy;
}

}  // namespace tavlo
