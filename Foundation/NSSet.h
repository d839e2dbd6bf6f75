#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_set>
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
    const Member member{value.hash(), value};
    if (!members_.insert(member).second) return false;
    hash_ += HashSeed::ofProcess().mixed(member.hash, 0);
    return true;
  }
  // `depth`: how deep the collections lie whose values are compared.
  bool contains(const Value& value, std::int32_t depth = 0) const {
    return members_.contains(Sought{value.hash(), value, depth});
  }

  // Of all that is there, in whatever order it came.
  std::uint64_t hash() const { return HashSeed::ofProcess().completed(hash_, HashKind::Set, members_.size()); }

 private:
  struct Member {
    std::size_t hash;
    Value value;
  };
  struct Sought {
    std::size_t hash;
    const Value& value;
    std::int32_t depth;
  };
  struct Hash {
    using is_transparent = void;
    std::size_t operator()(const Member& member) const noexcept { return member.hash; }
    std::size_t operator()(const Sought& sought) const noexcept { return sought.hash; }
  };
  struct Equal {
    using is_transparent = void;
    bool operator()(const Member& left, const Member& right) const {
      return (*this)(Sought{left.hash, left.value, 0}, right);
    }
    bool operator()(const Member& left, const Sought& right) const { return (*this)(right, left); }
    bool operator()(const Sought& left, const Member& right) const {
      if (left.hash != right.hash) return false;
      const bool areEqual = left.value.isEqual(right.value, left.depth);
      if (!areEqual) WorkCounter().step();  // rare, unless somebody makes such values
      return areEqual;
    }
  };

  std::unordered_set<Member, Hash, Equal> members_;
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
