#pragma once

#include <atomic>
#include <concepts>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "Foundation/Described.h"
#include "Foundation/Description.h"
#include "Foundation/HostClassTable.h"
#include "Foundation/HostResult.h"
#include "Foundation/LazyContainers.h"
#include "Foundation/NSEnumerator.h"
#include "Foundation/NSException.h"
#include "Foundation/Selector.h"
#include "Foundation/Utf8.h"
#include "Foundation/Value.h"
#include "Foundation/WorkMeter.h"

namespace tavlo {

// Whether a getter reads an object of the class, and what it answers.
template <class Getter, class T>
concept GetterOf = std::invocable<const Getter&, T&> || std::invocable<const Getter&, const T&>;

// One property that a getter reads: a constant object as a constant, every other one as it is.
template <class T, class Getter>
class PropertyByGetter final : public HostProperty {
 public:
  explicit PropertyByGetter(Getter getter) : HostProperty(readsPlainMember()), getter_(std::move(getter)) {}

  RawValue read(void* object, const HostInstance& holder) const override {
    return withResult(object, holder, [&holder](auto&& result) {
      return referTo(std::forward<decltype(result)>(result), HostContext(holder));
    });
  }
  void lend(void* object, const HostInstance& holder, LentValue& lent) const override {
    (void)withResult(object, holder, [&](auto&& result) {
      lendResult(std::forward<decltype(result)>(result), HostContext(holder), lent);
      return RawValue::nothing();
    });
  }

  // Whether all that the getter answers becomes a value.
  static consteval bool answersValues() {
    if constexpr (kReadsConstants) {
      if (!HostResult<std::invoke_result_t<const Getter&, const T&>>) return false;
    }
    if constexpr (std::invocable<const Getter&, T&>) return HostResult<std::invoke_result_t<const Getter&, T&>>;
    return true;
  }

 private:
  static constexpr bool kReadsConstants = std::invocable<const Getter&, const T&>;

  static constexpr bool readsPlainMember() {
    if constexpr (std::is_member_object_pointer_v<Getter>) {
      using Member = std::remove_cvref_t<std::invoke_result_t<const Getter&, T&>>;
      return std::is_arithmetic_v<Member> || std::same_as<Member, std::string>;
    }
    return false;
  }

  // Whether there is a difference between an object and a constant one.
  static constexpr bool hasTwoResults() {
    if constexpr (kReadsConstants && std::invocable<const Getter&, T&>) {
      using Result = std::invoke_result_t<const Getter&, T&>;
      constexpr HostResultKind kKind = hostResultKind<Result>();
      if (kKind == HostResultKind::Plain || kKind == HostResultKind::Text) return false;
      return !std::same_as<Result, std::invoke_result_t<const Getter&, const T&>>;
    }
    return false;
  }

  template <class Use>
  RawValue withResult(void* object, const HostInstance& holder, const Use& use) const {
    constexpr bool kIsMember = std::is_member_object_pointer_v<Getter>;
    if constexpr (!kIsMember || !becomesValueQuietly<std::invoke_result_t<const Getter&, T&>>()) lookBeforeHost();
    if constexpr (hasTwoResults()) {
      if (!holder.isConstant()) return use(std::invoke(getter_, *static_cast<T*>(object)));
      return use(std::invoke(getter_, *static_cast<const T*>(object)));
    } else if constexpr (kReadsConstants) {
      return use(std::invoke(getter_, *static_cast<const T*>(object)));
    } else {
      if (holder.isConstant()) raiseConstant(holder);
      return use(std::invoke(getter_, *static_cast<T*>(object)));
    }
  }

  Getter getter_;
};

// The description of a class of the host: its name, what can be read from its objects, and what they can do. The host
// writes one function beside the class, in its namespace,
//
//   void describeHostClass(tavlo::HostClass<Product>& product) {
//     product.name("Product").property("price", &Product::price);
//   }
//
// which is run once, when the class is first used. Functions that the description is given are called by all threads
// that use objects of the class; none may be a null pointer. What is wrong in a description is said by the compiler
// where it can tell, and raised otherwise, by whatever asks for the class: `NSInternalInconsistencyException` for a
// null pointer, and `NSInvalidArgumentException`.
template <class T>
class HostClass {
 public:
  HostClass() : table_(typeid(T)) {
    if constexpr (std::is_polymorphic_v<T>) {
      table_.operations().whole = [](void* object) { return dynamic_cast<const void*>(at(object)); };
    }
  }
  HostClass(const HostClass&) = delete;
  HostClass& operator=(const HostClass&) = delete;

