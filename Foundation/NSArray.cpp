#include "Foundation/NSArray.h"

#include <utility>

#include "Foundation/Description.h"
#include "Foundation/KorTemplateLimits.h"
#include "Foundation/NSException.h"
#include "Foundation/NSKeyValueCoding.h"
#include "Foundation/WorkMeter.h"

namespace tavlo {

namespace {

class ArrayEnumerator final : public NSEnumerator {
 public:
  explicit ArrayEnumerator(Ref<NSArray> array) : array_(std::move(array)) {}

  Value nextObject() override { return next_ < array_->count() ? (*array_)[next_++] : Value(); }

 private:
  Ref<NSArray> array_;
  std::size_t next_ = 0;
};

void requireIndex(bool holds, std::size_t index, std::size_t count) {
  if (!holds) NSException::raise(NSRangeException, "Index %d is beyond a list of %d elements", index, count);
}

void requireUnsharedList(const NSObject& object) {
  if (object.isShared()) failAssertion("A list that is shared between threads cannot change");
}

}  // namespace

NSArray::NSArray(std::vector<Value> elements) : NSObject(ObjectKind::Array), elements_(std::move(elements)) {
  for (const Value& element : elements_) requireElement(element);
}

Ref<NSArray> NSArray::arrayWithObjects(ListArgument<Value> elements) {
  return makeRef<NSArray>(std::vector<Value>(elements.begin(), elements.end()));
}

void NSArray::requireElement(const Value& element) const {
  if (element.isAbsent()) NSException::raise(NSInvalidArgumentException, "A list's element cannot be absent");
}

const Value& NSArray::objectAtIndex(std::size_t index) const {
  requireIndex(index < elements_.size(), index, elements_.size());
  return elements_[index];
}

void NSArray::describe(Description& out) const {
  out.array(*this);
}

bool NSArray::isEqual(const NSObject& other, std::int32_t depth) const {
  if (other.kind() == ObjectKind::LazyList) return other.isEqual(*this, depth);
  if (other.kind() != ObjectKind::Array) return false;
  requireValueDepth(depth + 1);
  // By index, holding both: comparing may run a host's code, which may change the lists.
  const auto& otherElements = static_cast<const NSArray&>(other).elements_;
  if (elements_.size() != otherElements.size()) return false;
  const WorkCounter work;
  for (std::size_t index = 0; index < elements_.size() && index < otherElements.size(); ++index) {
    work.step();
    const Value left = elements_[index];
    const Value right = otherElements[index];
    if (!left.isEqual(right, depth + 1)) return false;
  }
  return elements_.size() == otherElements.size();
}

std::size_t NSArray::hash() const {
  return Value(Ref<NSArray>::retaining(const_cast<NSArray*>(this))).hash();  // NOLINT(*-const-cast): counted
}

bool NSArray::findValueForKey(const NSString& key, Value& value) const {
  return findValuesForKey(elements_, key, value);
}

Ref<NSEnumerator> NSArray::objectEnumerator() const {
  return makeRef<ArrayEnumerator>(
      Ref<NSArray>::retaining(const_cast<NSArray*>(this)));  // NOLINT(*-const-cast): counted
}

void NSMutableArray::addObject(Value element) {
  requireElement(element);
  requireUnsharedList(*this);
  elements_.push_back(std::move(element));
}

void NSMutableArray::insertObjectAtIndex(Value element, std::size_t index) {
  requireElement(element);
  requireUnsharedList(*this);
  requireIndex(index <= elements_.size(), index, elements_.size());
  elements_.insert(elements_.begin() + static_cast<std::ptrdiff_t>(index), std::move(element));
}

void NSMutableArray::replaceObjectAtIndex(std::size_t index, Value element) {
  requireElement(element);
  requireUnsharedList(*this);
  requireIndex(index < elements_.size(), index, elements_.size());
  elements_[index] = std::move(element);
}

void NSMutableArray::removeObjectAtIndex(std::size_t index) {
  requireUnsharedList(*this);
  requireIndex(index < elements_.size(), index, elements_.size());
  const Value removed = std::move(elements_[index]);  // let go of last
  elements_.erase(elements_.begin() + static_cast<std::ptrdiff_t>(index));
}

void NSMutableArray::removeAllObjects() {
  requireUnsharedList(*this);
  std::vector<Value>().swap(elements_);
}

}  // namespace tavlo
