#include "Lexwright/KorPartitionRule.h"

#include "Foundation/NSException.h"

namespace tavlo {

namespace {

// Counts where the sub-tokens stand, which have been cut and placed by their bytes, from the start of their compound
// token, and answers with the cursor at `end`.
ScanCursor placeSubtokens(ScanContext& context, ScanCursor start, std::uint32_t end, KorCompoundToken& compound) {
  if (context.isPlain(start.byte, end)) return context.advance(start, end);
  ScanCursor at = start;
  for (KorToken& token : compound.subtokens) {
    const ScanCursor from = context.advance(at, token.byteOffset);
    at = context.advance(from, token.byteOffset + token.byteLength);
    token.line = from.line - start.line;
    token.position = from.position - start.position;
    token.length = at.position - from.position;
  }
  return context.advance(at, end);
}

}  // namespace

KorPartitionRule::KorPartitionRule(const Ref<KorScannerRule>& boundary) : KorScannerRule(nullptr), boundary_(boundary) {
  requireParameter(boundary != nullptr, "boundary != nil");
}

void KorPartitionRule::addRule(const Ref<KorScannerRule>& rule) {
  requireParameter(rule != nullptr, "rule != nil");
  if (rule->makesCompoundTokens())
    NSException::raise(NSInvalidArgumentException, "A partition cannot hold a partition");
  rules_.add(rule);
}

bool KorPartitionRule::match(ScanContext& context, std::uint32_t at, RuleMatch& match) const {
  return boundary_->match(context, at, match);
}

ScanCursor KorPartitionRule::scan(ScanContext& context, ScanCursor start, const RuleMatch& boundary,
                                  KorCompoundToken& token) const {
  const std::string_view text = context.text();
  token.line = start.line;
  token.position = start.position;
  token.byteOffset = start.byte;
  token.subtokens.clear();
  const auto add = [&token, first = start.byte](const KorTokenClass* tokenClass, const RuleMatch& match) {
    KorToken& added = token.subtokens.emplace_back();
    added.tokenClass = tokenClass;
    added.byteOffset = match.tokenStart;
    added.byteLength = match.tokenEnd - match.tokenStart;
    added.position = static_cast<std::int32_t>(match.tokenStart - first);
    added.length = static_cast<std::int32_t>(added.byteLength);
  };
  if (!skipBoundary_) add(boundary_->tokenClass(), boundary);
  std::uint32_t at = boundary.end;
  for (bool closed = false; !closed && (at = rules_.skip(text, at)) < text.size();) {
    RuleMatch match;
    const KorScannerRule* rule = rules_.firstMatch(context, text, at, match);
    if (rule == nullptr) {
      at += context.stream().characterAt(at).byteLength;  // no rule wants the character
      continue;
    }
    if (rule->tokenClass() != nullptr) {
      add(rule->tokenClass(), match);
      closed = rule->tokenClass() == closingClass_;
    }
    at = match.end;
  }
  const ScanCursor end = placeSubtokens(context, start, at, token);
  token.length = end.position - start.position;
  token.byteLength = end.byte - start.byte;
  return end;
}

}  // namespace tavlo
