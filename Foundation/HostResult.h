#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <ranges>
#include <span>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "Foundation/Described.h"
#include "Foundation/HostContext.h"
#include "Foundation/KeptWith.h"
#include "Foundation/LentValue.h"
#include "Foundation/Value.h"
#include "Foundation/ValueConversion.h"
#include "Foundation/WorkMeter.h"

namespace tavlo {

// What becomes of what a host's code answers. Objects and containers that it answers by reference are referred to, and
// those that it answers by value are moved into an owner of their own; the rest is converted.
enum class HostResultKind : std::uint8_t {
  None,        // cannot become a value
  Object,      // of a described class
  Text,        // whatever is a std::string_view
  Plain,       // what is a value as it stands
  Optional,    // null where it is empty
  Pointer,     // to one of the others; null where it is
  Shared,      // std::shared_ptr
  Unique,      // std::unique_ptr
  Wrapper,     // std::reference_wrapper
  List,        // read by index: std::vector, std::array, std::span, std::deque and the like
  Dictionary,  // read by keys that are texts: std::map, std::unordered_map and the like
  Converted,   // by ValueConversion
};

template <class T>
inline constexpr auto kWrapperKind = HostResultKind::None;
template <class T>
inline constexpr auto kWrapperKind<std::optional<T>> = HostResultKind::Optional;
template <class T>
inline constexpr auto kWrapperKind<T*> = HostResultKind::Pointer;
template <class T>
inline constexpr auto kWrapperKind<std::shared_ptr<T>> = HostResultKind::Shared;
template <class T, class Deleter>
inline constexpr auto kWrapperKind<std::unique_ptr<T, Deleter>> = HostResultKind::Unique;
template <class T>
inline constexpr auto kWrapperKind<std::reference_wrapper<T>> = HostResultKind::Wrapper;

// What a lazy dictionary reads: entries by keys that are texts.
template <class C>
concept DictionaryLike = requires(C& container) {
  typename std::remove_cvref_t<C>::key_type;
  typename std::remove_cvref_t<C>::mapped_type;
  {container.find(std::declval<const typename std::remove_cvref_t<C>::key_type&>()) == container.end()};
  container.at(std::declval<const typename std::remove_cvref_t<C>::key_type&>());
  { container.size() } -> std::convertible_to<std::size_t>;
}
&&TextLike<typename std::remove_cvref_t<C>::key_type>;

// What a lazy list reads: elements by index.
template <class C>
concept ListLike = !AnyText<std::remove_cvref_t<C>> && !DictionaryLike<C> && std::ranges::random_access_range<C> &&
                   requires(C & container) {
  { container.size() } -> std::convertible_to<std::size_t>;
  container[std::size_t{0}];
};

// The types of what containers hold, as they are read.
template <ListLike C>
using ListElement = std::conditional_t<std::same_as<std::ranges::range_value_t<C>, bool>, bool,
                                       decltype(std::declval<C&>()[std::size_t{0}])>;
// What the entry behind an iterator holds. A container whose entries or at() answer no reference makes them as they are
// looked for, and one that can be gone through only once may hold them in its iterators: their values are copied.
template <DictionaryLike C>
using EntryValue = decltype(((*std::declval<C&>().begin()).second));
template <DictionaryLike C>
inline constexpr bool kKeepsEntries = std::forward_iterator<decltype(std::declval<C&>().begin())>&&
    std::is_lvalue_reference_v<EntryValue<C>>&& std::is_lvalue_reference_v<decltype(std::declval<C&>().at(
        std::declval<const typename std::remove_cvref_t<C>::key_type&>()))>;
template <DictionaryLike C>
using DictionaryElement = std::conditional_t<kKeepsEntries<C>, EntryValue<C>, std::remove_cvref_t<EntryValue<C>>>;

template <class R>
consteval HostResultKind hostResultKind();

template <class T>
consteval HostResultKind kindIf(HostResultKind kind) {
  return hostResultKind<T>() == HostResultKind::None ? HostResultKind::None : kind;
}

// A constant unique_ptr by value: what it owns can neither be taken out nor lent.
template <class R>
inline constexpr bool kGoesWithItsObject =
    kWrapperKind<std::remove_cvref_t<R>> == HostResultKind::Unique && !std::is_lvalue_reference_v<R> &&
    std::is_const_v<std::remove_reference_t<R>>;

// Of what a wrapper, which is no container, leads to.
template <class R>
consteval HostResultKind kindOfWrapper() {
  using U = std::remove_cvref_t<R>;
  if constexpr (kWrapperKind<U> == HostResultKind::Wrapper) {
    return kindIf<typename U::type&>(HostResultKind::Wrapper);
  } else if constexpr (!kGoesWithItsObject<R> && requires(U & wrapper) { *wrapper; }) {
    return kindIf<decltype(*std::declval<R>())>(kWrapperKind<U>);
  } else {
    return HostResultKind::None;
  }
}

template <class R>
consteval HostResultKind kindOfContainer() {
  using C = std::remove_reference_t<R>;
  if constexpr (DictionaryLike<C>) {
    if (hostResultKind<DictionaryElement<C>>() != HostResultKind::None) return HostResultKind::Dictionary;
  } else if constexpr (ListLike<C>) {
    if (hostResultKind<ListElement<C>>() != HostResultKind::None) return HostResultKind::List;
  }
  return ConvertibleToValue<R> ? HostResultKind::Converted : HostResultKind::None;
}

// Of what a function that returns R answers.
template <class R>
consteval HostResultKind hostResultKind() {
  using U = std::remove_cvref_t<R>;
  if constexpr (std::is_void_v<U> || std::is_void_v<std::remove_pointer_t<U>>) {
    return HostResultKind::None;
  } else if constexpr (Described<U>) {
    return std::is_lvalue_reference_v<R> || std::move_constructible<U> ? HostResultKind::Object : HostResultKind::None;
  } else if constexpr (TextLike<U>) {
    return HostResultKind::Text;
  } else if constexpr (std::constructible_from<Value, R>) {
    return HostResultKind::Plain;
  } else if constexpr (kWrapperKind<U> != HostResultKind::None) {
    return kindOfWrapper<R>();
  } else {
    return kindOfContainer<R>();
  }
}

// Whether what a function that returns R answers becomes a value.
template <class R>
concept HostResult = hostResultKind<R>()
!= HostResultKind::None;

// The value of a result, for the caller to adopt. Raises what converting it raises.
template <HostResult R>
RawValue referTo(R&& result, const HostContext& context);

// A list and a dictionary that read the container, which `context` keeps, or which is moved into an owner.
template <class C>
Value lazyListOver(C&& container, const HostContext& context);
template <class C>
Value lazyDictionaryOver(C&& container, const HostContext& context);

// How the result becomes a value, a row for each kind.
template <HostResultKind Kind>
struct HostResultRule;

template <>
struct HostResultRule<HostResultKind::Object> {
  template <class T>
  static RawValue refer(T& object, const HostContext& context) {
    if constexpr (std::derived_from<T, NSObject>) {
      return Value(Ref<T>::retaining(std::addressof(object))).leak();
    } else {
      const HostClassTable& table = hostClassTable<std::remove_const_t<T>>();
      using Address = std::conditional_t<std::is_const_v<T>, const void*, void*>;
      return Value(context.instance(table, static_cast<Address>(std::addressof(object)))).leak();
    }
  }
  template <class T>
  requires(!std::is_lvalue_reference_v<T>) static RawValue refer(T&& object, const HostContext& context) {
    using Held = std::remove_const_t<T>;
    auto owner = std::make_shared<Held>(std::forward<T>(object));
    void* const address = owner.get();
    return Value(context.instance(hostClassTable<Held>(), address, std::move(owner))).leak();
  }
};

template <>
struct HostResultRule<HostResultKind::Text> {
  template <class T>
  static bool isNull(const T& text) noexcept {
    if constexpr (std::is_pointer_v<T>) return text == nullptr;
    return false;
  }
  template <class T>
  static RawValue refer(const T& text, const HostContext& /*context*/) {
    if (isNull(text)) return RawValue::null();
    const std::string_view view = text;
    countWorkOnText(view.size());
    return Value(view).leak();
  }
};

template <>
struct HostResultRule<HostResultKind::Plain> {
  template <class T>
  static RawValue refer(T&& result, const HostContext& /*context*/) {
    return Value(std::forward<T>(result)).leak();
  }
};

template <>
struct HostResultRule<HostResultKind::Optional> {
  template <class T>
  static RawValue refer(T&& result, const HostContext& context) {
    return result.has_value() ? referTo(*std::forward<T>(result), context) : RawValue::null();
  }
};

template <>
struct HostResultRule<HostResultKind::Pointer> {
  template <class T>
  static RawValue refer(T* const& result, const HostContext& context) {
    return result != nullptr ? referTo(*result, context) : RawValue::null();
  }
};

template <>
struct HostResultRule<HostResultKind::Shared> {
  template <class T>
  static RawValue refer(const std::shared_ptr<T>& result, const HostContext& context) {
    if (result == nullptr) return RawValue::null();
    if constexpr (Described<T>) {
      using Address = std::conditional_t<std::is_const_v<T>, const void*, void*>;
      const auto address = static_cast<Address>(result.get());
      return Value(context.instance(hostClassTable<std::remove_const_t<T>>(), address, result)).leak();
    } else if constexpr (kMayReferToValues<std::remove_const_t<T>>) {
      const std::shared_ptr<const void> owner = HostInstance::ownerOfBoth(result, context.owner());
      return referTo(*result, HostContext(owner, nullptr, context.canBeShared()));
    } else {
      const std::shared_ptr<const void> owner = result;
      return referTo(*result, HostContext(owner));
    }
  }
};

template <>
struct HostResultRule<HostResultKind::Unique> {
  template <class T>
  static RawValue refer(T& result, const HostContext& context) {
    return result != nullptr ? referTo(*result, context) : RawValue::null();
  }
  template <class T, class Deleter>
  static RawValue refer(std::unique_ptr<T, Deleter>&& result, const HostContext& context) {
    // What lets go of the object without being empty may refer to who has answered it, as a pool's does.
    constexpr bool kMayReferToOthers = !std::is_empty_v<Deleter> && !std::is_pointer_v<Deleter>;
    std::shared_ptr<T> owner = std::move(result);
    if constexpr (kMayReferToOthers) {
      if (owner != nullptr) owner = {HostInstance::ownerOfBoth(owner, context.owner()), owner.get()};
    }
    return HostResultRule<HostResultKind::Shared>::refer(owner, context);
  }
};

template <>
struct HostResultRule<HostResultKind::Wrapper> {
  template <class T>
  static RawValue refer(const std::reference_wrapper<T>& result, const HostContext& context) {
    return referTo(result.get(), context);
  }
};

template <>
struct HostResultRule<HostResultKind::List> {
  template <class C>
  static RawValue refer(C&& result, const HostContext& context) {
    return lazyListOver(std::forward<C>(result), context).leak();
  }
};

template <>
struct HostResultRule<HostResultKind::Dictionary> {
  template <class C>
  static RawValue refer(C&& result, const HostContext& context) {
    return lazyDictionaryOver(std::forward<C>(result), context).leak();
  }
};

template <>
struct HostResultRule<HostResultKind::Converted> {
  template <class T>
  static RawValue refer(T&& result, const HostContext& context) {
    if constexpr (kMayReferToValues<std::remove_cvref_t<T>>) {
      const KeptWith kept(context);
      return valueOf(std::forward<T>(result)).leak();
    } else {
      return valueOf(std::forward<T>(result)).leak();
    }
  }
};

template <HostResult R>
RawValue referTo(R&& result, const HostContext& context) {
  return HostResultRule<hostResultKind<R&&>()>::refer(std::forward<R>(result), context);
}

// Whether the text of such a result outlives the call that answered it.
template <class R>
inline constexpr bool kIsLentText = std::is_lvalue_reference_v<R> || std::is_pointer_v<std::remove_cvref_t<R>> ||
                                    std::same_as<std::remove_cvref_t<R>, std::string_view>;

// The same for who writes the result at once: a text is lent where it lives.
template <HostResult R>
void lendResult(R&& result, const HostContext& context, LentValue& lent) {
  constexpr HostResultKind kKind = hostResultKind<R&&>();
  if constexpr (kKind == HostResultKind::Text && kIsLentText<R>) {
    if (!HostResultRule<kKind>::isNull(result)) return lent.setText(std::string_view(result));
  } else if constexpr (kKind == HostResultKind::Optional) {
    using Held = typename std::remove_cvref_t<R>::value_type;
    if constexpr (kIsLentText<Held> || std::is_lvalue_reference_v<R>) {
      if (result.has_value()) return lendResult(*result, context, lent);
    }
  }
  lent.set(Value::adopt(referTo(std::forward<R>(result), context)));
}

}  // namespace tavlo
