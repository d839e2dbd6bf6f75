#include "Foundation/NSSet.h"

#include <algorithm>
#include <utility>

#include "Foundation/Description.h"
#include "Foundation/KorTemplateLimits.h"
#include "Foundation/NSException.h"
#include "Foundation/NSKeyValueCoding.h"
#include "Foundation/WorkMeter.h"

namespace tavlo {

namespace {

class SetEnumerator final : public NSEnumerator {
 public:
  explicit SetEnumerator(Ref<NSSet> set) : set_(std::move(set)) {}

  Value nextObject() override { return next_ < set_->count() ? set_->members()[next_++] : Value(); }

 private:
  Ref<NSSet> set_;
  std::size_t next_ = 0;
};

}  // namespace

NSSet::NSSet(const std::vector<Value>& members) : NSObject(ObjectKind::Set) {
  const WorkCounter work;
  // Hashing may run a host's code, which may change them.
  for (std::size_t index = 0; index < members.size(); ++index) {
    const Value member = members[index];
    work.step();
    if (member.isAbsent()) NSException::raise(NSInvalidArgumentException, "A set's member cannot be absent");
    if (index_.insert(member)) members_.push_back(member);
  }
}

Ref<NSSet> NSSet::setWithObjects(ListArgument<Value> members) {
  return makeRef<NSSet>(std::vector<Value>(members.begin(), members.end()));
}

bool NSSet::containsObject(const Value& value) const {
  const Ref<const NSSet> itself = Ref<const NSSet>::retaining(this);  // comparing may run a host's code
  return index_.contains(value);
}

void NSSet::describe(Description& out) const {
  out.set(*this);
}

bool NSSet::isEqual(const NSObject& other, std::int32_t depth) const {
  if (other.kind() != ObjectKind::Set) return false;
  requireValueDepth(depth + 1);
  const auto& otherSet = static_cast<const NSSet&>(other);
  const WorkCounter work;
  return count() == otherSet.count() && std::ranges::all_of(members_, [&](const Value& member) {
           work.step();
           return otherSet.index_.contains(member, depth + 1);
         });
}

bool NSSet::findValueForKey(const NSString& key, Value& value) const {
  return findValuesForKey(members_, key, value);
}

Ref<NSEnumerator> NSSet::objectEnumerator() const {
  return makeRef<SetEnumerator>(Ref<NSSet>::retaining(const_cast<NSSet*>(this)));  // NOLINT(*-const-cast): counted
}

}  // namespace tavlo
