#pragma once

#include <concepts>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "Foundation/Described.h"
#include "Foundation/Value.h"
#include "Foundation/ValueConversion+Scalars.h"
#include "Foundation/ValueConversionTrait.h"

namespace tavlo {

// Objects of the classes that the host has described. Every form of them takes the objects of the class, and names it
// where it refuses another value.
template <Described T>
struct HostConversion {
  static std::string typeName() { return hostClass<T>().className(); }
  static std::string expected() { return hostClass<T>().className(); }
};

// By value: the template's object is a copy, or what was moved, and ends with its last value. Held by reference: a
// parameter `T&` or `const T&` is the host's object itself.
template <Described T>
struct ValueConversion<T> : HostConversion<T> {
  static Value toValue(const T& object) requires std::copy_constructible<T> {
    return hostShared(std::make_shared<T>(object));
  }
  static Value toValue(T&& object) requires std::move_constructible<T> {
    return hostShared(std::make_shared<T>(std::move(object)));
  }
  static std::optional<std::reference_wrapper<T>> fromValue(const Value& value) {
    T* const object = hostObject<T>(value);
    if (object == nullptr) return {};
    return std::ref(*object);
  }
};

// The host keeps the object for as long as a template can reach it. A null pointer is null.
template <Described T>
struct ValueConversion<T*> : HostConversion<T> {
  static Value toValue(T* object) { return object == nullptr ? Value::null() : hostReference(*object); }
  static std::optional<T*> fromValue(const Value& value) {
    T* const object = hostObject<T>(value);
    if (object == nullptr && !isNothing(value)) return {};
    return object;
  }
};
template <Described T>
struct ValueConversion<const T*> : HostConversion<T> {
  static Value toValue(const T* object) { return object == nullptr ? Value::null() : hostReference(*object); }
  static std::optional<const T*> fromValue(const Value& value) {
    const T* const object = hostObject<const T>(value);
    if (object == nullptr && !isNothing(value)) return {};
    return object;
  }
};

template <Described T>
struct ValueConversion<std::reference_wrapper<T>> : HostConversion<T> {
  static Value toValue(std::reference_wrapper<T> object) { return hostReference(object.get()); }
  static std::optional<std::reference_wrapper<T>> fromValue(const Value& value) {
    return ValueConversion<T>::fromValue(value);
  }
};

// Owned together with the template. An absent pointer is null; of the values only an object that is owned so is taken.
template <Described T>
struct ValueConversion<std::shared_ptr<T>> : HostConversion<T> {
  static std::string expected() { return "Shared " + hostClass<T>().className(); }

  static Value toValue(std::shared_ptr<T> object) {
    return object == nullptr ? Value::null() : hostShared(std::move(object));
  }
  static std::optional<std::shared_ptr<T>> fromValue(const Value& value) {
    std::shared_ptr<T> owner = hostOwner<T>(value);
    if (owner == nullptr && !isNothing(value)) return {};
    return owner;
  }
};

// Given away to the template.
template <Described T>
struct ValueConversion<std::unique_ptr<T>> {
  static Value toValue(std::unique_ptr<T>&& object) {
    return ValueConversion<std::shared_ptr<T>>::toValue(std::move(object));
  }
};

}  // namespace tavlo
