#pragma once

#include <memory>
#include <type_traits>

#include "Foundation/Value.h"

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
template <Described T>
const HostClass<std::remove_const_t<T>>& hostClass();

// How objects of the class become values, and back; see Foundation/HostObject.h.
template <class T>
Value hostReference(T& object);
template <class T>
Value hostShared(std::shared_ptr<T> object);
template <Described T>
T* hostObject(const Value& value);
template <Described T>
std::shared_ptr<T> hostOwner(const Value& value);

// A reference to the object that the value stands for, as one of that class or of one that inherits it; absent for
// every other value, and for a constant object of the host's unless T is const.
template <class T>
Ref<T> referenceIn(const Value& value) {
  if constexpr (std::is_const_v<T> && Described<T>) {
    return Ref<T>::retaining(hostObject<T>(value));
  } else {
    return value.ref<T>();
  }
}

}  // namespace tavlo
