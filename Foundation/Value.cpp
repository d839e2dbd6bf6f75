#include "Foundation/Value.h"

#include <algorithm>
#include <unordered_set>
#include <vector>

#include "Foundation/Description.h"
#include "Foundation/HashSeed.h"
#include "Foundation/KorTemplateLimits.h"
#include "Foundation/NSArray.h"
#include "Foundation/NSDictionary.h"
#include "Foundation/NSException.h"
#include "Foundation/NSNumber.h"
#include "Foundation/NSSet.h"
#include "Foundation/NSString.h"

namespace tavlo {

Value::Value(std::string_view text) : raw_(ofObject(NSString::stringWithUTF8(text).leak())) {}

bool Value::isEqual(const Value& other, std::int32_t depth) const {
  if (isNumber() && other.isNumber()) return compareNumbers(raw_, other.raw_) == NumberOrder::Equal;
  if (kind() != other.kind()) return false;
  if (!isObject()) return true;
  return object() == other.object() || object()->isEqual(*other.object(), depth);
}

namespace {

// The hash of a list or a dictionary: of all that is inside, without recursion. The order of a dictionary's entries
// does not count.
class CollectionHash {
 public:
  std::uint64_t of(const NSObject& collection) {
    open_.push_back(opened(collection));
    for (std::size_t values = 0; values < kMostValues; ++values) {
      while (open_.back().next >= open_.back().count) {
        const std::uint64_t whole = closed(open_.back());
        open_.pop_back();
        if (open_.empty()) return whole;
        add(whole);
      }
      const Value& child = nextChild();
      if (isWalked(child)) {
        open_.push_back(opened(*child.object()));
      } else {
        add(child.hash());
      }
    }
    return closed(opened(collection));
  }

  static bool isWalked(const Value& value) {
    const NSObject* object = value.object();
    return object != nullptr && (object->kind() == ObjectKind::Array || object->kind() == ObjectKind::Dictionary);
  }

 private:
  // What holds more values counts by its size alone: values whose parts are shared have no end.
  static constexpr std::size_t kMostValues = 32768;

  // A collection that the walk is inside of.
  struct Open {
    const NSObject* collection;
    std::size_t count;
    std::size_t next;
    std::uint64_t hash;  // of what lies before `next`
  };

  static Open opened(const NSObject& collection) {
    const std::size_t count = collection.kind() == ObjectKind::Array ? static_cast<const NSArray&>(collection).count()
                                                                     : entriesOf(collection).size();
    return {&collection, count, 0, 0};
  }
  static const std::vector<NSDictionary::Entry>& entriesOf(const NSObject& dictionary) {
    return static_cast<const NSDictionary&>(dictionary).entries();
  }

  std::uint64_t closed(const Open& open) const {
    const bool isArray = open.collection->kind() == ObjectKind::Array;
    return seed_.completed(open.hash, isArray ? HashKind::Array : HashKind::Dictionary, open.count);
  }
  const Value& nextChild() const {
    const Open& open = open_.back();
    return open.collection->kind() == ObjectKind::Array ? static_cast<const NSArray&>(*open.collection)[open.next]
                                                        : entriesOf(*open.collection)[open.next].value;
  }
  void add(std::uint64_t hash) {
    Open& open = open_.back();
    if (open.collection->kind() == ObjectKind::Array) {
      open.hash = seed_.mixed(open.hash, hash);
    } else {
      open.hash += seed_.mixed(entriesOf(*open.collection)[open.next].key->hash32(), hash);
    }
    ++open.next;
  }

  const HashSeed& seed_ = HashSeed::ofProcess();
  std::vector<Open> open_;  // from the outermost to the innermost
};

}  // namespace

std::size_t Value::hash() const {
  if (isNumber()) return hashOfNumber(raw_);
  const NSObject* held = object();
  if (held == nullptr) return static_cast<std::size_t>(kind());
  return CollectionHash::isWalked(*this) ? CollectionHash().of(*held) : held->hash();
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
      const bool isComputedAnew = object->kind() == ObjectKind::Array || object->kind() == ObjectKind::Dictionary;
      if (!isComputedAnew) (void)object->hash();  // settles what is computed on demand, and kept
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
