#pragma once

#include <cstdint>

#include "Source/KorTemplateBinaryExpression.h"
#include "Source/KorTemplateExpression.h"
#include "Source/KorTemplateLiteralExpression.h"
#include "Source/KorTemplateRegexExpression.h"
#include "Source/KorTemplateVariableExpression.h"

namespace tavlo {

// The value of a literal, lent where it lives; nothing for every other expression.
[[gnu::always_inline]] inline RawValue peekLiteral(const KorTemplateExpression& expression) noexcept {
  if (expression.kind() != kLiteralKind) return RawValue::nothing();
  return static_cast<const KorTemplateLiteralExpression&>(expression).literal().peek();
}

// Lends the value of an expression where it lives, if it lives somewhere: literals, variables, key paths through
// dictionaries. Runs nobody's code. Nothing where the expression must be evaluated.
inline RawValue peekExpression(const KorTemplateExpression& expression,
                               const KorTemplateEnvironment& environment) noexcept {
  if (expression.kind() == kVariableKind) {
    return static_cast<const KorTemplateVariableExpression&>(expression).peek(environment);
  }
  return peekLiteral(expression);
}

// The same where that stands so near that looking it up counts nothing, here and in one scope more; nothing otherwise.
[[gnu::always_inline]] inline RawValue peekNear(const KorTemplateExpression& expression,
                                                const KorTemplateEnvironment& environment) noexcept {
  if (expression.kind() == kVariableKind) {
    return static_cast<const KorTemplateVariableExpression&>(expression).peekNear(environment);
  }
  return peekLiteral(expression);
}

// The value of an expression, without a virtual call for an operator.
inline RawValue evaluateExpression(KorTemplateExpression& expression, KorTemplateEnvironment& environment) {
  return expression.kind() == kBinaryKind ? static_cast<KorTemplateBinaryExpression&>(expression).evaluate(environment)
                                          : expression.evaluate(environment);
}

// The value of an expression, lent where it lives somewhere.
inline RawValue lentOrEvaluated(KorTemplateExpression& expression, KorTemplateEnvironment& environment) {
  if (expression.kind() == kBinaryKind) return evaluateExpression(expression, environment);
  const RawValue lent = peekExpression(expression, environment);
  return lent.isNothing() ? expression.evaluate(environment) : lent;
}

// The number as a double where it is one, or an integer of 32 bits; false otherwise.
[[gnu::always_inline]] inline bool findDouble(RawValue number, double& real) noexcept {
  if (number.isDouble()) [[likely]] {
    real = number.payload.real;
    return true;
  }
  if (number.kind() != ValueKind::Signed) return false;
  const std::int64_t integer = number.payload.signedInteger;
  real = static_cast<double>(integer);
  return integer == static_cast<std::int32_t>(integer);
}

// The same for a number that is a literal or stands in a variable, found without any call; false where that does not
// suffice.
[[gnu::always_inline]] inline bool findPlainDouble(const KorTemplateExpression& expression,
                                                   const KorTemplateEnvironment& environment, double& real) noexcept {
  const Value* value = nullptr;
  if (expression.kind() == kVariableKind) {
    const Name* const name = static_cast<const KorTemplateVariableExpression&>(expression).plainName();
    if (name == nullptr || !environment.findVariableQuickly(*name, value)) return false;
  } else if (expression.kind() == kLiteralKind) {
    value = &static_cast<const KorTemplateLiteralExpression&>(expression).literal();
  }
  return value != nullptr && findDouble(value->peek(), real);
}

// Whether evaluating the expression can neither change a variable nor run a host's code, so that what was lent before
// is still good after it.
inline bool isQuiet(const KorTemplateExpression& expression, const KorTemplateEnvironment& environment) noexcept {
  if (expression.kind() == kVariableKind) {
    return !static_cast<const KorTemplateVariableExpression&>(expression).hasKeyPath() && !environment.isObserved();
  }
  return expression.kind() == kLiteralKind || expression.kind() == kRegexExpressionKind;
}

// The value of an expression: lent where it lives, or owned.
inline Value operandOf(KorTemplateExpression& expression, KorTemplateEnvironment& environment) {
  return Value::adopt(lentOrEvaluated(expression, environment));
}

}  // namespace tavlo
