#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <typeinfo>
#include <vector>

#include "Foundation/HostMethodTable.h"
#include "Foundation/NSEnumerator.h"
#include "Foundation/NSString.h"
#include "Foundation/RawValue.h"
#include "Foundation/Ref.h"
#include "Foundation/SlotIndex.h"
#include "Foundation/Value.h"

namespace tavlo {

class Description;
class HostInstance;
class LentValue;

// One readable property of a class of the host. Objects are passed by their address, as the class that the property was
// described for.
class HostProperty {
 public:
  HostProperty(const HostProperty&) = delete;
  HostProperty& operator=(const HostProperty&) = delete;
  virtual ~HostProperty();

  // The property of `object`, which `holder` stands for; the caller adopts it. Raises what reading it raises.
  virtual RawValue read(void* object, const HostInstance& holder) const = 0;
  // The same for who writes it at once: a text is lent where it lives. The default reads.
  virtual void lend(void* object, const HostInstance& holder, LentValue& lent) const;

  // Whether it is a number or a text where it lies in the object, so that reading it runs none of the host's code.
  bool isPlainMember() const noexcept { return isPlainMember_; }

 protected:
  explicit HostProperty(bool isPlainMember) : isPlainMember_(isPlainMember) {}

 private:
  const bool isPlainMember_;
};

// The description of a class of the host, behind `HostClass<T>`: complete before the first object is asked, and
// unchanged from then on, so that threads may read it at once. Objects are passed by their address, as that class.
class HostClassTable {
 public:
  // The making of a description on a thread, named by an address of its own. Raises `NSInvalidArgumentException` where
  // the thread is making that one.
  class Making {
   public:
    Making(const void* description, const std::type_info& type);
    Making(const Making&) = delete;
    Making& operator=(const Making&) = delete;
    ~Making();

    // Whether the thread is making no other one around it.
    bool isOutermost() const noexcept { return outer_ == nullptr; }

   private:
    const void* description_;
    const Making* outer_;
  };

  // What a class says of its objects beside their properties; empty where it says nothing.
  struct Operations {
    // Absent where there is no order between the two.
    std::function<std::optional<bool>(void* object, const Value& other)> isLessThan;
    std::function<std::optional<bool>(void* object, const Value& other)> isGreaterThan;
    // `other` is an object of the same class; objects that are equal have one hash.
    std::function<bool(void* object, void* other)> isEqual;
    std::function<std::size_t(void* object)> hash;
    std::function<void(void* object, Description& out)> describe;
    std::function<Ref<NSEnumerator>(void* object, const HostInstance& holder)> enumerate;
    // The address of the whole object that this one may be a part of.
    std::function<const void*(void* object)> whole;
  };
  using Upcast = void* (*)(void* object);

  explicit HostClassTable(const std::type_info& type) : type_(type) {}
  HostClassTable(const HostClassTable&) = delete;
  HostClassTable& operator=(const HostClassTable&) = delete;

  // What a description consists of. These raise `NSInvalidArgumentException` for what is wrong in it.

  void setName(std::string_view name);
  void setCanBeShared(bool canBeShared) noexcept { canBeShared_ = canBeShared; }
  void addProperty(std::string_view key, std::unique_ptr<HostProperty> property);
  // All that the base says and this class does not say itself; of two bases the later one wins.
  void inherit(const HostClassTable& base, Upcast asBase);
  Operations& operations() noexcept { return operations_; }
  HostMethodTable& methods() noexcept { return methods_; }
  // Ends the description.
  void complete();

  // What a complete description is asked.

  const std::string& name() const noexcept { return name_; }
  bool canBeShared() const noexcept { return canBeShared_; }
  const Operations& operations() const noexcept { return operations_; }
  const HostMethodTable& methods() const noexcept { return methods_; }
  // Null for a key that the class does not know.
  const HostProperty* find(const NSString& key) const noexcept {
    const std::uint32_t index = indexOf(key);
    return index == SlotIndex::kNowhere ? nullptr : entries_[index].property.get();
  }
  // The same for who asks again and again: `number` is the property that was found last, of whichever class, and 0 at
  // first. No two properties of all classes have one number.
  const HostProperty* find(const NSString& key, std::atomic<std::uint32_t>& number) const noexcept {
    const std::uint32_t known = number.load(std::memory_order_relaxed) - firstNumber_;
    return known < count_ ? properties_[known] : findAnew(key, number);
  }
  // The keys of all properties, the inherited ones first, each in the order of their description.
  std::vector<Ref<NSString>> keys() const;
  // The object as one of the wanted class, which is this one or one that it inherits; null otherwise.
  void* objectAs(void* object, const HostClassTable& wanted) const noexcept;
  // The class that says when objects are equal: this one or one that it inherits; null where none does.
  const HostClassTable* findEquality() const noexcept;
  bool isSame(const HostClassTable& other) const noexcept { return this == &other || type_ == other.type_; }

 private:
  struct Entry {
    Ref<NSString> key;  // counts atomically
    std::shared_ptr<const HostProperty> property;
    bool isInherited;
  };
  struct Base {
    const HostClassTable* table;
    Upcast asBase;
  };

  std::uint32_t indexOf(const NSString& key) const noexcept;
  const HostProperty* findAnew(const NSString& key, std::atomic<std::uint32_t>& number) const noexcept;
  Entry* entryFor(std::string_view key);
  void inheritProperty(const Entry& inherited, Upcast asBase);
  void inheritOperations(const HostClassTable& base, Upcast asBase);
  void inheritComparisons(const Operations& inherited, Upcast asBase);
  // The class as the compiler calls it, for messages about its description.
  std::string typeName() const;

  const std::type_info& type_;
  std::string name_;
  bool canBeShared_ = false;
  std::vector<Entry> entries_;
  std::uint32_t firstNumber_ = 0;  // of the first property; the others follow
  std::uint32_t count_ = 0;
  std::unique_ptr<const HostProperty*[]> properties_;  // those of entries_  NOLINT(*-avoid-c-arrays)
  SlotIndex slots_;                                    // of entries_
  std::vector<Base> bases_;
  Operations operations_;
  HostMethodTable methods_;
};

}  // namespace tavlo
