#pragma once

#include <cstddef>
#include <initializer_list>
#include <span>
#include <vector>

namespace tavlo {

// A list lent for the call, made from a vector, a span or braces; absent from `nullptr`, which is not an empty list.
template <class T>
class ListArgument {
 public:
  // NOLINTBEGIN(google-explicit-constructor): implicit on purpose
  ListArgument(std::nullptr_t) noexcept {}
  ListArgument(std::span<const T> items) noexcept : items_(items), present_(true) {}
  ListArgument(const std::vector<T>& items) noexcept : items_(items), present_(true) {}
  ListArgument(std::initializer_list<T> items) noexcept : items_(items.begin(), items.size()), present_(true) {}
  // NOLINTEND(google-explicit-constructor)

  bool isAbsent() const noexcept { return !present_; }
  std::size_t size() const noexcept { return items_.size(); }
  bool empty() const noexcept { return items_.empty(); }
  const T& operator[](std::size_t index) const noexcept { return items_[index]; }
  auto begin() const noexcept { return items_.begin(); }
  auto end() const noexcept { return items_.end(); }
  std::span<const T> span() const noexcept { return items_; }

 private:
  std::span<const T> items_;
  bool present_ = false;
};

}  // namespace tavlo
