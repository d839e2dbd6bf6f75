#include "Foundation/NSNumber.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <type_traits>

#include "Foundation/HashSeed.h"
#include "Foundation/Utf8.h"

namespace tavlo {

namespace {

// Decimal exponents that are written out with zeros; all others as "e+17".
constexpr int kSmallestPlainExponent = -4;
constexpr int kFirstBigExponent = 17;

char* put(char* out, std::string_view text) noexcept {
  std::memcpy(out, text.data(), text.size());
  return out + text.size();
}

char* putZeros(char* out, int count) noexcept {
  std::memset(out, '0', static_cast<std::size_t>(count));
  return out + count;
}

// Lays out the significant digits of a number whose first digit has the decimal exponent `exponent`.
char* putPlain(char* out, std::string_view digits, int exponent) noexcept {
  const int count = static_cast<int>(digits.size());
  if (exponent < 0) {
    out = putZeros(put(out, "0."), -exponent - 1);
    return put(out, digits);
  }
  if (exponent >= count - 1) return putZeros(put(out, digits), exponent - count + 1);
  const auto whole = static_cast<std::size_t>(exponent) + 1;
  out = put(out, digits.substr(0, whole));
  *out++ = '.';
  return put(out, digits.substr(whole));
}

// `std::to_chars` finds the shortest digits; it is asked for its scientific form, whose parts are then laid out anew.
template <class Real>
char* writeReal(char* out, Real number) noexcept {
  if (std::isnan(number)) return put(out, "nan");
  if (std::signbit(number)) {
    *out++ = '-';
    number = -number;
  }
  if (std::isinf(number)) return put(out, "inf");
  if (constexpr Real kExactlyWhole = 1 << 24; number < kExactlyWhole) {
    if (const auto whole = static_cast<std::uint32_t>(number); static_cast<Real>(whole) == number) {
      return std::to_chars(out, out + kNumberTextSize, whole).ptr;
    }
  }
  char scientific[kNumberTextSize];
  const char* end =
      std::to_chars(scientific, scientific + sizeof scientific, number, std::chars_format::scientific).ptr;
  const char* mark = std::find(static_cast<const char*>(scientific), end, 'e');
  int exponent = 0;
  std::from_chars(mark[1] == '+' ? mark + 2 : mark + 1, end, exponent);
  if (exponent < kSmallestPlainExponent || exponent >= kFirstBigExponent) {
    return put(out, {scientific, static_cast<std::size_t>(end - scientific)});
  }
  char digits[kNumberTextSize];
  char* last = std::remove_copy(static_cast<const char*>(scientific), mark, digits, '.');
  return putPlain(out, {digits, static_cast<std::size_t>(last - digits)}, exponent);
}

}  // namespace

char* writeDouble(char* out, double number) noexcept {
  return writeReal(out, number);
}

char* writeFloat(char* out, float number) noexcept {
  return writeReal(out, number);
}

char* writeNumber(char* out, RawValue number) noexcept {
  switch (number.kind()) {
    case ValueKind::Signed:
      return std::to_chars(out, out + kNumberTextSize, number.payload.signedInteger).ptr;
    case ValueKind::Double:
      return writeDouble(out, number.payload.real);
    case ValueKind::Float:
      return writeFloat(out, number.single());
    default:
      return std::to_chars(out, out + kNumberTextSize, number.payload.unsignedInteger).ptr;
  }
}

namespace {

template <class Integer>
Integer clampedInteger(double number) noexcept {
  using Limits = std::numeric_limits<Integer>;
  if (std::isnan(number)) return 0;
  const double whole = std::trunc(number);
  // One above the largest: a power of two, so it is exact as a double, which the largest 64-bit integers are not.
  const double tooLarge = std::ldexp(1.0, Limits::digits);
  if (whole >= tooLarge) return Limits::max();
  if (whole < static_cast<double>(Limits::min())) return Limits::min();
  return static_cast<Integer>(whole);
}

}  // namespace

template <class Integer>
Integer numberAsInteger(RawValue number) noexcept {
  if (number.kind() == ValueKind::Double || number.kind() == ValueKind::Float) {
    return clampedInteger<Integer>(numberAsDouble(number));
  }
  return static_cast<Integer>(number.payload.unsignedInteger);
}

template std::int8_t numberAsInteger<std::int8_t>(RawValue) noexcept;
template std::uint8_t numberAsInteger<std::uint8_t>(RawValue) noexcept;
template std::int16_t numberAsInteger<std::int16_t>(RawValue) noexcept;
template std::uint16_t numberAsInteger<std::uint16_t>(RawValue) noexcept;
template std::int32_t numberAsInteger<std::int32_t>(RawValue) noexcept;
template std::uint32_t numberAsInteger<std::uint32_t>(RawValue) noexcept;
template std::int64_t numberAsInteger<std::int64_t>(RawValue) noexcept;
template std::uint64_t numberAsInteger<std::uint64_t>(RawValue) noexcept;

bool numberAsBool(RawValue number) noexcept {
  if (number.kind() == ValueKind::Double || number.kind() == ValueKind::Float) return numberAsDouble(number) != 0;
  return number.payload.unsignedInteger != 0;
}

namespace {

template <class Number>
NumberOrder ordered(Number left, Number right) noexcept {
  if (left < right) return NumberOrder::Less;
  return left > right ? NumberOrder::Greater : NumberOrder::Equal;
}

NumberOrder reversed(NumberOrder order) noexcept {
  if (order == NumberOrder::Less) return NumberOrder::Greater;
  return order == NumberOrder::Greater ? NumberOrder::Less : order;
}

// An integer as its sign and 64 bits, so that signed and unsigned ones compare.
struct WideInteger {
  bool negative;
  std::uint64_t bits;  // two's complement
};

WideInteger wide(RawValue number) noexcept {
  return {number.kind() == ValueKind::Signed && number.payload.signedInteger < 0, number.payload.unsignedInteger};
}

NumberOrder compareIntegers(WideInteger left, WideInteger right) noexcept {
  if (left.negative != right.negative) return left.negative ? NumberOrder::Less : NumberOrder::Greater;
  return ordered(left.bits, right.bits);
}

// Exact: the double is cut to a whole number, which then compares as an integer, and its fraction breaks the tie.
NumberOrder compareIntegerWithDouble(WideInteger left, double right) noexcept {
  constexpr double kTwoTo64 = 18446744073709551616.0;
  constexpr double kMinusTwoTo63 = -9223372036854775808.0;
  if (std::isnan(right)) return NumberOrder::Unordered;
  if (right >= kTwoTo64) return NumberOrder::Less;
  if (right < kMinusTwoTo63) return NumberOrder::Greater;
  const double whole = std::trunc(right);
  const WideInteger cut = whole < 0 ? WideInteger{true, static_cast<std::uint64_t>(static_cast<std::int64_t>(whole))}
                                    : WideInteger{false, static_cast<std::uint64_t>(whole)};
  const NumberOrder order = compareIntegers(left, cut);
  return order == NumberOrder::Equal ? ordered(0.0, right - whole) : order;
}

bool isReal(RawValue number) noexcept {
  return number.kind() == ValueKind::Double || number.kind() == ValueKind::Float;
}

}  // namespace

NumberOrder compareNumbers(RawValue left, RawValue right) noexcept {
  if (isReal(left) && isReal(right)) {
    const double leftReal = numberAsDouble(left);
    const double rightReal = numberAsDouble(right);
    if (std::isnan(leftReal) || std::isnan(rightReal)) return NumberOrder::Unordered;
    return ordered(leftReal, rightReal);
  }
  if (isReal(right)) return compareIntegerWithDouble(wide(left), numberAsDouble(right));
  if (isReal(left)) return reversed(compareIntegerWithDouble(wide(right), numberAsDouble(left)));
  return compareIntegers(wide(left), wide(right));
}

namespace {

// What equal numbers have in common: the bits of the integer that the number is, or of the double.
std::uint64_t commonBits(RawValue number) noexcept {
  if (!isReal(number)) return number.payload.unsignedInteger;
  const double real = numberAsDouble(number);
  const auto asSigned = clampedInteger<std::int64_t>(real);
  if (compareIntegerWithDouble({asSigned < 0, static_cast<std::uint64_t>(asSigned)}, real) == NumberOrder::Equal) {
    return static_cast<std::uint64_t>(asSigned);
  }
  const auto asUnsigned = clampedInteger<std::uint64_t>(real);
  if (compareIntegerWithDouble({false, asUnsigned}, real) == NumberOrder::Equal) return asUnsigned;
  return std::bit_cast<std::uint64_t>(real);
}

}  // namespace

std::size_t hashOfNumber(RawValue number) noexcept {
  return HashSeed::ofProcess().completed(commonBits(number), HashKind::Number, 0);
}

namespace {

constexpr bool isDigit(char letter) noexcept {
  return letter >= '0' && letter <= '9';
}

// A text's number: where its sign and its digits are.
struct NumberText {
  bool negative = false;
  std::string_view digits;  // from behind the sign to the end of the text
};

NumberText signedText(std::string_view text) noexcept {
  text = withoutLeadingWhiteSpace(text);
  NumberText result;
  if (!text.empty() && (text[0] == '-' || text[0] == '+')) {
    result.negative = text[0] == '-';
    text.remove_prefix(1);
  }
  result.digits = text;
  return result;
}

std::size_t digitsEnd(std::string_view text, std::size_t at) noexcept {
  while (at < text.size() && isDigit(text[at])) ++at;
  return at;
}

std::size_t zerosEnd(std::string_view text, std::size_t at) noexcept {
  while (at < text.size() && text[at] == '0') ++at;
  return at;
}

// The power of ten that an exponent's text begins with, as far as it matters.
std::int64_t exponentOf(std::string_view text) noexcept {
  constexpr std::int64_t kEnough = 1'000'000'000'000;
  const bool negative = text.starts_with('-');
  if (negative || text.starts_with('+')) text.remove_prefix(1);
  std::int64_t power = 0;
  for (std::size_t at = 0; at < text.size() && isDigit(text[at]) && power < kEnough; ++at) {
    power = power * 10 + (text[at] - '0');
  }
  return negative ? -power : power;
}

// Whether decimal digits that are out of a double's range are too large rather than too small.
bool isTooLarge(std::string_view digits) noexcept {
  const std::size_t firstDigit = zerosEnd(digits, 0);
  std::size_t at = digitsEnd(digits, firstDigit);
  // Decimal places before the point, or minus the zeros behind it.
  auto magnitude = static_cast<std::int64_t>(at - firstDigit);
  if (at < digits.size() && digits[at] == '.') {
    const std::size_t zeros = zerosEnd(digits, at + 1) - (at + 1);
    if (magnitude == 0) magnitude = -static_cast<std::int64_t>(zeros);
    at = digitsEnd(digits, at + 1);
  }
  if (at < digits.size() && (digits[at] == 'e' || digits[at] == 'E')) magnitude += exponentOf(digits.substr(at + 1));
  return magnitude > 0;
}

template <class Integer>
Integer textAsClampedInteger(std::string_view text) noexcept {
  const NumberText parts = signedText(text);
  const std::int64_t largest = std::numeric_limits<Integer>::max();
  std::int64_t number = 0;
  for (const char digit : parts.digits) {
    if (!isDigit(digit)) break;
    const int value = digit - '0';
    if (number > (largest - value) / 10) {
      return parts.negative ? std::numeric_limits<Integer>::min() : std::numeric_limits<Integer>::max();
    }
    number = number * 10 + value;
  }
  return static_cast<Integer>(parts.negative ? -number : number);
}

}  // namespace

double textAsDouble(std::string_view text) noexcept {
  const NumberText parts = signedText(text);
  const std::string_view digits = parts.digits;
  const bool starts =
      !digits.empty() && (isDigit(digits[0]) || (digits[0] == '.' && digits.size() > 1 && isDigit(digits[1])));
  if (!starts) return 0;
  double number = 0;
  const auto result = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  if (result.ec == std::errc::result_out_of_range) {
    number = isTooLarge(digits) ? std::numeric_limits<double>::infinity() : 0;
  }
  return parts.negative ? -number : number;
}

std::int64_t textAsInteger(std::string_view text) noexcept {
  return textAsClampedInteger<std::int64_t>(text);
}

std::int32_t textAsInt(std::string_view text) noexcept {
  return textAsClampedInteger<std::int32_t>(text);
}

bool textAsBool(std::string_view text) noexcept {
  std::string_view rest = signedText(text).digits;
  while (!rest.empty() && rest[0] == '0') rest.remove_prefix(1);
  return !rest.empty() && std::string_view("YyTt123456789").find(rest[0]) != std::string_view::npos;
}

}  // namespace tavlo
