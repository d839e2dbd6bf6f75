#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "Foundation/HashSeed.h"
#include "Foundation/ListArgument.h"
#include "Foundation/NSEnumerator.h"
#include "Foundation/NSObject.h"
#include "Foundation/SlotIndex.h"
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
    if (!slots_.hasRoomFor(members_.size() + 1)) makeRoom();
    members_.push_back({hash, value});
    slots_.put(hash, members_.size() - 1);
    hash_ += hash;
    return true;
  }
  // `depth`: how deep the collections lie whose values are compared.
  bool contains(const Value& value, std::int32_t depth = 0) const { return holds(value, hashOf(value), depth); }

  // Of all that is there, in whatever order it came.
  std::uint64_t hash() const { return HashSeed::ofProcess().completed(hash_, HashKind::Set, members_.size()); }

 private:
  struct Member {
    std::uint64_t hash;
    Value value;
  };

  // Mixed, as a host's class may answer any.
  static std::uint64_t hashOf(const Value& value) { return HashSeed::ofProcess().mixed(value.hash(), 0); }

  bool holds(const Value& value, std::uint64_t hash, std::int32_t depth) const {
    if (slots_.empty()) return false;
    const std::uint32_t index = slots_.find(hash, [&](std::uint32_t entry) {
      const Member& member = members_[entry];
      if (member.hash != hash) return false;
      if (value.isEqual(member.value, depth)) return true;
      WorkCounter().step();  // rare, unless somebody makes such values
      return false;
    });
    return index != SlotIndex::kNowhere;
  }

  void makeRoom() {
    constexpr std::size_t kFewest = 8;
    slots_.grow(slots_.empty() ? kFewest : slots_.size() * 2, members_.size(),
                [this](std::size_t index) { return members_[index].hash; });
  }

  std::vector<Member> members_;
  SlotIndex slots_;  // of members_
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
  // The same for who needs the set no more, which has none from here on.
  std::vector<Value> takeMembers() && { return std::move(members_); }
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
