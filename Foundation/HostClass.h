#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "Foundation/Value.h"
#include "Foundation/ValueConversion.h"

namespace tavlo {

// The description of a class of the host: its name, what can be read from its objects, and what they can do. The host
// writes one function beside the class, in its namespace,
//
//   void describeHostClass(tavlo::HostClass<Product>& product) {
//     product.name("Product").property("price", &Product::price);
//   }
//
// which is run once, when the class is first used.
template <class T>
class HostClass {
 public:
  HostClass& name(std::string_view name) {
    name_ = name;
    return *this;
  }

  // What `getter` answers for an object: a member function, a data member, or whatever is called with the object.
  template <class Function>
  HostClass& property(std::string_view key, Function getter) {
    properties_.insert_or_assign(std::string(key),
                                 [getter](const T& object) { return valueOf(std::invoke(getter, object)); });
    return *this;
  }

  const std::string& className() const noexcept { return name_; }

  bool findValue(const T& object, std::string_view key, Value& value) const {
    const auto found = properties_.find(key);
    if (found == properties_.end()) return false;
    value = found->second(object);
    return true;
  }

 private:
  std::string name_;
  std::map<std::string, std::function<Value(const T&)>, std::less<>> properties_;
};

// A class that the host has described.
template <class T>
concept Described = requires(HostClass<T>& description) {
  describeHostClass(description);
};

// The description of the class, made when it is first asked for.
template <Described T>
const HostClass<T>& hostClass() {
  static const HostClass<T> description = [] {
    HostClass<T> made;
    describeHostClass(made);
    return made;
  }();
  return description;
}

}  // namespace tavlo
