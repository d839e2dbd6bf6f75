#pragma once

#include <utility>

#include "Source/KorTemplateExpression.h"
#include "Source/KorTemplateStatement.h"

namespace tavlo {

// Evaluates an expression for its effect and drops the value.
class KorTemplateExpressionStatement final : public KorTemplateStatement {
 public:
  KorTemplateExpressionStatement() : KorTemplateExpressionStatement(nullptr) {}
  // The expression may be absent; such a statement does nothing.
  explicit KorTemplateExpressionStatement(Ref<KorTemplateExpression> expression)
      : KorTemplateStatement(kNodeKind), expression_(std::move(expression)) {}
  // The expression may not be absent.
  static Ref<KorTemplateExpressionStatement> statementWithExpression(Ref<KorTemplateExpression> expression);

  const Ref<KorTemplateExpression>& expression() const noexcept { return expression_; }
  void setExpression(const Ref<KorTemplateExpression>& value) { expression_ = value; }

  // The environment may be absent, as far as the expression allows.
  void executeWithEnvironment(KorTemplateEnvironment* environment) override;
  Completion execute(KorTemplateEnvironment& environment) override;
  Ref<KorTemplateStatement> copyWithZone(NSZone* zone = nullptr) const override;

  const char* className() const override { return "KorTemplateExpressionStatement"; }

 private:
  Ref<KorTemplateExpression> expression_;
};

}  // namespace tavlo
