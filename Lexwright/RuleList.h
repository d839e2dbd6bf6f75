#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Foundation/Utf8.h"
#include "Lexwright/KorScannerRule.h"

namespace tavlo {

// Rules in the order in which they are tried, with a table of those that can begin with a given byte.
class RuleList {
 public:
  RuleList() = default;
  explicit RuleList(const std::vector<Ref<KorScannerRule>>& rules) { add(rules); }

  // Behind those that are there, none of them null. All tables are made anew.
  void add(const std::vector<Ref<KorScannerRule>>& rules);

  const std::vector<Ref<KorScannerRule>>& rules() const noexcept { return rules_; }

  // The first rule that matches at `at`, which is before the end; null where none does. Raises `NSRangeException` where
  // a rule of the host's matches what is no part of the text in whole characters.
  [[gnu::always_inline]] const KorScannerRule* firstMatch(ScanContext& context, std::string_view text, std::uint32_t at,
                                                          RuleMatch& match) const {
    const auto byte = static_cast<unsigned char>(text[at]);
    for (std::uint32_t index = firstCandidate_[byte]; index < firstCandidate_[byte + 1U]; ++index) {
      const Candidate& candidate = candidates_[index];
      if (candidate.recogniser != nullptr && context.usesRecognisers()) [[likely]] {
        const std::uint32_t end = candidate.recogniser(text, at, context.nobodysMemo());
        match = {end, at, end};
        if (end < text.size() ? isContinuation(text[end]) : end != text.size()) [[unlikely]]
          requirePart(match, at, text);
      } else if (candidate.rule->match(context, at, match)) {
        requirePart(match, at, text);
      } else {
        continue;
      }
      if (match.end > at) return candidate.rule;
    }
    return nullptr;
  }

  // The first place at or after `at` whose text is not surely skipped; the end of the text where there is none.
  [[gnu::always_inline]] std::uint32_t skip(std::string_view text, std::uint32_t at) const noexcept {
    if (!onlyOpening_.empty()) return findOnlyOpening(text, at);
    while (at < text.size() && !stops_[static_cast<unsigned char>(text[at])]) ++at;
    return at;
  }

 private:
  struct Candidate {
    const KorScannerRule* rule;
    KorScannerRule::Recogniser recogniser;  // the rule's; null where it has none
  };

  static void requirePart(const RuleMatch& match, std::uint32_t at, std::string_view text);
  void rebuild();
  bool isNeedless(std::size_t index) const;
  void findStops();
  void setOnlyOpening();
  std::uint32_t findOnlyOpening(std::string_view text, std::uint32_t at) const noexcept;

  std::vector<Ref<KorScannerRule>> rules_;
  std::vector<FirstBytes> firstBytes_;               // of the rules
  std::vector<Candidate> candidates_;                // of every byte, one after another
  std::array<std::uint32_t, 257> firstCandidate_{};  // where a byte's candidates begin
  std::array<bool, 256> stops_{};                    // bytes that skip() does not pass
  std::string onlyOpening_;                          // what stops, where there is but one text that does
};

}  // namespace tavlo
