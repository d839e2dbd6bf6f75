#pragma once

#include <concepts>
#include <type_traits>
#include <utility>

#include "Foundation/Value.h"

namespace tavlo {

// How a type of C++ turns into a value, and back. A specialisation has what the type can do of
//
//   static Value toValue(const T& object);                  // also T&& where moving is cheaper
//   static std::optional<Held> fromValue(const Value& value);  // nothing for a value that is no such object
//   static constexpr const char* kTypeName = "double";      // as messages name the type: "Incorrect type for double
//   ..." static constexpr const char* kExpected = "NSNumber";    // as messages name what it takes: "... NSNumber
//   expected."
//
// where `Held` is what keeps the converted object, and converts to the parameter's type, for the time of a call.
template <class T>
struct ValueConversion;

// What is a value as it stands: booleans, numbers, texts, objects and values themselves.
template <class T>
requires std::constructible_from<Value, const T&>
struct ValueConversion<T> {
  static Value toValue(const T& object) { return Value(object); }
};

template <class T>
concept ConvertibleToValue = requires(T&& object) {
  { ValueConversion<std::remove_cvref_t<T>>::toValue(std::forward<T>(object)) } -> std::convertible_to<Value>;
};

// The value that stands for the object. Raises what converting it raises, `NSInvalidArgumentException` for text that is
// not UTF-8 among them.
template <ConvertibleToValue T>
Value valueOf(T&& object) {
  return ValueConversion<std::remove_cvref_t<T>>::toValue(std::forward<T>(object));
}

}  // namespace tavlo
