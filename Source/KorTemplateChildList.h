#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "Foundation/ListArgument.h"
#include "Foundation/NSException.h"
#include "Foundation/Name.h"
#include "Foundation/ObjectArena.h"
#include "Foundation/Ref.h"

namespace tavlo {

// How a list tells its items apart.
template <class T>
bool isAbsentItem(const Ref<T>& item) {
  return item == nullptr;
}
inline bool isAbsentItem(const Name& item) {
  return item.isAbsent();
}
template <class T>
bool areEqualItems(const Ref<T>& left, const Ref<T>& right) {
  return left == right || left->isEqual(*right);
}
inline bool areEqualItems(const Name& left, const Name& right) {
  return left == right;
}

// The ordered children of a node: nodes by reference, or names. Every mutator checks before it changes anything.
template <class Item>
class KorTemplateChildList {
 public:
  // The names appear in failed checks: ("loopStatements", "loopStatement").
  KorTemplateChildList(const char* listName, const char* itemName) : listName_(listName), itemName_(itemName) {}
  KorTemplateChildList(const KorTemplateChildList&) = delete;
  KorTemplateChildList& operator=(const KorTemplateChildList&) = delete;

  // Callers may change the list while it is walked: ask anew at each step.
  std::int32_t count() const noexcept { return static_cast<std::int32_t>(count_); }
  bool empty() const noexcept { return count_ == 0; }
  // Unchecked: `index` is below count().
  const Item& operator[](std::int32_t index) const noexcept { return items_[static_cast<std::size_t>(index)]; }
  // Raises `NSRangeException` outside the list.
  const Item& at(std::int32_t index) const {
    if (index < 0 || index >= count()) {
      NSException::raise(NSRangeException, "Index %d is beyond a list of %d elements", index, count());
    }
    return (*this)[index];
  }
  auto begin() const noexcept { return items_.begin(); }
  auto end() const noexcept { return items_.begin() + static_cast<std::ptrdiff_t>(count_); }
  // Hands each item to `body`, which may change the list.
  template <class Body>
  void forEach(const Body& body) const {
    for (std::int32_t index = 0; index < count(); ++index) {
      const Item item = (*this)[index];
      body(item);
    }
  }
  std::vector<Item> items() const { return {begin(), end()}; }

  // A copy of the list; what is in it is shared.
  void set(const ListArgument<Item>& value) {
    requireParameter(!value.isAbsent(), "value != nil");
    for (const Item& item : value) requireItem(item);
    Items copy(value.begin(), value.end());
    items_.swap(copy);
    count_ = items_.size();
  }
  void insert(const Item& item, std::int32_t index) {
    requireItem(item);
    requireIndex(index, index <= count(), "<=");
    items_.insert(items_.begin() + index, item);
    ++count_;
  }
  void add(const Item& item) { insert(item, count()); }
  void removeAt(std::int32_t index) {
    requireIndex(index, index < count(), "<");
    const Item removed = std::move(items_[static_cast<std::size_t>(index)]);  // let go of last
    items_.erase(items_.begin() + index);
    --count_;
  }
  // The first equal one; where there is none, the index check of removeAt() fails.
  void remove(const Item& wanted) {
    requireItem(wanted);
    const Item item = wanted;  // NOLINT(performance-unnecessary-copy-initialization): it may lie in this very list
    std::int32_t index = 0;
    for (; index < count(); ++index) {
      const Item candidate = (*this)[index];  // comparing may run a host's code, which may change the list
      if (areEqualItems(candidate, item)) break;
    }
    removeAt(index < count() ? index : -1);
  }
  // One at a time from the front, as far as anybody can see.
  void removeAll() {
    count_ = 0;
    const Items removed = std::exchange(items_, {});
  }

  // What the engine uses where the checks have been made: items that are taken from the end stay behind it, as spare
  // ones for the next.

  // The item behind the last, as it was left there; null where there is none.
  Item* spare() noexcept {
    Item* const next = items_.data() + count_;
    return next != items_.data() + items_.size() ? next : nullptr;
  }
  // Unchecked: the list is not empty.
  const Item& last() const noexcept { return items_[count_ - 1]; }
  void takeSpare() noexcept { ++count_; }
  void append(Item item) {
    if (Item* left = spare()) {
      *left = std::move(item);
    } else {
      constexpr std::size_t kFew = 4;  // most bodies and argument lists hold no more
      if (items_.capacity() == 0) items_.reserve(kFew);
      items_.push_back(std::move(item));
    }
    ++count_;
  }
  // Lets go of most spare ones, where there are very many.
  void trimSpare() noexcept {
    constexpr std::size_t kMostSpare = 1024;
    if (items_.size() - count_ > kMostSpare) [[unlikely]]
      items_.erase(items_.begin() + static_cast<std::ptrdiff_t>(count_ + kMostSpare), items_.end());
  }
  // Leaves the last item as the first spare one.
  void leaveLast() noexcept { --count_; }
  // Takes the last item away, and the spare ones with it.
  Item takeLast() noexcept {
    Item last = std::move(items_[--count_]);
    items_.resize(count_);
    return last;
  }

 private:
  using Items = std::vector<Item, ObjectArena::Allocator<Item>>;

  void requireItem(const Item& item) const {
    if (isAbsentItem(item)) [[unlikely]]
      failParameter((std::string(itemName_) + " != nil").c_str());
  }
  void requireIndex(std::int32_t index, bool belowBound, const char* relation) const {
    if (index >= 0 && belowBound) [[likely]]
      return;
    failParameter(("index >= 0 && index " + std::string(relation) + " [" + listName_ + " count]").c_str());
  }

  const char* listName_;
  const char* itemName_;
  Items items_;  // the first count_ of them are the list
  std::size_t count_ = 0;
};

}  // namespace tavlo
