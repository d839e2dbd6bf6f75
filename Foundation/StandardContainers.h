#pragma once

#include <array>
#include <concepts>
#include <deque>
#include <functional>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <unordered_map>
#include <vector>

#include "Foundation/Value.h"
#include "Foundation/WorkMeter.h"

namespace tavlo {

// Elements and containers that run no code of a host's when they are read.

template <class R>
inline constexpr bool kIsPlainData =
    std::is_arithmetic_v<std::remove_cvref_t<R>> || std::same_as<std::remove_cvref_t<R>, std::string> ||
    std::same_as<std::remove_cvref_t<R>, std::string_view>;

template <class C>
inline constexpr bool kIsStandardList = false;
template <class T, class Allocator>
inline constexpr bool kIsStandardList<std::vector<T, Allocator>> = true;
template <class T, class Allocator>
inline constexpr bool kIsStandardList<std::deque<T, Allocator>> = true;
template <class T, std::size_t Count>
inline constexpr bool kIsStandardList<std::array<T, Count>> = true;
template <class T, std::size_t Count>
inline constexpr bool kIsStandardList<std::span<T, Count>> = true;

// The same for maps by texts.
template <class C>
inline constexpr bool kIsStandardMap = false;
template <class Key, class T, class Allocator>
requires kIsPlainData<Key>
inline constexpr bool kIsStandardMap<std::map<Key, T, std::less<Key>, Allocator>> = true;
template <class Key, class T, class Allocator>
requires kIsPlainData<Key>
inline constexpr bool kIsStandardMap<std::map<Key, T, std::less<>, Allocator>> = true;
template <class Key, class T, class Allocator>
requires kIsPlainData<Key>
inline constexpr bool kIsStandardMap<std::unordered_map<Key, T, std::hash<Key>, std::equal_to<Key>, Allocator>> = true;

// Before a container is asked for an element: any other may run a host's code, and so may an element of `Element` that
// is read.
template <class C, class Element = int>
void lookBeforeElement() {
  using Container = std::remove_cvref_t<C>;
  constexpr bool kIsStandard = kIsStandardList<Container> || kIsStandardMap<Container>;
  if constexpr (!kIsStandard || !kIsPlainData<Element>) lookBeforeHost();
}

}  // namespace tavlo
