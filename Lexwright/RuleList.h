#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <vector>

#include "Lexwright/KorScannerRule.h"

namespace tavlo {

// Rules in the order in which they are tried, with a table of those that can begin with a given byte.
class RuleList {
 public:
  RuleList() = default;
  explicit RuleList(std::vector<Ref<KorScannerRule>> rules);

  void add(const Ref<KorScannerRule>& rule);

  const std::vector<Ref<KorScannerRule>>& rules() const noexcept { return rules_; }

  // The first rule that matches at `at`, which is before the end; null where none does.
  const KorScannerRule* firstMatch(ScanContext& context, std::uint32_t at, RuleMatch& match) const;

  // The first place at or after `at` whose text is not surely skipped; the end of the text where there is none.
  std::uint32_t skip(std::string_view text, std::uint32_t at) const noexcept;

 private:
  void rebuild();
  void findStops();

  std::vector<Ref<KorScannerRule>> rules_;
  std::vector<const KorScannerRule*> candidates_;    // of every byte, one after another
  std::array<std::uint32_t, 257> firstCandidate_{};  // where a byte's candidates begin
  std::array<bool, 256> stops_{};                    // bytes that skip() does not pass
  int onlyStop_ = -1;                                // the byte that stops, where there is but one
};

}  // namespace tavlo
