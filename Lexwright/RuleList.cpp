#include "Lexwright/RuleList.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace tavlo {

RuleList::RuleList(std::vector<Ref<KorScannerRule>> rules) : rules_(std::move(rules)) {
  rebuild();
}

void RuleList::add(const Ref<KorScannerRule>& rule) {
  rules_.push_back(rule);
  rebuild();
}

void RuleList::rebuild() {
  std::vector<FirstBytes> firstBytes;
  for (const Ref<KorScannerRule>& rule : rules_) firstBytes.push_back(rule->firstBytes());
  candidates_.clear();
  for (unsigned byte = 0; byte < stops_.size(); ++byte) {
    firstCandidate_[byte] = static_cast<std::uint32_t>(candidates_.size());
    for (std::size_t index = 0; index < rules_.size(); ++index) {
      if (firstBytes[index].test(byte)) candidates_.push_back(rules_[index].get());
    }
  }
  firstCandidate_.back() = static_cast<std::uint32_t>(candidates_.size());
  findStops();
  onlyStop_ =
      std::ranges::count(stops_, true) == 1 ? static_cast<int>(std::ranges::find(stops_, true) - stops_.begin()) : -1;
}

// A byte is passed where the rule that is asked first surely skips it. A rule that skips runs takes all of its bytes,
// so none of them is passed where another rule is asked before it for one of them.
void RuleList::findStops() {
  stops_.fill(true);
  for (const Ref<KorScannerRule>& rule : rules_) {
    const FirstBytes skipped = rule->skippedBytes();
    const auto isAskedFirst = [&](unsigned byte) { return candidates_[firstCandidate_[byte]] == rule.get(); };
    const bool skipsRuns = !skipped.all();
    bool isFirstForAll = true;
    for (unsigned byte = 0; byte < stops_.size(); ++byte) isFirstForAll &= !skipped.test(byte) || isAskedFirst(byte);
    if (skipsRuns && !isFirstForAll) continue;
    for (unsigned byte = 0; byte < stops_.size(); ++byte) {
      if (skipped.test(byte) && isAskedFirst(byte)) stops_[byte] = false;
    }
  }
}

const KorScannerRule* RuleList::firstMatch(ScanContext& context, std::uint32_t at, RuleMatch& match) const {
  const auto byte = static_cast<unsigned char>(context.text()[at]);
  for (std::uint32_t index = firstCandidate_[byte]; index < firstCandidate_[byte + 1U]; ++index) {
    const KorScannerRule* rule = candidates_[index];
    if (rule->match(context, at, match) && match.end > at) return rule;
  }
  return nullptr;
}

std::uint32_t RuleList::skip(std::string_view text, std::uint32_t at) const noexcept {
  if (onlyStop_ >= 0) {
    const void* found = std::memchr(text.data() + at, onlyStop_, text.size() - at);
    return static_cast<std::uint32_t>(
        found == nullptr ? text.size() : static_cast<std::size_t>(static_cast<const char*>(found) - text.data()));
  }
  while (at < text.size() && !stops_[static_cast<unsigned char>(text[at])]) ++at;
  return at;
}

}  // namespace tavlo
