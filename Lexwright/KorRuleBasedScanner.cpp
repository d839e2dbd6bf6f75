#include "Lexwright/KorRuleBasedScanner.h"

#include "Foundation/NSException.h"
#include "Lexwright/KorPartitionRule.h"

namespace tavlo {

KorRuleBasedScanner::KorRuleBasedScanner(const Ref<KorUnicharStream>& stream, const RuleList* rules)
    : stream_(stream), rules_(rules), context_(*stream) {
  constexpr std::size_t kFew = 16;  // most blocks hold no more
  token_.subtokens.reserve(kFew);
}

Ref<KorRuleBasedScanner> KorRuleBasedScanner::scannerForStream(const Ref<KorUnicharStream>& stream,
                                                               const std::vector<Ref<KorScannerRule>>& rules) {
  requireParameter(stream != nullptr, "stream != nil");
  Ref<KorRuleBasedScanner> scanner = makeRef<KorRuleBasedScanner>(stream, nullptr);
  scanner->ownRules_ = RuleList(rules);
  scanner->rules_ = &scanner->ownRules_;
  return scanner;
}

Ref<KorRuleBasedScanner> KorRuleBasedScanner::scannerForStream(const Ref<KorUnicharStream>& stream,
                                                               const RuleList& rules) {
  requireParameter(stream != nullptr, "stream != nil");
  return makeRef<KorRuleBasedScanner>(stream, &rules);
}

const KorToken* KorRuleBasedScanner::nextToken() {
  const std::string_view text = stream_->text();
  std::uint32_t at = cursor_.byte;
  while ((at = rules_->skip(text, at)) < text.size()) {
    RuleMatch match;
    const KorScannerRule* rule = rules_->firstMatch(context_, text, at, match);
    if (rule == nullptr) {
      at = stream_->placeBehind(at);  // no rule wants the character
    } else if (rule->tokenClass() == nullptr && !rule->makesCompoundTokens()) {
      at = match.end;
    } else {
      cursor_ = stream_->advance(cursor_, at);
      return makeToken(*rule, match);
    }
  }
  cursor_ = stream_->advance(cursor_, at);
  return nullptr;
}

const KorToken* KorRuleBasedScanner::makeToken(const KorScannerRule& rule, const RuleMatch& match) {
  token_.tokenClass = rule.tokenClass();
  token_.isCompound = rule.makesCompoundTokens();
  if (token_.isCompound) {
    cursor_ = static_cast<const KorPartitionRule&>(rule).scan(context_, cursor_, match, token_);
    return &token_;
  }
  const ScanCursor start = stream_->advance(cursor_, match.tokenStart);
  const ScanCursor end = stream_->advance(start, match.tokenEnd);
  token_.line = start.line;
  token_.position = start.position;
  token_.length = end.position - start.position;
  token_.byteOffset = match.tokenStart;
  token_.byteLength = match.tokenEnd - match.tokenStart;
  token_.subtokens.clear();
  cursor_ = stream_->advance(end, match.end);
  return &token_;
}

}  // namespace tavlo
