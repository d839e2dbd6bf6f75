#pragma once

#include <memory>
#include <utility>

#include "Foundation/HostClass.h"
#include "Foundation/NSObject.h"
#include "Foundation/NSString.h"
#include "Foundation/Value.h"

namespace tavlo {

// An object of the host's, of a class that it has described, as a template sees it.
template <Described T>
class HostObject final : public NSObject {
 public:
  // The host keeps the object for as long as a template can reach it.
  explicit HostObject(T& object) : object_(&object) {}
  // Owned together with the host; absent is not allowed.
  explicit HostObject(std::shared_ptr<T> owner) : object_(owner.get()), owner_(std::move(owner)) {}

  T& object() const noexcept { return *object_; }

  const char* className() const override { return hostClass<T>().className().c_str(); }
  bool findValueForKey(const NSString& key, Value& value) const override {
    return hostClass<T>().findValue(*object_, key.view(), value);
  }

 private:
  T* object_;
  std::shared_ptr<T> owner_;
};

// A reference to an object that stays the host's.
template <Described T>
Value hostReference(T& object) {
  return makeRef<HostObject<T>>(object);
}

// The object, owned by the value too; absent for an absent one.
template <Described T>
Value hostShared(std::shared_ptr<T> object) {
  return object == nullptr ? Value() : Value(makeRef<HostObject<T>>(std::move(object)));
}

// The object that the value stands for; null for a value that is no object of the class.
template <Described T>
T* hostObject(const Value& value) {
  const auto* const held = value.as<HostObject<T>>();
  return held == nullptr ? nullptr : &held->object();
}

}  // namespace tavlo
