#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "Lexwright/KorUnicharStream.h"

namespace tavlo {

class KorScannerRule;

// What one rule has learned about where its next closing sequence stands: searches that start anywhere from `from` to
// `to` have the same answer. It keeps a text full of openings that never close from being searched again at each.
struct SearchMemo {
  static constexpr std::uint32_t kNone = UINT32_MAX;

  std::uint32_t from = 1;  // an empty range at first
  std::uint32_t to = 0;
  std::uint32_t answer = kNone;

  bool covers(std::uint32_t start) const noexcept { return from <= start && start <= to; }
};

// What a scanner hands its rules: the text, and a memo for each rule that wants one. Rules themselves never change, so
// that scanners on several threads can share them.
class ScanContext {
 public:
  explicit ScanContext(const KorUnicharStream& stream);

  const KorUnicharStream& stream() const noexcept { return stream_; }
  std::string_view text() const noexcept { return stream_.text(); }
  // Whether recognisers are asked in the place of their patterns.
  bool usesRecognisers() const noexcept { return usesRecognisers_; }

  // For a recogniser that does not use its memo.
  SearchMemo& nobodysMemo() noexcept { return nobodysMemo_; }
  // That of a rule, good until the next one is asked for.
  SearchMemo& memoOf(const KorScannerRule& rule) {
    for (auto& [owner, memo] : memos_) {
      if (owner == &rule) return memo;
    }
    return memos_.emplace_back(&rule, SearchMemo{}).second;
  }

 private:
  const KorUnicharStream& stream_;
  bool usesRecognisers_;
  SearchMemo nobodysMemo_;
  std::vector<std::pair<const KorScannerRule*, SearchMemo>> memos_;  // of the few rules that ask
};

}  // namespace tavlo
