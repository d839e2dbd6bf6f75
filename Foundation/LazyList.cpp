#include "Foundation/LazyList.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "Foundation/Description.h"
#include "Foundation/KorTemplateLimits.h"
#include "Foundation/NSKeyValueCoding.h"
#include "Foundation/StackGuard.h"
#include "Foundation/WorkMeter.h"

namespace tavlo {

namespace {

class ListEnumerator final : public NSEnumerator {
 public:
  explicit ListEnumerator(Ref<LazyList> list) : list_(std::move(list)) {}

  Value nextObject() override {
    if (!list_->isQuiet()) checkStack();  // the host's code may ask another list
    return list_->elementAt(next_++, reused_);
  }

 private:
  Ref<LazyList> list_;
  std::size_t next_ = 0;
  ReusableInstances reused_;
};

// Before the list is asked, which may be a class of the host's.
void lookBefore(const LazyList& list) {
  if (!list.isQuiet()) lookBeforeHost();
}

// The element of an array or of a lazy list; absent where it is not so long.
Value elementOf(const NSObject& list, std::size_t index) {
  if (list.kind() == ObjectKind::LazyList) {
    ReusableInstances reused;
    lookBefore(static_cast<const LazyList&>(list));
    return static_cast<const LazyList&>(list).elementAt(index, reused);
  }
  const auto& array = static_cast<const NSArray&>(list);
  return index < array.count() ? array[index] : Value();
}

std::size_t countOf(const NSObject& list) {
  if (list.kind() != ObjectKind::LazyList) return static_cast<const NSArray&>(list).count();
  lookBefore(static_cast<const LazyList&>(list));
  return static_cast<const LazyList&>(list).count();
}

}  // namespace

LazyList::~LazyList() = default;

bool LazyList::isQuiet() const noexcept {
  return false;
}

Ref<NSArray> LazyList::array() const {
  constexpr std::size_t kMostReserved = std::size_t{1} << 20U;
  checkStack();  // the host's code may ask another list, and so on
  std::vector<Value> elements;
  elements.reserve(std::min(countOf(*this), kMostReserved));  // a host may answer any count
  ReusableInstances reused;
  const WorkCounter work;
  for (std::size_t index = 0;; ++index) {
    work.step();
    lookBefore(*this);
    Value element = elementAt(index, reused);
    if (element.isAbsent()) break;
    elements.push_back(std::move(element));
  }
  return makeRef<NSArray>(std::move(elements));
}

const char* LazyList::className() const {
  return "NSArray";
}

void LazyList::describe(Description& out) const {
  out.array(*array());
}

bool LazyList::isEqual(const NSObject& other, std::int32_t depth) const {
  if (other.kind() != ObjectKind::Array && other.kind() != ObjectKind::LazyList) return false;
  requireValueDepth(depth + 1);
  checkStack();
  if (countOf(*this) != countOf(other)) return false;
  const WorkCounter work;
  for (std::size_t index = 0;; ++index) {
    work.step();
    const Value left = elementOf(*this, index);
    const Value right = elementOf(other, index);
    if (left.isAbsent() || right.isAbsent()) return left.isAbsent() && right.isAbsent();
    if (!left.isEqual(right, depth + 1)) return false;
  }
}

std::size_t LazyList::hash() const {
  return array()->hash();
}

bool LazyList::findValueForKey(const NSString& key, Value& value) const {
  return findValuesForKey(*requireEnumerator(*this), key, value);
}

Ref<NSEnumerator> LazyList::objectEnumerator() const {
  return makeRef<ListEnumerator>(
      Ref<LazyList>::retaining(const_cast<LazyList*>(this)));  // NOLINT(*-const-cast): counted
}

}  // namespace tavlo
