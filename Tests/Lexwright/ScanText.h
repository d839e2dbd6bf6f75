#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Lexwright/KorRuleBasedScanner.h"
#include "Lexwright/KorScannerRule.h"
#include "Lexwright/KorTokenClass.h"

namespace tavlo::test {

using Rules = std::vector<Ref<KorScannerRule>>;

// The class that a small letter stands for; the same one at every call.
const KorTokenClass* classNamed(char letter);

// The rule of a regular expression whose tokens are of that letter's class.
Ref<KorScannerRule> pattern(const char* text, char letter);

// A scanner over the text.
Ref<KorRuleBasedScanner> scannerOver(std::string_view text, const Rules& rules);

// The scanner's tokens, parted by spaces. A token is written as LETTER LINE:POSITION+LENGTH and its text in quotes, as
// in
//   a1:0+3'foo'
// and a compound token as its line, position and length and its sub-tokens in braces. The text comes from the token's
// bytes; where its position and length in UTF-16 units say otherwise, "!" is put behind it.
std::string tokensOf(std::string_view text, const Rules& rules);
std::string tokensOf(std::string_view text, KorRuleBasedScanner& scanner);

}  // namespace tavlo::test
