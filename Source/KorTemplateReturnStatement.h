#pragma once

#include "Source/KorTemplateExpression.h"
#include "Source/KorTemplateStatement.h"

namespace tavlo {

// Ends the innermost running function of the template with a value, or the template itself outside any function.
class KorTemplateReturnStatement final : public KorTemplateStatement {
 public:
  KorTemplateReturnStatement() : KorTemplateReturnStatement(nullptr) {}
  // Without an expression the null object is returned.
  explicit KorTemplateReturnStatement(const Ref<KorTemplateExpression>& expression)
      : KorTemplateStatement(kNodeKind), expression_(expression) {}
  static Ref<KorTemplateReturnStatement> statement() { return makeRef<KorTemplateReturnStatement>(); }
  static Ref<KorTemplateReturnStatement> statementWithExpression(const Ref<KorTemplateExpression>& expression) {
    return makeRef<KorTemplateReturnStatement>(expression);
  }

  const Ref<KorTemplateExpression>& expression() const noexcept { return expression_; }
  void setExpression(const Ref<KorTemplateExpression>& value) { expression_ = value; }

  // Raises a `KorTemplateReturnIndication`; for an absent value the failed check "returnValue != nil" instead.
  void executeWithEnvironment(KorTemplateEnvironment* environment) override;
  Completion execute(KorTemplateEnvironment& environment) override;
  Ref<KorTemplateStatement> copyWithZone(NSZone* zone = nullptr) const override;

  const char* className() const override { return "KorTemplateReturnStatement"; }
  void describe(Description& out) const override;

 private:
  Ref<KorTemplateExpression> expression_;
};

}  // namespace tavlo
