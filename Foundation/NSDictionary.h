#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "Foundation/NSEnumerator.h"
#include "Foundation/NSObject.h"
#include "Foundation/NSString.h"
#include "Foundation/ObjectArena.h"
#include "Foundation/SlotIndex.h"
#include "Foundation/Value.h"

namespace tavlo {

// Values by text key, in the order in which the keys were first set. Neither keys nor values are absent.
class NSDictionary : public NSObject {
 public:
  struct Entry {
    Ref<NSString> key;
    Value value;
  };
  using Entries = std::vector<Entry, ObjectArena::Allocator<Entry>>;

  NSDictionary();
  // A dictionary of its own with the same entries.
  explicit NSDictionary(const NSDictionary& other, std::nullptr_t);

  static Ref<NSDictionary> dictionary() { return makeRef<NSDictionary>(); }
  // Of two entries with one key the later value stands, in the place of the first.
  static Ref<NSDictionary> dictionaryWithEntries(std::initializer_list<std::pair<std::string_view, Value>> entries);

  std::size_t count() const noexcept { return entries_.size(); }
  // In insertion order.
  const Entries& entries() const noexcept { return entries_; }
  // The value, or null where there is none; good until the dictionary changes.
  const Value* find(std::string_view key) const noexcept;
  const Value* find(const NSString& key) const noexcept;
  // The same, leaving in `index` where the key was found.
  const Value* find(const NSString& key, std::uint32_t& index) const noexcept;
  // The value of the entry with that index, if there is one and it has that key; null otherwise.
  const Value* findAt(std::uint32_t index, const NSString& key) const noexcept {
    // By addresses, which takes no division.
    const auto place = reinterpret_cast<std::uintptr_t>(entries_.data()) + std::uintptr_t{index} * sizeof(Entry);
    if (place >= reinterpret_cast<std::uintptr_t>(entries_.data() + entries_.size())) return nullptr;
    const Entry& entry = entries_[index];
    return entry.key->hasSameText(key) ? &entry.value : nullptr;
  }
  Value objectForKey(std::string_view key) const;

  const char* className() const override { return "NSDictionary"; }
  void describe(Description& out) const override;
  bool isEqual(const NSObject& other, std::int32_t depth = 0) const override;
  std::size_t hash() const override;
  // An entry, or the number of entries for "@count" where no entry has that key; never raises.
  bool findValueForKey(const NSString& key, Value& value) const override;
  // The values, in insertion order.
  Ref<NSEnumerator> objectEnumerator() const override;

  static void* operator new(std::size_t size) { return ObjectArena::allocate(size); }
  static void operator delete(void* memory) noexcept { ObjectArena::free(memory); }
  static void* operator new(std::size_t size, std::align_val_t alignment) {
    return ObjectArena::allocate(size, alignment);
  }
  static void operator delete(void* memory, std::align_val_t alignment) noexcept {
    ObjectArena::free(memory, alignment);
  }

 protected:
  std::uint32_t indexOf(std::string_view key, std::uint32_t hash) const noexcept;
  // Where it raises, nothing has changed.
  void store(Ref<NSString> key, Value value);
  // Makes slots for so many entries, or none where they are few; where it raises, the old ones stay.
  void growSlots(std::size_t count);
  auto hashes() const noexcept {
    return [this](std::size_t index) { return entries_[index].key->hash32(); };
  }

  Entries entries_;
  SlotIndex slots_;  // of entries_; empty while the dictionary is small
};

// A dictionary that can change, as long as it is not shared between threads: then its mutators raise
// `NSInternalInconsistencyException`.
class NSMutableDictionary final : public NSDictionary {
 public:
  using NSDictionary::NSDictionary;

  static Ref<NSMutableDictionary> dictionary() { return makeRef<NSMutableDictionary>(); }
  // Unchecked: no two of the keys are equal, and neither keys nor values are absent.
  static Ref<NSMutableDictionary> dictionaryWithDistinctEntries(Entries entries);

  // Raises `NSInvalidArgumentException` for an absent value or key.
  void setObjectForKey(Value value, std::string_view key);
  void setObjectForKey(Value value, Ref<NSString> key);
  // Makes room for that many entries.
  void reserve(std::size_t count) { entries_.reserve(count); }
  // Does nothing where there is no such key. Moves the entries behind it up, which takes time for each of them.
  void removeObjectForKey(std::string_view key);
  void removeAllObjects();
};

}  // namespace tavlo
