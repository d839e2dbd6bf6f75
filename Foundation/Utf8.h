#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tavlo {

// Where the text stops being valid UTF-8, as a byte offset; absent for a valid text.
std::optional<std::size_t> firstInvalidByte(std::string_view text) noexcept;

// The first byte at or after `offset` that is not ASCII; the end of the text where there is none.
std::size_t endOfASCII(std::string_view text, std::size_t offset) noexcept;

// Raises `NSInvalidArgumentException` that names the byte offset when the text is not valid UTF-8.
void requireValidUTF8(std::string_view text);

// The text with U+FFFD in place of every byte that is not part of a valid character: for texts that tell what went
// wrong, and have to be told whatever they are.
std::string asValidUTF8(std::string_view text);

// The text's length in UTF-16 units; the text must be valid.
std::size_t utf16Length(std::string_view text) noexcept;

// Whether a byte goes on with a character that an earlier one starts.
constexpr bool isContinuation(char byte) noexcept {
  return (static_cast<unsigned char>(byte) & 0xC0) == 0x80;
}

// A character and the bytes it takes; (0, 0) at the end of the text.
struct CodePoint {
  char32_t value;
  std::uint32_t byteLength;
};

// The character of two bytes or more that starts at `offset` of valid text.
CodePoint longCodePointAt(std::string_view text, std::size_t offset) noexcept;
// The character that starts at `offset` of valid text.
inline CodePoint codePointAt(std::string_view text, std::size_t offset) noexcept {
  if (offset >= text.size()) return {0, 0};
  const auto lead = static_cast<unsigned char>(text[offset]);
  return lead < 0x80 ? CodePoint{lead, 1} : longCodePointAt(text, offset);
}
// The character of two bytes or more that ends before `offset` of valid text.
CodePoint longCodePointBefore(std::string_view text, std::size_t offset) noexcept;
// The character that ends before `offset` of valid text; (0, 0) at its start.
inline CodePoint codePointBefore(std::string_view text, std::size_t offset) noexcept {
  if (offset == 0) return {0, 0};
  const auto last = static_cast<unsigned char>(text[offset - 1]);
  return last < 0x80 ? CodePoint{last, 1} : longCodePointBefore(text, offset);
}

void appendCodePoint(std::string& out, char32_t character);

// Unicode's White_Space property: what has it beyond ASCII, and the question.
inline constexpr char32_t kWhiteSpaceBeyondASCII[] = {
    0x85,   0xA0,   0x1680, 0x2000, 0x2001, 0x2002, 0x2003, 0x2004, 0x2005, 0x2006,
    0x2007, 0x2008, 0x2009, 0x200A, 0x2028, 0x2029, 0x202F, 0x205F, 0x3000,
};
bool isLongWhiteSpace(char32_t character) noexcept;
constexpr bool isWhiteSpace(char32_t character) noexcept {
  if (character >= 0x80) return isLongWhiteSpace(character);
  return character == ' ' || (character >= '\t' && character <= '\r');
}

// The text without the white space before it.
std::string_view withoutLeadingWhiteSpace(std::string_view text) noexcept;

}  // namespace tavlo
