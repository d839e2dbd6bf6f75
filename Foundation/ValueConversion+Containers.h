#pragma once

#include <array>
#include <bit>
#include <concepts>
#include <cstddef>
#include <functional>
#include <iterator>
#include <optional>
#include <ranges>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

#include "Foundation/Described.h"
#include "Foundation/HeldParts.h"
#include "Foundation/NSDictionary.h"
#include "Foundation/NSKeyValueCoding.h"
#include "Foundation/StandardContainers.h"
#include "Foundation/Value.h"
#include "Foundation/ValueConversion+Scalars.h"
#include "Foundation/ValueConversionTrait.h"
#include "Foundation/WorkMeter.h"

namespace tavlo {

// Begins to convert a container, to a value or from one: that is a step, and a host's types may be nested as deep as
// values. Raises `KorTemplateLimitException` where steps or the stack end.
void enterContainer();
// The elements of an array or a set, to be converted; null for every other value.
const std::vector<Value>* elementsIn(const Value& value);
// The same for a dictionary.
const NSDictionary* dictionaryIn(const Value& value);
// Values as an array, and without equals as a set; enterContainer() comes before the values are made.
Value arrayOfValues(std::vector<Value> elements);
Value setOfValues(const std::vector<Value>& members);

// The array or the dictionary that a lazy collection of the host's stands for, where what is made of it outlives its
// values; every other value as it is.
template <class... Parts>
Value materialised(const Value& value) {
  if constexpr ((kRefersToValues<Parts> || ...)) return value;
  Value plain = plainValue(value);
  if constexpr ((kMayReferToValues<Parts> || ...)) HeldParts::hold(plain);
  return plain;
}

// Which types are containers

// What can be walked and is not something else before all.
template <class T>
concept WalkedContainer =
    std::ranges::input_range<T&> && !AnyText<T> && !Described<T> && !ValueLike<T> &&
    !std::same_as<std::remove_cvref_t<std::ranges::range_reference_t<T&>>, T>;  // as a path is a list of paths
template <class T>
concept HasMappedValues = requires {
  typename T::key_type;
  typename T::mapped_type;
};

// Keys are texts, and each has one value.
template <class T>
concept HostMap = WalkedContainer<T> && HasMappedValues<T> && TextLike<typename T::key_type>;
template <class T>
concept HostList = WalkedContainer<T> && !HasMappedValues<T>;
// Each element is there once.
template <class T>
concept HostSet = HostList<T> && requires(T& set, typename T::key_type key) {
  { set.insert(key).second } -> std::convertible_to<bool>;
};

// A part of the object as it is handed on: it may be moved out of an object that is given away.
template <class Object, class Part>
using PartOf = std::conditional_t<std::is_lvalue_reference_v<Object> || std::is_const_v<Object>, const Part&, Part>;

// The same of a list or a map, whose elements are given away only where they are its own: a constant one that owns them
// does not let them be changed. A class of the host's may stand for what others own, as far as anybody can see, unless
// it has an allocator for them or they cannot be copied.
template <class List>
consteval bool givesElementsAway() {
  if constexpr (std::is_lvalue_reference_v<List> || std::is_const_v<List> || !std::ranges::range<const List&>) {
    return false;
  } else {
    constexpr bool kIsOwner =
        kIsStandardList<List> || HasAllocator<List> || !std::copy_constructible<std::ranges::range_value_t<List>>;
    return kIsOwner && !std::ranges::borrowed_range<List> && !std::ranges::view<List> &&
           std::same_as<std::ranges::range_reference_t<List&>, std::ranges::range_value_t<List&>&> &&
           std::same_as<std::ranges::range_reference_t<const List&>, const std::ranges::range_value_t<List&>&>;
  }
}
template <class Map>
using MappedOf = std::conditional_t<givesElementsAway<Map>(), typename std::remove_cvref_t<Map>::mapped_type,
                                    const typename std::remove_cvref_t<Map>::mapped_type&>;
template <class List>
using ElementOf =
    std::conditional_t<givesElementsAway<List>(), std::ranges::range_value_t<List>,
                       std::conditional_t<std::is_reference_v<std::ranges::range_reference_t<List>>,
                                          const std::ranges::range_value_t<List>&, std::ranges::range_value_t<List>>>;

// Lists

// The values of the elements, in order.
template <class List>
std::vector<Value> valuesOf(List&& list) {
  std::vector<Value> values;
  if constexpr (std::ranges::sized_range<List>) values.reserve(static_cast<std::size_t>(std::ranges::size(list)));
  ElementCounter work;
  for (auto&& element : list) {
    lookBeforeElement<List, ElementOf<List>>();
    work.next();
    if constexpr (givesElementsAway<List>()) {
      values.push_back(presentValueOf(std::move(element)));
    } else {
      values.push_back(presentValueOf(static_cast<ElementOf<List>>(element)));
    }
  }
  return values;
}

// Copied element by element; an absent element becomes null.
template <class T>
struct ListToValue {
  template <class List>
  requires(std::same_as<std::remove_cvref_t<List>, T>&& ConvertibleToValue<ElementOf<List>>) static Value
      toValue(List&& list) {
    enterContainer();
    if constexpr (HostSet<T>) {
      return setOfValues(valuesOf(std::forward<List>(list)));
    } else {
      return arrayOfValues(valuesOf(std::forward<List>(list)));
    }
  }
};

// "NSArray of NSNumber"
template <class Element>
std::string expectedList() {
  return "NSArray of " + expectedClassName<Element>();
}

// A table that grows moves all it holds at once, between two looks at the clock: its room is made before.
template <class Container>
void makeRoomIn(Container& container, std::size_t count) {
  if constexpr (requires { container.bucket_count(); }) container.reserve(count);
}

// An array or a set whose elements all convert: `prepare` takes how many there are, `append` takes them. Whether it is
// such a list.
template <class Element, class Prepare, class Append>
bool readElements(const Value& value, const Prepare& prepare, const Append& append) {
  const Value list = materialised<Element>(value);
  const std::vector<Value>* const elements = elementsIn(list);
  if (elements == nullptr) return false;
  prepare(elements->size());
  ElementCounter work;
  for (std::size_t index = 0; index < elements->size(); ++index) {
    work.next();
    const Value held = (*elements)[index];  // reading what it holds may run a host's code, which may change the list
    if constexpr (kMayReferToValues<Element>) HeldParts::hold(held);
    if constexpr (!kIsPlainData<Element>) lookBeforeHost();
    std::optional<Element> element = objectIn<Element>(held);
    if (!element.has_value()) return false;
    append(*std::move(element));
  }
  return true;
}

template <class T>
concept GrowingList = HostList<T> && std::default_initializable<T> && WholeFromValue<std::ranges::range_value_t<T>> &&
    requires(T& list, std::ranges::range_value_t<T> element) {
  list.insert(list.end(), std::move(element));
};

template <HostList T>
struct ValueConversion<T> : ListToValue<T> {
  using Element = std::ranges::range_value_t<T>;
  static constexpr const char* kTypeName = "array";
  static std::string expected() requires GrowingList<T> { return expectedList<Element>(); }

