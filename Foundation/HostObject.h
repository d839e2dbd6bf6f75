#pragma once

#include <concepts>
#include <memory>
#include <type_traits>
#include <utility>

#include "Foundation/HostClass.h"
#include "Foundation/HostInstance.h"
#include "Foundation/KeptWith.h"
#include "Foundation/NSObject.h"
#include "Foundation/Value.h"

namespace tavlo {

// An object of the host's, of a class that it has described, as a template sees it; of a constant object where T is.
template <Described T>
class HostObject final : public HostInstance {
 public:
  // The host keeps the object for as long as a template can reach it, or KeptWith does.
  explicit HostObject(T& object)
      : HostInstance(hostClassTable<T>(), address(std::addressof(object)), KeptWith::owner()) {}
  // Owned together with the host; absent is not allowed.
  explicit HostObject(const std::shared_ptr<T>& owner)
      : HostInstance(hostClassTable<T>(), address(owner.get()), owner) {}

  T& object() const noexcept { return *static_cast<T*>(HostInstance::object()); }

 private:
  using Address = std::conditional_t<std::is_const_v<T>, const void*, void*>;
  static Address address(T* object) noexcept { return object; }
};

// A class of the host that is counted itself and described as every other: `class Cart : public DescribedObject<Cart>`.
template <class T>
class DescribedObject : public HostInstance {
 protected:
  // The object's address is taken before the object is made, and used only afterwards.
  __attribute__((no_sanitize("vptr"))) DescribedObject()
      : HostInstance(hostClassTable<T>(), static_cast<T*>(this), Itself{}) {}
};

// A reference to an object that stays the host's; to one that is counted itself, a counted reference.
template <class T>
Value hostReference(T& object) {
  static_assert(Described<T>, "hostReference: the class has no describeHostClass() in its namespace");
  if constexpr (Described<T> && std::derived_from<T, HostInstance>) {
    if constexpr (!std::is_const_v<T>) return Ref<T>::retaining(std::addressof(object));
    return makeRef<HostObject<T>>(std::shared_ptr<T>(object.owner(), std::addressof(object)));
  } else if constexpr (Described<T>) {
    return makeRef<HostObject<T>>(object);
  }
  return {};
}

// The object, owned by the value too; absent for an absent one.
template <class T>
Value hostShared(std::shared_ptr<T> object) {
  static_assert(Described<T>, "hostShared: the class has no describeHostClass() in its namespace");
  if constexpr (Described<T>) {
    if (object != nullptr) return makeRef<HostObject<T>>(std::move(object));
  }
  return {};
}

// The object, owned by the value alone; absent for an absent one.
template <class T, class Deleter>
Value hostOwned(std::unique_ptr<T, Deleter> object) {
  return hostShared(std::shared_ptr<T>(std::move(object)));
}
// A copy of the object, or the object moved, owned by the value.
template <class T>
requires Described<std::remove_cvref_t<T>> Value hostCopy(T&& object) {
  return hostShared(std::make_shared<std::remove_cvref_t<T>>(std::forward<T>(object)));
}

// The object that the value stands for, of the class T or of one that inherits it; null for every other value, and for
// a constant object unless T is const. Good as long as the value is.
template <Described T>
T* hostObject(const Value& value) {
  return static_cast<T*>(HostInstance::find(value, hostClassTable<T>(), std::is_const_v<T>));
}

// The same, owned with the value; absent where the host owns the object.
template <Described T>
std::shared_ptr<T> hostOwner(const Value& value) {
  T* const object = hostObject<T>(value);
  if (object == nullptr) return nullptr;
  std::shared_ptr<const void> owner = static_cast<const HostInstance*>(value.object())->owner();
  return owner == nullptr ? nullptr : std::shared_ptr<T>(std::move(owner), object);
}

}  // namespace tavlo
