#include "Lexwright/KorPartitionRule.h"

#include <span>

#include "Foundation/NSException.h"
#include "Foundation/Utf8.h"

namespace tavlo {

namespace {

// Raises `NSRangeException` where what a recogniser has told does not lie from `at` up to its end, token behind token.
// Every place is between two characters.
void requireParts(std::span<const KorToken> tokens, std::uint32_t at, std::uint32_t end, std::string_view text) {
  std::uint32_t last = at;
  bool areParts = true;
  const auto goOnTo = [&](std::uint32_t place) {
    areParts &= last <= place && place <= text.size() && (place == text.size() || !isContinuation(text[place]));
    last = place;
  };
  for (const KorToken& token : tokens) {
    goOnTo(token.byteOffset);
    goOnTo(token.byteOffset + token.byteLength);
  }
  goOnTo(end);
  if (areParts) return;
  NSException::raise(NSRangeException,
                     "What a recogniser tells from byte %d up to %d, with %d tokens, is no part of a text of %d bytes",
                     at, end, tokens.size(), text.size());
}

// Counts where the sub-tokens stand, which have been cut and placed by their bytes, from the start of their compound
// token, and answers with the cursor at `end`.
ScanCursor placeSubtokens(const KorUnicharStream& stream, ScanCursor start, std::uint32_t end,
                          KorCompoundToken& compound) {
  if (stream.isPlain(start.byte, end)) {
    return {end, start.position + static_cast<std::int32_t>(end - start.byte), start.line};
  }
  ScanCursor at = start;
  for (KorToken& token : compound.subtokens) {
    const ScanCursor from = stream.advance(at, token.byteOffset);
    at = stream.advance(from, token.byteOffset + token.byteLength);
    token.line = from.line - start.line;
    token.position = from.position - start.position;
    token.length = at.position - from.position;
  }
  return stream.advance(at, end);
}

}  // namespace

KorPartitionRule::KorPartitionRule(const Ref<KorScannerRule>& boundary) : KorScannerRule(nullptr), boundary_(boundary) {
  requireParameter(boundary != nullptr, "boundary != nil");
}

void KorPartitionRule::addRules(const std::vector<Ref<KorScannerRule>>& rules) {
  const std::vector<Ref<KorScannerRule>> added(rules.begin(), rules.end());  // a host's rules may change the list
  for (const Ref<KorScannerRule>& rule : added) {
    if (rule != nullptr && rule->makesCompoundTokens()) {
      NSException::raise(NSInvalidArgumentException, "A partition cannot hold a partition");
    }
  }
  rules_.add(added);
}

bool KorPartitionRule::match(ScanContext& context, std::uint32_t at, RuleMatch& match) const {
  return boundary_->match(context, at, match);
}

// Goes on by one token of the rules, or by what they skip. Whether it was one of the closing class.
bool KorPartitionRule::scanToken(ScanContext& context, std::uint32_t& at, TokenSink& tokens) const {
  const std::string_view text = context.text();
  at = rules_.skip(text, at);
  if (at == text.size()) return false;
  RuleMatch match;
  const KorScannerRule* rule = rules_.firstMatch(context, text, at, match);
  if (rule == nullptr) {
    at = context.stream().placeBehind(at);  // no rule wants the character
    return false;
  }
  at = match.end;
  if (rule->tokenClass() == nullptr) return false;
  tokens.add(rule->tokenClass(), match.tokenStart, match.tokenEnd);
  return rule->tokenClass() == closingClass_;
}

ScanCursor KorPartitionRule::scan(ScanContext& context, ScanCursor start, const RuleMatch& boundary,
                                  KorCompoundToken& token) const {
  const std::string_view text = context.text();
  token.line = start.line;
  token.position = start.position;
  token.byteOffset = start.byte;
  token.subtokens.clear();
  TokenSink tokens(token.subtokens, start.byte);
  if (!skipBoundary_) tokens.add(boundary_->tokenClass(), boundary.tokenStart, boundary.tokenEnd);
  const bool isFast = tokenRecogniser_ != nullptr && context.usesRecognisers();
  std::uint32_t at = boundary.end;
  for (bool closed = false; !closed && at < text.size();) {
    if (isFast) {
      const std::size_t known = token.subtokens.size();
      const Recognised fast = tokenRecogniser_(text, at, tokens);
      if (!isTrusted_) requireParts(std::span(token.subtokens).subspan(known), at, fast.end, text);
      at = fast.end;
      if (fast.isClosed) break;
    }
    closed = scanToken(context, at, tokens);
  }
  const ScanCursor end = placeSubtokens(context.stream(), start, at, token);
  token.length = end.position - start.position;
  token.byteLength = end.byte - start.byte;
  return end;
}

}  // namespace tavlo