  // The name that templates see: in descriptions and messages. Every class has one, which is not empty.
  HostClass& name(std::string_view name) {
    table_.setName(name);
    return *this;
  }

  // What `getter` answers for an object: a member function, a data member, or whatever is called with the object. The
  // key is not empty, holds no "." and is not that of another property described here. A text that the getter answers
  // by reference or as a `std::string_view` must live until the object changes: it is written from where it lies.
  // Described objects and containers that it answers by reference are referred to, and owned by whoever owns the
  // object.
  template <class Getter>
  HostClass& property(std::string_view key, Getter getter) {
    static_assert(GetterOf<Getter, T>,
                  "HostClass::property: the getter must be callable with an object of the class and nothing else");
    if constexpr (GetterOf<Getter, T>) {
      constexpr bool kAnswersValues = PropertyByGetter<T, Getter>::answersValues();
      static_assert(kAnswersValues,
                    "HostClass::property: what the getter answers cannot become a value; describe its class by "
                    "describeHostClass() or convert it in the getter");
      if constexpr (kAnswersValues) {
        requirePresent(getter, "getter != nil");
        table_.addProperty(key, std::make_unique<PropertyByGetter<T, Getter>>(std::move(getter)));
      }
    }
    return *this;
  }

  // All that the base class's description says, but for its name and whether objects can be shared: what is described
  // here comes before what is inherited, and a base inherited later before an earlier one. Where an object of the base
  // is asked for, one of this class serves.
  template <class Base>
  HostClass& inherits() {
    constexpr bool kIsBase = std::derived_from<T, Base> && !std::same_as<T, Base>;
    static_assert(kIsBase, "HostClass::inherits: the class does not derive publicly from that base");
    static_assert(!kIsBase || Described<Base>,
                  "HostClass::inherits: the base has no describeHostClass() in its namespace");
    if constexpr (kIsBase && Described<Base>) {
      table_.inherit(hostClassTable<Base>(), [](void* object) -> void* { return static_cast<Base*>(at(object)); });
    }
    return *this;
  }

  // What an object does: a member function, or whatever is called with the object first. The selector has a colon for
  // each argument, "priceInCurrency:discount:"; what the types of C++ are to a template, Foundation/TypeEncoding.h
  // says. Raises `NSInvalidArgumentException` for another number of colons, and for a selector that the class has
  // already.
  template <class Function>
  HostClass& method(const Selector& selector, Function function) {
    table_.methods().template add<T>(selector, std::move(function));
    return *this;
  }

  // The class's own order, as the operators ask for it: called with two objects, answers a bool; or with an object and
  // a value, answers an optional that is empty where there is no order between the two.
  template <class Less>
  HostClass& lessThan(Less less) {
    table_.operations().isLessThan = comparison(std::move(less));
    return *this;
  }
  template <class Greater>
  HostClass& greaterThan(Greater greater) {
    table_.operations().isGreaterThan = comparison(std::move(greater));
    return *this;
  }

  // When two objects are equal, and a hash that is the same for objects that are.
  template <class Equal, class Hash>
  HostClass& equal(Equal equal, Hash hash) {
    constexpr bool kIsEquality = std::is_invocable_r_v<bool, const Equal&, const T&, const T&>;
    static_assert(kIsEquality,
                  "HostClass::equal: the first function must be callable with two objects, answering bool");
    constexpr bool kIsHash = std::is_invocable_r_v<std::size_t, const Hash&, const T&>;
    static_assert(kIsHash, "HostClass::equal: the second function must be callable with an object, answering a size");
    if constexpr (kIsEquality && kIsHash) {
      requirePresent(equal, "equal != nil");
      requirePresent(hash, "hash != nil");
      table_.operations().isEqual = [equal = std::move(equal)](void* object, void* other) -> bool {
        return std::invoke(equal, constantAt(object), constantAt(other));
      };
      table_.operations().hash = [hash = std::move(hash)](void* object) -> std::size_t {
        return std::invoke(hash, constantAt(object));
      };
    }
    return *this;
  }

