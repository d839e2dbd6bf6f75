#pragma once

#include <concepts>
#include <cstddef>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Foundation/BoundMethod.h"
#include "Foundation/HostMethod.h"
#include "Foundation/NSObject.h"
#include "Foundation/Selector.h"

namespace tavlo {

// The methods of one class by their selectors, with those of the classes that it derives from.
class HostMethodTable {
 public:
  // Adds a method of class T: a member function, or a callable that takes the object first. Raises
  // `NSInvalidArgumentException` for an absent selector, for one that names another number of arguments than the method
  // takes, and for one that the class has already.
  template <class T, class Function>
  HostMethodTable& add(const Selector& selector, Function function) {
    return addMethod(selector, HostMethod::of<T>(std::move(function)));
  }
  // The same for a method that is made by hand.
  HostMethodTable& addMethod(const Selector& selector, HostMethod method);

  // Takes over the methods of a class that T derives from; its table must live as long as this one. What the class
  // itself has stands before what it inherits, and of several inherited ones the last.
  template <class Base, std::derived_from<Base> T>
  void inherit(const HostMethodTable& base) {
    inherit(base, [](void* object) -> void* { return static_cast<Base*>(static_cast<T*>(object)); });
  }
  // The same with what turns the address of an object into that of its base.
  void inherit(const HostMethodTable& base, void* (*upcast)(void* object)) { bases_.push_back({&base, upcast}); }

  // The method behind the selector with the object, which is of the table's class, to call it with; a constant object
  // has only the methods that leave it as it is.
  BoundMethod find(const Selector& selector, void* object) const { return findAmong(selector, object, false); }
  BoundMethod find(const Selector& selector, const void* object) const {
    return findAmong(selector, const_cast<void*>(object), true);  // NOLINT(*-const-cast): for constant methods alone
  }
  // The same for the system's own objects, which are all counted as constant ones and are not.
  template <std::derived_from<NSObject> T>
  BoundMethod find(const Selector& selector, const T& object) const {
    return find(selector, static_cast<void*>(const_cast<T*>(std::addressof(object))));  // NOLINT(*-const-cast)
  }

 private:
  struct Base {
    const HostMethodTable* table;
    void* (*upcast)(void* object);
  };

  BoundMethod findAmong(const Selector& selector, void* object, bool isConstant) const;

  std::unordered_map<Selector, HostMethod, Selector::Hash> methods_;
  std::vector<Base> bases_;
};

}  // namespace tavlo
