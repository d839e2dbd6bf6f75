#pragma once

#include "Foundation/Text.h"
#include "Matchery/KorRegex.h"
#include "Source/KorTemplateExpression.h"

namespace tavlo {

// Yields a compiled regular expression, for the match operator.
class KorTemplateRegexExpression final : public KorTemplateExpression {
 public:
  // The regular expression may not be absent.
  explicit KorTemplateRegexExpression(const Ref<KorRegex>& regex);
  static Ref<KorTemplateRegexExpression> expressionWithRegex(const Ref<KorRegex>& regex);
  // The pattern, without slashes around it, may not be absent. Raises `NSInvalidArgumentException` when it does not
  // compile.
  static Ref<KorTemplateRegexExpression> expressionWithRegexString(const Text& regexString);

  const Ref<KorRegex>& regex() const noexcept { return regex_; }
  void setRegex(const Ref<KorRegex>& value) { regex_ = value; }

  // The very same object every time; the environment may be absent.
  Value evaluateWithEnvironment(KorTemplateEnvironment* /*environment*/) override { return regex_; }
  RawValue evaluate(KorTemplateEnvironment& /*environment*/) override { return Value(regex_).leak(); }
  // Over the very same regular expression.
  Ref<KorTemplateExpression> copyWithZone(NSZone* zone = nullptr) const override;

  const char* className() const override { return "KorTemplateRegexExpression"; }

 private:
  Ref<KorRegex> regex_;
};

}  // namespace tavlo
