#pragma once

#include "Lexwright/KorScannerRule.h"

namespace tavlo {

// Skips a run of white space, line breaks included.
class KorWhitespaceRule final : public KorScannerRule {
 public:
  static Ref<KorWhitespaceRule> rule() { return makeRef<KorWhitespaceRule>(); }

  KorWhitespaceRule() : KorScannerRule(nullptr) {}

  FirstBytes firstBytes() const override;
  bool match(ScanContext& context, std::uint32_t at, RuleMatch& match) const override;
  FirstBytes skippedBytes() const override;
  bool skipsItsBytesOnly() const override { return true; }
};

}  // namespace tavlo
