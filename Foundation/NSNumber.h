#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "Foundation/RawValue.h"
#include "Foundation/Value.h"

namespace tavlo {

// The room that the text of any number needs.
inline constexpr std::size_t kNumberTextSize = 40;

// Writes the number's text at `out`, which has room for `kNumberTextSize` characters, and returns its end: an integer's
// decimal digits; of a double or float the shortest digits that read back as the same number, without a fraction on a
// whole value, with a decimal exponent below -4 or of 17 and above; "nan", "inf", "-inf".
char* writeNumber(char* out, RawValue number) noexcept;
char* writeDouble(char* out, double number) noexcept;
char* writeFloat(char* out, float number) noexcept;

// A number as a double.
inline double numberAsDouble(RawValue number) noexcept {
  switch (number.kind()) {
    case ValueKind::Signed:
      return static_cast<double>(number.payload.signedInteger);
    case ValueKind::Double:
      return number.payload.real;
    case ValueKind::Float:
      return static_cast<double>(number.single());
    default:
      return static_cast<double>(number.payload.unsignedInteger);
  }
}

// A number as an integer type: an integer keeps its low bits; a double is cut toward zero and clamped to the type's
// range; not-a-number is 0. Instantiated for the integer types of 8 to 64 bits.
template <class Integer>
Integer numberAsInteger(RawValue number) noexcept;

// Whether a number is other than zero.
bool numberAsBool(RawValue number) noexcept;

enum class NumberOrder : std::uint8_t { Less, Equal, Greater, Unordered };

// The order of two numbers by their mathematical values; a 64-bit integer against a double is compared exactly.
NumberOrder compareNumbers(RawValue left, RawValue right) noexcept;

// The same for numbers that are equal.
std::size_t hashOfNumber(RawValue number) noexcept;

// The number at the start of a text, after white space: the longest prefix that is a decimal number with optional sign
// (of a double with optional point and exponent); 0 where there is none. An integer clamps to its type's range, a
// double becomes infinite or zero beyond its own. No reading depends on the locale.
double textAsDouble(std::string_view text) noexcept;
std::int64_t textAsInteger(std::string_view text) noexcept;
std::int32_t textAsInt(std::string_view text) noexcept;
// After white space, an optional sign and zeros: is the next character one of Y, y, T, t, 1 to 9?
bool textAsBool(std::string_view text) noexcept;

}  // namespace tavlo
