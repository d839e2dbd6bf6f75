#include "Tests/Lexwright/ScanText.h"

#include <array>

#include "Foundation/NSString.h"
#include "Foundation/Utf8.h"
#include "Lexwright/KorRegularExpressionRule.h"

namespace tavlo::test {

const KorTokenClass* classNamed(char letter) {
  static const std::array<KorTokenClass, 26> classes;
  return &classes[static_cast<std::size_t>(letter - 'a')];
}

Ref<KorScannerRule> pattern(const char* text, char letter) {
  return KorRegularExpressionRule::ruleWithPattern(text, classNamed(letter));
}

Ref<KorRuleBasedScanner> scannerOver(std::string_view text, const Rules& rules) {
  const Ref<KorStringBuffer> buffer = KorStringBuffer::bufferFromString(NSString::stringWithUTF8(text));
  return KorRuleBasedScanner::scannerForStream(KorUnicharStream::streamWithBuffer(buffer), rules);
}

namespace {

char letterOf(const KorTokenClass* tokenClass) {
  for (char letter = 'a'; letter <= 'z'; ++letter) {
    if (classNamed(letter) == tokenClass) return letter;
  }
  return tokenClass == nullptr ? '-' : '?';
}

std::string placeOf(const KorToken& token) {
  return std::to_string(token.line) + ":" + std::to_string(token.position) + "+" + std::to_string(token.length);
}

// `start` is where the token's position counts from.
std::string plainToken(std::string_view text, const KorToken& token, std::int32_t start) {
  const std::string_view covered = text.substr(token.byteOffset, token.byteLength);
  const auto before = static_cast<std::int32_t>(utf16Length(text.substr(0, token.byteOffset)));
  const bool agrees =
      start + token.position == before && token.length == static_cast<std::int32_t>(utf16Length(covered));
  return letterOf(token.tokenClass) + placeOf(token) + "'" + std::string(covered) + "'" + (agrees ? "" : "!");
}

std::string compoundToken(std::string_view text, const KorCompoundToken& token) {
  std::string result = "{" + placeOf(token);
  for (const KorToken& subtoken : token.subtokens) result += " " + plainToken(text, subtoken, token.position);
  return result + "}";
}

}  // namespace

std::string tokensOf(std::string_view text, KorRuleBasedScanner& scanner) {
  std::string result;
  while (const KorToken* token = scanner.nextToken()) {
    if (!result.empty()) result += " ";
    result += token->isCompound ? compoundToken(text, static_cast<const KorCompoundToken&>(*token))
                                : plainToken(text, *token, 0);
  }
  return result;
}

std::string tokensOf(std::string_view text, const Rules& rules) {
  return tokensOf(text, *scannerOver(text, rules));
}

}  // namespace tavlo::test
