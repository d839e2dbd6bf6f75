#pragma once

#include <any>
#include <concepts>
#include <cstdint>
#include <span>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "Foundation/BoundMethod.h"
#include "Foundation/KeptWith.h"
#include "Foundation/NSMethodSignature.h"
#include "Foundation/NSObject.h"
#include "Foundation/NSString.h"
#include "Foundation/NumberBits.h"
#include "Foundation/RawValue.h"
#include "Foundation/Ref.h"
#include "Foundation/Selector.h"
#include "Foundation/TypeEncoding.h"
#include "Foundation/Value.h"
#include "Foundation/WorkMeter.h"

namespace tavlo {

// One argument, or the result, of a call; which part of it is used follows from its encoding. All of it is zero,
// absent and empty at first.
struct ArgumentSlot {
  std::uint64_t bits = 0;  // of a number
  Value object;
  std::any other;  // of all other types, each as itself

  // All of it as at first. The end of what it held may store something there.
  void clear() noexcept {
    bits = 0;
    if (object.isAbsent() && !other.has_value()) return;
    const ArgumentSlot old = std::exchange(*this, ArgumentSlot());
  }
};

// A call of a method that is put together at run time: its types, its target, its selector and the arguments, and once
// it has been made its result. It serves any number of calls, of one thread at a time. Objects among the arguments,
// and the result, are owned until they are replaced or let go of; the target is the host's, unless the invocation is
// told to retain it.
class NSInvocation final : public NSObject {
 public:
  // With the arguments all zero, without target and selector. Raises `NSInvalidArgumentException` for an absent
  // signature.
  explicit NSInvocation(const Ref<NSMethodSignature>& signature);
  static Ref<NSInvocation> invocationWithMethodSignature(const Ref<NSMethodSignature>& signature) {
    return makeRef<NSInvocation>(signature);
  }

  const Ref<NSMethodSignature>& methodSignature() const noexcept { return signature_; }

  const Selector& selector() const noexcept { return selector_; }
  void setSelector(const Selector& value);

  // The object that the method is called on; null where there is none, and the call then does nothing and has zero for
  // its result. Not looked at before the call.
  NSObject* target() const noexcept { return target_; }
  void setTarget(NSObject* value);
  template <std::derived_from<NSObject> T>
  void setTarget(const Ref<T>& value) {
    setTarget(static_cast<NSObject*>(value.get()));
  }

  // Owns the target from here on, also one that is set later.
  void retainArguments();
  bool argumentsRetained() const noexcept { return retainsTarget_; }

  // Stores an argument at a position from 2 on, and reads it. Both raise `NSInvalidArgumentException` for a position
  // that there is not and for a type that differs in kind or size from what the method takes there; what was never
  // stored reads as zero, absent or empty.
  template <class T>
  void setArgument(T value, std::int32_t index) {
    store<T>(arguments_[requireArgument<T>(index)], std::move(value));
  }
  template <class T>
  T getArgument(std::int32_t index) const {
    return read<T>(arguments_[requireArgument<T>(index)]);
  }

  // The same for the result.
  template <class T>
  void setReturnValue(T value) {
    requireReturnType(typeEncoding<T, TypeUse::Result>());
    store<T>(result_, std::move(value), target_);
  }
  template <class T>
  T getReturnValue() const {
    requireReturnType(typeEncoding<T, TypeUse::Result>());
    return read<T>(result_);
  }

  // Calls the method with the arguments, and keeps its result. Raises `NSInvalidArgumentException` when the target has
  // no method for the selector or one of other types, or when an object among the arguments is of a class that the
  // method does not take; whatever the method raises passes through.
  void invoke();
  // The same at once for a method whose arguments and result are all numbers, if the values are as many as the method
  // takes and numbers too: the result, for the caller to adopt; null for none. Nothing where invoke() must do it.
  RawValue invokeWithNumbers(std::span<const Value> values) {
    return takesNumbers_ ? callWithNumbers(values) : RawValue::nothing();
  }
  // Calls the method on a target that is set for good.
  void invokeWithTarget(NSObject* target) {
    setTarget(target);
    invoke();
  }

  // Lets go of the objects in the buffer, the result's too: absent from here on.
  void releaseObjects() noexcept {
    if (hasObjects_) clearObjects();
  }

