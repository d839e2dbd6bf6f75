#include "Foundation/Value.h"

#include <algorithm>
#include <unordered_set>
#include <vector>

#include "Foundation/Description.h"
#include "Foundation/KorTemplateLimits.h"
#include "Foundation/NSArray.h"
#include "Foundation/NSDictionary.h"
#include "Foundation/NSException.h"
#include "Foundation/NSNumber.h"
#include "Foundation/NSSet.h"
#include "Foundation/NSString.h"

namespace tavlo {

namespace {

constexpr std::int32_t kHashedLevels = 8;
constexpr std::size_t kHashFactor = 31;

}  // namespace

Value::Value(std::string_view text) : raw_(ofObject(NSString::stringWithUTF8(text).leak())) {}

bool Value::isEqual(const Value& other, std::int32_t depth) const {
  if (isNumber() && other.isNumber()) return compareNumbers(raw_, other.raw_) == NumberOrder::Equal;
  if (kind() != other.kind()) return false;
  if (!isObject()) return true;
  return object() == other.object() || object()->isEqual(*other.object(), depth);
}

std::size_t Value::hash() const {
  return hash(kHashedLevels);
}

// What collections hold is looked at for some levels; deeper ones count by their sizes. The order of a dictionary's
// entries and of a set's members does not count.
std::size_t Value::hash(std::int32_t levels) const {
  if (isNumber()) return hashOfNumber(raw_);
  const NSObject* held = object();
  if (held == nullptr) return static_cast<std::size_t>(kind());
  std::size_t hash = 0;
  switch (held->kind()) {
    case ObjectKind::Array:
      hash = static_cast<const NSArray*>(held)->count();
      if (levels == 0) return hash;
      for (const Value& element : static_cast<const NSArray*>(held)->elements()) {
        hash = hash * kHashFactor + element.hash(levels - 1);
      }
      return hash;
    case ObjectKind::Dictionary:
      hash = static_cast<const NSDictionary*>(held)->count();
      if (levels == 0) return hash;
      for (const NSDictionary::Entry& entry : static_cast<const NSDictionary*>(held)->entries()) {
        hash += entry.key->hash() * (entry.value.hash(levels - 1) | 1);
      }
      return hash;
    case ObjectKind::Set:
      hash = static_cast<const NSSet*>(held)->count();
      if (levels == 0) return hash;
      for (const Value& member : static_cast<const NSSet*>(held)->members()) hash += member.hash(levels - 1);
      return hash;
    default:
      return held->hash();
  }
}

std::optional<bool> Value::isLessThan(const Value& other) const {
  if (isObject()) return object()->isLessThan(other);
  if (!isNumber() || !other.isNumber()) return {};
  return compareNumbers(raw_, other.raw_) == NumberOrder::Less;
}

std::optional<bool> Value::isGreaterThan(const Value& other) const {
  if (isObject()) return object()->isGreaterThan(other);
  if (!isNumber() || !other.isNumber()) return {};
  return compareNumbers(raw_, other.raw_) == NumberOrder::Greater;
}

double Value::doubleValue() const {
  if (isNumber()) return numberAsDouble(raw_);
  return isString() ? textAsDouble(string()->view()) : 0;
}

std::int32_t Value::intValue() const {
  if (isNumber()) return numberAsInteger<std::int32_t>(raw_);
  return isString() ? textAsInt(string()->view()) : 0;
}

std::int64_t Value::integerValue() const {
  if (isNumber()) return numberAsInteger<std::int64_t>(raw_);
  return isString() ? textAsInteger(string()->view()) : 0;
}

bool Value::boolValue() const {
  if (isNumber()) return numberAsBool(raw_);
  return isString() && textAsBool(string()->view());
}

std::string Value::description() const {
  return Description::of(*this, KorTemplateLimits{}.stringLength);
}

const char* Value::className() const {
  if (isAbsent()) return "(null)";
  if (isNull()) return "NSNull";
  return isNumber() ? "NSNumber" : object()->className();
}

namespace {

// Everything that a value holds and that counts plainly so far, each object once.
class Holdings {
 public:
  void add(const Value& value) {
    const NSObject* object = value.object();
    if (object == nullptr || object->isShared() || !seen_.insert(object).second) return;
    if (!object->canBeShared()) {
      NSException::raise(NSInvalidArgumentException, "%s cannot be shared between threads", object->className());
    }
    objects_.push_back(object);
  }

  void addAllInside() {
    for (std::size_t index = 0; index < objects_.size(); ++index) addChildren(*objects_[index]);
  }

  void markShared() const {
    for (const NSObject* object : objects_) {
      (void)object->hash();  // settles what is computed on demand
      object->markShared();
    }
  }

 private:
  void addChildren(const NSObject& object) {
    if (object.kind() == ObjectKind::Array) {
      for (const Value& element : static_cast<const NSArray&>(object).elements()) add(element);
    } else if (object.kind() == ObjectKind::Set) {
      for (const Value& member : static_cast<const NSSet&>(object).members()) add(member);
    } else if (object.kind() == ObjectKind::Dictionary) {
      for (const NSDictionary::Entry& entry : static_cast<const NSDictionary&>(object).entries()) {
        add(entry.key);
        add(entry.value);
      }
    }
  }

  std::vector<const NSObject*> objects_;
  std::unordered_set<const NSObject*> seen_;
};

}  // namespace

void Value::share() const {
  Holdings holdings;
  holdings.add(*this);
  holdings.addAllInside();
  holdings.markShared();
}

}  // namespace tavlo
