#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "Foundation/Name.h"
#include "Foundation/Ref.h"
#include "Foundation/SlotIndex.h"
#include "Foundation/Value.h"
#include "Foundation/WorkMeter.h"

namespace tavlo {

// Values by name, in the order in which the names were first set: compared one after another while there are few,
// hashed once there are many.
//
// Clearing keeps the names that stood in the entries, so that filling the map again with the same ones, as the scope of
// a loop or a function does, counts no reference to a name that other threads use too.
template <class T>
class NameMap {
 public:
  struct Entry {
    Name name;
    T value;
  };

  std::size_t size() const noexcept { return size_; }
  bool empty() const noexcept { return size_ == 0; }
  auto begin() const noexcept { return entries_.begin(); }
  auto end() const noexcept { return entries_.begin() + static_cast<std::ptrdiff_t>(size_); }

  // A bit for the name, which mayHold() asks for: whether the map holds one of the names that have that bit, or held
  // one lately.
  static std::uint64_t bitOf(const Name& name) noexcept { return std::uint64_t{1} << (name.hash() % 64); }
  bool mayHold(std::uint64_t bit) const noexcept { return (bits_ & bit) != 0; }
  // All bits for which it may hold a name.
  std::uint64_t bits() const noexcept { return bits_; }

  // The value, or null where there is none; good until the map changes.
  const T* find(const Name& name) const noexcept {
    const T* value = nullptr;
    if (findQuickly(name, value)) [[likely]]
      return value;
    const std::uint32_t index =
        slots_.find(name.hash(), [&](std::uint32_t entry) { return entries_[entry].name == name; });
    return index == SlotIndex::kNowhere ? nullptr : &entries_[index].value;
  }
  // The same without a call; false where that does not suffice.
  [[gnu::always_inline]] bool findQuickly(const Name& name, const T*& value) const noexcept {
    value = nullptr;
    if (isHashed()) [[unlikely]]
      return false;
    const Entry* entry = entries_.data();
    for (const Entry* last = entry + size_; entry != last; ++entry) {
      if (entry->name == name) {
        value = &entry->value;
        break;
      }
    }
    return true;
  }
  T* find(const Name& name) noexcept {
    return const_cast<T*>(std::as_const(*this).find(name));
  }  // NOLINT(*-const-cast)

  // Stores the value in place of an old one of that name, which it returns.
  T set(const Name& name, T value) {
    if (T* known = find(name)) return std::exchange(*known, std::move(value));
    append(name, std::move(value));
    return T();
  }

  // The same for a name that is known not to be there.
  template <class V>
  [[gnu::always_inline]] void append(const Name& name, V&& value) {
    Entry* const entry = entries_.data() + size_;
    if (entry == entries_.data() + entries_.size() || !(entry->name == name)) [[unlikely]]
      return appendNewName(name, T(std::forward<V>(value)));
    std::construct_at(&entry->value, std::forward<V>(value));  // over one that holds nothing
    ++size_;
    if (size_ > kSmall) [[unlikely]]
      addSlot();
  }

