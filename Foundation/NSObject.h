#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "Foundation/SingleThread.h"

namespace tavlo {

class Description;
class NSEnumerator;
class NSMethodSignature;
class NSString;
class Selector;
class Value;
struct BoundMethod;
template <class T>
class Ref;

// What an object is, for the tests that run at every step: one byte in every object, set once. The engine's own classes
// count on from `FirstEngineKind`; a host's class is `Other`, unless it is described.
enum class ObjectKind : std::uint8_t {
  Other,
  String,
  Array,
  Dictionary,
  Set,
  Date,
  HostObject,
  LazyList,
  LazyDictionary,
  LazySequence,
  FirstEngineKind
};

// How an object's references are counted. `Plain` until the object is shared between threads, `Atomic` from birth for
// what threads may hold in common without saying so (nodes, functions, regular expressions).
enum class Counting : std::uint8_t { Plain, Atomic };

// The root of every counted object: identity, equality, order, key-value access, enumeration and text.
//
// An object is made by `makeRef` with one reference and ends with its last one. Ending a deep structure never recurses
// deeper than a fixed bound and never allocates: what ends deeper inside other ends waits until the outermost one has
// returned, but for what was made in the end that lets go of it.
class NSObject {
 public:
  NSObject(const NSObject&) = delete;
  NSObject& operator=(const NSObject&) = delete;

  // The class's name as messages show it; lives as long as the process.
  virtual const char* className() const;

  // Writes the object's text; "<ClassName: 0x…>" unless the class says otherwise.
  virtual void describe(Description& out) const;

  // The object's whole text.
  std::string description() const;

  // Whether the two stand for the same value; identity unless the class says otherwise. `depth` counts the collections
  // around this one, for classes that compare what they hold.
  virtual bool isEqual(const NSObject& other, std::int32_t depth = 0) const;

  // The same for objects that are equal.
  virtual std::size_t hash() const;

  // The object's own order; absent when the class does not implement the comparison (with that value).
  virtual std::optional<bool> isLessThan(const Value& other) const;
  virtual std::optional<bool> isGreaterThan(const Value& other) const;

  // For a class to say what properties it has: the one of that name, absent when it has no value. Raises
  // `NSUndefinedKeyException` for a key that the class does not know. Whoever reads an object asks findValueForKey().
  virtual Value valueForKey(const NSString& key) const;

  // The same without an exception: false for a key that the class does not know. The default asks `valueForKey`; a
  // class with cheap lookups overrides this one and leaves `valueForKey` alone.
  virtual bool findValueForKey(const NSString& key, Value& value) const;

  // A walk over what the object holds; absent when it cannot be enumerated.
  virtual Ref<NSEnumerator> objectEnumerator() const;

  // The method behind the selector, for calls that are put together at run time; none by default. A class with methods
  // answers from its table, see Foundation/HostMethodTable.h.
  virtual BoundMethod methodForSelector(const Selector& selector) const;

  // The types of that method; absent where there is none.
  virtual Ref<NSMethodSignature> methodSignatureForSelector(const Selector& selector) const;

  // Whether there is such a method.
  virtual bool respondsToSelector(const Selector& selector) const;

  ObjectKind kind() const noexcept { return kind_; }

  void retain() const noexcept {
    const std::uint32_t count = count_.load(std::memory_order_relaxed);
    if ((count & kSharedBit) != 0 && !isSingleThreaded()) {
      count_.fetch_add(kOne, std::memory_order_relaxed);
    } else {
      count_.store(count + kOne, std::memory_order_relaxed);
    }
  }

  void release() const noexcept {
    const std::uint32_t count = count_.load(std::memory_order_acquire);
    if ((count & kSharedBit) == 0) {
      if (count == kOne) return end();
      count_.store(count - kOne, std::memory_order_relaxed);
    } else if (count != (kOne | kSharedBit) && isSingleThreaded()) {
      count_.store(count - kOne, std::memory_order_relaxed);
    } else if (count == (kOne | kSharedBit)) {  // the last one need not be counted down: nobody else is left to see it
      end();
    } else if (count_.fetch_sub(kOne, std::memory_order_acq_rel) == (kOne | kSharedBit)) {
      count_.store(kOne | kSharedBit, std::memory_order_relaxed);  // for an end that counts the object once more
      end();
    }
  }

  // Whether one reference, held by one thread, is all there is: the holder may then change the object unseen.
  bool isUniquelyReferenced() const noexcept { return count_.load(std::memory_order_relaxed) == kOne; }
  bool hasOneReference() const noexcept { return (count_.load(std::memory_order_acquire) & ~kSharedBit) == kOne; }

  // Whether this thread holds another reference besides, so that to let go of one does not end the object. Another
  // thread's may be gone by then.
  bool isHeldElsewhere() const noexcept {
    const auto count = count_.load(std::memory_order_relaxed);
    return (count & kSharedBit) == 0 && count != kOne;
  }

  // Whether several threads may hold the object; a collection then refuses changes.
  bool isShared() const noexcept { return (count_.load(std::memory_order_relaxed) & kSharedBit) != 0; }

  // Counts atomically from here on. Called while one thread still holds the object alone, or where it counts so
  // already; see Value::share().
  void markShared() const noexcept {
    if (!isShared()) count_.store(count_.load(std::memory_order_relaxed) | kSharedBit);
  }

  // Whether the object may be held by several threads once it counts atomically; a host's class says so itself.
  virtual bool canBeShared() const { return kind_ != ObjectKind::Other; }

 protected:
  explicit NSObject(ObjectKind kind = ObjectKind::Other, Counting counting = Counting::Plain) noexcept
      : count_(counting == Counting::Atomic ? (kOne | kSharedBit) : kOne),
        madeAt_(kind == ObjectKind::String ? std::uint16_t{0} : static_cast<std::uint16_t>(ends_.level)),
        kind_(kind) {}
  virtual ~NSObject() = default;

 private:
  friend class PendingReleases;

  static constexpr std::uint32_t kSharedBit = 1;
  static constexpr std::uint32_t kOne = 2;

  void end() const noexcept;

  // What ends on a thread.
  struct Ends {
    const NSObject* first = nullptr;  // that waits to be freed
    std::uint32_t level = 0;          // how many objects end, one inside the other
    std::uint32_t outermost = 0;      // the level at which those that wait are freed
  };

  [[gnu::tls_model("initial-exec")]] static constinit thread_local Ends ends_;

  mutable std::atomic<std::uint32_t> count_;  // twice the references, plus the shared bit
  mutable std::uint16_t madeAt_;  // the level of ends; while the object waits, with count_: the next one that waits
  ObjectKind kind_;               // last, so that a class that derives may put a byte of its own behind it
};

}  // namespace tavlo
