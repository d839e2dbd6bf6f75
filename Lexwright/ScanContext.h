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

  // The cursor at `byte`, which is not before `from`. Most steps stay within ASCII text of one line, and are a sum.
  ScanCursor advance(ScanCursor from, std::uint32_t byte) {
    if (!isPlain(from.byte, byte)) [[unlikely]]
      return advanceFar(from, byte);
    return advancePlain(from, byte);
  }

  // Whether the text between the two has as many units as bytes, and no line break; not always told of one that has.
  bool isPlain(std::uint32_t from, std::uint32_t to) const noexcept { return plainFrom_ <= from && to <= plainTo_; }

  // For a recogniser that does not use its memo.
  SearchMemo& nobodysMemo() noexcept { return nobodysMemo_; }
  SearchMemo& memoOf(const KorScannerRule& rule) {
    for (auto& [owner, memo] : memos_) {
      if (owner == &rule) return memo;
    }
    return memos_.emplace_back(&rule, SearchMemo{}).second;
  }

 private:
  static ScanCursor advancePlain(ScanCursor from, std::uint32_t byte) noexcept {
    return {byte, from.position + static_cast<std::int32_t>(byte - from.byte), from.line};
  }
  ScanCursor advanceFar(ScanCursor from, std::uint32_t byte);
  void findPlainFrom(std::uint32_t byte);

  const KorUnicharStream& stream_;
  bool usesRecognisers_;
  std::uint32_t plainFrom_ = 1;  // a stretch known to hold ASCII without line breaks; empty at first
  std::uint32_t plainTo_ = 0;
  SearchMemo nobodysMemo_;
  SearchMemo feed_, return_, beyondASCII_;                           // where the next one stands
  std::vector<std::pair<const KorScannerRule*, SearchMemo>> memos_;  // of the few rules that ask
};

}  // namespace tavlo
