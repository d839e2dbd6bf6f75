#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "Foundation/WorkMeter.h"

namespace tavlo {

// Finds the entries of a table, which stand in an order of their own, by the hashes of their keys: a hash table of open
// addressing with linear probing, whose slots hold the indexes of the entries. The slots are a power of two, and some
// are free; while a table is small it may do without any. What the owner of the entries is asked for, `HashOf`, answers
// the hash of the entry with an index, of which the lowest bits count.
class SlotIndex {
 public:
  static constexpr std::uint32_t kNowhere = UINT32_MAX;

  // Whether there are no slots; nothing can be looked for, put in or taken out then.
  bool empty() const noexcept { return slots_.empty(); }
  std::size_t size() const noexcept { return slots_.size(); }
  // Whether half of the slots are free still with so many entries.
  bool hasRoomFor(std::size_t count) const noexcept { return count * 2 <= slots_.size(); }
  // Whether going through the slots costs more than going through so few entries.
  bool isTooLargeFor(std::size_t count) const noexcept { return count * 16 < slots_.size(); }
  // How many slots there should be for so many entries and more that come.
  static std::size_t sizeFor(std::size_t count) noexcept {
    std::size_t size = kFewest;
    while (size < count * 4) size *= 2;
    return size;
  }

  // The index of the first entry with that hash, or with one that shares slots with it, for which `matches` answers
  // true; kNowhere where there is none.
  template <class Matches>
  std::uint32_t find(std::size_t hash, const Matches& matches) const {
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t slot = hash & mask;; slot = (slot + 1) & mask) {
      const std::uint32_t index = slots_[slot];
      if (index == kNowhere || matches(index)) return index;
    }
  }

  // For an entry that is not there yet, and for which there is room.
  void put(std::size_t hash, std::size_t index) noexcept { put(slots_, hash, index); }

  // Puts the first `count` entries into so many slots. Looks at the clock from time to time; where that raises, or
  // there is no memory for so many, the old slots stay.
  template <class HashOf>
  void grow(std::size_t size, std::size_t count, const HashOf& hashOf) {
    if (count < kEntriesBetweenLooks && size <= slots_.capacity()) return rebuild(size, count, hashOf);
    std::vector<std::uint32_t> slots(size, kNowhere);
    for (std::size_t index = 0; index < count; ++index) {
      if (index % kEntriesBetweenLooks == kEntriesBetweenLooks - 1) lookBeforeHost();
      put(slots, hashOf(index), index);
    }
    slots_.swap(slots);
  }
  // The same into no more slots than there are, or were, at once and without taking memory.
  template <class HashOf>
  void rebuild(std::size_t size, std::size_t count, const HashOf& hashOf) noexcept {
    slots_.assign(size, kNowhere);
    for (std::size_t index = 0; index < count; ++index) put(slots_, hashOf(index), index);
  }

  // Takes one entry out, which stands among `count` of them still: what stands behind its slot moves up, as in
  // algorithm R of Knuth, "The Art of Computer Programming", 6.4. The indexes of the entries behind it are then one
  // less; to take out the last one costs the same however many there are.
  template <class HashOf>
  void remove(std::uint32_t index, std::size_t count, const HashOf& hashOf) noexcept {
    const std::size_t mask = slots_.size() - 1;
    std::size_t free = hashOf(index) & mask;
    while (slots_[free] != index) free = (free + 1) & mask;
    for (std::size_t slot = (free + 1) & mask; slots_[slot] != kNowhere; slot = (slot + 1) & mask) {
      const std::size_t home = hashOf(slots_[slot]) & mask;
      if (((slot - home) & mask) < ((slot - free) & mask)) continue;  // it would stand before its home
      slots_[free] = slots_[slot];
      free = slot;
    }
    slots_[free] = kNowhere;
    if (index + std::size_t{1} == count) return;
    for (std::uint32_t& slot : slots_) slot -= slot != kNowhere && slot > index ? 1 : 0;
  }

  // Leaves no slots, but keeps their memory for others.
  void clear() noexcept { slots_.clear(); }
  // Gives that back, too.
  void release() noexcept { std::vector<std::uint32_t>().swap(slots_); }

 private:
  static constexpr std::size_t kFewest = 32;
  static constexpr std::size_t kEntriesBetweenLooks = 4096;

  static void put(std::vector<std::uint32_t>& slots, std::size_t hash, std::size_t index) noexcept {
    const std::size_t mask = slots.size() - 1;
    std::size_t slot = hash & mask;
    while (slots[slot] != kNowhere) slot = (slot + 1) & mask;
    slots[slot] = static_cast<std::uint32_t>(index);
  }

  std::vector<std::uint32_t> slots_;
};

}  // namespace tavlo
