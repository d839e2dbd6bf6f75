#include "Lexwright/RuleList.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace tavlo {

RuleList::RuleList(std::vector<Ref<KorScannerRule>> rules) : rules_(std::move(rules)) { rebuild(); }

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
  for (unsigned byte = 0; byte < stops_.size(); ++byte) stops_[byte] = !isSkipped(byte);
  onlyStop_ = std::ranges::count(stops_, true) == 1 ? static_cast<int>(std::ranges::find(stops_, true) - stops_.begin()) : -1;
}

bool RuleList::isSkipped(unsigned byte) const {
  const auto first = candidates_.begin() + firstCandidate_[byte];
  const auto last = candidates_.begin() + firstCandidate_[byte + 1];
  return first != last && std::all_of(first, last, [](const KorScannerRule* rule) { return rule->skipsCharacters(); });
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
    return static_cast<std::uint32_t>(found == nullptr ? text.size()
                                                       : static_cast<std::size_t>(static_cast<const char*>(found) - text.data()));
  }
  while (at < text.size() && !stops_[static_cast<unsigned char>(text[at])]) ++at;
  return at;
}

}  // namespace tavlo
