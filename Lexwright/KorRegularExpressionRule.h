#pragma once

#include <string>

#include "Foundation/Once.h"
#include "Foundation/Text.h"
#include "Lexwright/KorScannerRule.h"
#include "Matchery/KorRegex.h"

namespace tavlo {

// Makes a token of the text that a pattern matches.
//
// A pattern may come with a recogniser: a function, written by hand, that matches exactly what the pattern matches, and
// the bytes with which it can begin. The rule then asks the function in the pattern's place.
class KorRegularExpressionRule final : public KorScannerRule {
 public:
  // The memo is the rule's own in the running scan where the rule remembers, and nobody's otherwise.
  using Recogniser = KorScannerRule::Recogniser;

  static Ref<KorRegularExpressionRule> ruleWithPattern(const Text& pattern, const KorTokenClass* tokenClass) {
    return makeRef<KorRegularExpressionRule>(pattern, tokenClass, nullptr, FirstBytes().set(), false);
  }
  static Ref<KorRegularExpressionRule> ruleWithPattern(const Text& pattern, const KorTokenClass* tokenClass,
                                                       Recogniser recogniser, const FirstBytes& firstBytes,
                                                       bool remembers = false) {
    return makeRef<KorRegularExpressionRule>(pattern, tokenClass, recogniser, firstBytes, remembers);
  }

  KorRegularExpressionRule(const Text& pattern, const KorTokenClass* tokenClass, Recogniser recogniser,
                           const FirstBytes& firstBytes, bool remembers);

  const std::string& pattern() const noexcept { return pattern_; }

  // Turns all recognisers of the process off or on again, so that a test can compare the two.
  static void setRecognisersEnabled(bool enabled) noexcept;
  static bool areRecognisersEnabled() noexcept;

  FirstBytes firstBytes() const override { return firstBytes_; }
  Recogniser recogniser() const override { return remembers_ ? nullptr : recogniser_; }
  std::string opening() const override;
  bool match(ScanContext& context, std::uint32_t at, RuleMatch& match) const override;

 private:
  const KorRegex& regex() const;

  std::string pattern_;
  Recogniser recogniser_;  // absent: the pattern itself is asked
  FirstBytes firstBytes_;
  bool remembers_;  // the recogniser uses its memo
  mutable Once compiledOnce_;
  mutable Ref<KorRegex> regex_;  // compiled when first needed
};

}  // namespace tavlo
