#pragma once

#include <type_traits>

namespace tavlo {

class HostClassTable;
template <class T>
class HostClass;

// A class that the host has described; see Foundation/HostClass.h.
template <class T>
concept Described = std::is_class_v<T> && requires(HostClass<std::remove_const_t<T>>& description) {
  describeHostClass(description);
};

// The description of the class, made when it is first asked for; it lives as long as the process.
template <Described T>
const HostClassTable& hostClassTable();

}  // namespace tavlo
