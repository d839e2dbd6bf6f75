#include "Lexwright/KorWhitespaceRule.h"

#include <string>

namespace tavlo {

FirstBytes KorWhitespaceRule::skippedBytes() const {
  FirstBytes bytes;
  for (unsigned ascii = 0; ascii < 0x80; ++ascii) bytes.set(ascii, isWhiteSpace(ascii));
  return bytes;
}

FirstBytes KorWhitespaceRule::firstBytes() const {
  FirstBytes bytes = skippedBytes();
  for (const char32_t character : kWhiteSpaceBeyondASCII) {
    std::string encoded;
    appendCodePoint(encoded, character);
    bytes.set(static_cast<unsigned char>(encoded.front()));
  }
  return bytes;
}

bool KorWhitespaceRule::match(ScanContext& context, std::uint32_t at, RuleMatch& match) const {
  const std::string_view text = context.text();
  std::uint32_t end = at;
  for (CodePoint next = codePointAt(text, end); next.byteLength != 0 && isWhiteSpace(next.value);
       next = codePointAt(text, end)) {
    end += next.byteLength;
  }
  match = {end, at, end};
  return end > at;
}

}  // namespace tavlo
