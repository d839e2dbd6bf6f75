#include "Foundation/Value.h"

#include <algorithm>
#include <array>
#include <memory>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "Foundation/Description.h"
#include "Foundation/HashSeed.h"
#include "Foundation/HostCalls.h"
#include "Foundation/HostInstance.h"
#include "Foundation/KorTemplateLimits.h"
#include "Foundation/NSArray.h"
#include "Foundation/NSDictionary.h"
#include "Foundation/NSException.h"
#include "Foundation/NSKeyValueCoding.h"
#include "Foundation/NSNumber.h"
#include "Foundation/NSSet.h"
#include "Foundation/NSString.h"
#include "Foundation/StackGuard.h"
#include "Foundation/WorkMeter.h"

namespace tavlo {

Value Value::ofConstant(const NSObject* object) {
  if (object != nullptr && object->kind() == ObjectKind::HostObject) {
    return static_cast<const HostInstance*>(object)->constant();
  }
  return Ref<NSObject>::retaining(const_cast<NSObject*>(object));  // NOLINT(*-const-cast): counted
}

Value::Value(std::string_view text) : raw_(ofObject(NSString::stringWithUTF8(text).leak())) {}

bool Value::isEqual(const Value& other, std::int32_t depth) const {
  if (isNumber() && other.isNumber()) return compareNumbers(raw_, other.raw_) == NumberOrder::Equal;
  if (kind() != other.kind()) return false;
  if (!isObject()) return true;
  if (object() == other.object()) return true;
  if (isString()) return object()->isEqual(*other.object(), depth);
  lookBeforeCalling(*object());
  const Value left = *this;  // a host's code may run, which may let go of the values
  const Value right = other;
  return left.object()->isEqual(*right.object(), depth);
}

namespace {

// The hash of a list or a dictionary: of all that is inside, without recursion. The order of a dictionary's entries
// does not count. A host's object inside may change what is walked, which is therefore held and looked at anew.
class CollectionHash {
 public:
  std::uint64_t of(const Value& collection) {
    open_.push_back(opened(collection, 0, 1));
    for (std::size_t values = 0; values < kFew; ++values) {
      const std::optional<std::uint64_t> hash = step();
      if (hash.has_value()) return *hash;
    }
    // Parts that are shared may stand for many more values than there is memory: from here on each is walked once.
    known_ = std::make_unique<KnownCollections>();
    for (;;) {
      const std::optional<std::uint64_t> hash = step();
      if (hash.has_value()) return *hash;
    }
  }

  static bool isWalked(const Value& value) {
    const NSObject* object = value.object();
    return object != nullptr && (object->kind() == ObjectKind::Array || object->kind() == ObjectKind::Dictionary);
  }

 private:
  static constexpr std::size_t kFew = 1024;

  // A collection that the walk is inside of.
  struct Open {
    Value collection;
    std::uint32_t keyHash;  // of the key it has in the dictionary around it
    std::size_t count;      // when it was opened
    std::size_t next;
    std::uint64_t hash;      // of what lies before `next`
    std::int32_t lazyDepth;  // of the lazy collections around it, with itself; the outermost one counts
  };
  struct Child {
    Value value;
    std::uint32_t keyHash;
  };
  // A collection that has been walked; held, so that no other takes its address.
  struct Known {
    Value collection;
    std::uint64_t hash;
  };

  // Takes in one value more; the hash of the whole behind the last one.
  std::optional<std::uint64_t> step() {
    work_.step();
    while (open_.back().next >= sizeOf(open_.back())) {
      const Open inner = std::move(open_.back());
      open_.pop_back();
      const std::uint64_t hash = closed(inner);
      if (open_.empty()) return hash;
      noteKnown(inner.collection, hash);
      add(hash, inner.keyHash);
    }
    const auto [read, keyHash] = takeChild();
    const Value child = plainValue(read);
    if (!isWalked(child)) {
      add(child.isNumber() && !child.isEqual(child) ? hashOfItself(open_.back()) : child.hash(), keyHash);
    } else if (const Known* known = findKnown(child)) {
      add(known->hash, keyHash);
    } else {
      // What is there ends somewhere; what is made on demand may have no end.
      const std::int32_t lazyDepth = open_.back().lazyDepth + (child.object() == read.object() ? 0 : 1);
      requireValueDepth(lazyDepth);
      open_.push_back(opened(child, keyHash, lazyDepth));
    }
    return {};
  }