  // Raises `NSInvalidArgumentException` unless a value of that encoding can be stored at the position, or be the
  // result.
  void requireArgumentType(std::string_view encoding, std::int32_t index) const;
  void requireReturnType(std::string_view encoding) const;

  // For what has looked at the signature before: the buffer itself, by position, without a check.
  ArgumentSlot& slotAtIndex(std::int32_t index) noexcept { return arguments_[static_cast<std::size_t>(index)]; }
  const ArgumentSlot& slotAtIndex(std::int32_t index) const noexcept {
    return arguments_[static_cast<std::size_t>(index)];
  }
  ArgumentSlot& resultSlot() noexcept { return result_; }
  const ArgumentSlot& resultSlot() const noexcept { return result_; }

  // Reads a slot as a type, whatever the slot holds: zero, absent or empty where that is something else.
  template <class T>
  static T read(const ArgumentSlot& slot) {
    static_assert(!ConvertedArgument<T> && !std::same_as<T, std::string_view>, "Read an object as a Value or a Ref");
    if constexpr (EncodedNumber<T>) {
      return numberOfBits<T>(slot.bits);
    } else if constexpr (EncodedText<T>) {
      return slot.object.isString() ? T(slot.object.string()->view()) : T();
    } else if constexpr (std::same_as<T, Value>) {
      return slot.object;
    } else if constexpr (kIsRef<T>) {
      return referenceIn<ReferredClass<T>>(slot.object);
    } else if constexpr (std::copy_constructible<T>) {
      const T* const held = std::any_cast<T>(&slot.other);
      return held == nullptr ? T() : *held;
    } else {
      return T();
    }
  }
  // Keeps a value of the type in a slot, and `holder` with what it refers to. A structure that cannot be copied is
  // dropped.
  template <class T>
  static void store(ArgumentSlot& slot, T&& value, [[maybe_unused]] const NSObject* holder = nullptr) {
    using Plain = std::remove_cvref_t<T>;
    if constexpr (EncodedNumber<T>) {
      slot.bits = bitsOfNumber<Plain>(value);
    } else if constexpr (EncodedText<T>) {
      const std::string_view text = value;
      countWorkOnText(text.size());
      slot.object = Value(text);
    } else if constexpr (EncodedObject<T> && std::constructible_from<Value, T>) {
      slot.object = Value(std::forward<T>(value));
    } else if constexpr (EncodedObject<T>) {
      slot.object = referenceTo(value);
    } else if constexpr (ConvertedResult<T>) {
      const KeptWith kept(holder);
      slot.object = valueOf(static_cast<ConvertedForm<T>>(std::forward<T>(value)));
    } else if constexpr (std::copy_constructible<Plain>) {
      std::any made(std::in_place_type<Plain>, std::forward<T>(value));
      const std::any old = std::exchange(slot.other, std::move(made));  // whose end may store something there
    }
  }

  const char* className() const override;

 private:
  // An object that somebody lends; absent for a null pointer.
  template <class T>
  static Value referenceTo(T* object) {
    return Ref<T>::retaining(object);
  }
  template <class T>
  static Value referenceTo(T& object) {
    return referenceTo(std::addressof(object));
  }

  // The position, when it takes such a type.
  template <class T>
  std::size_t requireArgument(std::int32_t index) const {
    requireArgumentType(typeEncoding<T>(), index);
    return static_cast<std::size_t>(index);
  }
  void findMethod();
  void forgetMethod() noexcept {
    method_ = {};
    takesNumbers_ = false;
  }
  RawValue callWithNumbers(std::span<const Value> values);
  void clearObjects() noexcept;

  Ref<NSMethodSignature> signature_;
  Selector selector_;
  NSObject* target_ = nullptr;  // the host's, unless ownedTarget_ is the same
  Ref<NSObject> ownedTarget_;
  bool retainsTarget_ = false;
  bool hasObjects_ = false;              // the signature has some
  bool takesNumbers_ = false;            // of the method: and nothing else
  BoundMethod method_;                   // found at the first call of this target and selector
  std::vector<ArgumentSlot> arguments_;  // by position; the two hidden ones stay empty
  ArgumentSlot result_;
};

}  // namespace tavlo
