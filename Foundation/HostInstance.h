#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

#include "Foundation/HostClassTable.h"
#include "Foundation/NSObject.h"
#include "Foundation/Ref.h"
#include "Foundation/Value.h"

namespace tavlo {

// An object of the host's, as a template sees it: all that it answers, its class's description says. Two of them are
// equal where that says so, and otherwise where they stand for one object.
class HostInstance : public NSObject {
 public:
  // The object and what keeps it; without an owner the host keeps it for as long as a template can reach it. Nothing
  // changes a constant one.
  HostInstance(const HostClassTable& table, void* object, std::shared_ptr<const void> owner)
      : HostInstance(table, object, false, std::move(owner)) {}
  HostInstance(const HostClassTable& table, const void* object, std::shared_ptr<const void> owner)
      : HostInstance(table, const_cast<void*>(object),  // NOLINT(*-const-cast): given out as a constant only
                     true, std::move(owner)) {}
  ~HostInstance() override;

  const HostClassTable& table() const noexcept { return *table_; }
  // As the class that table() describes.
  void* object() const noexcept { return object_; }
  bool isConstant() const noexcept { return isConstant_; }
  // The same object as a constant one, for who was given this instance as a constant.
  Ref<HostInstance> constant() const;
  // Keeps the object, and all that is a part of it; empty where the host does.
  std::shared_ptr<const void> owner() const;

  // Keeps what belongs to the object; empty for null and where the host does.
  static std::shared_ptr<const void> ownerOf(const NSObject* holder);

  // An owner of something that refers into what another owner, which may be empty, keeps.
  static std::shared_ptr<const void> ownerOfBoth(std::shared_ptr<const void> kept,
                                                 std::shared_ptr<const void> referredTo);

  // Whether several threads may let go of what such an owner keeps: not while it keeps an object that counts plainly.
  static bool canShareOwner(const std::shared_ptr<const void>& owner);

  // The object that the value stands for, as one of that class; null for every other value.
  static void* find(const Value& value, const HostClassTable& wanted, bool mayBeConstant) noexcept;

  const char* className() const override;
  void describe(Description& out) const override;
  bool isEqual(const NSObject& other, std::int32_t depth = 0) const override;
  std::size_t hash() const override;
  std::optional<bool> isLessThan(const Value& other) const override;
  std::optional<bool> isGreaterThan(const Value& other) const override;
  Value valueForKey(const NSString& key) const final;
  bool findValueForKey(const NSString& key, Value& value) const final;
  Ref<NSEnumerator> objectEnumerator() const override;
  BoundMethod methodForSelector(const Selector& selector) const override;
  bool canBeShared() const override;

 protected:
  // For a class that is described and counted itself: the object is this one. Where several threads may read it, it
  // counts atomically from the start: the host lends it by plain references, which become counted ones on any thread.
  struct Itself {};
  HostInstance(const HostClassTable& table, void* object, Itself)
      : NSObject(ObjectKind::HostObject, table.canBeShared() ? Counting::Atomic : Counting::Plain),
        table_(&table),
        object_(object),
        isItself_(true) {}

 private:
  friend class ReusableInstances;

  HostInstance(const HostClassTable& table, void* object, bool isConstant, std::shared_ptr<const void> owner)
      : NSObject(ObjectKind::HostObject),
        table_(&table),
        object_(object),
        owner_(std::move(owner)),
        isConstant_(isConstant) {}

  // Where the whole object lies that this one may be a part of.
  const void* identity() const;

  const HostClassTable* table_;
  void* object_;
  std::shared_ptr<const void> owner_;
  bool isConstant_ = false;
  bool isItself_ = false;  // a class that is counted itself
};

// The walk that the value is, or that there is over it; absent where it cannot be enumerated.
Ref<NSEnumerator> enumeratorOf(const Value& value);

// Raises `NSInvalidArgumentException`: only an object that is no constant can be read so.
[[noreturn]] void raiseConstant(const HostInstance& holder);

// What a walk has handed out last: an object that nobody has kept serves again, for another element of the same class.
class ReusableInstances {
 public:
  // An instance for the object, as by the constructors of HostInstance.
  template <class Object>
  requires std::is_void_v<Object> Ref<HostInstance> instance(const HostClassTable& table, Object* object,
                                                             const std::shared_ptr<const void>& owner) {
    next_ = 1 - next_;  // what was handed out last is still in the hands of who asks
    Ref<HostInstance>& last = instances_[next_];
    // What is let go of may run a host's code, which may ask for elements of this walk too.
    if (!canServe(last, table, std::is_const_v<Object>)) {
      Ref<HostInstance> made = makeRef<HostInstance>(table, object, owner);
      last = made;
      return made;
    }
    Ref<HostInstance> instance = last;
    instance->object_ = const_cast<void*>(static_cast<const void*>(object));  // NOLINT(*-const-cast): as it was
    if (instance->owner_.owner_before(owner) || owner.owner_before(instance->owner_)) {
      const std::shared_ptr<const void> old = std::exchange(instance->owner_, owner);
    }
    return instance;
  }

 private:
  static bool canServe(const Ref<HostInstance>& instance, const HostClassTable& table, bool isConstant) noexcept {
    return instance != nullptr && instance->isUniquelyReferenced() && instance->table_ == &table &&
           instance->isConstant_ == isConstant;
  }

  std::array<Ref<HostInstance>, 2> instances_;
  std::size_t next_ = 0;
};

}  // namespace tavlo
