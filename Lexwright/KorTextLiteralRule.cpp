#include "Lexwright/KorTextLiteralRule.h"

#include "Foundation/NSException.h"

namespace tavlo {

KorTextLiteralRule::KorTextLiteralRule(const Text& open, const Text& close, char escapeChar, bool multiline,
                                       bool quotedTokens, const KorTokenClass* tokenClass)
    : KorScannerRule(tokenClass),
      open_(open.view()),
      close_(close.view()),
      escapeChar_(escapeChar),
      multiline_(multiline),
      quotedTokens_(quotedTokens) {
  requireParameter(!open_.empty(), "[openSequence length] > 0");
  requireParameter(!close_.empty(), "[closeSequence length] > 0");
}

FirstBytes KorTextLiteralRule::firstBytes() const {
  return FirstBytes().set(static_cast<unsigned char>(open_.front()));
}

bool KorTextLiteralRule::match(ScanContext& context, std::uint32_t at, RuleMatch& match) const {
  const std::string_view text = context.text();
  if (!text.substr(at).starts_with(open_)) return false;
  const auto start = at + static_cast<std::uint32_t>(open_.size());
  const std::uint32_t close = findClose(text, start, context.memoOf(*this));
  if (close == SearchMemo::kNone) return false;
  const auto end = close + static_cast<std::uint32_t>(close_.size());
  match = quotedTokens_ ? RuleMatch{end, at, end} : RuleMatch{end, start, close};
  return true;
}

// Where the first close sequence at or after `from` stands that closes. Every place up to it has the same answer, and
// so has every place of a line on which none closes.
std::uint32_t KorTextLiteralRule::findClose(std::string_view text, std::uint32_t from, SearchMemo& memo) const {
  if (memo.covers(from)) return memo.answer;
  std::uint32_t at = from;
  memo.answer = SearchMemo::kNone;
  for (; at < text.size(); ++at) {
    if (!multiline_ && (text[at] == '\n' || text[at] == '\r')) break;
    const bool escaped = escapeChar_ != '\0' && at > 0 && text[at - 1] == escapeChar_;
    if (!escaped && text.substr(at).starts_with(close_)) {
      memo.answer = at;
      break;
    }
  }
  memo.from = from;
  memo.to = at;
  return memo.answer;
}

}  // namespace tavlo