  // In many tables: each grows in a time that is short, even among millions of collections.
  class KnownCollections {
   public:
    // What is known of a collection; one that is not known yet is from here on, as one without values.
    const Known* findOrAdd(const Value& collection) {
      const auto [place, isNew] = tableOf(collection).try_emplace(collection.object(), Known{collection, 0});
      return isNew ? nullptr : &place->second;
    }
    void note(const Value& collection, std::uint64_t hash) {
      Table& table = tableOf(collection);
      const auto place = table.find(collection.object());  // none for one that was begun before
      if (place != table.end()) place->second.hash = hash;
    }

   private:
    using Table = std::unordered_map<const NSObject*, Known>;

    Table& tableOf(const Value& collection) {
      const std::uint64_t place = HashSeed::ofProcess().mixed(0, reinterpret_cast<std::uintptr_t>(collection.object()));
      return tables_[place % tables_.size()];
    }

    std::array<Table, 64> tables_;
  };

  const Known* findKnown(const Value& collection) {
    return known_ != nullptr ? known_->findOrAdd(collection) : nullptr;
  }
  void noteKnown(const Value& collection, std::uint64_t hash) {
    if (known_ != nullptr) known_->note(collection, hash);
  }

  static bool isArray(const Value& collection) { return collection.object()->kind() == ObjectKind::Array; }
  static const std::vector<Value>& elementsOf(const Value& array) {
    return static_cast<const NSArray&>(*array.object()).elements();
  }
  static const NSDictionary::Entries& entriesOf(const Value& dictionary) {
    return static_cast<const NSDictionary&>(*dictionary.object()).entries();
  }
  static std::size_t sizeOf(const Value& collection) {
    return isArray(collection) ? elementsOf(collection).size() : entriesOf(collection).size();
  }
  static std::size_t sizeOf(const Open& open) { return std::min(open.count, sizeOf(open.collection)); }
  static Open opened(const Value& collection, std::uint32_t keyHash, std::int32_t lazyDepth) {
    return {collection, keyHash, sizeOf(collection), 0, 0, lazyDepth};
  }

  std::uint64_t closed(const Open& open) const {
    return seed_.completed(open.hash, isArray(open.collection) ? HashKind::Array : HashKind::Dictionary, open.count);
  }
  // With a not-a-number in it a collection equals itself alone: with one hash for all of those, each would be compared
  // with all others.
  std::uint64_t hashOfItself(const Open& open) const {
    return seed_.mixed(0, reinterpret_cast<std::uintptr_t>(open.collection.object()));
  }
  Child takeChild() {
    Open& open = open_.back();
    const std::size_t index = open.next++;
    if (isArray(open.collection)) return {elementsOf(open.collection)[index], 0};
    const NSDictionary::Entry& entry = entriesOf(open.collection)[index];
    return {entry.value, entry.key->hash32()};
  }
  void add(std::uint64_t hash, std::uint32_t keyHash) {
    Open& open = open_.back();
    open.hash = isArray(open.collection) ? seed_.mixed(open.hash, hash) : open.hash + seed_.mixed(keyHash, hash);
  }