  static std::optional<T> fromValue(const Value& value) requires GrowingList<T> {
    std::optional<T> list(std::in_place);
    const auto append = [&](Element element) {
      // A set compares it with others, one for each of its levels.
      if constexpr (HostSet<T> && TextLike<Element>) {
        countWorkOnText(std::string_view(element).size() * static_cast<std::size_t>(std::bit_width(list->size())));
      }
      lookBeforeElement<T>();
      list->insert(list->end(), std::move(element));
    };
    const auto prepare = [&](std::size_t count) { makeRoomIn(*list, count); };
    if (!readElements<Element>(value, prepare, append)) list.reset();
    return list;
  }
};

// Exactly as many elements.
template <class Element, std::size_t Count>
struct ValueConversion<std::array<Element, Count>> : ListToValue<std::array<Element, Count>> {
  static constexpr const char* kTypeName = "array";
  static std::string expected() requires WholeFromValue<Element> {
    return "NSArray of " + std::to_string(Count) + " " + expectedClassName<Element>();
  }

  static std::optional<std::array<Element, Count>> fromValue(const Value& value) requires(
      WholeFromValue<Element>&& std::default_initializable<Element>) {
    const Value list = materialised<Element>(value);
    const std::vector<Value>* const elements = elementsIn(list);
    if (elements == nullptr || elements->size() != Count) return {};
    std::optional<std::array<Element, Count>> array(std::in_place);
    std::size_t index = 0;
    const auto append = [&](Element element) {
      if (index < Count) (*array)[index] = std::move(element);
      ++index;
    };
    const auto takesNoMore = [](std::size_t /*count*/) {};
    if (!readElements<Element>(list, takesNoMore, append) || index != Count) array.reset();
    return array;
  }
};

// A parameter sees elements that are kept for the call.
template <class Element>
struct ValueConversion<std::span<Element>> : ListToValue<std::span<Element>> {
  using Whole = std::remove_cv_t<Element>;
  static constexpr const char* kTypeName = "array";
  static std::string expected() requires WholeFromValue<Whole> { return expectedList<Whole>(); }

