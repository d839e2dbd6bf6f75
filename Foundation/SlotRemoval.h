#pragma once

#include <cstddef>
#include <cstdint>
#include <limits>
#include <vector>

namespace tavlo {

// Takes one entry out of a hash table of open addressing: its `slots`, a power of two of them, hold the indexes of
// entries that stand in an order of their own, the largest number where they are free. The entry's slot is found by
// `hashOf`, which answers the hash of the entry with an index; what stands behind that slot moves up, as in algorithm R
// of Knuth, "The Art of Computer Programming", 6.4. The indexes of the entries behind it are then one less; it stands
// among `count` entries still. One that is the last costs the same however many there are.
template <class HashOf>
void removeSlot(std::vector<std::uint32_t>& slots, std::uint32_t index, std::size_t count, const HashOf& hashOf) {
  constexpr std::uint32_t kNowhere = std::numeric_limits<std::uint32_t>::max();
  const std::size_t mask = slots.size() - 1;
  std::size_t free = hashOf(index) & mask;
  while (slots[free] != index) free = (free + 1) & mask;
  for (std::size_t slot = (free + 1) & mask; slots[slot] != kNowhere; slot = (slot + 1) & mask) {
    const std::size_t home = hashOf(slots[slot]) & mask;
    if (((slot - home) & mask) < ((slot - free) & mask)) continue;  // it would stand before its home
    slots[free] = slots[slot];
    free = slot;
  }
  slots[free] = kNowhere;
  if (index + std::size_t{1} == count) return;
  for (std::uint32_t& slot : slots) slot -= slot != kNowhere && slot > index ? 1 : 0;
}

}  // namespace tavlo
