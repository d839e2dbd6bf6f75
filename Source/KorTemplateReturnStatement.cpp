#include "Source/KorTemplateReturnStatement.h"

#include "Foundation/Description.h"
#include "Foundation/NSException.h"

namespace tavlo {

void KorTemplateReturnStatement::executeWithEnvironment(KorTemplateEnvironment* environment) {
  requireParameter(environment != nullptr, "environment != nil");
  executePublicly(*environment);
}

Completion KorTemplateReturnStatement::execute(KorTemplateEnvironment& environment) {
  if (expression_ == nullptr) return Completion::returned(RawValue::null());
  const RawValue lent = peekExpression(*expression_, environment);
  const RawValue value = lent.isNothing() ? expression_->evaluate(environment) : Value::retaining(lent).leak();
  requireParameter(value.kind() != ValueKind::Absent, "returnValue != nil");
  return Completion::returned(value);
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
