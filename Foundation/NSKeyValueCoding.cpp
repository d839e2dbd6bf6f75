#include "Foundation/NSKeyValueCoding.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <utility>

#include "Foundation/HeldParts.h"
#include "Foundation/HostCalls.h"
#include "Foundation/HostInstance.h"
#include "Foundation/KorTemplateLimits.h"
#include "Foundation/LazyDictionary.h"
#include "Foundation/LazyList.h"
#include "Foundation/NSArray.h"
#include "Foundation/NSDictionary.h"
#include "Foundation/NSException.h"
#include "Foundation/NSNumber.h"
#include "Foundation/NSSet.h"
#include "Foundation/StackGuard.h"
#include "Foundation/Utf8.h"
#include "Foundation/WorkMeter.h"

namespace tavlo {

namespace {

std::string numberText(const Value& number) {
  char text[kNumberTextSize];
  char* const end = writeNumber(text, number.peek());
  requireStringLength(static_cast<std::uint64_t>(end - text));
  return {text, end};
}

struct NumberProperty {
  std::string_view key;
  Value (*read)(const Value& number);
};

constexpr NumberProperty kNumberProperties[] = {
    {"intValue", [](const Value& number) -> Value { return number.intValue(); }},
    {"integerValue", [](const Value& number) -> Value { return number.integerValue(); }},
    {"doubleValue", [](const Value& number) -> Value { return number.doubleValue(); }},
    {"boolValue", [](const Value& number) -> Value { return number.boolValue(); }},
    {"stringValue", [](const Value& number) -> Value { return numberText(number); }},
    {"description", [](const Value& number) -> Value { return numberText(number); }},
};

bool findValueOfNumber(const Value& number, const NSString& key, Value& value) {
  for (const NumberProperty& property : kNumberProperties) {
    if (property.key != key.view()) continue;
    value = property.read(number);
    return true;
  }
  return false;
}

// The elements of an array or a set; null for every other value.
const std::vector<Value>* elementsOf(const Value& value) {
  const NSObject* object = value.object();
  if (object == nullptr) return nullptr;
  if (object->kind() == ObjectKind::Array) return &static_cast<const NSArray*>(object)->elements();
  return object->kind() == ObjectKind::Set ? &static_cast<const NSSet*>(object)->members() : nullptr;
}

// The object of a described class that the value is; null for every other value.
const HostInstance* hostInstance(const Value& value) noexcept {
  const NSObject* const object = value.object();
  return object != nullptr && object->kind() == ObjectKind::HostObject ? static_cast<const HostInstance*>(object)
                                                                       : nullptr;
}

// Whether collection operators read the value.
bool isCollection(const Value& value) {
  const NSObject* object = value.object();
  if (object == nullptr) return false;
  const ObjectKind kind = object->kind();
  return kind == ObjectKind::Array || kind == ObjectKind::Set || kind == ObjectKind::LazyList ||
         kind == ObjectKind::LazySequence;
}

std::size_t countOf(const Value& collection) {
  if (const std::vector<Value>* elements = elementsOf(collection)) return elements->size();
  if (collection.object()->kind() == ObjectKind::LazyList) {
    return static_cast<const LazyList*>(collection.object())->count();
  }
  std::size_t count = 0;
  const WorkCounter work;
  const Ref<NSEnumerator> walk = requireEnumerator(*collection.object());
  for (; !nextElement(*walk).isAbsent(); ++count) work.step();
  return count;
}

// Makes room for as many values again, and looks at the clock: a list of millions takes a while to move.
void growWhileLooking(std::vector<Value>& values) {
  constexpr std::size_t kFewest = 16;
  constexpr std::size_t kValuesBetweenLooks = 65'536;
  std::vector<Value> roomier;
  roomier.reserve(std::max(kFewest, values.size() * 2));
  for (Value& value : values) {
    if (roomier.size() % kValuesBetweenLooks == kValuesBetweenLooks - 1) lookBeforeHost();
    roomier.push_back(std::move(value));
  }
  values.swap(roomier);
}

void add(std::vector<Value>& values, Value value) {
  if (values.size() == values.capacity()) growWhileLooking(values);
  values.push_back(std::move(value));
}

// Collection operators work on what the elements contribute and answer false for a value that they cannot use.

bool sumOf(const std::vector<Value>& values, double& sum) {
  sum = 0;
  ElementCounter work;
  for (const Value& value : values) {
    work.next();
    if (!value.isNumber() && !value.isString()) return false;
    sum += value.doubleValue();
  }
  return true;
}

bool applySum(std::vector<Value>& values, Value& result) {
  double sum = 0;
  if (!sumOf(values, sum)) return false;
  result = sum;
  return true;
}

bool applyAverage(std::vector<Value>& values, Value& result) {
  double sum = 0;
  if (!sumOf(values, sum)) return false;
  result = values.empty() ? 0.0 : sum / static_cast<double>(values.size());
  return true;
}

// The first value that none of the others precedes, in the order that `precedes` gives.
template <class Precedes>
bool applyExtreme(const std::vector<Value>& values, Value& result, const Precedes& precedes) {
  result = values.empty() ? Value() : values.front();
  ElementCounter work;
  for (std::size_t index = 1; index < values.size(); ++index) {
    work.next();
    const std::optional<bool> better = precedes(values[index], result);
    if (!better.has_value()) return false;
    if (*better) result = values[index];
  }
  return true;
}

bool applyMinimum(std::vector<Value>& values, Value& result) {
  return applyExtreme(values, result, [](const Value& one, const Value& best) { return one.isLessThan(best); });
}

bool applyMaximum(std::vector<Value>& values, Value& result) {
  return applyExtreme(values, result, [](const Value& one, const Value& best) { return best.isLessThan(one); });
}

Value distinct(const std::vector<Value>& values) {
  return makeRef<NSArray>(NSSet(values).takeMembers());
}

bool applyUnionOfObjects(std::vector<Value>& values, Value& result) {
  result = makeRef<NSArray>(std::move(values));
  return true;
}

bool applyDistinctUnionOfObjects(std::vector<Value>& values, Value& result) {
  result = distinct(values);
  return true;
}

bool joinArrays(const std::vector<Value>& values, std::vector<Value>& joined) {
  const WorkCounter work;
  ElementCounter lists;
  for (const Value& value : values) {
    lists.next();
    const Value list = plainValue(value);
    const NSObject* object = list.object();
    if (object == nullptr || object->kind() != ObjectKind::Array) return false;
    for (const Value& element : static_cast<const NSArray*>(object)->elements()) {
      work.step();
      add(joined, element);
    }
  }
  return true;
}

bool applyUnionOfArrays(std::vector<Value>& values, Value& result) {
  std::vector<Value> joined;
  if (!joinArrays(values, joined)) return false;
  result = makeRef<NSArray>(std::move(joined));
  return true;
}

bool applyDistinctUnionOfArrays(std::vector<Value>& values, Value& result) {
  std::vector<Value> joined;
  if (!joinArrays(values, joined)) return false;
  result = distinct(joined);
  return true;
}

// The same for numbers that come one after another and need not be kept: each takes one, and has the result in the end.

class SumOfNumbers {
 public:
  void add(RawValue number) noexcept { sum_ += number.isDouble() ? number.payload.real : numberAsDouble(number); }
  Value result(std::size_t /*count*/) const { return sum_; }

