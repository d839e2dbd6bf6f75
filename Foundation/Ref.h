#pragma once

#include <concepts>
#include <cstddef>
#include <type_traits>
#include <utility>

namespace tavlo {

// A counted reference that owns its object and may be absent.
template <class T>
class Ref {
 public:
  Ref() noexcept = default;
  // NOLINTBEGIN(google-explicit-constructor): implicit on purpose
  Ref(std::nullptr_t) noexcept {}
  Ref(const Ref& other) noexcept : object_(other.object_) { retain(); }
  Ref(Ref&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}

  template <class U>
  requires std::convertible_to<U*, T*> Ref(const Ref<U>& other)
  noexcept : object_(other.get()) { retain(); }
  template <class U>
  requires std::convertible_to<U*, T*> Ref(Ref<U>&& other)
  noexcept : object_(other.leak()) {}
  // NOLINTEND(google-explicit-constructor)

  ~Ref() {
    if (object_ != nullptr) object_->release();
  }

  // The new object is held before the old one is let go, so that assigning an object to itself is safe.
  Ref& operator=(Ref other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }

  // Takes over a reference that the caller holds.
  static Ref adopt(T* object) noexcept {
    Ref result;
    result.object_ = object;
    return result;
  }

  // Takes a further reference to an object that somebody else holds; absent for a null pointer.
  static Ref retaining(T* object) noexcept {
    Ref result = adopt(object);
    result.retain();
    return result;
  }

  // Gives the reference to the caller, who must release it.
  [[nodiscard]] T* leak() noexcept { return std::exchange(object_, nullptr); }

  T* get() const noexcept { return object_; }
  T* operator->() const noexcept { return object_; }
  T& operator*() const noexcept { return *object_; }
  explicit operator bool() const noexcept { return object_ != nullptr; }

  friend bool operator==(const Ref& left, const Ref& right) noexcept { return left.object_ == right.object_; }
  friend bool operator==(const Ref& left, std::nullptr_t) noexcept { return left.object_ == nullptr; }

 private:
  void retain() const noexcept {
    if (object_ != nullptr) object_->retain();
  }

  T* object_ = nullptr;
};

// A new object with its first reference.
template <class T, class... Arguments>
Ref<T> makeRef(Arguments&&... arguments) {
  return Ref<T>::adopt(new T(std::forward<Arguments>(arguments)...));
}

}  // namespace tavlo