  static std::optional<std::vector<Whole>> fromValue(const Value& value) requires(
      std::is_const_v<Element>&& WholeFromValue<Whole> && !std::same_as<Whole, bool>) {
    return ValueConversion<std::vector<Whole>>::fromValue(value);
  }
};

// Maps

template <class T>
concept GrowingMap = HostMap<T> && std::default_initializable<T> && WholeFromValue<typename T::key_type> &&
    WholeFromValue<typename T::mapped_type> &&
    requires(T& map, typename T::key_type key, typename T::mapped_type value) {
  map.insert_or_assign(std::move(key), std::move(value));
};

// A dictionary in the order of the map; of entries with one key the last stands.
template <HostMap T>
struct ValueConversion<T> {
  using Key = typename T::key_type;
  using Mapped = typename T::mapped_type;
  static constexpr const char* kTypeName = "dictionary";
  static std::string expected() requires GrowingMap<T> { return "NSDictionary of " + expectedClassName<Mapped>(); }

  template <class Map>
  requires(std::same_as<std::remove_cvref_t<Map>, T>&& ConvertibleToValue<MappedOf<Map>>) static Value
      toValue(Map&& map) {
    enterContainer();
    const Ref<NSMutableDictionary> dictionary = NSMutableDictionary::dictionary();
    if constexpr (std::ranges::sized_range<T>) dictionary->reserve(std::ranges::size(map));
    ElementCounter work;
    for (auto&& [key, mapped] : map) {
      lookBeforeElement<Map, Mapped>();
      work.next();
      const std::string_view text = textOfKey(key);
      countWorkOnText(text.size());
      dictionary->setObjectForKey(presentValueOf(static_cast<MappedOf<Map>&&>(mapped)), text);
    }
    return dictionary;
  }
  static std::optional<T> fromValue(const Value& value) requires GrowingMap<T> {
    const Value entries = materialised<Key, Mapped>(value);
    const NSDictionary* const dictionary = dictionaryIn(entries);
    if (dictionary == nullptr) return {};
    std::optional<T> map(std::in_place);
    makeRoomIn(*map, dictionary->count());
    ElementCounter work;
    for (std::size_t index = 0; index < dictionary->count(); ++index) {
      const NSDictionary::Entry entry = dictionary->entries()[index];  // held, as elements are
      work.next();
      countWorkOnText(entry.key->byteLength());
      if constexpr (kMayReferToValues<Key>) HeldParts::hold(entry.key);
      if constexpr (kMayReferToValues<Mapped>) HeldParts::hold(entry.value);
      if constexpr (!kIsPlainData<Mapped>) lookBeforeHost();
      std::optional<Mapped> mapped = objectIn<Mapped>(entry.value);
      if (!mapped.has_value()) return {};
      lookBeforeElement<T>();
      map->insert_or_assign(Key(entry.key->view()), *std::move(mapped));
    }
    return map;
  }
};

// Tuples

// Arrays of exactly as many elements, each of its own type.
template <class Tuple, class... Parts>
struct TupleConversion {
  static constexpr const char* kTypeName = "tuple";
  // "NSArray (NSNumber, NSString)"
  static std::string expected() requires(WholeFromValue<Parts>&&...) {
    std::string text;
    ((text += (text.empty() ? "" : ", ") + expectedClassName<Parts>()), ...);
    return "NSArray (" + text + ")";
  }

  template <class Object>
  requires(std::same_as<std::remove_cvref_t<Object>, Tuple> &&
           (ConvertibleToValue<PartOf<Object, Parts>> && ...)) static Value toValue(Object&& object) {
    enterContainer();
    return std::apply(
        [](auto&&... parts) {
          std::vector<Value> values;
          values.reserve(sizeof...(parts));
          (values.push_back(presentValueOf(static_cast<PartOf<Object, Parts>&&>(parts))), ...);
          return arrayOfValues(std::move(values));
        },
        std::forward<Object>(object));
  }
  static std::optional<Tuple> fromValue(const Value& value) requires(WholeFromValue<Parts>&&...) {
    const Value list = materialised<Parts...>(value);
    const std::vector<Value>* const elements = elementsIn(list);
    if (elements == nullptr || elements->size() != sizeof...(Parts)) return {};
    return fromElements(*elements, std::index_sequence_for<Parts...>());
  }

