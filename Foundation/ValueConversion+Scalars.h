#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <ranges>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>

#include "Foundation/Described.h"
#include "Foundation/NSException.h"
#include "Foundation/NSKeyValueCoding.h"
#include "Foundation/NSNumber.h"
#include "Foundation/NSString.h"
#include "Foundation/Value.h"
#include "Foundation/ValueConversionTrait.h"
#include "Foundation/WorkMeter.h"

namespace tavlo {

class NSArray;
class NSDate;
class NSDictionary;
class NSMutableArray;
class NSMutableDictionary;
class NSSet;

// Whether the value is nothing to a program: null or absent.
inline bool isNothing(const Value& value) noexcept {
  return value.isNull() || value.isAbsent();
}

// Numbers

// The type's name as messages have it. A plain char is a small number like any other.
template <class T>
consteval const char* numberTypeName() {
  struct Row {
    bool isType;
    const char* name;
  };
  constexpr Row kRows[] = {
      {std::same_as<T, bool>, "bool"},
      {std::same_as<T, char> || std::same_as<T, signed char>, "char"},
      {std::same_as<T, unsigned char>, "unsigned char"},
      {std::same_as<T, char8_t>, "char8_t"},
      {std::same_as<T, char16_t>, "char16_t"},
      {std::same_as<T, char32_t>, "char32_t"},
      {std::same_as<T, wchar_t>, "wchar_t"},
      {std::same_as<T, short>, "short"},
      {std::same_as<T, unsigned short>, "unsigned short"},
      {std::same_as<T, int>, "int"},
      {std::same_as<T, unsigned>, "unsigned int"},
      {std::same_as<T, long>, "long"},
      {std::same_as<T, unsigned long>, "unsigned long"},
      {std::same_as<T, long long>, "long long"},
      {std::same_as<T, unsigned long long>, "unsigned long long"},
      {std::same_as<T, float>, "float"},
      {std::same_as<T, double>, "double"},
      {std::same_as<T, long double>, "long double"},
  };
  for (const Row& row : kRows) {
    if (row.isType) return row.name;
  }
  return "number";
}

// The integer type of fixed size that stands for T.
template <std::integral T>
using SizedInteger = std::conditional_t<
    sizeof(T) == 1, std::conditional_t<std::is_signed_v<T>, std::int8_t, std::uint8_t>,
    std::conditional_t<
        sizeof(T) == 2, std::conditional_t<std::is_signed_v<T>, std::int16_t, std::uint16_t>,
        std::conditional_t<sizeof(T) == 4, std::conditional_t<std::is_signed_v<T>, std::int32_t, std::uint32_t>,
                           std::conditional_t<std::is_signed_v<T>, std::int64_t, std::uint64_t>>>>;

// A number in the type: an integer keeps its low bits, a double is cut toward zero and clamped to the type's range,
// not-a-number is 0. A truth is whether the number is other than zero.
template <class T>
requires std::is_arithmetic_v<T> T numberAs(RawValue number)
noexcept {
  if constexpr (std::same_as<T, bool>) {
    return numberAsBool(number);
  } else if constexpr (std::floating_point<T>) {
    return static_cast<T>(numberAsDouble(number));
  } else {
    const bool isReal = number.kind() == ValueKind::Double || number.kind() == ValueKind::Float;
    if (!isReal) return static_cast<T>(number.payload.unsignedInteger);
    return static_cast<T>(numberAsInteger<SizedInteger<T>>(number));
  }
}

// Every number, narrowed where it must be; null is 0.
template <class T>
requires std::is_arithmetic_v<T>
struct ValueConversion<T> {
  static constexpr const char* kTypeName = numberTypeName<T>();
  static constexpr const char* kExpected = "NSNumber";

