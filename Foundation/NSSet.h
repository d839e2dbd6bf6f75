#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_set>
#include <utility>
#include <vector>

#include "Foundation/ListArgument.h"
#include "Foundation/NSEnumerator.h"
#include "Foundation/NSObject.h"
#include "Foundation/Value.h"

namespace tavlo {

// Finds equal values fast; keeps none of them.
class ValueSet {
 public:
  // Whether the value was not there yet; it is from here on.
  bool insert(const Value& value) { return values_.insert(value).second; }
  bool contains(const Value& value) const { return values_.contains(value); }

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
  struct Hash {
    std::size_t operator()(const Value& value) const { return value.hash(); }
  };
  struct Equal {
    bool operator()(const Value& left, const Value& right) const { return left.isEqual(right, depth_); }
  };
  static thread_local std::int32_t depth_;

  std::unordered_set<Value, Hash, Equal> values_;
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
  std::size_t hash() const override;
  bool findValueForKey(const NSString& key, Value& value) const override;
  Ref<NSEnumerator> objectEnumerator() const override;

 private:
  std::vector<Value> members_;
  ValueSet index_;
};

}  // namespace tavlo
