#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
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

// Which list of a node it is, for failed checks to name.
enum class KorTemplateChildListRole : std::uint8_t {
  Statements,
  TrueStatements,
  FalseStatements,
  LoopStatements,
  Arguments,
  ArgumentExpressions,
  Frames
};

// The ordered children of a node: nodes by reference, or names. Every mutator checks before it changes anything.
template <class Item>
class KorTemplateChildList {
 public:
  explicit KorTemplateChildList(KorTemplateChildListRole role) noexcept : role_(role) {}
  ~KorTemplateChildList() {
    std::destroy_n(items_, size_);
    if (items_ != nullptr) Memory().deallocate(items_, capacity_);
  }
  KorTemplateChildList(const KorTemplateChildList&) = delete;
  KorTemplateChildList& operator=(const KorTemplateChildList&) = delete;

  // Callers may change the list while it is walked: ask anew at each step.
  std::int32_t count() const noexcept { return static_cast<std::int32_t>(count_); }
  bool empty() const noexcept { return count_ == 0; }
  // Unchecked: `index` is below count().
  const Item& operator[](std::int32_t index) const noexcept { return items_[index]; }
  // Raises `NSRangeException` outside the list.
  const Item& at(std::int32_t index) const {
    if (index < 0 || index >= count()) {
      NSException::raise(NSRangeException, "Index %d is beyond a list of %d elements", index, count());
    }
    return (*this)[index];
  }
  const Item* begin() const noexcept { return items_; }
  const Item* end() const noexcept { return items_ + count_; }
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
    KorTemplateChildList copy(role_);
    copy.reserve(value.size());
    for (const Item& item : value) copy.append(item);
    swap(copy);
  }
  void insert(const Item& item, std::int32_t index) {
    requireItem(item);
    requireIndex(index, index <= count(), "<=");
    put(item);
    std::rotate(items_ + index, items_ + size_ - 1, items_ + size_);
    ++count_;
  }
  void add(const Item& item) { insert(item, count()); }
  void removeAt(std::int32_t index) {
    requireIndex(index, index < count(), "<");
    std::rotate(items_ + index, items_ + index + 1, items_ + size_);
    const Item removed = std::move(items_[--size_]);  // let go of last
    std::destroy_at(items_ + size_);
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
  void removeAll() noexcept {
    KorTemplateChildList removed(role_);
    swap(removed);
  }

  // What the engine uses where the checks have been made: items that are taken from the end stay behind it, as spare
  // ones for the next.

  // The item behind the last, as it was left there; null where there is none.
  Item* spare() noexcept { return count_ < size_ ? items_ + count_ : nullptr; }
  // Unchecked: the list is not empty.
  const Item& last() const noexcept { return items_[count_ - 1]; }
  void takeSpare() noexcept { ++count_; }
  void append(Item item) {
    if (Item* left = spare()) {
      *left = std::move(item);
    } else {
      put(std::move(item));
    }
    ++count_;
  }
  // Takes all of them over, in room for no more.
  void appendMoved(std::span<Item> items) {
    leaveSpare(0);
    reserve(size_ + items.size());
    for (Item& item : items) put(std::move(item));
    count_ = size_;
  }
  // Lets go of most spare ones, where there are very many, and of their room.
  void trimSpare() noexcept {
    constexpr std::uint32_t kMostSpare = 1024;
    if (size_ - count_ <= kMostSpare) [[likely]]
      return;
    leaveSpare(kMostSpare);
    leaveRoom(std::size_t{size_} * 2);
  }
  // Leaves the last item as the first spare one.
  void leaveLast() noexcept { --count_; }
  // Takes the last item away, and the spare ones with it.
  Item takeLast() noexcept {
    Item last = std::move(items_[--count_]);
    leaveSpare(0);
    return last;
  }

 private:
  using Memory = ObjectArena::Allocator<Item>;

  static_assert(std::is_nothrow_move_constructible_v<Item> && std::is_nothrow_move_assignable_v<Item>);

  void swap(KorTemplateChildList& other) noexcept {
    std::swap(items_, other.items_);
    std::swap(count_, other.count_);
    std::swap(size_, other.size_);
    std::swap(capacity_, other.capacity_);
  }
  void leaveSpare(std::uint32_t spare) noexcept {
    while (size_ > count_ + spare) {
      const Item removed = std::move(items_[--size_]);
      std::destroy_at(items_ + size_);
    }
  }
  // Gives back what is more room; where there is no memory for less, it stays.
  void leaveRoom(std::size_t capacity) noexcept {
    if (capacity >= capacity_) return;
    try {
      moveTo(capacity);
    } catch (const std::bad_alloc&) {
      return;
    }
  }
  // One more behind all that there are; it may be one of them.
  void put(Item item) {
    constexpr std::size_t kFew = 4;  // most bodies and argument lists hold no more
    if (size_ == capacity_) [[unlikely]]
      reserve(std::max(kFew, std::size_t{capacity_} * 2));
    std::construct_at(items_ + size_++, std::move(item));
  }
  void reserve(std::size_t capacity) {
    if (capacity <= capacity_) return;
    if (capacity > std::numeric_limits<std::int32_t>::max()) throw std::length_error("too many children");
    moveTo(capacity);
  }
  // Into room for so many, which are no fewer than there are.
  void moveTo(std::size_t capacity) {
    Item* const items = Memory().allocate(capacity);
    std::uninitialized_move_n(items_, size_, items);
    std::destroy_n(items_, size_);
    if (items_ != nullptr) Memory().deallocate(items_, capacity_);
    items_ = items;
    capacity_ = static_cast<std::uint32_t>(capacity);
  }
  // What messages call the list; an item's name is the same without the last letter.
  std::string_view name() const noexcept {
    constexpr std::string_view kNames[] = {"statements", "trueStatements",      "falseStatements", "loopStatements",
                                           "arguments",  "argumentExpressions", "frames"};
    return kNames[static_cast<std::size_t>(role_)];
  }
  void requireItem(const Item& item) const {
    if (isAbsentItem(item)) [[unlikely]]
      failParameter((std::string(name().substr(0, name().size() - 1)) + " != nil").c_str());
  }
  void requireIndex(std::int32_t index, bool belowBound, const char* relation) const {
    if (index >= 0 && belowBound) [[likely]]
      return;
    failParameter(("index >= 0 && index " + std::string(relation) + " [" + std::string(name()) + " count]").c_str());
  }

  Item* items_ = nullptr;    // owned; null without capacity
  std::uint32_t count_ = 0;  // of the items in the list
  std::uint32_t size_ = 0;   // of those and the spare ones
  std::uint32_t capacity_ = 0;
  KorTemplateChildListRole role_;
};

}  // namespace tavlo
