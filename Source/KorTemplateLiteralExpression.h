#pragma once

#include "Foundation/Value.h"
#include "Source/KorTemplateExpression.h"

namespace tavlo {

// Yields a fixed value. A string counts atomically from here on, as several threads may run a template; of other
// objects a host sees to that itself, see Value::share().
class KorTemplateLiteralExpression final : public KorTemplateExpression {
 public:
  // The literal may not be absent.
  explicit KorTemplateLiteralExpression(Value literal);
  static Ref<KorTemplateLiteralExpression> expressionWithLiteral(Value literal);

  const Value& literal() const noexcept { return literal_; }
  void setLiteral(const Value& value);

  // The very same value every time; the environment may be absent.
  Value evaluateWithEnvironment(KorTemplateEnvironment* /*environment*/) override { return literal_; }
  RawValue evaluate(KorTemplateEnvironment& /*environment*/) override { return Value(literal_).leak(); }
  // Over the very same value.
  Ref<KorTemplateExpression> copyWithZone(NSZone* zone = nullptr) const override;

  const char* className() const override { return "KorTemplateLiteralExpression"; }
  void describe(Description& out) const override;

 private:
  Value literal_;
};

}  // namespace tavlo
