#pragma once

#include <utility>

#include "Source/KorTemplateExpression.h"
#include "Source/KorTemplateStatement.h"

namespace tavlo {

// Writes the text of a value to the stream that is current once the value is known: one write a statement, none for the
// null object.
class KorTemplateOutputStatement final : public KorTemplateStatement {
 public:
  // Over a literal of the null object.
  KorTemplateOutputStatement();
  // The expression may not be absent.
  explicit KorTemplateOutputStatement(Ref<KorTemplateExpression> expression);
  static Ref<KorTemplateOutputStatement> statementWithExpression(Ref<KorTemplateExpression> expression) {
    return makeRef<KorTemplateOutputStatement>(std::move(expression));
  }

  const Ref<KorTemplateExpression>& expression() const noexcept { return expression_; }
  void setExpression(const Ref<KorTemplateExpression>& value) { expression_ = value; }

  void executeWithEnvironment(KorTemplateEnvironment* environment) override;
  Completion execute(KorTemplateEnvironment& environment) override;
  Ref<KorTemplateStatement> copyWithZone(NSZone* zone = nullptr) const override;

  const char* className() const override { return "KorTemplateOutputStatement"; }
  void describe(Description& out) const override;

 private:
  Ref<KorTemplateExpression> expression_;
};

}  // namespace tavlo