  const HashSeed& seed_ = HashSeed::ofProcess();
  WorkCounter work_;
  std::vector<Open> open_;                   // from the outermost to the innermost
  std::unique_ptr<KnownCollections> known_;  // null while there are few values
};

}  // namespace

std::size_t Value::hash() const {
  if (isNumber()) return hashOfNumber(raw_);
  const NSObject* held = object();
  if (held == nullptr) return static_cast<std::size_t>(kind());
  const Value itself = *this;  // hashing may run a host's code, which may let go of the value
  if (CollectionHash::isWalked(itself)) return CollectionHash().of(itself);
  lookBeforeCalling(*held);
  return held->hash();
}

std::optional<bool> Value::isLessThan(const Value& other) const {
  if (isObject()) {
    lookBeforeCalling(*object());
    return object()->isLessThan(other);
  }
  if (!isNumber() || !other.isNumber()) return {};
  return compareNumbers(raw_, other.raw_) == NumberOrder::Less;
}

std::optional<bool> Value::isGreaterThan(const Value& other) const {
  if (isObject()) {
    lookBeforeCalling(*object());
    return object()->isGreaterThan(other);
  }
  if (!isNumber() || !other.isNumber()) return {};
  return compareNumbers(raw_, other.raw_) == NumberOrder::Greater;
}

namespace {

std::string_view textToRead(const NSString& string) {
  countWorkOnText(string.byteLength());
  return string.view();
}

}  // namespace

double Value::doubleValue() const {
  if (isNumber()) return numberAsDouble(raw_);
  return isString() ? textAsDouble(textToRead(*string())) : 0;
}

std::int32_t Value::intValue() const {
  if (isNumber()) return numberAsInteger<std::int32_t>(raw_);
  return isString() ? textAsInt(textToRead(*string())) : 0;
}

std::int64_t Value::integerValue() const {
  if (isNumber()) return numberAsInteger<std::int64_t>(raw_);
  return isString() ? textAsInteger(textToRead(*string())) : 0;
}

bool Value::boolValue() const {
  if (isNumber()) return numberAsBool(raw_);
  return isString() && textAsBool(textToRead(*string()));
}

std::string Value::description() const {
  return Description::of(*this, longestString());
}

const char* Value::className() const {
  if (isAbsent()) return "(null)";
  if (isNull()) return "NSNull";
  return isNumber() ? "NSNumber" : object()->className();
}

namespace {

// Everything that a value holds and that counts plainly so far, each object once. A host's object inside may change
// what is walked, which is therefore held and looked at anew.
class Holdings {
 public:
  void add(const Value& value) {
    const Value held = value;
    const NSObject* object = held.object();
    if (object == nullptr) return;
    // One of the host's may count atomically from birth and still not bear threads.
    const bool isHosts = object->kind() == ObjectKind::Other || object->kind() == ObjectKind::HostObject;
    if ((object->isShared() && !isHosts) || !seen_.insert(object).second) return;
    if (isHosts) hasAskedHost_ = true;
    if (!object->canBeShared()) {
      NSException::raise(NSInvalidArgumentException,
                         "%s cannot be shared between threads: it, or what it holds, is of a class that does not "
                         "answer canBeShared() with true",
                         object->className());
    }
    if (!object->isShared()) objects_.push_back(held);
  }

  // Once more where a host's object was asked, for it may have put something into what was walked before.
  void addAllInside() {
    do {
      hasAskedHost_ = false;
      for (std::size_t index = 0; index < objects_.size(); ++index) addChildren(*objects_[index].object());
    } while (hasAskedHost_);
  }

  void markShared() const {
    for (const Value& value : objects_) {
      const NSObject& object = *value.object();
      if (object.kind() == ObjectKind::String) (void)object.hash();  // computed on demand, and kept
      object.markShared();
    }
  }

 private:
  void addChildren(const NSObject& object) {
    if (object.kind() == ObjectKind::Array) {
      const std::vector<Value>& elements = static_cast<const NSArray&>(object).elements();
      for (std::size_t index = 0; index < elements.size(); ++index) add(elements[index]);
    } else if (object.kind() == ObjectKind::Set) {
      for (const Value& member : static_cast<const NSSet&>(object).members()) add(member);  // no set changes
    } else if (object.kind() == ObjectKind::Dictionary) {
      const NSDictionary::Entries& entries = static_cast<const NSDictionary&>(object).entries();
      for (std::size_t index = 0; index < entries.size(); ++index) {
        add(entries[index].key);
        if (index < entries.size()) add(entries[index].value);
      }
    }
  }

  std::vector<Value> objects_;
  std::unordered_set<const NSObject*> seen_;
  bool hasAskedHost_ = false;
};

}  // namespace

void Value::share() const {
  checkStack();  // a host's object that is asked may share what it holds
  Holdings holdings;
  holdings.add(*this);
  holdings.addAllInside();
  holdings.markShared();
}

}  // namespace tavlo
