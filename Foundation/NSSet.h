#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "Foundation/HashSeed.h"
#include "Foundation/ListArgument.h"
#include "Foundation/NSEnumerator.h"
#include "Foundation/NSObject.h"
#include "Foundation/Value.h"
#include "Foundation/WorkMeter.h"

namespace tavlo {

// Finds equal values fast. What they hold must not change.
class ValueSet {
 public:
  // Whether no equal value was there yet; it is from here on.
  bool insert(const Value& value) {
    if (value.isNumber() && !value.isEqual(value)) return true;  // a not-a-number: nothing equals it, so none is kept
    const std::uint64_t hash = hashOf(value);
    if (holds(value, hash, 0)) return false;
    if ((members_.size() + 1) * 2 > slots_.size()) makeRoom();
    members_.push_back({hash, value});
    putSlot(slots_, members_.size() - 1);
    hash_ += hash;
    return true;
  }
  // `depth`: how deep the collections lie whose values are compared.
  bool contains(const Value& value, std::int32_t depth = 0) const { return holds(value, hashOf(value), depth); }

  // Of all that is there, in whatever order it came.
  std::uint64_t hash() const { return HashSeed::ofProcess().completed(hash_, HashKind::Set, members_.size()); }

 private:
  static constexpr std::uint32_t kNowhere = UINT32_MAX;

  struct Member {
    std::uint64_t hash;
    Value value;
  };

  // Mixed, as a host's class may answer any.
  static std::uint64_t hashOf(const Value& value) { return HashSeed::ofProcess().mixed(value.hash(), 0); }

  bool holds(const Value& value, std::uint64_t hash, std::int32_t depth) const {
    if (slots_.empty()) return false;
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t slot = hash & mask; slots_[slot] != kNowhere; slot = (slot + 1) & mask) {
      const Member& member = members_[slots_[slot]];
      if (member.hash != hash) continue;
      if (value.isEqual(member.value, depth)) return true;
      WorkCounter().step();  // rare, unless somebody makes such values
    }
    return false;
  }

  void makeRoom() {
    constexpr std::size_t kFewest = 8;
    std::vector<std::uint32_t> slots(slots_.empty() ? kFewest : slots_.size() * 2, kNowhere);
    ElementCounter work;
    for (std::size_t index = 0; index < members_.size(); ++index) {
      work.next();
      putSlot(slots, index);
    }
    slots_.swap(slots);
  }
  void putSlot(std::vector<std::uint32_t>& slots, std::size_t index) const noexcept {
    const std::size_t mask = slots.size() - 1;
    std::size_t slot = members_[index].hash & mask;
    while (slots[slot] != kNowhere) slot = (slot + 1) & mask;
    slots[slot] = static_cast<std::uint32_t>(index);
  }

  std::vector<Member> members_;
  std::vector<std::uint32_t> slots_;  // open addressing over members_, a power of two; at least half of them are free
  std::uint64_t hash_ = 0;
};

// Values without equals among them, in the order in which they were put in.
class NSSet final : public NSObject {
 public:
  // Of equal values the first stays. Raises `NSInvalidArgumentException` when one is absent.
  explicit NSSet(const std::vector<Value>& members);

  static Ref<NSSet> setWithObjects(ListArgument<Value> members);

  std::size_t count() const noexcept { return members_.size(); }
  const std::vector<Value>& members() const noexcept { return members_; }
  bool containsObject(const Value& value) const;

  const char* className() const override { return "NSSet"; }
  void describe(Description& out) const override;
  bool isEqual(const NSObject& other, std::int32_t depth = 0) const override;
  // Computed with the set, so that sets inside sets are not walked again and again.
  std::size_t hash() const override { return index_.hash(); }
  bool findValueForKey(const NSString& key, Value& value) const override;
  Ref<NSEnumerator> objectEnumerator() const override;

 private:
  std::vector<Value> members_;
  ValueSet index_;
};

}  // namespace tavlo