  static Value toValue(T number) noexcept {
    if constexpr (std::same_as<T, long double>) {
      return Value(static_cast<double>(number));
    } else {
      return Value(number);
    }
  }
  static std::optional<T> fromValue(const Value& value) noexcept {
    const RawValue raw = value.peek();
    if (raw.isNumber()) [[likely]]
      return numberAs<T>(raw);
    if (isNothing(value)) return T();
    return {};
  }
};

// Texts

// Text of that kind of characters.
template <class T, class Character>
concept TextOf = std::convertible_to<const T&, std::basic_string_view<Character>> && !std::is_null_pointer_v<T>;
template <class T>
concept ByteTextLike = TextOf<T, char8_t>;
template <class T>
concept WideTextLike = TextOf<T, char16_t>;
template <class T>
concept AnyText = TextLike<T> || ByteTextLike<T> || WideTextLike<T> || TextOf<T, char32_t> || TextOf<T, wchar_t>;

// Whether a text is a null pointer, which no view can be made of.
template <class T>
constexpr bool isNullText([[maybe_unused]] const T& text) noexcept {
  if constexpr (std::is_pointer_v<T>) return text == nullptr;
  return false;
}

// That of a key in a host's container; raises `NSInvalidArgumentException` for a null pointer.
template <TextLike Key>
std::string_view textOfKey(const Key& key) {
  if (isNullText(key)) NSException::raise(NSInvalidArgumentException, "A dictionary's key cannot be absent");
  return std::string_view(key);
}

// The text that the value is; nothing for every other value.
inline std::optional<std::string_view> textIn(const Value& value) noexcept {
  const NSString* const string = value.string();
  if (string == nullptr) return {};
  return string->view();
}

// The valid text in UTF-16.
std::u16string utf16Of(std::string_view text);

// Strings only. A view, and the characters behind a pointer, are the value's own. A null pointer is null.
template <TextLike T>
requires(!Described<T>) struct ValueConversion<T> {
  static constexpr bool kIsPointer = std::is_pointer_v<T>;
  static constexpr const char* kTypeName = "string";
  static constexpr const char* kExpected = kIsPointer ? "NSString without null characters" : "NSString";

  static Value toValue(const T& text) {
    if (isNullText(text)) return Value::null();
    const std::string_view view = text;
    countWorkOnText(view.size());
    return Value(view);
  }
  static std::optional<T> fromValue(const Value& value) requires std::constructible_from<T, std::string_view> {
    const std::optional<std::string_view> text = textIn(value);
    if (!text.has_value()) return {};
    if constexpr (!std::ranges::view<T>) countWorkOnText(text->size());
    return std::optional<T>(T(*text));
  }
  // A text with a null character inside would end there, and is refused.
  static std::optional<const char*> fromValue(const Value& value) requires std::same_as<T, const char*> {
    const std::optional<std::string_view> text = textIn(value);
    if (!text.has_value()) return {};
    countWorkOnText(text->size());
    if (text->find('\0') != std::string_view::npos) return {};
    return text->data();
  }
};

template <ByteTextLike T>
requires(!Described<T> && !TextLike<T>) struct ValueConversion<T> {
  static constexpr const char* kTypeName = "string";
  static constexpr const char* kExpected = "NSString";

  static Value toValue(const T& text) {
    if (isNullText(text)) return Value::null();
    const std::u8string_view view = text;
    countWorkOnText(view.size());
    return Value(std::string_view(reinterpret_cast<const char*>(view.data()), view.size()));
  }
  static std::optional<std::u8string> fromValue(const Value& value) requires std::same_as<T, std::u8string> {
    const std::optional<std::string_view> text = textIn(value);
    if (!text.has_value()) return {};
    countWorkOnText(text->size());
    return std::u8string(text->begin(), text->end());
  }
};

// Raises `NSInvalidArgumentException` that names the unit for a lone surrogate.
template <WideTextLike T>
requires(!Described<T> && !TextLike<T>) struct ValueConversion<T> {
  static constexpr const char* kTypeName = "string";
  static constexpr const char* kExpected = "NSString";

  static Value toValue(const T& text) {
    if (isNullText(text)) return Value::null();
    const std::u16string_view view = text;
    countWorkOnText(view.size());
    return NSString::stringWithUTF16(view);
  }
  static std::optional<std::u16string> fromValue(const Value& value) requires std::same_as<T, std::u16string> {
    const std::optional<std::string_view> text = textIn(value);
    if (!text.has_value()) return {};
    countWorkOnText(text->size());
    return utf16Of(*text);
  }
};

// Nothing

template <class T>
requires(std::is_null_pointer_v<T> || std::same_as<T, std::monostate>) struct ValueConversion<T> {
  static constexpr const char* kTypeName = "null";
  static constexpr const char* kExpected = "null";

  static Value toValue(T /*nothing*/) noexcept { return Value::null(); }
  static std::optional<T> fromValue(const Value& value) noexcept {
    if (!isNothing(value)) return {};
    return std::optional<T>(std::in_place);
  }
};

template <>
struct ValueConversion<std::nullopt_t> {
  static Value toValue(std::nullopt_t /*nothing*/) noexcept { return Value::null(); }
};

// Values and objects as they are

// What turns into a value by itself. A `Value` takes every value, null included.
template <class T>
concept ValueLike = std::constructible_from<Value, const T&> && !std::is_arithmetic_v<T> &&
                    !std::is_null_pointer_v<T> && !AnyText<T> && !Described<T>;

template <ValueLike T>
struct ValueConversion<T> {
  static constexpr const char* kTypeName = "object";
  static constexpr const char* kExpected = "NSObject";

  static Value toValue(const T& object) { return Value(object); }
  static std::optional<Value> fromValue(const Value& value) requires std::same_as<T, Value> { return value; }
};

// The name of the class as messages have it; the root's for a host's class.
template <class T>
consteval const char* objectClassName() {
  struct Row {
    bool isClass;
    const char* name;
  };
  constexpr Row kRows[] = {
      {std::same_as<T, NSString>, "NSString"},
      {std::same_as<T, NSDate>, "NSDate"},
      {std::same_as<T, NSSet>, "NSSet"},
      {std::same_as<T, NSArray> || std::same_as<T, NSMutableArray>, "NSArray"},
      {std::same_as<T, NSDictionary> || std::same_as<T, NSMutableDictionary>, "NSDictionary"},
  };
  for (const Row& row : kRows) {
    if (row.isClass) return row.name;
  }
  return "NSObject";
}

// An object of that class; absent for null. A lazy collection of the host's is an array or a dictionary made of it.
template <class T>
struct ValueConversion<Ref<T>> {
  static constexpr const char* kTypeName = "object";
  static constexpr const char* kExpected = objectClassName<T>();

  static Value toValue(const Ref<T>& object) { return Value(object); }
  static std::optional<Ref<T>> fromValue(const Value& value) {
    if (isNothing(value)) return std::optional<Ref<T>>(std::in_place);
    Ref<T> object = referenceIn<T>(value);
    if constexpr (std::same_as<T, NSArray> || std::same_as<T, NSDictionary>) {
      if (object == nullptr) object = plainValue(value).ref<T>();
    }
    if (object == nullptr) return {};
    return object;
  }
};

}  // namespace tavlo
