#include "Foundation/NSDictionary.h"

#include <utility>

#include "Foundation/Description.h"
#include "Foundation/KorTemplateLimits.h"
#include "Foundation/NSException.h"
#include "Foundation/WorkMeter.h"

namespace tavlo {

namespace {

// Up to here comparing hashes one after another is faster than a table.
constexpr std::size_t kSmall = 8;

class ValueEnumerator final : public NSEnumerator {
 public:
  explicit ValueEnumerator(Ref<NSDictionary> dictionary) : dictionary_(std::move(dictionary)) {}

  Value nextObject() override { return next_ < dictionary_->count() ? dictionary_->entries()[next_++].value : Value(); }

 private:
  Ref<NSDictionary> dictionary_;
  std::size_t next_ = 0;
};

void requireUnsharedDictionary(const NSObject& object) {
  if (object.isShared()) failAssertion("A dictionary that is shared between threads cannot change");
}

}  // namespace

NSDictionary::NSDictionary() : NSObject(ObjectKind::Dictionary) {}

NSDictionary::NSDictionary(const NSDictionary& other, std::nullptr_t)
    : NSObject(ObjectKind::Dictionary), entries_(other.entries_), slots_(other.slots_) {}

Ref<NSDictionary> NSDictionary::dictionaryWithEntries(
    std::initializer_list<std::pair<std::string_view, Value>> entries) {
  Ref<NSMutableDictionary> dictionary = NSMutableDictionary::dictionary();
  for (const auto& [key, value] : entries) dictionary->setObjectForKey(value, key);
  return dictionary;
}

std::uint32_t NSDictionary::indexOf(std::string_view key, std::uint32_t hash) const noexcept {
  const auto matches = [&](std::size_t index) {
    const NSString& known = *entries_[index].key;
    return known.hash32() == hash && known.view() == key;
  };
  if (!slots_.empty()) return slots_.find(hash, matches);
  for (std::uint32_t index = 0; index < entries_.size(); ++index) {
    if (matches(index)) return index;
  }
  return SlotIndex::kNowhere;
}

const Value* NSDictionary::find(std::string_view key) const noexcept {
  const std::uint32_t index = indexOf(key, NSString::hashOf(key));
  return index == SlotIndex::kNowhere ? nullptr : &entries_[index].value;
}

const Value* NSDictionary::find(const NSString& key) const noexcept {
  const std::uint32_t index = indexOf(key.view(), key.hash32());
  return index == SlotIndex::kNowhere ? nullptr : &entries_[index].value;
}

const Value* NSDictionary::find(const NSString& key, std::uint32_t& index) const noexcept {
  const std::uint32_t found = indexOf(key.view(), key.hash32());
  if (found == SlotIndex::kNowhere) return nullptr;
  index = found;
  return &entries_[found].value;
}

Value NSDictionary::objectForKey(std::string_view key) const {
  const Value* value = find(key);
  return value == nullptr ? Value() : *value;
}

void NSDictionary::describe(Description& out) const {
  out.dictionary(*this);
}

bool NSDictionary::isEqual(const NSObject& other, std::int32_t depth) const {
  if (other.kind() == ObjectKind::LazyDictionary) return other.isEqual(*this, depth);
  if (other.kind() != ObjectKind::Dictionary) return false;
  requireValueDepth(depth + 1);
  const auto& otherDictionary = static_cast<const NSDictionary&>(other);
  if (count() != otherDictionary.count()) return false;
  const WorkCounter work;
  // By index, holding both: comparing may run a host's code, which may change the dictionaries.
  for (std::size_t index = 0; index < entries_.size(); ++index) {
    work.step();
    work.countBytes(entries_[index].key->byteLength());
    const Value* found = otherDictionary.find(*entries_[index].key);
    if (found == nullptr) return false;
    const Value left = entries_[index].value;
    const Value right = *found;
    if (!left.isEqual(right, depth + 1)) return false;
  }
  return true;
}

std::size_t NSDictionary::hash() const {
  return Value(Ref<NSDictionary>::retaining(const_cast<NSDictionary*>(this))).hash();  // NOLINT(*-const-cast): counted
}

bool NSDictionary::findValueForKey(const NSString& key, Value& value) const {
  if (const Value* found = find(key)) {
    value = *found;
  } else {
    value = key.view() == "@count" ? Value(count()) : Value();
  }
  return true;
}

Ref<NSEnumerator> NSDictionary::objectEnumerator() const {
  return makeRef<ValueEnumerator>(
      Ref<NSDictionary>::retaining(const_cast<NSDictionary*>(this)));  // NOLINT(*-const-cast): counted
}

void NSDictionary::store(Ref<NSString> key, Value value) {
  const std::uint32_t index = indexOf(key->view(), key->hash32());
  if (index != SlotIndex::kNowhere) {
    entries_[index].value = std::move(value);
    return;
  }
  const std::size_t count = entries_.size() + 1;
  // Both may run out of memory; an entry is there only once it can be found.
  if (count > kSmall && !slots_.hasRoomFor(count)) growSlots(count);
  const std::uint32_t hash = key->hash32();
  entries_.push_back({std::move(key), std::move(value)});
  if (count > kSmall) slots_.put(hash, count - 1);
}

void NSDictionary::growSlots(std::size_t count) {
  if (count > kSmall) slots_.grow(SlotIndex::sizeFor(count), entries_.size(), hashes());
}

Ref<NSMutableDictionary> NSMutableDictionary::dictionaryWithDistinctEntries(Entries entries) {
  Ref<NSMutableDictionary> dictionary = NSMutableDictionary::dictionary();
  dictionary->entries_ = std::move(entries);
  dictionary->growSlots(dictionary->entries_.size());
  return dictionary;
}

void NSMutableDictionary::setObjectForKey(Value value, std::string_view key) {
  setObjectForKey(std::move(value), NSString::stringWithUTF8(key));
}

void NSMutableDictionary::setObjectForKey(Value value, Ref<NSString> key) {
  if (value.isAbsent()) NSException::raise(NSInvalidArgumentException, "A dictionary's value cannot be absent");
  if (key == nullptr) NSException::raise(NSInvalidArgumentException, "A dictionary's key cannot be absent");
  requireUnsharedDictionary(*this);
  store(std::move(key), std::move(value));
}

void NSMutableDictionary::removeObjectForKey(std::string_view key) {
  requireUnsharedDictionary(*this);
  const std::uint32_t index = indexOf(key, NSString::hashOf(key));
  if (index == SlotIndex::kNowhere) return;
  if (!slots_.empty()) slots_.remove(index, entries_.size(), hashes());
  countRemoval(entries_.size() - index);
  const Entry removed = entries_[index];  // let go of last
  entries_.erase(entries_.begin() + index);
  if (entries_.size() <= kSmall) {
    slots_.release();
  } else if (slots_.isTooLargeFor(entries_.size())) {
    slots_.rebuild(SlotIndex::sizeFor(entries_.size()), entries_.size(), hashes());
  }
}

void NSMutableDictionary::removeAllObjects() {
  requireUnsharedDictionary(*this);
  slots_.release();
  Entries().swap(entries_);
}

}  // namespace tavlo
