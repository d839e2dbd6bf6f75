#include "Source/KorTemplateRegexExpression.h"

#include "Foundation/NSException.h"

namespace tavlo {

KorTemplateRegexExpression::KorTemplateRegexExpression(const Ref<KorRegex>& regex)
    : KorTemplateExpression(kRegexExpressionKind), regex_(regex) {
  requireParameter(regex != nullptr, "theRegex != nil");
}

Ref<KorTemplateRegexExpression> KorTemplateRegexExpression::expressionWithRegex(const Ref<KorRegex>& regex) {
  requireParameter(regex != nullptr, "regex != nil");
  return makeRef<KorTemplateRegexExpression>(regex);
}

Ref<KorTemplateRegexExpression> KorTemplateRegexExpression::expressionWithRegexString(const Text& regexString) {
  requireParameter(!regexString.isAbsent(), "regexString != nil");
  return expressionWithRegex(KorRegex::compileExpression(regexString));
}

Ref<KorTemplateExpression> KorTemplateRegexExpression::copyWithZone(NSZone* /*zone*/) const {
  return makeRef<KorTemplateRegexExpression>(regex_);
}

}  // namespace tavlo
