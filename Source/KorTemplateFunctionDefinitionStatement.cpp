#include "Source/KorTemplateFunctionDefinitionStatement.h"

#include "Foundation/NSException.h"
#include "Source/KorTemplateEnvironment.h"
#include "Source/KorTemplateExpression.h"

namespace tavlo {

Ref<KorTemplateFunctionDefinitionStatement> KorTemplateFunctionDefinitionStatement::statementForFunctionWithName(
    const Ref<KorTemplateFunction>& function, const Name& name) {
  requireParameter(function != nullptr, "function != nil");
  requireParameter(!name.isAbsent(), "name != nil");
  return makeRef<KorTemplateFunctionDefinitionStatement>(function, name);
}

void KorTemplateFunctionDefinitionStatement::executeWithEnvironment(KorTemplateEnvironment* environment) {
  requireParameter(environment != nullptr, "environment != nil");
  executePublicly(*environment);
}

Completion KorTemplateFunctionDefinitionStatement::execute(KorTemplateEnvironment& environment) {
  environment.setFunctionForName(function_, name_);
  return Completion::wentOn();
}

Ref<KorTemplateStatement> KorTemplateFunctionDefinitionStatement::copyWithZone(NSZone* /*zone*/) const {
  Ref<KorTemplateFunctionDefinitionStatement> copy =
      makeRef<KorTemplateFunctionDefinitionStatement>(copyOf(function_), name_);
  copy->setSourceRange(sourceRange());
  return copy;
}

}  // namespace tavlo
