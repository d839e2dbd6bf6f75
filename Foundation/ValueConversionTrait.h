#pragma once

#include <array>
#include <chrono>
#include <concepts>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <ranges>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <variant>

#include "Foundation/Described.h"
#include "Foundation/HeldParts.h"
#include "Foundation/KeptWith.h"
#include "Foundation/NSException.h"
#include "Foundation/Value.h"
#include "Foundation/WorkMeter.h"

namespace tavlo {

// How a type of C++ turns into a value, and back. A specialisation has what the type can do of
//
//   static Value toValue(const T& object);  // also T&& where moving is cheaper
//   static std::optional<Held> fromValue(const Value& value);  // nothing for a value that is no such object
//   static constexpr const char* kTypeName = "double";
//   static constexpr const char* kExpected = "NSNumber";
//
// where `Held` is what keeps the converted object, and converts to the parameter's type, for the time of a call. What
// it refers to belongs to the value. The two constants are how messages name the type and what it takes: "Incorrect
// type for double: ... NSNumber expected." In place of them there may be functions, `static std::string typeName()` and
// `expected()`.
//
// Foundation/ValueConversion.h has the specialisations for numbers and texts, containers, enumerations, times and the
// classes that the host has described. A host adds its own beside its types.
template <class T>
struct ValueConversion;

template <class T>
concept ConvertibleToValue = requires(T&& object) {
  { ValueConversion<std::remove_cvref_t<T>>::toValue(std::forward<T>(object)) } -> std::convertible_to<Value>;
};

template <class T>
concept ConvertibleFromValue = requires(const Value& value) {
  { ValueConversion<T>::fromValue(value).has_value() } -> std::convertible_to<bool>;
};

// The type whose conversion makes a parameter: an object of the host's that the parameter does not change may be a
// constant one.
template <class Parameter>
using ConvertedFor = std::conditional_t<Described<std::remove_cvref_t<Parameter>> &&
                                            !(std::is_lvalue_reference_v<Parameter> &&
                                              !std::is_const_v<std::remove_reference_t<Parameter>>),
                                        const std::remove_cvref_t<Parameter>, std::remove_cvref_t<Parameter>>;

// What keeps the converted object.
template <ConvertibleFromValue T>
using HeldFromValue = typename decltype(ValueConversion<T>::fromValue(std::declval<const Value&>()))::value_type;

// What may be a part of something else, or outlive the call: the object itself, or a copy of the host's.
template <class T>
concept WholeFromValue = ConvertibleFromValue<T> &&
    (std::same_as<HeldFromValue<T>, T> ||
     (std::same_as<HeldFromValue<T>, std::reference_wrapper<T>> && std::copy_constructible<T>));

// Whether the type is one that a host converts itself.
template <class T>
consteval bool isConvertedByHost();

// The value that stands for the object; absent for an absent `Value` or `Ref`. Raises what converting it raises,
// `NSInvalidArgumentException` for text that is not UTF-8 among them.
template <ConvertibleToValue T>
Value valueOf(T&& object) {
  using Plain = std::remove_cvref_t<T>;
  if constexpr (isConvertedByHost<Plain>()) {
    lookBeforeHost();
    const KeptWith host(nullptr);  // keeps what the conversion refers to
    return ValueConversion<Plain>::toValue(std::forward<T>(object));
  } else {
    return ValueConversion<Plain>::toValue(std::forward<T>(object));
  }
}

// The same with the null object in place of an absent value, as a list or a function's result has it.
template <ConvertibleToValue T>
Value presentValueOf(T&& object) {
  Value value = valueOf(std::forward<T>(object));
  if (value.isAbsent()) return Value::null();
  return value;
}

// The type's name, and that of what it takes, as messages have them.
template <ConvertibleFromValue T>
std::string convertedTypeName() {
  if constexpr (requires { ValueConversion<T>::typeName(); }) {
    return ValueConversion<T>::typeName();
  } else {
    return ValueConversion<T>::kTypeName;
  }
}
template <ConvertibleFromValue T>
std::string expectedClassName() requires(
    requires { ValueConversion<T>::expected(); } || requires { ValueConversion<T>::kExpected; }) {
  if constexpr (requires { ValueConversion<T>::expected(); }) {
    return ValueConversion<T>::expected();
  } else {
    return ValueConversion<T>::kExpected;
  }
}

// The same for a value that it does not take: "Changeable Product" for a constant object.
template <ConvertibleFromValue T>
std::string expectedClassNameFor([[maybe_unused]] const Value& value) requires requires {
  expectedClassName<T>();
}
{
  using Object = std::remove_pointer_t<T>;
  if constexpr (Described<Object> && !std::is_const_v<Object>) {
    if (hostObject<const Object>(value) != nullptr) return "Changeable " + expectedClassName<T>();
  }
  return expectedClassName<T>();
}

// Classes of the standard library that refer to what their parts refer to, and to nothing else.
template <class T>
inline constexpr bool kIsKnownWhole = false;
template <class First, class Second>
inline constexpr bool kIsKnownWhole<std::pair<First, Second>> = true;
template <class... Parts>
inline constexpr bool kIsKnownWhole<std::tuple<Parts...>> = true;
template <class... Alternatives>
inline constexpr bool kIsKnownWhole<std::variant<Alternatives...>> = true;
template <class T>
inline constexpr bool kIsKnownWhole<std::optional<T>> = true;
template <class T>
inline constexpr bool kIsKnownWhole<std::shared_ptr<T>> = true;
template <class T, class Deleter>
inline constexpr bool kIsKnownWhole<std::unique_ptr<T, Deleter>> = true;
template <class Units, class Period>
inline constexpr bool kIsKnownWhole<std::chrono::duration<Units, Period>> = true;
template <class Clock, class Duration>
inline constexpr bool kIsKnownWhole<std::chrono::time_point<Clock, Duration>> = true;
template <class Letter, class Traits, class Allocator>
inline constexpr bool kIsKnownWhole<std::basic_string<Letter, Traits, Allocator>> = true;

// Owns what it holds.
template <class T>
concept HasAllocator = requires {
  typename T::allocator_type;
};

// Neither a host's object nor a value.
template <class T>
inline constexpr bool kIsPlainClass = std::is_class_v<T> && !Described<T> && !std::is_base_of_v<NSObject, T>;

// A class that a host converts itself, or a text or a list of its own: nobody knows whether it refers to what it was
// made of.
template <class T>
inline constexpr bool kIsOwnList = kIsPlainClass<T>&& std::ranges::range<T> && !HasAllocator<T>;
template <class T>
inline constexpr bool kIsOwnClass = kIsOwnList<T> ||
                                    (kIsPlainClass<T> && !std::is_empty_v<T> &&
                                     (TextLike<T> ||
                                      !std::is_constructible_v<Value, std::add_lvalue_reference_t<const T>>));
template <class T>
inline constexpr bool kIsOwnWhole =
    kIsOwnClass<T> && !kIsKnownWhole<T> && (!std::ranges::range<T> || TextLike<T> || kIsOwnList<T>);

template <class T>
inline constexpr bool kIsReferenceWrapper = false;
template <class T>
inline constexpr bool kIsReferenceWrapper<std::reference_wrapper<T>> = true;

template <class T>
consteval bool isConvertedByHost() {
  constexpr bool kIsPlain =
      (std::is_class_v<T> || std::is_union_v<T>)&&!Described<T> && !std::is_base_of_v<NSObject, T>;
  if constexpr (kIsPlain && !kIsKnownWhole<T> && !kIsReferenceWrapper<T>) {
    return TextLike<T> || (!std::ranges::range<T> && !std::is_constructible_v<Value, const T&>);
  } else {
    return false;
  }
}

// Whether an object of the type refers to the values that it was made of, so that they have to live as long: it does so
// itself, or what it holds does. Types may be lists of themselves, so it looks into so many lists, and into all
// arguments of templates. `Own`: or is a host's own, and may do so.
template <class T, int Levels, bool Own>
constexpr bool holdsWhatRefersToValues();
template <class T, int Levels, bool Own>
struct RefersToValues : std::bool_constant<std::is_pointer_v<T> || std::ranges::view<T> ||
                                           holdsWhatRefersToValues<T, Levels, Own>() || (Own && kIsOwnClass<T>)> {};
template <class T, int Levels, bool Own>
requires(!std::same_as<T, std::remove_cvref_t<T>>) struct RefersToValues<T, Levels, Own>
    : RefersToValues<std::remove_cvref_t<T>, Levels, Own> {
};
template <class T, int Levels, bool Own>
struct RefersToValues<std::reference_wrapper<T>, Levels, Own> : std::true_type {};
template <class T, int Levels, bool Own>
struct RefersToValues<Ref<T>, Levels, Own> : std::false_type {};
template <class T, std::size_t Count, int Levels, bool Own>
struct RefersToValues<std::array<T, Count>, Levels, Own> : RefersToValues<T, Levels, Own> {};
template <template <class...> class Whole, class... Parts, int Levels, bool Own>
struct RefersToValues<Whole<Parts...>, Levels, Own>
    : std::bool_constant<std::ranges::view<Whole<Parts...>> ||
                         holdsWhatRefersToValues<Whole<Parts...>, Levels, Own>() ||
                         (Own && kIsOwnWhole<Whole<Parts...>>) ||
                         ((std::is_reference_v<Parts> || RefersToValues<Parts, Levels, Own>::value) || ...)> {};

template <class T, int Levels, bool Own>
constexpr bool holdsWhatRefersToValues() {
  if constexpr (Levels > 0 && std::ranges::range<T>) {
    return RefersToValues<std::ranges::range_value_t<T>, Levels - 1, Own>::value;
  } else {
    return false;
  }
}

template <class T>
inline constexpr bool kRefersToValues = RefersToValues<T, 4, false>::value;
template <class T>
inline constexpr bool kMayReferToValues = RefersToValues<T, 4, true>::value;

// The same of a container, whose parts may go while the object is in use.
template <class T>
inline constexpr bool kMayReferToParts = kMayReferToValues<T> && !std::is_pointer_v<T> && !TextLike<T>;

// What keeps the parts that arguments of such types refer to.
template <class... Types>
using PartsFor = std::conditional_t<(kMayReferToParts<Types> || ...), HeldParts, NoParts>;

// Converts an argument, whose parts are kept with it.
template <class T, class Parts>
auto argumentFrom(const Value& value, [[maybe_unused]] Parts& parts) {
  if constexpr (isConvertedByHost<std::remove_const_t<T>>()) lookBeforeHost();
  if constexpr (kMayReferToParts<T>) {
    const HeldParts::Collecting collecting(parts);
    return ValueConversion<T>::fromValue(value);
  } else {
    return ValueConversion<T>::fromValue(value);
  }
}

// The object that the value stands for; nothing for a value that is no such object. A view, and a pointer to an object
// of the host's, are good for as long as the value lives.
template <WholeFromValue T>
std::optional<T> objectIn(const Value& value) {
  if constexpr (isConvertedByHost<T>()) lookBeforeHost();
  auto held = ValueConversion<ConvertedFor<T>>::fromValue(value);
  if (!held.has_value()) return {};
  return std::optional<T>(static_cast<T>(std::move(*held)));
}

// The same, raising `NSInvalidArgumentException` that names both classes for every other value.
template <WholeFromValue T>
T objectOf(const Value& value) {
  std::optional<T> object = objectIn<T>(value);
  if (!object.has_value()) {
    NSException::raise(NSInvalidArgumentException, "Incorrect type for %@: %@ supplied, %@ expected.",
                       convertedTypeName<T>(), value.className(), expectedClassName<T>());
  }
  return *std::move(object);
}

}  // namespace tavlo
