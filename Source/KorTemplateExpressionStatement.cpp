#include "Source/KorTemplateExpressionStatement.h"

#include "Foundation/NSException.h"
#include "Source/KorTemplateEnvironment.h"

namespace tavlo {

Ref<KorTemplateExpressionStatement> KorTemplateExpressionStatement::statementWithExpression(
    Ref<KorTemplateExpression> expression) {
  requireParameter(expression != nullptr, "expression != nil");
  return makeRef<KorTemplateExpressionStatement>(std::move(expression));
}

void KorTemplateExpressionStatement::executeWithEnvironment(KorTemplateEnvironment* environment) {
  if (environment != nullptr) return executePublicly(*environment);
  if (expression_ != nullptr) (void)expression_->evaluateWithEnvironment(nullptr);
}

Completion KorTemplateExpressionStatement::execute(KorTemplateEnvironment& environment) {
  if (expression_ != nullptr) (void)Value::adopt(expression_->evaluate(environment));
  return Completion::wentOn();
}

Ref<KorTemplateStatement> KorTemplateExpressionStatement::copyWithZone(NSZone* /*zone*/) const {
  Ref<KorTemplateExpressionStatement> copy = makeRef<KorTemplateExpressionStatement>(copyOf(expression_));
  copy->setSourceRange(sourceRange());
  return copy;
}

}  // namespace tavlo
