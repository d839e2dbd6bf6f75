#include "Lexwright/KorPartitionRule.h"

#include "Foundation/NSException.h"

namespace tavlo {

namespace {

// Puts a token behind the others of a compound token, its place counted from there, and answers with the token's end.
ScanCursor addSubtoken(ScanContext& context, const KorTokenClass* tokenClass, const RuleMatch& match, ScanCursor from,
                       KorCompoundToken& compound) {
  const ScanCursor start = context.advance(from, match.tokenStart);
  const ScanCursor end = context.advance(start, match.tokenEnd);
  KorToken& token = compound.subtokens.emplace_back();
  token.tokenClass = tokenClass;
  token.line = start.line - compound.line;
  token.position = start.position - compound.position;
  token.length = end.position - start.position;
  token.byteOffset = match.tokenStart;
  token.byteLength = match.tokenEnd - match.tokenStart;
  return end;
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
  const KorUnicharStream& stream = context.stream();
  token.line = start.line;
  token.position = start.position;
  token.byteOffset = start.byte;
  token.subtokens.clear();
  if (!skipBoundary_) (void)addSubtoken(context, boundary_->tokenClass(), boundary, start, token);
  ScanCursor at = context.advance(start, boundary.end);
  std::uint32_t byte = at.byte;
  for (bool closed = false; !closed && (byte = rules_.skip(stream.text(), byte)) < stream.byteLength();) {
    RuleMatch match;
    const KorScannerRule* rule = rules_.firstMatch(context, byte, match);
    if (rule == nullptr) {
      byte += stream.characterAt(byte).byteLength;  // no rule wants the character
      continue;
    }
    if (rule->tokenClass() != nullptr) {
      at = addSubtoken(context, rule->tokenClass(), match, at, token);
      closed = rule->tokenClass() == closingClass_;
    }
    byte = match.end;
  }
  at = context.advance(at, byte);
  token.length = at.position - start.position;
  token.byteLength = at.byte - start.byte;
  return at;
}

}  // namespace tavlo
