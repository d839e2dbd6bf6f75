#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tavlo {

// Where the text stops being valid UTF-8, as a byte offset; absent for a valid text.
std::optional<std::size_t> firstInvalidByte(std::string_view text) noexcept;

// Raises `NSInvalidArgumentException` that names the byte offset when the text is not valid UTF-8.
void requireValidUTF8(std::string_view text);

// The text's length in UTF-16 units; the text must be valid.
std::size_t utf16Length(std::string_view text) noexcept;

// A character and the bytes it takes; (0, 0) at the end of the text.
struct CodePoint {
  char32_t value;
  std::uint32_t byteLength;
};

// The character that starts at `offset` of valid text.
CodePoint codePointAt(std::string_view text, std::size_t offset) noexcept;
// The character that ends before `offset` of valid text.
CodePoint codePointBefore(std::string_view text, std::size_t offset) noexcept;

void appendCodePoint(std::string& out, char32_t character);

// Unicode's White_Space property.
bool isWhiteSpace(char32_t character) noexcept;

// The text without the white space before it.
std::string_view withoutLeadingWhiteSpace(std::string_view text) noexcept;

}  // namespace tavlo
