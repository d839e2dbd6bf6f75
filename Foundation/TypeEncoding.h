#pragma once

#include <concepts>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "Foundation/NSObject.h"
#include "Foundation/Ref.h"
#include "Foundation/Selector.h"
#include "Foundation/Value.h"
#include "Foundation/ValueConversion.h"

namespace tavlo {

template <class T>
constexpr std::string_view textWithTypeName() noexcept {
  return __PRETTY_FUNCTION__;
}

// The name of a type without its namespace and without the arguments of its template: "Point".
template <class T>
constexpr std::string_view typeName() noexcept {
  constexpr std::string_view kKnown = textWithTypeName<double>();
  constexpr std::size_t kBefore = kKnown.find("double");
  constexpr std::size_t kAfter = kKnown.size() - kBefore - std::string_view("double").size();
  std::string_view name = textWithTypeName<T>();
  name = name.substr(kBefore, name.size() - kBefore - kAfter);
  if (name.ends_with('>')) {
    std::size_t open = name.size() - 1;
    for (int depth = 1; depth > 0 && open > 0;) {
      --open;
      if (name[open] == '>') ++depth;
      if (name[open] == '<') --depth;
    }
    name = name.substr(0, open);
  }
  const std::size_t colons = name.rfind("::");
  return colons == std::string_view::npos ? name : name.substr(colons + 2);
}

// The encoding of a number's type, one character; 0 for every other type. Truth is a "c", as is a plain character; an
// enumeration is what it is kept in; the unsigned types have the capitals.
template <class T>
constexpr char numberEncoding() noexcept {
  if constexpr (std::is_enum_v<T>) {
    return numberEncoding<std::underlying_type_t<T>>();
  } else if constexpr (std::same_as<T, bool> || std::same_as<T, char>) {
    return 'c';
  } else if constexpr (std::integral<T>) {
    constexpr std::string_view kBySize = "?cs?i???q";
    constexpr char kSigned = std::same_as<std::make_signed_t<T>, long> ? 'l' : kBySize[sizeof(T)];
    return std::is_signed_v<T> ? kSigned : static_cast<char>(kSigned - 'a' + 'A');
  } else if constexpr (std::same_as<T, float>) {
    return 'f';
  } else {
    return std::same_as<T, double> ? 'd' : '\0';
  }
}

template <class T>
concept EncodedNumber = numberEncoding<std::remove_cvref_t<T>>()
!= '\0';

template <class T>
inline constexpr bool kIsRef = false;
template <class T>
inline constexpr bool kIsRef<Ref<T>> = true;

// The class that an owning reference refers to.
template <class T>
using ReferredClass = std::remove_pointer_t<decltype(std::declval<T>().get())>;

// A class of the system's objects, without const; all that is known of some types is their name.
template <class T>
concept ObjectClass = requires {
  sizeof(T);
}
&&std::derived_from<std::remove_cv_t<T>, NSObject>;

// An object as C++ hands it on: a value, an owning reference, a pointer, or a reference of the language.
template <class T>
concept EncodedObject = std::same_as<std::remove_cvref_t<T>, Value> || kIsRef<std::remove_cvref_t<T>> ||
    ObjectClass<std::remove_pointer_t<std::remove_cvref_t<T>>>;

// The two texts of the standard library that a string is lent to, or copied into.
template <class T>
concept EncodedText =
    std::same_as<std::remove_cvref_t<T>, std::string_view> || std::same_as<std::remove_cvref_t<T>, std::string>;

// The two pointers to characters, which have encodings of their own and are no texts.
template <class T>
concept CharacterPointer = std::same_as < std::remove_cvref_t<T>,
const char* > || std::same_as<std::remove_cvref_t<T>, char*>;

// A class of the host's or of the standard library's, or a pointer to one, that may have a conversion.
template <class T>
concept PlainClass =
    std::is_class_v<std::remove_pointer_t<std::remove_cvref_t<T>>> && !EncodedObject<T> && !EncodedText<T> &&
    !std::same_as<std::remove_cvref_t<T>, Selector> && !std::same_as<std::remove_cvref_t<T>, ClassReference>;

// A type that a value converts to, in the way that Foundation/ValueConversion.h describes.
template <class T>
concept ConvertedArgument = PlainClass<T> && requires(const Value& value) {
  static_cast<T>(*ValueConversion<ConvertedFor<T>>::fromValue(value));
};

// What a result is handed to the conversion as: an object of a described class that may change, and what cannot be
// copied, stay where they are; all else that is reached by a reference is copied.
template <class T>
inline constexpr bool kStaysWhereItIs =
    std::is_lvalue_reference_v<T> &&
    ((Described<std::remove_cvref_t<T>> && !std::is_const_v<std::remove_reference_t<T>>) || !ConvertibleToValue<T>);
template <class T>
using ConvertedForm =
    std::conditional_t<kStaysWhereItIs<T> && ConvertibleToValue<std::reference_wrapper<std::remove_reference_t<T>>>,
                       std::reference_wrapper<std::remove_reference_t<T>>, T>;

// A type that converts to a value.
template <class T>
concept ConvertedResult = PlainClass<T> && ConvertibleToValue<ConvertedForm<T>>;

// Whether a type is encoded for what goes into a method or for what comes out of it.
enum class TypeUse : bool { Argument, Result };

template <class T, TypeUse Use>
concept EncodedAsObject = EncodedObject<T> || EncodedText<T> ||(Use == TypeUse::Argument && ConvertedArgument<T>) ||
                          (Use == TypeUse::Result && ConvertedResult<T>);

template <class T>
std::string pointerEncoding(std::string_view mark);

// The encodings of pointers, the two of characters among them.
template <class T>
std::string encodingOfPointer() {
  using Pointee = std::remove_pointer_t<T>;
  if constexpr (CharacterPointer<T>) {
    return std::is_const_v<Pointee> ? "r*" : "*";
  } else {
    return pointerEncoding<std::remove_cv_t<Pointee>>(std::is_const_v<Pointee> ? "r" : "");
  }
}

// The encodings of what is neither an object nor a number nor a pointer.
template <class T>
std::string encodingOfOther() {
  if constexpr (std::is_void_v<T>) {
    return "v";
  } else if constexpr (std::same_as<T, Selector>) {
    return ":";
  } else if constexpr (std::same_as<T, ClassReference>) {
    return "#";
  } else if constexpr (std::is_union_v<T>) {
    return "(" + std::string(typeName<T>()) + "=...)";
  } else if constexpr (std::is_class_v<T>) {
    return "{" + std::string(typeName<T>()) + "=...}";
  } else {
    return std::same_as<T, long double> ? "D" : "?";
  }
}

// The encoding of a type of C++: one character for numbers, objects, selectors, classes, nothing and `char*`; more for
// everything else. A class with a conversion to or from values is an object; every other class is a structure, which
// carries no value between a template and a method.
template <class T, TypeUse Use = TypeUse::Argument>
std::string typeEncoding() {
  using Plain = std::remove_cvref_t<T>;
  constexpr bool kIsChanged =
      Use == TypeUse::Argument && std::is_lvalue_reference_v<T> && !std::is_const_v<std::remove_reference_t<T>>;
  if constexpr (EncodedAsObject<T, Use>) {
    return "@";
  } else if constexpr (kIsChanged) {
    return pointerEncoding<Plain>("");
  } else if constexpr (EncodedNumber<Plain>) {
    return std::string(1, numberEncoding<Plain>());
  } else if constexpr (std::is_pointer_v<Plain>) {
    return encodingOfPointer<Plain>();
  } else {
    return encodingOfOther<Plain>();
  }
}

// The encoding of a pointer to the type, behind the mark of what is constant. What is known of the type by its name
// alone has no encoding.
template <class T>
std::string pointerEncoding(std::string_view mark) {
  std::string encoding(mark);
  encoding += '^';
  if constexpr (std::is_void_v<T>) {
    encoding += 'v';
  } else if constexpr (requires { sizeof(T); }) {
    encoding += typeEncoding<T>();
  } else {
    encoding += '?';
  }
  return encoding;
}

}  // namespace tavlo
