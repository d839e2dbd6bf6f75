#pragma once

#include "Source/KorTemplateExpression.h"
#include "Source/KorTemplateLiteralExpression.h"
#include "Source/KorTemplateRegexExpression.h"
#include "Source/KorTemplateVariableExpression.h"

namespace tavlo {

// Lends the value of an expression where it lives, if it lives somewhere: literals, variables, key paths through
// dictionaries. Runs nobody's code. False where the expression must be evaluated.
inline bool peekExpression(const KorTemplateExpression& expression, const KorTemplateEnvironment& environment,
                           RawValue& value) noexcept {
  if (expression.kind() == kVariableKind) {
    return static_cast<const KorTemplateVariableExpression&>(expression).peek(environment, value);
  }
  if (expression.kind() != kLiteralKind) return false;
  value = static_cast<const KorTemplateLiteralExpression&>(expression).literal().peek();
  return true;
}

// Whether evaluating the expression can neither change a variable nor run a host's code, so that what was lent before
// is still good after it.
inline bool isQuiet(const KorTemplateExpression& expression) noexcept {
  if (expression.kind() == kVariableKind) {
    return !static_cast<const KorTemplateVariableExpression&>(expression).hasKeyPath();
  }
  return expression.kind() == kLiteralKind || expression.kind() == kRegexExpressionKind;
}

// The value of an expression: lent where it lives, or owned.
inline Value operandOf(KorTemplateExpression& expression, KorTemplateEnvironment& environment) {
  RawValue value = RawValue::absent();
  if (peekExpression(expression, environment, value)) return Value::adopt(value);
  return Value::adopt(expression.evaluate(environment));
}

}  // namespace tavlo
