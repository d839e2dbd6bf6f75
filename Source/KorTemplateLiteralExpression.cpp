#include "Source/KorTemplateLiteralExpression.h"

#include "Foundation/Description.h"
#include "Foundation/NSException.h"

namespace tavlo {

KorTemplateLiteralExpression::KorTemplateLiteralExpression(const Value& literal)
    : KorTemplateExpression(kLiteralKind), literal_(literal) {
  requireParameter(!literal.isAbsent(), "value != nil");
}

Ref<KorTemplateLiteralExpression> KorTemplateLiteralExpression::expressionWithLiteral(const Value& literal) {
  requireParameter(!literal.isAbsent(), "value != nil");
  return makeRef<KorTemplateLiteralExpression>(literal);
}

Ref<KorTemplateExpression> KorTemplateLiteralExpression::copyWithZone(NSZone* /*zone*/) const {
  return makeRef<KorTemplateLiteralExpression>(literal_);
}

void KorTemplateLiteralExpression::describe(Description& out) const {
  out.format(literal_.isString() ? "{ %@ literal: \"%@\" }" : "{ %@ literal: %@ }", Description::base(*this), literal_);
}

}  // namespace tavlo