  // Moves those behind it up, which takes time for each of them.
  bool remove(const Name& name) {
    const std::size_t index = indexOf(name);
    if (index == size_) return false;
    if (isHashed()) slots_.remove(static_cast<std::uint32_t>(index), size_, hashes());
    countRemoval(size_ - index);
    const Entry removed = std::move(entries_[index]);  // let go of last
    entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(index));
    --size_;
    if (isHashed()) fitSlots();
    return true;
  }
  // Removes all of these that are there, in one pass over the entries: what stood there, for the caller to let go of.
  std::vector<T> removeAll(const std::vector<Name>& names) {
    std::vector<T> removed;
    removed.reserve(names.size());
    std::vector<bool> goes(size_ + 1);
    for (const Name& name : names) {
      const std::size_t index = indexOf(name);
      if (goes[index] || index == size_) continue;
      goes[index] = true;
      removed.push_back(std::move(entries_[index].value));
    }
    countRemoval(size_);
    std::size_t kept = 0;
    for (std::size_t index = 0; index < size_; ++index) {
      if (goes[index]) continue;
      if (kept != index) entries_[kept] = std::move(entries_[index]);
      ++kept;
    }
    entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(kept),
                   entries_.begin() + static_cast<std::ptrdiff_t>(size_));
    size_ = kept;
    if (isHashed()) {
      slots_.rebuild(slots_.size(), size_, hashes());
      fitSlots();
    }
    return removed;
  }

  // Lets go of all values from the `kept`-th on.
  void truncate(std::size_t kept) noexcept {
    (void)truncateWhile(kept, [](const T&) { return true; });
  }
  // The same, from the end, up to the first value that `mayGo` refuses; whether it refused none.
  template <class MayGo>
  bool truncateWhile(std::size_t kept, const MayGo& mayGo) noexcept {
    while (size_ > kept) {
      T& last = entries_[size_ - 1].value;
      if (!mayGo(std::as_const(last))) return false;
      --size_;
      letGo(last);
    }
    if (state_ != 0) [[unlikely]]
      shrink();
    return true;
  }
  void clear() noexcept { truncate(0); }

  // The value of the `index`-th entry.
  T& at(std::size_t index) noexcept { return entries_[index].value; }
  const Name& nameAt(std::size_t index) const noexcept { return entries_[index].name; }

 private:
  static constexpr std::size_t kSmall = 8;
  static constexpr std::size_t kMany = 128;
  static constexpr std::uint8_t kHashed = 1;
  static constexpr std::uint8_t kRoomy = 2;  // entries_ has had more than kMany
  static constexpr std::uint8_t kWordy = 4;  // a long name is, or was, among the entries
  static constexpr std::size_t kLongName = 64;

  bool isHashed() const noexcept { return (state_ & kHashed) != 0; }

  [[gnu::noinline]] void appendNewName(const Name& name, T value) {
    // Both may run out of memory; an entry is there, and its name noted, only once it can be found.
    if (size_ >= kSmall && !hasSlotsFor(size_ + 1)) growSlots(size_ + 1);
    if (size_ < entries_.size()) {
      entries_[size_].name = name;
      entries_[size_].value = std::move(value);
    } else {
      entries_.push_back({name, std::move(value)});
      if (entries_.size() > kMany) state_ |= kRoomy;
    }
    ++size_;
    if (size_ > kSmall) slots_.put(name.hash(), size_ - 1);
    if (name.view().size() > kLongName) state_ |= kWordy;
    noteName(name);
  }

  // The bits of names that are gone stay until there are too many. Those of names that stand behind the entries, and
  // may come back without being noted, are kept.
  void noteName(const Name& name) noexcept {
    constexpr int kManyBits = 16;
    if (std::popcount(bits_) > kManyBits && entries_.size() <= kSmall) {
      bits_ = 0;
      for (const Entry& entry : entries_) bits_ |= bitOf(entry.name);
    }
    bits_ |= bitOf(name);
  }

  auto hashes() const noexcept {
    return [this](std::size_t index) { return entries_[index].name.hash(); };
  }

  // The size where there is none.
  std::size_t indexOf(const Name& name) const noexcept {
    const T* const known = find(name);
    if (known == nullptr) return size_;
    return static_cast<std::size_t>(
        reinterpret_cast<const Entry*>(reinterpret_cast<const char*>(known) - offsetof(Entry, value)) -
        entries_.data());
  }

  // For the last entry, which goes again where there is no memory for that.
  [[gnu::noinline]] void addSlot() {
    if (hasSlotsFor(size_)) return slots_.put(entries_[size_ - 1].name.hash(), size_ - 1);
    try {
      growSlots(size_);
    } catch (...) {
      --size_;
      letGo(entries_[size_].value);
      throw;
    }
  }

  bool hasSlotsFor(std::size_t size) const noexcept { return isHashed() && slots_.hasRoomFor(size); }
  void growSlots(std::size_t size) {
    slots_.grow(SlotIndex::sizeFor(size), size_, hashes());
    state_ |= kHashed;
  }

  // Once entries have gone: there are no slots for few, and never many too many. Takes no memory.
  void fitSlots() noexcept {
    if (size_ <= kSmall) {
      slots_.clear();
      state_ &= ~kHashed;
    } else if (slots_.isTooLargeFor(size_)) {
      slots_.rebuild(SlotIndex::sizeFor(size_), size_, hashes());
    }
  }

  // What was hashed leaves no more behind than what never was, what was large no more memory once it is empty, and no
  // long name stays.
  [[gnu::noinline]] void shrink() noexcept {
    slots_.clear();
    state_ &= ~kHashed;
    if (size_ == 0 && (state_ & kRoomy) != 0) {
      std::vector<Entry>().swap(entries_);
      slots_.release();
      state_ = 0;
    }
    const std::size_t mostKept = (state_ & kWordy) != 0 ? 0 : kSmall;
    while (entries_.size() > mostKept && entries_.size() > size_) entries_.pop_back();
    if (size_ == 0) state_ &= ~kWordy;
  }

  static void letGo(Value& value) noexcept { value.clear(); }
  template <class Object>
  static void letGo(Ref<Object>& object) noexcept {
    object = nullptr;
  }

  std::uint64_t bits_ = 0;      // of the names, and maybe of others
  std::vector<Entry> entries_;  // the first size_ of them count
  std::size_t size_ = 0;
  std::uint8_t state_ = 0;  // kHashed, kRoomy, kWordy
  SlotIndex slots_;         // of the first size_ entries; empty while there are few
};

}  // namespace tavlo
