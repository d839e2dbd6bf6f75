#pragma once

#include "Source/KorTemplateExpression.h"
#include "Source/KorTemplateLiteralExpression.h"
#include "Source/KorTemplateRegexExpression.h"
#include "Source/KorTemplateVariableExpression.h"

namespace tavlo {

// Lends the value of an expression where it lives, if it lives somewhere: literals, variables, key paths through
// dictionaries. Runs nobody's code. Nothing where the expression must be evaluated.
inline RawValue peekExpression(const KorTemplateExpression& expression,
                               const KorTemplateEnvironment& environment) noexcept {
  if (expression.kind() == kVariableKind) {
    return static_cast<const KorTemplateVariableExpression&>(expression).peek(environment);
  }
  if (expression.kind() != kLiteralKind) return RawValue::nothing();
  return static_cast<const KorTemplateLiteralExpression&>(expression).literal().peek();
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
  const RawValue lent = peekExpression(expression, environment);
  return Value::adopt(lent.isNothing() ? expression.evaluate(environment) : lent);
}

}  // namespace tavlo
