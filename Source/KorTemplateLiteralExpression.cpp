#include "Source/KorTemplateLiteralExpression.h"

#include <utility>

#include "Foundation/Description.h"
#include "Foundation/NSException.h"
#include "Foundation/NSString.h"

namespace tavlo {

namespace {

void shareString(const Value& literal) noexcept {
  const NSString* const string = literal.string();
  if (string == nullptr || string->isShared()) return;
  (void)string->hash32();  // computed on demand, and kept
  string->markShared();
}

}  // namespace

KorTemplateLiteralExpression::KorTemplateLiteralExpression(Value literal)
    : KorTemplateExpression(kLiteralKind), literal_(std::move(literal)) {
  requireParameter(!literal_.isAbsent(), "value != nil");
  shareString(literal_);
}

void KorTemplateLiteralExpression::setLiteral(const Value& value) {
  shareString(value);
  literal_ = value;
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
