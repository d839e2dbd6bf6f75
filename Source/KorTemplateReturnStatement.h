#pragma once

#include "Source/KorTemplateEnvironment.h"
#include "Source/KorTemplateExpression.h"
#include "Source/KorTemplateStatement.h"
#include "Source/Operand.h"

namespace tavlo {

// Ends the innermost running function of the template with a value, or the template itself outside any function.
class KorTemplateReturnStatement final : public KorTemplateStatement {
 public:
  KorTemplateReturnStatement() : KorTemplateReturnStatement(nullptr) {}
  // Without an expression the null object is returned.
  explicit KorTemplateReturnStatement(const Ref<KorTemplateExpression>& expression)
      : KorTemplateStatement(kReturnKind), expression_(expression) {}
  static Ref<KorTemplateReturnStatement> statement() { return makeRef<KorTemplateReturnStatement>(); }
  static Ref<KorTemplateReturnStatement> statementWithExpression(const Ref<KorTemplateExpression>& expression) {
    return makeRef<KorTemplateReturnStatement>(expression);
  }

  const Ref<KorTemplateExpression>& expression() const noexcept { return expression_; }
  void setExpression(const Ref<KorTemplateExpression>& value) { expression_ = value; }

  // Raises a `KorTemplateReturnIndication`; for an absent value the failed check "returnValue != nil" instead.
  void executeWithEnvironment(KorTemplateEnvironment* environment) override;
  Completion execute(KorTemplateEnvironment& environment) override;
  // The same where the value lives somewhere near; otherwise the answer is that it went on, and nothing is done.
  Completion executeQuietly(KorTemplateEnvironment& environment) const {
    const RawValue value = expression_ == nullptr ? RawValue::nothing() : peekNear(*expression_, environment);
    if (value.isNothing() || value.kind() == ValueKind::Absent) return Completion::wentOn();
    return Completion::returned(Value::retaining(value).leak());
  }
  // The same where the value must be evaluated.
  Completion executeEvaluating(KorTemplateEnvironment& environment) const {
    const RawValue value = expression_ == nullptr ? RawValue::null() : evaluateExpression(*expression_, environment);
    requireParameter(value.kind() != ValueKind::Absent, "returnValue != nil");
    return Completion::returned(value);
  }
  Ref<KorTemplateStatement> copyWithZone(NSZone* zone = nullptr) const override;

  const char* className() const override { return "KorTemplateReturnStatement"; }
  void describe(Description& out) const override;

 private:
  Ref<KorTemplateExpression> expression_;
};

}  // namespace tavlo