 protected:
  double sum_ = 0;
};

class AverageOfNumbers : public SumOfNumbers {
 public:
  Value result(std::size_t count) const { return count == 0 ? 0.0 : sum_ / static_cast<double>(count); }
};

bool isLess(RawValue left, RawValue right) noexcept {
  if (left.isDouble() && right.isDouble()) return left.payload.real < right.payload.real;
  const bool areSigned = left.kind() == ValueKind::Signed && right.kind() == ValueKind::Signed;
  if (areSigned) return left.payload.signedInteger < right.payload.signedInteger;
  return compareNumbers(left, right) == NumberOrder::Less;
}

template <bool IsWanted(RawValue number, RawValue best)>
class ExtremeOfNumbers {
 public:
  void add(RawValue number) noexcept {
    if (best_.kind() == ValueKind::Absent || IsWanted(number, best_)) best_ = number;
  }
  Value result(std::size_t /*count*/) const { return Value::retaining(best_); }

 private:
  RawValue best_ = RawValue::absent();
};

bool isBelow(RawValue number, RawValue best) noexcept {
  return isLess(number, best);
}
bool isAbove(RawValue number, RawValue best) noexcept {
  return isLess(best, number);
}

constexpr std::size_t kKeysOfStep = 16;
constexpr std::uint32_t kNoSlot = std::numeric_limits<std::uint32_t>::max();  // of any dictionary

}  // namespace

NSKeyPath::NSKeyPath(const Ref<NSString>& string) {
  requireParameter(string != nullptr, "path != nil");
  std::string_view path = string->view();
  if (path.find('.') == std::string_view::npos) {
    firstKey_.text = string;
    if (isWork(0)) firstKey_.lastSlot = kNoSlot;
    return;
  }
  const auto dots = static_cast<std::uint32_t>(std::ranges::count(path, '.'));
  moreKeys_ = std::make_unique<Key[]>(dots + 1);
  moreKeys_[dots].text = string;
  const auto next = [&path] {
    const std::string_view key = path.substr(0, path.find('.'));
    path.remove_prefix(std::min(key.size() + 1, path.size()));
    return NSString::stringWithValidUTF8(key, Counting::Atomic);
  };
  firstKey_.text = next();
  for (; count_ <= dots; ++count_) moreKeys_[count_ - 1].text = next();
  for (std::uint32_t index = 0; index < count_; ++index) {
    if (isWork(index)) keyAt(index).lastSlot = kNoSlot;
  }
}

bool NSKeyPath::isWork(std::size_t index) const noexcept {
  return index + 1 >= kKeysOfStep || keyAt(index).text->byteLength() >= WorkMeter::kBytesOfStep;
}

void NSKeyPath::countKeys() const {
  if (count_ >= kKeysOfStep) WorkCounter().count(count_ / kKeysOfStep);
  countWorkOnText(text().size());
}

const Value* NSKeyPath::peekAnew(std::size_t index, const NSDictionary& dictionary) const noexcept {
  if (isWork(index)) return nullptr;
  const Key& key = keyAt(index);
  std::uint32_t slot = 0;
  const Value* const value = dictionary.find(*key.text, slot);
  if (value == nullptr) return nullptr;
  key.lastSlot.store(slot, std::memory_order_relaxed);
  return index + 1 == count_ ? value : peekFrom(index + 1, value->peek());
}

bool NSKeyPath::find(const Value& root, Value& result) const {
  countKeys();
  Value holder = root;
  for (std::size_t index = 0; index < count_ && !holder.isAbsent();) {
    Value next;
    if (!step(index, holder, next)) return false;
    holder = std::move(next);
  }
  result = std::move(holder);
  return true;
}

bool NSKeyPath::findDefined(const Value& root, Value& result) const {
  const auto isDictionary = [](const Value& value) {
    return value.object() != nullptr && value.object()->kind() == ObjectKind::Dictionary;
  };
  countKeys();
  Value holder = root;
  try {
    for (std::size_t index = 0; index < count_ && !holder.isAbsent();) {
      Value next;
      if (!step(index, holder, next) || (next.isAbsent() && isDictionary(holder))) return false;
      holder = std::move(next);
    }
  } catch (const NSException& exception) {
    if (exception.name() != NSUndefinedKeyException) throw;
    return false;
  }
  result = std::move(holder);
  return true;
}

RawValue NSKeyPath::readProperty(const NSObject& hostObject) const {
  const auto& instance = static_cast<const HostInstance&>(hostObject);
  const HostProperty* const property = propertyOf(instance, firstKey_);
  return property != nullptr ? property->read(instance.object(), instance) : RawValue::nothing();
}

RawValue NSKeyPath::readFurther(const Value& root) const {
  Value result;
  return find(root, result) ? result.leak() : RawValue::nothing();
}

bool NSKeyPath::lend(Value& holder, LentValue& result) const {
  const HostInstance* const instance = count_ == 1 ? hostInstance(holder) : nullptr;
  if (instance == nullptr) return lendFurther(holder, result);
  const HostProperty* const property = propertyOf(*instance, firstKey_);
  if (property != nullptr) property->lend(instance->object(), *instance, result);
  return property != nullptr;
}

bool NSKeyPath::lendFurther(Value& holder, LentValue& result) const {
  countKeys();
  for (std::size_t index = 0; index < count_ && !holder.isAbsent();) {
    const HostInstance* const instance = index + 1 == count_ ? hostInstance(holder) : nullptr;
    if (instance != nullptr) {
      const HostProperty* const property = propertyOf(*instance, keyAt(index));
      if (property != nullptr) property->lend(instance->object(), *instance, result);
      return property != nullptr;
    }
    Value next;
    if (!step(index, holder, next)) return false;
    holder = std::move(next);
  }
  result.set(std::move(holder));
  return true;
}

const HostProperty* NSKeyPath::propertyOf(const HostInstance& instance, const Key& key) const noexcept {
  return instance.table().find(*key.text, key.lastNumber);
}

bool NSKeyPath::step(std::size_t& index, const Value& holder, Value& result) const {
  const Key& key = keyAt(index);
  if (const HostInstance* const instance = hostInstance(holder)) {
    ++index;
    const HostProperty* const property = propertyOf(*instance, key);
    if (property != nullptr) result = Value::adopt(property->read(instance->object(), *instance));
    return property != nullptr;
  }
  if (key.text->view().starts_with('@') && isCollection(holder)) {
    const std::size_t at = std::exchange(index, count_);
    return applyOperator(at, holder, result);
  }
  ++index;
  return findValueForKey(holder, *key.text, result);
}

NSKeyPath::Contribution NSKeyPath::contributionFrom(std::size_t index, const Value& element, Value& result) const {
  result = element;
  for (std::size_t followed = 1; index < count_ && !result.isAbsent() && !result.isNull(); ++followed) {
    if (followed % kKeysOfStep == 0) WorkCounter().step();
    countWorkOnText(keyAt(index).text->byteLength());
    const Value holder = std::move(result);
    result = Value();
    if (!step(index, holder, result)) return Contribution::UnknownKey;
  }
  return result.isAbsent() || result.isNull() ? Contribution::Nothing : Contribution::Value;
}

bool NSKeyPath::contribute(std::size_t index, const Value& element, std::vector<Value>& values) const {
  Value value;
  const Contribution contribution = contributionFrom(index, element, value);
  if (contribution == Contribution::UnknownKey) return false;
  if (contribution == Contribution::Value) add(values, std::move(value));
  return true;
}

bool NSKeyPath::contributeWalked(std::size_t index, const Value& collection, std::vector<Value>& values) const {
  const WorkCounter work;
  const Ref<NSEnumerator> walk = requireEnumerator(*collection.object());
  for (Value element = nextElement(*walk); !element.isAbsent(); element = nextElement(*walk)) {
    work.step();
    if (!contribute(index, element, values)) return false;
  }
  return true;
}

bool NSKeyPath::contributeAll(std::size_t index, const Value& collection, std::size_t counted,
                              std::vector<Value>& values) const {
  const std::vector<Value>* const elements = elementsOf(collection);
  if (elements == nullptr) return contributeWalked(index, collection, values);
  const WorkCounter work;
  values.reserve(elements->size());
  for (std::size_t at = 0; at < elements->size(); ++at) {  // a host's property may change the list
    if (at >= counted) work.step();
    if (const Value* lent = index < count_ ? peekFrom(index, (*elements)[at].peek()) : nullptr) {
      if (!lent->isNull()) values.push_back(*lent);
      continue;
    }
    if (!contribute(index, Value((*elements)[at]), values)) return false;
  }
  return true;
}

struct NSKeyPath::CollectionOperator {
  std::string_view name;
  bool (*apply)(std::vector<Value>& values, Value& result);  // which it may take
  // What takes numbers one after another; null for an operator that needs all values together.
  std::size_t (NSKeyPath::*reduce)(std::size_t index, const std::vector<Value>& elements, Value& result) const;
};

const NSKeyPath::CollectionOperator* NSKeyPath::operatorNamed(std::string_view name) noexcept {
  static constexpr CollectionOperator kOperators[] = {
      {"@sum", applySum, &NSKeyPath::reduce<SumOfNumbers>},
      {"@avg", applyAverage, &NSKeyPath::reduce<AverageOfNumbers>},
      {"@min", applyMinimum, &NSKeyPath::reduce<ExtremeOfNumbers<isBelow>>},
      {"@max", applyMaximum, &NSKeyPath::reduce<ExtremeOfNumbers<isAbove>>},
      {"@unionOfObjects", applyUnionOfObjects, nullptr},
      {"@distinctUnionOfObjects", applyDistinctUnionOfObjects, nullptr},
      {"@unionOfArrays", applyUnionOfArrays, nullptr},
      {"@distinctUnionOfArrays", applyDistinctUnionOfArrays, nullptr},
  };
  const auto* const known = std::ranges::find(kOperators, name, &CollectionOperator::name);
  return known == std::end(kOperators) ? nullptr : known;
}

// Runs nobody's code, so that what has been walked through may be walked through again.
template <class Reduction>
std::size_t NSKeyPath::reduce(std::size_t index, const std::vector<Value>& elements, Value& result) const {
  const WorkCounter work;
  Reduction reduction;
  std::size_t numbers = 0;
  const Value* const first = elements.data();
  const Value* const end = first + elements.size();
  for (const Value* element = first; element != end; ++element) {
    const Value* const value = index < count_ ? peekFrom(index, element->peek()) : element;
    if (value == nullptr || (!value->isNumber() && !value->isNull())) return static_cast<std::size_t>(element - first);
    work.step();
    if (value->isNull()) continue;
    reduction.add(value->peek());
    ++numbers;
  }
  result = reduction.result(numbers);
  return elements.size();
}

bool NSKeyPath::applyOperator(std::size_t index, const Value& collection, Value& result) const {
  checkStack();
  const std::string_view name = keyAt(index).text->view();
  if (name == "@count") {
    result = countOf(collection);
    return true;
  }
  const CollectionOperator* const known = operatorNamed(name);
  if (known == nullptr) return false;
  std::size_t counted = 0;
  const std::vector<Value>* const elements = elementsOf(collection);
  if (known->reduce != nullptr && elements != nullptr) {
    counted = (this->*known->reduce)(index + 1, *elements, result);
    if (counted == elements->size()) return true;
  }
  std::vector<Value> values;
  return contributeAll(index + 1, collection, counted, values) && known->apply(values, result);
}

bool findValueForKey(const Value& object, const NSString& key, Value& value) {
  if (object.isObject()) {
    const ObjectKind kind = object.object()->kind();
    if (kind == ObjectKind::String || kind == ObjectKind::Dictionary)
      return object.object()->findValueForKey(key, value);
    lookBeforeCalling(*object.object());
    const Value held = object;  // a host's code may let go of the value
    return held.object()->findValueForKey(key, value);
  }
  if (object.isNumber()) return findValueOfNumber(object, key, value);
  value = Value();
  return object.isAbsent();
}

Value plainValue(const Value& value) {
  const ObjectKind kind = value.isObject() ? value.object()->kind() : ObjectKind::Other;
  if (kind != ObjectKind::LazyList && kind != ObjectKind::LazyDictionary) return value;
  const HeldParts::SetAside aside;
  const Value held = value;  // whose elements may let go of it
  const NSObject* const object = held.object();
  if (kind == ObjectKind::LazyList) return static_cast<const LazyList&>(*object).array();
  return static_cast<const LazyDictionary&>(*object).dictionary();
}

namespace {

// Adds the element's value for the key; false when it does not know the key.
bool addValueForKey(const Value& element, const NSString& key, std::vector<Value>& values) {
  Value value;
  if (!element.isNull() && !findValueForKey(element, key, value)) return false;
  values.push_back(value.isAbsent() ? Value::null() : std::move(value));
  return true;
}

}  // namespace

bool findValuesForKey(const std::vector<Value>& elements, const NSString& key, Value& values) {
  checkStack();  // lists may lie inside lists
  std::vector<Value> results;
  results.reserve(elements.size());
  const WorkCounter work;
  for (std::size_t at = 0; at < elements.size(); ++at) {  // a host's property may change the list
    work.step();
    if (!addValueForKey(Value(elements[at]), key, results)) return false;
  }
  values = makeRef<NSArray>(std::move(results));
  return true;
}

bool findValuesForKey(NSEnumerator& elements, const NSString& key, Value& values) {
  checkStack();  // lists may lie inside lists
  std::vector<Value> results;
  const WorkCounter work;
  for (Value element = nextElement(elements); !element.isAbsent(); element = nextElement(elements)) {
    work.step();
    if (!addValueForKey(element, key, results)) return false;
  }
  values = makeRef<NSArray>(std::move(results));
  return true;
}

Value valueForKeyPath(const Value& root, std::string_view path) {
  checkStack();  // a host's property may ask another object so, and so on
  requireValidUTF8(path);
  Value result;
  if (!NSKeyPath(path).find(root, result)) raiseUndefinedKey(root, path);
  return result;
}

void raiseUndefinedKey(const Value& object, std::string_view key) {
  NSException::raise(NSUndefinedKeyException, "%s has no value for the key \"%@\"", object.className(), key);
}

}  // namespace tavlo
