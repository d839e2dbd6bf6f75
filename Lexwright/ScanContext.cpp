#include "Lexwright/ScanContext.h"

#include <algorithm>

#include "Foundation/Utf8.h"
#include "Lexwright/KorRegularExpressionRule.h"

namespace tavlo {

namespace {

// The first place at or after `from` that `find` tells, looked for once for all places before it.
template <class Find>
std::uint32_t remembered(SearchMemo& memo, std::uint32_t from, const Find& find) {
  if (!memo.covers(from)) {
    const auto answer = static_cast<std::uint32_t>(find());
    memo = {from, answer, answer};
  }
  return memo.answer;
}

}  // namespace

ScanContext::ScanContext(const KorUnicharStream& stream)
    : stream_(stream), usesRecognisers_(KorRegularExpressionRule::areRecognisersEnabled()) {}

// Plain stretches are parted by single characters: line breaks, and those beyond ASCII.
ScanCursor ScanContext::advanceFar(ScanCursor from, std::uint32_t byte) {
  if (from.byte < plainFrom_ || from.byte > plainTo_) findPlainFrom(from.byte);
  while (plainTo_ < byte) {
    from = stream_.next(advancePlain(from, plainTo_));
    findPlainFrom(from.byte);
  }
  return advancePlain(from, byte);
}

void ScanContext::findPlainFrom(std::uint32_t byte) {
  const std::string_view text = stream_.text();
  const auto next = [&](char character) { return std::min(text.find(character, byte), text.size()); };
  plainFrom_ = byte;
  plainTo_ = std::min(
      {remembered(feed_, byte, [&] { return next('\n'); }), remembered(return_, byte, [&] { return next('\r'); }),
       remembered(beyondASCII_, byte, [&] { return stream_.isASCII() ? text.size() : endOfASCII(text, byte); })});
}

}  // namespace tavlo
