#include "Source/KorTemplateLiteralExpression.h"

#include <utility>

#include "Foundation/Description.h"
#include "Foundation/NSException.h"

namespace tavlo {

KorTemplateLiteralExpression::KorTemplateLiteralExpression(Value literal)
    : KorTemplateExpression(kLiteralKind), literal_(std::move(literal)) {
  requireParameter(!literal_.isAbsent(), "value != nil");
}

Ref<KorTemplateLiteralExpression> KorTemplateLiteralExpression::expressionWithLiteral(Value literal) {
  return makeRef<KorTemplateLiteralExpression>(std::move(literal));
}

Ref<KorTemplateExpression> KorTemplateLiteralExpression::copyWithZone(NSZone* /*zone*/) const {
  return makeRef<KorTemplateLiteralExpression>(literal_);
}

void KorTemplateLiteralExpression::describe(Description& out) const {
  out.format(literal_.isString() ? "{ %@ literal: \"%@\" }" : "{ %@ literal: %@ }", Description::base(*this), literal_);
}

}  // namespace tavlo
