#include "Lexwright/KorWhitespaceRule.h"

#include <string>

namespace tavlo {

FirstBytes KorWhitespaceRule::firstBytes() const {
  constexpr char32_t kLastWhiteSpace = 0x3000;
  FirstBytes bytes;
  for (char32_t character = 0; character <= kLastWhiteSpace; ++character) {
    if (!isWhiteSpace(character)) continue;
    std::string encoded;
    appendCodePoint(encoded, character);
    bytes.set(static_cast<unsigned char>(encoded.front()));
  }
  return bytes;
}

bool KorWhitespaceRule::match(ScanContext& context, std::uint32_t at, RuleMatch& match) const {
  const KorUnicharStream& stream = context.stream();
  std::uint32_t end = at;
  for (CodePoint next = stream.characterAt(end); next.byteLength != 0 && isWhiteSpace(next.value);
       next = stream.characterAt(end)) {
    end += next.byteLength;
  }
  match = {end, at, end};
  return end > at;
}

}  // namespace tavlo
