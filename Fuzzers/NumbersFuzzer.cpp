#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <string_view>

#include "Foundation/NSNumber.h"
#include "Foundation/Utf8.h"
#include "Foundation/Value.h"
#include "Fuzzers/Checks.h"

// Numbers as text and back. An input is read as a text, and its first bytes as two numbers.

namespace tavlo::fuzz {

namespace {

bool isDigit(char character) {
  return character >= '0' && character <= '9';
}

std::size_t digitsFrom(std::string_view text, std::size_t at) {
  std::size_t end = at;
  while (end < text.size() && isDigit(text[end])) ++end;
  return end - at;
}

// How many characters of a text are a decimal number, with a point and an exponent where those may be.
std::size_t numberLength(std::string_view text, bool isReal) {
  std::size_t at = !text.empty() && (text[0] == '+' || text[0] == '-') ? 1 : 0;
  std::size_t digits = digitsFrom(text, at);
  at += digits;
  if (isReal && at < text.size() && text[at] == '.') {
    const std::size_t fraction = digitsFrom(text, at + 1);
    digits += fraction;
    if (digits > 0) at += 1 + fraction;
  }
  if (digits == 0) return 0;
  if (!isReal || at == text.size() || (text[at] != 'e' && text[at] != 'E')) return at;
  const bool isSigned = at + 1 < text.size() && (text[at + 1] == '+' || text[at + 1] == '-');
  const std::size_t exponent = digitsFrom(text, at + (isSigned ? 2 : 1));
  return exponent == 0 ? at : at + (isSigned ? 2 : 1) + exponent;
}

template <class Integer>
Integer plainInteger(const std::string& number) {
  const bool hasPlus = number.starts_with('+');
  const char* const end = number.data() + number.size();
  Integer result = 0;
  const std::from_chars_result answer = std::from_chars(number.data() + (hasPlus ? 1 : 0), end, result);
  if (answer.ec != std::errc::result_out_of_range) return result;
  return number.starts_with('-') ? std::numeric_limits<Integer>::min() : std::numeric_limits<Integer>::max();
}

bool isSame(double left, double right) {
  return std::bit_cast<std::uint64_t>(left) == std::bit_cast<std::uint64_t>(right);
}

void checkText(const std::string& text) {
  const std::string trimmed(withoutLeadingWhiteSpace(text));
  const std::string real = trimmed.substr(0, numberLength(trimmed, true));
  const double expected = real.empty() ? 0.0 : std::strtod(real.c_str(), nullptr);
  require(isSame(textAsDouble(text), expected), "A text is read as the C library reads it: " + real);
  const std::string whole = trimmed.substr(0, numberLength(trimmed, false));
  require(textAsInteger(text) == plainInteger<std::int64_t>(whole), "A text is read as an integer: " + whole);
  require(textAsInt(text) == plainInteger<std::int32_t>(whole), "A text is read as a small integer: " + whole);
  (void)textAsBool(text);
  const Value value(text);
  require(isSame(value.doubleValue(), expected), "A string is read as its text");
}

std::string textOf(double number) {
  std::array<char, kNumberTextSize> text{};
  return {text.data(), writeDouble(text.data(), number)};
}

std::string textOf(float number) {
  std::array<char, kNumberTextSize> text{};
  return {text.data(), writeFloat(text.data(), number)};
}

// The digits of a text that count, without point, exponent and zeros at either end.
std::string digitsOf(std::string_view text) {
  std::string digits;
  for (const char character : text.substr(0, text.find('e'))) {
    if (isDigit(character) && (character != '0' || !digits.empty())) digits += character;
  }
  digits.resize(digits.find_last_not_of('0') + 1);
  return digits;
}

template <class Real>
void checkReal(Real number) {
  const std::string text = textOf(number);
  require(text.size() <= kNumberTextSize, "A number's text fits");
  if (std::isnan(number)) return requireEqual(text, "nan", "What is no number says so");
  if (std::isinf(number)) return requireEqual(text, number < 0 ? "-inf" : "inf", "Infinity says so");
  std::array<char, 64> shortest{};
  const char* const end =
      std::to_chars(shortest.data(), shortest.data() + shortest.size(), number, std::chars_format::scientific).ptr;
  const std::string plain(static_cast<const char*>(shortest.data()), end);
  requireEqual(digitsOf(text), digitsOf(plain), "The digits are the shortest ones");
  const double again = textAsDouble(text);
  require(isSame(static_cast<double>(static_cast<Real>(again)), static_cast<double>(number)), "It reads back: " + text);
  const int exponent = number == 0 ? 0 : std::atoi(plain.c_str() + plain.find('e') + 1);
  const bool isPlain = text.find('e') == std::string::npos;
  require(isPlain == (exponent >= -4 && exponent < 17), "An exponent stands where it should: " + text);
  requireEqual(Value(number).description(), text, "A value has its number's text");
}

template <class Integer>
Integer cut(double number) {
  if (std::isnan(number)) return 0;
  if (number <= static_cast<double>(std::numeric_limits<Integer>::min())) return std::numeric_limits<Integer>::min();
  // The largest 64-bit integers are no doubles: the next double is one too large.
  if (number >= std::ldexp(1.0, std::numeric_limits<Integer>::digits)) return std::numeric_limits<Integer>::max();
  return static_cast<Integer>(number);
}

template <class Integer>
void checkNarrowing(std::uint64_t bits, double number) {
  require(numberAsInteger<Integer>(Value(bits).peek()) == static_cast<Integer>(bits), "An integer keeps its low bits");
  require(numberAsInteger<Integer>(Value(number).peek()) == cut<Integer>(number), "A double is cut and clamped");
}

// The order of two numbers, by a type that holds all of them.
NumberOrder plainOrder(const Value& left, const Value& right) {
  const auto wide = [](const Value& value) -> long double {
    if (value.kind() == ValueKind::Signed) return static_cast<long double>(value.peek().payload.signedInteger);
    if (value.kind() == ValueKind::Unsigned) return static_cast<long double>(value.peek().payload.unsignedInteger);
    return static_cast<long double>(value.doubleValue());
  };
  const long double one = wide(left);
  const long double other = wide(right);
  if (std::isnan(one) || std::isnan(other)) return NumberOrder::Unordered;
  return one < other ? NumberOrder::Less : one > other ? NumberOrder::Greater : NumberOrder::Equal;
}

void checkPair(std::uint64_t left, std::uint64_t right) {
  const auto single = static_cast<std::uint32_t>(right);
  const Value values[] = {static_cast<std::int64_t>(left),  right,
                          std::bit_cast<double>(left),      std::bit_cast<float>(single),
                          static_cast<std::int64_t>(right), static_cast<double>(static_cast<std::int64_t>(left))};
  for (const Value& one : values) {
    for (const Value& other : values) {
      const NumberOrder order = plainOrder(one, other);
      require(compareNumbers(one.peek(), other.peek()) == order, "Numbers compare by what they stand for");
      require(one.isEqual(other) == (order == NumberOrder::Equal), "Equality is that of the numbers");
      require(order != NumberOrder::Equal || one.hash() == other.hash(), "Equal numbers have one hash");
    }
  }
}

void run(const std::string& input) {
  if (!firstInvalidByte(input).has_value()) checkText(input);
  std::array<std::uint64_t, 2> bits{};
  std::memcpy(bits.data(), input.data(), std::min(input.size(), sizeof bits));
  const auto number = std::bit_cast<double>(bits[0]);
  checkReal(number);
  checkReal(std::bit_cast<float>(static_cast<std::uint32_t>(bits[0])));
  for (const double real : {number, static_cast<double>(static_cast<std::int64_t>(bits[0]))}) {
    checkNarrowing<std::int8_t>(bits[0], real);
    checkNarrowing<std::uint8_t>(bits[0], real);
    checkNarrowing<std::int16_t>(bits[0], real);
    checkNarrowing<std::uint16_t>(bits[0], real);
    checkNarrowing<std::int32_t>(bits[0], real);
    checkNarrowing<std::uint32_t>(bits[0], real);
    checkNarrowing<std::int64_t>(bits[0], real);
    checkNarrowing<std::uint64_t>(bits[0], real);
  }
  requireEqual(Value(bits[0]).description(), std::to_string(bits[0]), "An integer's text is its digits");
  const auto negative = static_cast<std::int64_t>(bits[0]);
  requireEqual(Value(negative).description(), std::to_string(negative), "An integer's text is its digits");
  checkPair(bits[0], bits[1]);
}

}  // namespace

}  // namespace tavlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tavlo::fuzz::run(std::string(reinterpret_cast<const char*>(data), size));
  return 0;
}
