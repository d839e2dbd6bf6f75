#pragma once

#include <bitset>
#include <cstdint>
#include <string>
#include <string_view>

#include "Foundation/NSObject.h"
#include "Foundation/Ref.h"
#include "Lexwright/KorToken.h"
#include "Lexwright/ScanContext.h"

namespace tavlo {

// The bytes with which a match may begin.
using FirstBytes = std::bitset<256>;

// Where a rule matched, in bytes from the start of the text: the whole match, from the place asked about to `end`, and
// the part of it that the token covers.
struct RuleMatch {
  std::uint32_t end = 0;
  std::uint32_t tokenStart = 0;
  std::uint32_t tokenEnd = 0;
};

// One way to cut a token from a text. A rule is asked about one place at a time and never changes once a scanner uses
// it.
class KorScannerRule : public NSObject {
 public:
  // Absent for a rule whose matches are skipped.
  const KorTokenClass* tokenClass() const noexcept { return tokenClass_; }

  // A rule is only asked at places whose byte is among these.
  virtual FirstBytes firstBytes() const { return FirstBytes().set(); }

  // ASCII text with which every match begins; empty where the rule names none.
  virtual std::string opening() const { return {}; }

  // Whether the rule matches the text that begins exactly at `at`, which is before the end. A match of no characters
  // counts as none.
  virtual bool match(ScanContext& context, std::uint32_t at, RuleMatch& match) const = 0;

  // A function that answers as match() does for a token that is the whole match: with the end of the match that begins
  // at `at`, in bytes, or with `at` itself where there is none.
  using Recogniser = std::uint32_t (*)(std::string_view text, std::uint32_t at, SearchMemo& memo);

  // What may be asked in the place of match() where recognisers are used, without a memo of its own; null where match()
  // itself must be asked.
  virtual Recogniser recogniser() const { return nullptr; }

  // The bytes at which the rule surely matches text that is skipped, where skipping byte after byte comes to the same.
  virtual FirstBytes skippedBytes() const { return {}; }

  // Whether what the rule matches is skipped, and each of its characters begins with one of firstBytes().
  virtual bool skipsItsBytesOnly() const { return false; }

  // Whether a match becomes a token with tokens inside; the rule is a partition then.
  virtual bool makesCompoundTokens() const { return false; }

 protected:
  explicit KorScannerRule(const KorTokenClass* tokenClass) : tokenClass_(tokenClass) {}

 private:
  const KorTokenClass* tokenClass_;
};

}  // namespace tavlo
