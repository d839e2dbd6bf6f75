#pragma once

#include <bit>
#include <concepts>
#include <cstdint>
#include <type_traits>

#include "Foundation/NSNumber.h"
#include "Foundation/RawValue.h"

namespace tavlo {

// An enumeration of no fixed type, which not every number of its underlying type is a value of.
template <class T>
concept UnfixedEnum = std::is_enum_v<T> && !requires {
  T{std::underlying_type_t<T>{}};
};

// A number of any type, an enumeration's too, as the 64 bits that an argument buffer holds, and back: a narrower
// integer has the low ones.
template <class T>
std::uint64_t bitsOfNumber(T number) noexcept {
  if constexpr (std::same_as<T, double>) {
    return std::bit_cast<std::uint64_t>(number);
  } else if constexpr (std::same_as<T, float>) {
    return std::bit_cast<std::uint32_t>(number);
  } else {
    return static_cast<std::uint64_t>(number);
  }
}
template <class T>
T numberOfBits(std::uint64_t bits) noexcept {
  if constexpr (std::is_enum_v<T>) {
    return static_cast<T>(numberOfBits<std::underlying_type_t<T>>(bits));
  } else if constexpr (std::same_as<T, double>) {
    return std::bit_cast<double>(bits);
  } else if constexpr (std::same_as<T, float>) {
    return std::bit_cast<float>(static_cast<std::uint32_t>(bits));
  } else if constexpr (std::same_as<T, bool>) {
    return static_cast<std::uint8_t>(bits) != 0;
  } else {
    return static_cast<T>(bits);
  }
}

// The integer type of fixed size that has the values of T.
template <std::integral T,
          class Signed =
              std::conditional_t<sizeof(T) == 1, std::int8_t,
                                 std::conditional_t<sizeof(T) == 2, std::int16_t,
                                                    std::conditional_t<sizeof(T) == 4, std::int32_t, std::int64_t>>>>
using FixedInteger = std::conditional_t<std::is_signed_v<T>, Signed, std::make_unsigned_t<Signed>>;

// The kind of the numbers of a value that are in such a buffer as they are in the value.
template <class T>
constexpr ValueKind sameKindOfNumber() noexcept {
  if constexpr (std::same_as<T, double>) return ValueKind::Double;
  if constexpr (std::same_as<T, float>) return ValueKind::Float;
  return std::is_signed_v<T> ? ValueKind::Signed : ValueKind::Unsigned;
}

// A value's number, which is narrowed to the type, as those bits.
template <class T>
std::uint64_t bitsOfNumberIn(RawValue number) noexcept {
  if (number.kind() == sameKindOfNumber<T>()) return number.payload.unsignedInteger;
  if constexpr (std::integral<T>) {
    const bool isReal = number.kind() == ValueKind::Double || number.kind() == ValueKind::Float;
    if (!isReal) return number.payload.unsignedInteger;  // the method takes the low ones
    return bitsOfNumber(static_cast<T>(numberAsInteger<FixedInteger<T>>(number)));
  } else if (number.kind() == ValueKind::Signed) {  // rounded once
    return bitsOfNumber(static_cast<T>(number.payload.signedInteger));
  } else if (number.kind() == ValueKind::Unsigned) {
    return bitsOfNumber(static_cast<T>(number.payload.unsignedInteger));
  } else {
    return bitsOfNumber(static_cast<T>(numberAsDouble(number)));
  }
}

}  // namespace tavlo
