#include "Source/KorTemplateOutputStatement.h"

#include "Foundation/Description.h"
#include "Foundation/NSException.h"

namespace tavlo {

KorTemplateOutputStatement::KorTemplateOutputStatement()
    : KorTemplateOutputStatement(KorTemplateLiteralExpression::expressionWithLiteral(NSNull::null())) {}

KorTemplateOutputStatement::KorTemplateOutputStatement(Ref<KorTemplateExpression> expression)
    : KorTemplateStatement(kOutputKind), expression_(std::move(expression)) {
  requireParameter(expression_ != nullptr, "theExpression != nil");
}

void KorTemplateOutputStatement::executeWithEnvironment(KorTemplateEnvironment* environment) {
  requireParameter(environment != nullptr, "environment != nil");
  executePublicly(*environment);
}

Completion KorTemplateOutputStatement::execute(KorTemplateEnvironment& environment) {
  // Without an expression there is no value: its absence is written.
  const RawValue value = expression_ == nullptr ? RawValue::absent() : peekExpression(*expression_, environment);
  if (!value.isNothing()) {
    if (value.kind() != ValueKind::Null) environment.writeOutput(value);
    return Completion::wentOn();
  }
  const Value evaluated = Value::adopt(expression_->evaluate(environment));
  if (!evaluated.isNull()) environment.writeOutput(evaluated.peek());
  return Completion::wentOn();
}

Ref<KorTemplateStatement> KorTemplateOutputStatement::copyWithZone(NSZone* /*zone*/) const {
  Ref<KorTemplateOutputStatement> copy = makeRef<KorTemplateOutputStatement>();
  copy->setExpression(copyOf(expression_));
  copy->setSourceRange(sourceRange());
  return copy;
}

void KorTemplateOutputStatement::describe(Description& out) const {
  out.format("{ %@, expression: %@ }", Description::base(*this), expression_);
}

}  // namespace tavlo