 private:
  template <std::size_t... Indices>
  static std::optional<Tuple> fromElements([[maybe_unused]] const std::vector<Value>& elements,
                                           std::index_sequence<Indices...> /*indices*/) {
    const std::array<Value, sizeof...(Parts)> held{elements[Indices]...};
    if constexpr ((kMayReferToValues<Parts> || ...)) (HeldParts::hold(held[Indices]), ...);
    std::tuple<std::optional<Parts>...> parts{objectIn<Parts>(held[Indices])...};
    if (!(std::get<Indices>(parts).has_value() && ...)) return {};
    return std::optional<Tuple>(std::in_place, *std::get<Indices>(std::move(parts))...);
  }
};

template <class First, class Second>
struct ValueConversion<std::pair<First, Second>> : TupleConversion<std::pair<First, Second>, First, Second> {};
template <class... Parts>
struct ValueConversion<std::tuple<Parts...>> : TupleConversion<std::tuple<Parts...>, Parts...> {};

// What may be missing, or one of several

// Empty is null; null, and an argument that is left out, is empty.
template <class T>
struct ValueConversion<std::optional<T>> {
  static std::string typeName() requires WholeFromValue<T> { return convertedTypeName<T>(); }
  static std::string expected() requires WholeFromValue<T> { return expectedClassName<T>() + " or null"; }

  template <class Object>
  requires(
      std::same_as<std::remove_cvref_t<Object>, std::optional<T>>&& ConvertibleToValue<PartOf<Object, T>>) static Value
      toValue(Object&& object) {
    return object.has_value() ? presentValueOf(static_cast<PartOf<Object, T>&&>(*object)) : Value::null();
  }
  static std::optional<std::optional<T>> fromValue(const Value& value) requires WholeFromValue<T> {
    if (isNothing(value)) return std::optional<std::optional<T>>(std::in_place);
    std::optional<T> object = objectIn<T>(value);
    if (!object.has_value()) return {};
    return std::optional<std::optional<T>>(std::in_place, std::move(object));
  }
};

// Whether the value is one that the type writes, rather than one that it merely takes: a truth, an integer that it
// holds exactly, a number with a fraction, and null only where the type knows of it. True for every value that a type
// of no number may take.
template <class T>
bool mayBeNaturalFor([[maybe_unused]] const Value& value) {
  if constexpr (std::is_arithmetic_v<T>) {
    const RawValue raw = value.peek();
    const bool isBoolean = raw.kind() == ValueKind::Boolean;
    const bool isReal = raw.kind() == ValueKind::Double || raw.kind() == ValueKind::Float;
    if (!raw.isNumber() || isBoolean != std::same_as<T, bool> || isReal != std::floating_point<T>) return false;
    return isReal || valueOf(numberAs<T>(raw)).isEqual(value);
  } else {
    return true;
  }
}

// The first alternative that the value is natural for, or else the first that takes it.
template <class... Alternatives>
struct ValueConversion<std::variant<Alternatives...>> {
  using Variant = std::variant<Alternatives...>;
  static constexpr const char* kTypeName = "variant";
  // "NSNumber or NSString"
  static std::string expected() requires(WholeFromValue<Alternatives>&&...) {
    std::string text;
    ((text += (text.empty() ? "" : " or ") + expectedClassName<Alternatives>()), ...);
    return text;
  }

  // Raises `std::bad_variant_access` for one that an exception has left without a value.
  template <class Object>
  requires(std::same_as<std::remove_cvref_t<Object>, Variant> &&
           (ConvertibleToValue<PartOf<Object, Alternatives>> && ...)) static Value toValue(Object&& object) {
    return std::visit([]<class Part>(Part&& part) { return presentValueOf(std::forward<Part>(part)); },
                      std::forward<Object>(object));
  }
  static std::optional<Variant> fromValue(const Value& value) requires(WholeFromValue<Alternatives>&&...) {
    const Value held = value;  // it is read more than once
    return fromValue(held, std::index_sequence_for<Alternatives...>());
  }

 private:
  template <std::size_t... Indices>
  static std::optional<Variant> fromValue(const Value& value, std::index_sequence<Indices...> /*indices*/) {
    std::optional<Variant> variant;
    // Each is read at most once: to read one takes as long as all that it holds.
    const bool isFound = ((mayBeNaturalFor<Alternatives>(value) && read<Indices>(value, variant)) || ...) ||
                         ((!mayBeNaturalFor<Alternatives>(value) && read<Indices>(value, variant)) || ...);
    if (!isFound) variant.reset();
    return variant;
  }
  template <std::size_t Index>
  static bool read(const Value& value, std::optional<Variant>& variant) {
    auto object = objectIn<std::variant_alternative_t<Index, Variant>>(value);
    if (!object.has_value()) return false;
    variant.emplace(std::in_place_index<Index>, *std::move(object));
    return true;
  }
};

}  // namespace tavlo
