#pragma once

#include <string>
#include <utility>

#include "Source/KorTemplateBinaryExpression.h"
#include "Source/KorTemplateEnvironment.h"
#include "Source/KorTemplateExpression.h"
#include "Source/KorTemplateStatement.h"
#include "Source/Operand.h"

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
  // Appends the value to the text where it lives somewhere and that runs nobody else's code; false, and nothing done,
  // otherwise.
  bool executeQuietly(const KorTemplateEnvironment& environment, std::string& text) const {
    if (expression_ == nullptr) return false;
    if (expression_->kind() == kBinaryKind) {
      return static_cast<const KorTemplateBinaryExpression&>(*expression_).appendQuietly(environment, text);
    }
    const RawValue value = peekExpression(*expression_, environment);
    return KorTemplateEnvironment::appendOutput(value, text) || value.kind() == ValueKind::Null;
  }
  Ref<KorTemplateStatement> copyWithZone(NSZone* zone = nullptr) const override;

  const char* className() const override { return "KorTemplateOutputStatement"; }
  void describe(Description& out) const override;

 private:
  Ref<KorTemplateExpression> expression_;
};

}  // namespace tavlo
