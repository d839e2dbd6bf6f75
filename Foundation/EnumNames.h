#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

#include "Foundation/NumberBits.h"
#include "Foundation/Value.h"
#include "Foundation/ValueConversion+Scalars.h"
#include "Foundation/ValueConversionTrait.h"

namespace tavlo {

// An enumeration that templates see by names is listed beside itself, in its namespace:
//
//   constexpr auto describeEnum(Status) {
//     return tavlo::enumNames<Status>({{Status::Draft, "draft"}, {Status::Sent, "sent"}});
//   }
//
// Of two names for one enumerator the first is written, and both are read. An enumeration that is not listed is its
// underlying number, and read where it has a fixed type: as an `enum class`, or `enum Status : int`.
template <class Enum>
struct EnumName {
  Enum value;
  std::string_view name;
};

template <class Enum, std::size_t Count>
constexpr std::array<EnumName<Enum>, Count> enumNames(const EnumName<Enum> (&names)[Count]) {
  return std::to_array(names);
}

template <class T>
concept NamedEnum = std::is_enum_v<T> && requires(T value) {
  describeEnum(value).begin()->name;
};

// By names. A value without a name becomes its underlying number; only names are read.
template <NamedEnum T>
struct ValueConversion<T> {
  static constexpr const char* kTypeName = "enumeration";
  // "NSString (draft, sent)"
  static std::string expected() {
    std::string text = "NSString";
    const char* separator = " (";
    for (const EnumName<T>& row : describeEnum(T())) {
      text.append(separator).append(row.name);
      separator = ", ";
    }
    return text + ")";
  }

  static Value toValue(T object) {
    for (const EnumName<T>& row : describeEnum(object)) {
      if (row.value == object) return Value(row.name);
    }
    return valueOf(static_cast<std::underlying_type_t<T>>(object));
  }
  static std::optional<T> fromValue(const Value& value) {
    const std::optional<std::string_view> text = textIn(value);
    if (!text.has_value()) return {};
    for (const EnumName<T>& row : describeEnum(T())) {
      if (row.name == *text) return row.value;
    }
    return {};
  }
};

// By the underlying number.
template <class T>
requires(std::is_enum_v<T> && !NamedEnum<T>) struct ValueConversion<T> {
  using Number = std::underlying_type_t<T>;
  static constexpr const char* kTypeName = "enumeration";
  static constexpr const char* kExpected = "NSNumber";

  static Value toValue(T object) { return valueOf(static_cast<Number>(object)); }
  static std::optional<T> fromValue(const Value& value) requires(!UnfixedEnum<T>) {
    const std::optional<Number> number = objectIn<Number>(value);
    if (!number.has_value()) return {};
    return static_cast<T>(*number);
  }
};

}  // namespace tavlo
