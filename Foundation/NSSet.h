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
  bool contains(const Value& value) const { return members_.contains({value.hash(), value}); }

  // Of all that is there, in whatever order it came.
  std::uint64_t hash() const { return HashSeed::ofProcess().completed(hash_, HashKind::Set, members_.size()); }

  // While it stands, values are compared as those of collections that lie that deep.
  class AtDepth {
   public:
    explicit AtDepth(std::int32_t inner) : outer_(std::exchange(depth_, inner)) {}
    ~AtDepth() { depth_ = outer_; }
    AtDepth(const AtDepth&) = delete;
    AtDepth& operator=(const AtDepth&) = delete;

   private:
    std::int32_t outer_;
  };

 private:
  struct Member {
    std::size_t hash;
    Value value;
  };
  struct Hash {
    std::size_t operator()(const Member& member) const noexcept { return member.hash; }
  };
  struct Equal {
    bool operator()(const Member& left, const Member& right) const {
      if (left.hash != right.hash) return false;
      const bool areEqual = left.value.isEqual(right.value, depth_);
      if (!areEqual) WorkCounter().step();  // rare, unless somebody makes such values
      return areEqual;
    }
  };
  static thread_local std::int32_t depth_;

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
  bool containsObject(const Value& value) const { return index_.contains(value); }

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
