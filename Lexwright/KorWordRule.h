#pragma once

#include <array>
#include <string>
#include <vector>

#include "Lexwright/KorScannerRule.h"

namespace tavlo {

// Makes a token of the longest entry of a dictionary that stands at a place. An entry made of word characters is only
// matched where it is a whole word.
class KorWordRule final : public KorScannerRule {
 public:
  // `caseInsensitive` folds ASCII letters only. Raises `NSInvalidArgumentException` where a word is no UTF-8.
  static Ref<KorWordRule> ruleForDictionary(const std::vector<std::string>& dictionary, bool caseInsensitive,
                                            const KorTokenClass* tokenClass) {
    return makeRef<KorWordRule>(dictionary, caseInsensitive, tokenClass);
  }

  KorWordRule(const std::vector<std::string>& dictionary, bool caseInsensitive, const KorTokenClass* tokenClass);

  FirstBytes firstBytes() const override;
  bool match(ScanContext& context, std::uint32_t at, RuleMatch& match) const override;

 private:
  struct Entry {
    std::string text;  // folded where the case does not count
    bool isWord;       // made of word characters
  };

  bool matches(const Entry& entry, const KorUnicharStream& stream, std::uint32_t at) const;
  unsigned char folded(char byte) const noexcept;

  bool caseInsensitive_;
  std::array<std::vector<Entry>, 256> entries_;  // by their first byte, the longest first
};

}  // namespace tavlo
