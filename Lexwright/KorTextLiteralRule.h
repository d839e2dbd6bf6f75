#pragma once

#include <string>

#include "Foundation/Text.h"
#include "Lexwright/KorScannerRule.h"

namespace tavlo {

// Makes a token of what stands between an open and a close sequence. A close sequence with the escape character
// directly before it does not close. What meets the end of the text, or of the line where the literal may not cross it,
// before it closes is no literal.
class KorTextLiteralRule final : public KorScannerRule {
 public:
  // `escapeChar` 0 means none. With `quotedTokens` the token covers the two sequences too.
  static Ref<KorTextLiteralRule> ruleWithOpenSequence(const Text& open, const Text& close, char escapeChar,
                                                      bool multiline, bool quotedTokens,
                                                      const KorTokenClass* tokenClass) {
    return makeRef<KorTextLiteralRule>(open, close, escapeChar, multiline, quotedTokens, tokenClass);
  }

  KorTextLiteralRule(const Text& open, const Text& close, char escapeChar, bool multiline, bool quotedTokens,
                     const KorTokenClass* tokenClass);

  FirstBytes firstBytes() const override;
  bool match(ScanContext& context, std::uint32_t at, RuleMatch& match) const override;

 private:
  std::uint32_t findClose(std::string_view text, std::uint32_t from, SearchMemo& memo) const;

  std::string open_;
  std::string close_;
  char escapeChar_;
  bool multiline_;
  bool quotedTokens_;
};

}  // namespace tavlo
