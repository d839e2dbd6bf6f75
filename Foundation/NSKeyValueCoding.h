#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "Foundation/LentValue.h"
#include "Foundation/NSDictionary.h"
#include "Foundation/NSEnumerator.h"
#include "Foundation/NSString.h"
#include "Foundation/Value.h"

namespace tavlo {

class HostInstance;
class HostProperty;

// A dotted path of keys, cut once and followed often. Several threads may follow one path at once.
class NSKeyPath {
 public:
  // No path; nobody may follow it.
  NSKeyPath() noexcept = default;
  // The path must be valid UTF-8. Its keys are what stands between the dots; each may be empty.
  explicit NSKeyPath(std::string_view path) : NSKeyPath(NSString::stringWithValidUTF8(path, Counting::Atomic)) {}
  // The same for a string that counts atomically.
  explicit NSKeyPath(const Ref<NSString>& path);

  // Of what is moved nothing but the path itself goes along; what was there has none then.
  NSKeyPath(NSKeyPath&& other) noexcept { *this = std::move(other); }
  NSKeyPath& operator=(NSKeyPath&& other) noexcept {
    firstKey_.text = std::exchange(other.firstKey_.text, nullptr);
    moreKeys_ = std::move(other.moreKeys_);
    count_ = std::exchange(other.count_, 1);
    return *this;
  }
  ~NSKeyPath() = default;

  bool isAbsent() const noexcept { return firstKey_.text == nullptr; }
  // The whole path, which is not absent.
  std::string_view text() const noexcept { return keyAt(count_ == 1 ? 0 : count_).text->view(); }

  // What the path leads to from `root`. False when a value on the way does not know its key; an exception of a host's
  // property passes through. An absent value ends the path: the result is absent too.
  bool find(const Value& root, Value& result) const;

  // The same for who tells what is undefined from what has no value: false also where a dictionary has no such entry,
  // and where a host's property raises `NSUndefinedKeyException`.
  bool findDefined(const Value& root, Value& result) const;

  // The same, for the caller to adopt; nothing where a value on the way does not know its key. `root` must stay what it
  // is meanwhile.
  RawValue read(const Value& root) const {
    const NSObject* const object = count_ == 1 ? root.object() : nullptr;
    const bool isHostObject = object != nullptr && object->kind() == ObjectKind::HostObject;
    return isHostObject ? readProperty(*object) : readFurther(root);
  }

  // The property of a host's object that is the whole path; null where there is none. For a HostInstance, whose header
  // needs this one.
  template <class Instance>
  const HostProperty* wholePathIn(const Instance& instance) const noexcept {
    return count_ == 1 ? instance.table().find(*firstKey_.text, firstKey_.lastNumber) : nullptr;
  }

  // The same for who writes the result at once: `holder`, the root at first, becomes what the last key was asked of,
  // and a text may be lent for as long as that lives.
  bool lend(Value& holder, LentValue& result) const;

  // The same for a path through dictionaries alone: the value where it lives, good until something changes. Null where
  // the path leads elsewhere or to nothing, and `find` must decide.
  const Value* peek(RawValue root) const noexcept { return peekFrom(0, root); }

 private:
  struct Key {
    Ref<NSString> text;
    mutable std::atomic<std::uint32_t> lastSlot{0};    // of the last dictionary that had the key
    mutable std::atomic<std::uint32_t> lastNumber{0};  // of the last property of a host's class that had the key
  };

  // What an element of a collection contributes to an operator.
  enum class Contribution : std::uint8_t { Value, Nothing, UnknownKey };

  // Whether the key is long, or one of many: following it is counted as work, which find() does, and no slot is
  // remembered for it.
  bool isWork(std::size_t index) const noexcept;
  // Counts following the whole path, which may lead in circles.
  void countKeys() const;
  const Value* peekFrom(std::size_t index, RawValue start) const noexcept {
    RawValue holder = start;
    for (const Key* key = &keyAt(index);; key = &moreKeys_[index - 1]) {
      if (holder.kind() != ValueKind::Object || holder.payload.object->kind() != ObjectKind::Dictionary) return nullptr;
      const auto& dictionary = static_cast<const NSDictionary&>(*holder.payload.object);
      const Value* const value = dictionary.findAt(key->lastSlot.load(std::memory_order_relaxed), *key->text);
      if (value == nullptr) [[unlikely]]
        return peekAnew(index, dictionary);
      if (++index == count_) return value;
      holder = value->peek();
    }
  }
  // Goes on where a key is not in the place of its last hit.
  const Value* peekAnew(std::size_t index, const NSDictionary& dictionary) const noexcept;
  Contribution contributionFrom(std::size_t index, const Value& element, Value& result) const;
  const HostProperty* propertyOf(const HostInstance& instance, const Key& key) const noexcept;
  RawValue readProperty(const NSObject& hostObject) const;
  RawValue readFurther(const Value& root) const;
  bool lendFurther(Value& holder, LentValue& result) const;
  // Goes on with one key from `holder`; `index` passes the end where the rest of the path belongs to an operator.
  bool step(std::size_t& index, const Value& holder, Value& result) const;
  bool applyOperator(std::size_t index, const Value& collection, Value& result) const;
  bool contribute(std::size_t index, const Value& element, std::vector<Value>& values) const;
  bool contributeWalked(std::size_t index, const Value& collection, std::vector<Value>& values) const;
  // Of the elements, the first `counted` have been counted as work.
  bool contributeAll(std::size_t index, const Value& collection, std::size_t counted, std::vector<Value>& values) const;
  // The result of an operator on numbers that the path finds in dictionaries from each of the elements. Answers how
  // many of those it has walked through; fewer than all where the next one leads to something else, and there is no
  // result.
  template <class Reduction>
  std::size_t reduce(std::size_t index, const std::vector<Value>& elements, Value& result) const;
  struct CollectionOperator;
  static const CollectionOperator* operatorNamed(std::string_view name) noexcept;

  const Key& keyAt(std::size_t index) const noexcept { return index == 0 ? firstKey_ : moreKeys_[index - 1]; }

  Key firstKey_;
  std::unique_ptr<Key[]> moreKeys_;  // and behind them the whole path, which is the first key where that is all
  std::uint32_t count_ = 1;
};

// The value for one key, whatever the kind of the value that is asked; absent for an absent value. False for a key that
// it does not know; the null object knows none.
bool findValueForKey(const Value& object, const NSString& key, Value& value);

// What the dotted path leads to. Raises `NSUndefinedKeyException` where a value on the way does not know its key, and
// `NSInvalidArgumentException` where the path is no UTF-8.
Value valueForKeyPath(const Value& root, std::string_view path);

// The array or the dictionary that a lazy list or dictionary stands for, made of it; every other value as it is.
Value plainValue(const Value& value);

// The list of the values that the elements have for the key, null for a null element and for an absent value. False
// when an element does not know the key.
bool findValuesForKey(const std::vector<Value>& elements, const NSString& key, Value& values);
// The same for the elements that a walk still has to come.
bool findValuesForKey(NSEnumerator& elements, const NSString& key, Value& values);

// Raises `NSUndefinedKeyException`.
[[noreturn]] void raiseUndefinedKey(const Value& object, std::string_view key);

}  // namespace tavlo
