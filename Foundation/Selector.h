#pragma once

#include <cstddef>
#include <string_view>

#include "Foundation/Name.h"
#include "Foundation/Ref.h"
#include "Foundation/Value.h"

namespace tavlo {

class NSString;

// The name of a method, with a colon for each of its arguments: "priceInCurrency:discount:". An interned text: equal
// selectors compare by address.
class Selector {
 public:
  // The absent selector.
  constexpr Selector() noexcept = default;
  // NOLINTBEGIN(google-explicit-constructor): implicit on purpose
  constexpr Selector(std::nullptr_t) noexcept {}

  // Implicit on purpose: a method is asked for by its text; absent for a null pointer. Raises
  // `NSInvalidArgumentException` that names the byte offset when the text is not valid UTF-8.
  template <TextLike T>
  Selector(const T& text) : name_(text) {}
  // NOLINTEND(google-explicit-constructor)

  bool isAbsent() const noexcept { return name_.isAbsent(); }
  // The text; empty for an absent selector.
  std::string_view view() const noexcept { return name_.view(); }
  // How many arguments its text names: its colons.
  std::size_t numberOfArguments() const noexcept;

  friend bool operator==(const Selector& left, const Selector& right) noexcept = default;

  struct Hash {
    std::size_t operator()(const Selector& selector) const noexcept { return selector.name_.hash(); }
  };

 private:
  Name name_;
};

// A class, as a value of its own.
class ClassReference {
 public:
  // No class.
  constexpr ClassReference() noexcept = default;
  // That of the value; none for an absent one.
  explicit ClassReference(const Value& value) : name_(value.isAbsent() ? nullptr : value.className()) {}

  bool isAbsent() const noexcept { return name_ == nullptr; }
  // The class's name; empty for an absent class.
  std::string_view name() const noexcept { return name_ == nullptr ? std::string_view() : std::string_view(name_); }

  friend bool operator==(const ClassReference& left, const ClassReference& right) noexcept {
    return left.isAbsent() == right.isAbsent() && left.name() == right.name();
  }

 private:
  const char* name_ = nullptr;  // lives as long as the process
};

// Their texts; absent for an absent selector and an absent class.
Ref<NSString> NSStringFromSelector(const Selector& selector);      // NOLINT(readability-identifier-naming)
Ref<NSString> NSStringFromClass(const ClassReference& reference);  // NOLINT(readability-identifier-naming)

}  // namespace tavlo