  // The text of an object; empty for a null pointer.
  template <class Text>
  HostClass& description(Text text) {
    constexpr bool kIsText = std::is_invocable_r_v<std::string_view, const Text&, const T&>;
    static_assert(kIsText, "HostClass::description: the function must be callable with an object, answering a text");
    if constexpr (kIsText) {
      requirePresent(text, "text != nil");
      table_.operations().describe = [text = std::move(text)](void* object, Description& out) {
        const auto& written = std::invoke(text, constantAt(object));
        if (HostResultRule<HostResultKind::Text>::isNull(written)) return;
        requireValidUTF8(written);
        out.part(std::string_view(written));
      };
    }
    return *this;
  }

  // What a loop over an object walks over: a container that the function answers, or an enumerator.
  template <class Elements>
  HostClass& elements(Elements elements) {
    static_assert(GetterOf<Elements, T>,
                  "HostClass::elements: the function must be callable with an object of the class and nothing else");
    if constexpr (GetterOf<Elements, T>) {
      using Property = PropertyByGetter<T, Elements>;
      static_assert(Property::answersValues(), "HostClass::elements: what the function answers cannot become a value");
      if constexpr (Property::answersValues()) {
        requirePresent(elements, "elements != nil");
        table_.operations().enumerate = [property = std::make_shared<Property>(std::move(elements))](
                                            void* object, const HostInstance& holder) {
          return enumeratorOf(Value::adopt(property->read(object, holder)));
        };
      }
    }
    return *this;
  }

  // Several threads may read one object at once, so that values which hold it can be shared.
  HostClass& canBeShared(bool canBeShared = true) {
    table_.setCanBeShared(canBeShared);
    return *this;
  }

  // The one description of the class, made when it is first asked for; it lives as long as the process.
  static const HostClass& theOne() {
    const HostClass* const made = made_.load(std::memory_order_acquire);
    return made != nullptr ? *made : makeTheOne();
  }

  const std::string& className() const noexcept { return table_.name(); }
  // The keys of all properties, the inherited ones first, each in the order of their description.
  std::vector<Ref<NSString>> keys() const { return table_.keys(); }
  const HostClassTable& table() const noexcept { return table_; }

 private:
  // One thread makes it, and others wait; but one that is describing another class waits for nobody, as that might wait
  // for it: of two descriptions the first stays.
  static const HostClass& makeTheOne() {
    static std::mutex mutex;
    const HostClassTable::Making making(&made_, typeid(T));
    std::unique_lock lock(mutex, std::defer_lock);
    if (making.isOutermost()) lock.lock();
    const HostClass* made = made_.load(std::memory_order_acquire);
    if (made != nullptr) return *made;
    auto description = std::make_unique<HostClass>();
    describeHostClass(*description);
    description->table_.complete();
    if (!made_.compare_exchange_strong(made, description.get(), std::memory_order_acq_rel)) return *made;
    return *description.release();
  }
  static T* at(void* object) noexcept { return static_cast<T*>(object); }
  static const T& constantAt(void* object) noexcept { return *static_cast<const T*>(object); }

  template <class Compare>
  std::function<std::optional<bool>(void*, const Value&)> comparison(Compare compare) const {
    constexpr bool kTakesObjects = std::is_invocable_r_v<bool, const Compare&, const T&, const T&>;
    constexpr bool kTakesValues = std::is_invocable_r_v<std::optional<bool>, const Compare&, const T&, const Value&>;
    static_assert(kTakesObjects || kTakesValues,
                  "HostClass: a comparison must be callable with two objects, answering bool, or with an object and a "
                  "Value, answering std::optional<bool>");
    requirePresent(compare, "compare != nil");
    if constexpr (kTakesObjects) {
      return [compare = std::move(compare), this](void* object, const Value& other) -> std::optional<bool> {
        void* const compared = HostInstance::find(other, table_, true);
        if (compared == nullptr) return {};
        return std::invoke(compare, constantAt(object), constantAt(compared));
      };
    } else if constexpr (kTakesValues) {
      return [compare = std::move(compare)](void* object, const Value& other) -> std::optional<bool> {
        return std::invoke(compare, constantAt(object), other);
      };
    }
    return {};
  }

  static inline std::atomic<const HostClass*> made_{nullptr};

  HostClassTable table_;
};

// The description of the class.
template <Described T>
const HostClass<std::remove_const_t<T>>& hostClass() {
  return HostClass<std::remove_const_t<T>>::theOne();
}

template <Described T>
const HostClassTable& hostClassTable() {
  return hostClass<T>().table();
}

}  // namespace tavlo
