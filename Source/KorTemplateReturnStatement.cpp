#include "Source/KorTemplateReturnStatement.h"

#include "Foundation/Description.h"
#include "Foundation/NSException.h"

namespace tavlo {

void KorTemplateReturnStatement::executeWithEnvironment(KorTemplateEnvironment* environment) {
  requireParameter(environment != nullptr, "environment != nil");
  executePublicly(*environment);
}

Completion KorTemplateReturnStatement::execute(KorTemplateEnvironment& environment) {
  return executeEvaluating(environment);
}

Ref<KorTemplateStatement> KorTemplateReturnStatement::copyWithZone(NSZone* /*zone*/) const {
  Ref<KorTemplateReturnStatement> copy = statementWithExpression(copyOf(expression_));
  copy->setSourceRange(sourceRange());
  return copy;
}

void KorTemplateReturnStatement::describe(Description& out) const {
  out.format("{ %@, expression: %@ }", Description::base(*this), expression_);
}

}  // namespace tavlo
