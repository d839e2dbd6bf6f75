#include "Lexwright/RuleList.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <algorithm>
#include <bit>
#include <cstring>

#include "Foundation/NSException.h"
#include "Foundation/Utf8.h"
#include "Lexwright/KorPartitionRule.h"

namespace tavlo {

void RuleList::add(const std::vector<Ref<KorScannerRule>>& rules) {
  const std::vector<Ref<KorScannerRule>> added(rules.begin(), rules.end());  // which may be these, and change meanwhile
  RuleList list = *this;  // which stays where a rule of the host's fails
  for (const Ref<KorScannerRule>& rule : added) {
    requireParameter(rule != nullptr, "rule != nil");
    if (rule->makesCompoundTokens() && dynamic_cast<const KorPartitionRule*>(rule.get()) == nullptr) {
      NSException::raise(NSInvalidArgumentException, "A rule that makes compound tokens must be a partition");
    }
    list.rules_.push_back(rule);
    list.firstBytes_.push_back(rule->firstBytes());
  }
  list.rebuild();
  *this = std::move(list);
}

void RuleList::rebuild() {
  candidates_.clear();
  std::vector<std::size_t> needed;
  for (std::size_t index = 0; index < rules_.size(); ++index) {
    if (!isNeedless(index)) needed.push_back(index);
  }
  for (unsigned byte = 0; byte < stops_.size(); ++byte) {
    firstCandidate_[byte] = static_cast<std::uint32_t>(candidates_.size());
    for (const std::size_t index : needed) {
      if (firstBytes_[index].test(byte)) candidates_.push_back({rules_[index].get(), rules_[index]->recogniser()});
    }
  }
  firstCandidate_.back() = static_cast<std::uint32_t>(candidates_.size());
  findStops();
  setOnlyOpening();
}

void RuleList::requirePart(const RuleMatch& match, std::uint32_t at, std::string_view text) {
  if (match.end <= at) return;  // none
  const auto isBetweenCharacters = [text](std::uint32_t place) {
    return place >= text.size() || !isContinuation(text[place]);
  };
  const bool isOrdered = at <= match.tokenStart && match.tokenStart <= match.tokenEnd && match.tokenEnd <= match.end;
  if (isOrdered && match.end <= text.size() && isBetweenCharacters(match.tokenStart) &&
      isBetweenCharacters(match.tokenEnd) && isBetweenCharacters(match.end)) {
    return;
  }
  NSException::raise(NSRangeException,
                     "A rule's match at byte %d up to %d, with a token from %d to %d, is no part of a text of %d bytes",
                     at, match.end, match.tokenStart, match.tokenEnd, text.size());
}

// A rule that only skips is not needed where the one that is asked behind it skips the same character by character.
bool RuleList::isNeedless(std::size_t index) const {
  if (!rules_[index]->skipsItsBytesOnly()) return false;
  for (unsigned byte = 0; byte < stops_.size(); ++byte) {
    if (!firstBytes_[index].test(byte)) continue;
    std::size_t next = index + 1;
    while (next < rules_.size() && !firstBytes_[next].test(byte)) ++next;
    if (next == rules_.size() || !rules_[next]->skippedBytes().all()) return false;
  }
  return true;
}

// A byte is passed where the rule that is asked first surely skips it. A rule that skips runs takes all of its bytes,
// so none of them is passed where another rule is asked before it for one of them.
void RuleList::findStops() {
  stops_.fill(true);
  for (const Ref<KorScannerRule>& rule : rules_) {
    const FirstBytes skipped = rule->skippedBytes();
    const auto isAskedFirst = [&](unsigned byte) {
      const std::uint32_t first = firstCandidate_[byte];
      return first < firstCandidate_[byte + 1] && candidates_[first].rule == rule.get();
    };
    const bool skipsRuns = !skipped.all();
    bool isFirstForAll = true;
    for (unsigned byte = 0; byte < stops_.size(); ++byte) isFirstForAll &= !skipped.test(byte) || isAskedFirst(byte);
    if (skipsRuns && !isFirstForAll) continue;
    for (unsigned byte = 0; byte < stops_.size(); ++byte) {
      if (skipped.test(byte) && isAskedFirst(byte)) stops_[byte] = false;
    }
  }
}

// Where one byte alone stops: that byte, or the longer text with which its rule begins where what is asked behind the
// rule skips the byte.
void RuleList::setOnlyOpening() {
  onlyOpening_.clear();
  if (std::ranges::count(stops_, true) != 1) return;
  const auto byte = static_cast<std::size_t>(std::ranges::find(stops_, true) - stops_.begin());
  onlyOpening_ = static_cast<char>(byte);
  const auto first = firstCandidate_[byte];
  if (firstCandidate_[byte + 1] - first != 2 || !candidates_[first + 1].rule->skippedBytes().test(byte)) return;
  const std::string opening = candidates_[first].rule->opening();
  if (opening.starts_with(onlyOpening_)) onlyOpening_ = opening;
}

// Two bytes are enough to pass what is no opening; where more of it is wanted, its rule tells.
std::uint32_t RuleList::findOnlyOpening(std::string_view text, std::uint32_t at) const noexcept {
#if defined(__SSE2__)
  if (onlyOpening_.size() > 1) {
    // Sixteen places at once: where both bytes are the opening's.
    const __m128i first = _mm_set1_epi8(onlyOpening_[0]);
    const __m128i second = _mm_set1_epi8(onlyOpening_[1]);
    for (; at + sizeof(__m128i) < text.size(); at += sizeof(__m128i)) {
      const auto* const here = reinterpret_cast<const __m128i*>(text.data() + at);
      const auto* const behind = reinterpret_cast<const __m128i*>(text.data() + at + 1);
      const __m128i both =
          _mm_and_si128(_mm_cmpeq_epi8(_mm_loadu_si128(here), first), _mm_cmpeq_epi8(_mm_loadu_si128(behind), second));
      const auto places = static_cast<unsigned>(_mm_movemask_epi8(both));
      if (places != 0) return at + static_cast<std::uint32_t>(std::countr_zero(places));
    }
  }
#endif
  const char* const end = text.data() + text.size();
  for (const char* next = text.data() + at; next != end; ++next) {
    next = static_cast<const char*>(std::memchr(next, onlyOpening_[0], static_cast<std::size_t>(end - next)));
    if (next == nullptr) break;
    const bool opens = onlyOpening_.size() == 1 || (next + 1 != end && next[1] == onlyOpening_[1]);
    if (opens) return static_cast<std::uint32_t>(next - text.data());
  }
  return static_cast<std::uint32_t>(text.size());
}

}  // namespace tavlo
