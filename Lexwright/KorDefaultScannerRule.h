#pragma once

#include "Lexwright/KorScannerRule.h"

namespace tavlo {

// Takes one character, so that text no other rule wants still becomes tokens; without a class the text is skipped.
class KorDefaultScannerRule final : public KorScannerRule {
 public:
  static Ref<KorDefaultScannerRule> ruleWithTokenClass(const KorTokenClass* tokenClass) {
    return makeRef<KorDefaultScannerRule>(tokenClass);
  }

  explicit KorDefaultScannerRule(const KorTokenClass* tokenClass) : KorScannerRule(tokenClass) {}

  bool match(ScanContext& context, std::uint32_t at, RuleMatch& match) const override {
    const std::uint32_t end = at + context.stream().characterAt(at).byteLength;
    match = {end, at, end};
    return true;
  }
  FirstBytes skippedBytes() const override { return tokenClass() == nullptr ? FirstBytes().set() : FirstBytes(); }
};

}  // namespace tavlo
