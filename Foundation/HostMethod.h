#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

#include "Foundation/BoundMethod.h"
#include "Foundation/HeldParts.h"
#include "Foundation/NSException.h"
#include "Foundation/NSInvocation.h"
#include "Foundation/NSKeyValueCoding.h"
#include "Foundation/NSMethodSignature.h"
#include "Foundation/NSString.h"
#include "Foundation/NumberBits.h"
#include "Foundation/RawValue.h"
#include "Foundation/Ref.h"
#include "Foundation/Selector.h"
#include "Foundation/TypeEncoding.h"
#include "Foundation/Value.h"
#include "Foundation/ValueConversionTrait.h"
#include "Foundation/WorkMeter.h"

namespace tavlo {

// Raises `NSInvalidArgumentException` for an object of another class than the one that the method takes.
[[noreturn]] void raiseUnsuitableObject(const NSInvocation& invocation, std::int32_t index, const Value& object,
                                        std::string_view expected);

// The class that such a method takes, as that message names it.
template <class T>
std::string expectedObjectName([[maybe_unused]] const Value& supplied) {
  if constexpr (Described<T>) {
    return expectedClassNameFor<T>(supplied);
  } else {
    return std::string(typeName<std::remove_const_t<T>>());
  }
}

// One parameter of a method during a call: read out of the invocation's buffer, and kept for as long as the method
// runs. This one is for structures and whatever else passes through as it is.
template <class P>
class HostParameter {
 public:
  using Held = std::remove_cvref_t<P>;
  static_assert(std::default_initializable<Held>,
                "A parameter without a conversion from values reaches the method empty: its type must allow that");

  static_assert(!UnfixedEnum<Held>,
                "A template may pass any number to this enumeration: declare it with a fixed type, as \"enum class "
                "Status\" or \"enum Status : int\"");

  HostParameter(NSInvocation& /*invocation*/, std::int32_t /*index*/, const ArgumentSlot& slot)
      : held_(NSInvocation::read<Held>(slot)) {}
  P pass() { return std::forward<P>(held_); }

 private:
  Held held_;
};

// An object of a known class, by an owning reference: absent for null.
template <class P>
requires kIsRef<std::remove_cvref_t<P>>
class HostParameter<P> {
 public:
  using Held = std::remove_cvref_t<P>;

  HostParameter(NSInvocation& invocation, std::int32_t index, const ArgumentSlot& slot) {
    held_ = referenceIn<ReferredClass<Held>>(slot.object);
    if (held_ != nullptr || slot.object.isAbsent() || slot.object.isNull()) return;
    const Value value = slot.object;
    held_ = plainValue(value).ref<ReferredClass<Held>>();
    if (held_ == nullptr) {
      raiseUnsuitableObject(invocation, index, value, expectedObjectName<ReferredClass<Held>>(value));
    }
  }
  P pass() { return std::forward<P>(held_); }

 private:
  Held held_;
};

// The same by a pointer, which is null for null, or by a reference of the language, which takes no null.
template <class P>
requires ObjectClass<std::remove_pointer_t<std::remove_cvref_t<P>>>
class HostParameter<P> {
 public:
  using Class = std::remove_pointer_t<std::remove_reference_t<P>>;
  static constexpr bool kIsPointer = std::is_pointer_v<std::remove_cvref_t<P>>;

  HostParameter(NSInvocation& invocation, std::int32_t index, const ArgumentSlot& slot)
      : reference_(invocation, index, slot), pointer_(reference_.pass().get()) {
    if (!kIsPointer && pointer_ == nullptr) {
      raiseUnsuitableObject(invocation, index, slot.object, expectedObjectName<Class>(slot.object));
    }
  }
  P pass() {
    if constexpr (kIsPointer) {
      return static_cast<P>(pointer_);
    } else {
      return static_cast<P>(*pointer_);
    }
  }

 private:
  HostParameter<const Ref<Class>&> reference_;
  Class* pointer_;
};

// A text: empty for null.
template <EncodedText P>
class HostParameter<P> {
 public:
  HostParameter(NSInvocation& invocation, std::int32_t index, const ArgumentSlot& slot)
      : string_(invocation, index, slot) {
    const Ref<NSString>& string = string_.pass();
    if (string == nullptr) return;
    if constexpr (std::same_as<std::remove_cvref_t<P>, std::string>) countWorkOnText(string->byteLength());
    held_ = std::remove_cvref_t<P>(string->view());
  }
  P pass() { return std::forward<P>(held_); }

 private:
  HostParameter<const Ref<NSString>&> string_;
  std::remove_cvref_t<P> held_;
};

// What values convert to. Its object may refer into the value, which is kept too.
template <ConvertedArgument P>
class HostParameter<P> {
 public:
  using Conversion = ValueConversion<ConvertedFor<P>>;

  HostParameter(NSInvocation& invocation, std::int32_t index, const ArgumentSlot& slot)
      : value_(slot.object), held_(argumentFrom<ConvertedFor<P>>(value_, parts_)) {
    if (!held_.has_value()) raiseUnsuitableObject(invocation, index, value_, expectedName());
  }
  P pass() { return static_cast<P>(*std::move(held_)); }

 private:
  std::string expectedName() const {
    if constexpr (requires { expectedClassNameFor<ConvertedFor<P>>(value_); }) {
      return expectedClassNameFor<ConvertedFor<P>>(value_);
    } else {
      return std::string(typeName<std::remove_pointer_t<std::remove_cvref_t<P>>>());
    }
  }

  Value value_;
  [[no_unique_address]] PartsFor<ConvertedFor<P>> parts_;
  decltype(Conversion::fromValue(std::declval<const Value&>())) held_;
};

// Whether a number's type is one of those that encodings stand for, and not another one that shares an encoding.
template <class T>
inline constexpr bool kIsPlainNumber =
    EncodedNumber<T> && !std::is_enum_v<T> && !std::same_as<T, bool> && !std::same_as<T, char>;

// What a callable takes behind the object that it is called with, and what it answers.
template <class Result, class... Parameters>
struct MethodTypes {
  static constexpr std::size_t kCount = sizeof...(Parameters);

  static Ref<NSMethodSignature> signature() { return NSMethodSignature::signatureOf<Result, Parameters...>(); }

  // Whether it can be called with such an object.
  template <class Function, class Object>
  static constexpr bool kTakes = std::is_invocable_v<Function&, Object&, Parameters...>;

  // Whether it takes numbers alone, each of a type that has an encoding of its own, and answers one or nothing.
  static constexpr bool kTakesNumbers = (kIsPlainNumber<std::remove_cvref_t<Parameters>> && ...) &&
                                        (kIsPlainNumber<std::remove_cvref_t<Result>> || std::is_void_v<Result>);

  // Calls it with the values, if they are as many as it takes and all numbers; the invocation keeps them like the
  // result, which is for the caller to adopt. Nothing, and nothing is done, for all other values.
  template <class Function, class Object>
  static RawValue callWithNumbers(Function& function, Object& object, NSInvocation& invocation,
                                  std::span<const Value> values) {
    return callWithNumbers(function, object, invocation, values, std::index_sequence_for<Parameters...>());
  }

  // Calls it with the arguments of the invocation, which are all read before, and keeps its result there afterwards: so
  // it may itself use the same invocation.
  template <class Function, class Object>
  static void call(Function& function, Object& object, NSInvocation& invocation) {
    call(function, object, invocation, std::index_sequence_for<Parameters...>());
  }

 private:
  // Reading one argument may run a host's code, which may call through the same invocation before the next is read. So
  // they are taken out of it first.
  static constexpr bool kAreTakenOut = kCount > 1 && !(EncodedNumber<std::remove_cvref_t<Parameters>> && ...);
  template <class Parameter>
  using SlotFor = std::conditional_t<kAreTakenOut, const ArgumentSlot, const ArgumentSlot&>;

  // The result is left behind the end of the arguments, which may call through the invocation too.
  template <class Function, class Object, std::size_t... Positions>
  static void call(Function& function, Object& object, NSInvocation& invocation,
                   std::index_sequence<Positions...> all) {
    if constexpr (std::is_void_v<Result>) {
      withArguments(invocation, all, [&](auto&... arguments) { std::invoke(function, object, arguments.pass()...); });
      invocation.resultSlot().clear();
    } else if constexpr (EncodedNumber<std::remove_cvref_t<Result>>) {
      const std::remove_cvref_t<Result> result = withArguments(invocation, all, [&](auto&... arguments) {
        return static_cast<std::remove_cvref_t<Result>>(std::invoke(function, object, arguments.pass()...));
      });
      NSInvocation::store<Result>(invocation.resultSlot(), static_cast<Result>(result));
    } else {
      const NSObject* const holder = invocation.target();  // which reading the arguments may set
      ArgumentSlot result = withArguments(invocation, all, [&](auto&... arguments) {
        ArgumentSlot stored;
        NSInvocation::store<Result>(stored, std::invoke(function, object, arguments.pass()...), holder);
        return stored;
      });
      const ArgumentSlot old = std::exchange(invocation.resultSlot(), std::move(result));  // its end may do so as well
    }
  }

  template <std::size_t... Positions, class Body>
  static auto withArguments([[maybe_unused]] NSInvocation& invocation, std::index_sequence<Positions...> /*all*/,
                            const Body& body) {
    constexpr std::size_t kFirst = NSMethodSignature::kHiddenArguments;
    [[maybe_unused]] const std::tuple<SlotFor<Parameters>...> slots{
        invocation.slotAtIndex(static_cast<std::int32_t>(Positions + kFirst))...};
    std::tuple<HostParameter<Parameters>...> arguments{HostParameter<Parameters>(
        invocation, static_cast<std::int32_t>(Positions + kFirst), std::get<Positions>(slots))...};
    return std::apply(body, arguments);
  }

  template <class Function, class Object, std::size_t... Positions>
  static RawValue callWithNumbers(Function& function, Object& object, NSInvocation& invocation,
                                  std::span<const Value> numbers, std::index_sequence<Positions...> /*all*/) {
    if (numbers.size() != kCount || !(numbers[Positions].isNumber() && ...)) return RawValue::nothing();
    [[maybe_unused]] std::tuple<std::remove_cvref_t<Parameters>...> arguments{
        keep<std::remove_cvref_t<Parameters>>(invocation, Positions, numbers[Positions].peek())...};
    if constexpr (std::is_void_v<Result>) {
      std::invoke(function, object, static_cast<Parameters>(std::get<Positions>(arguments))...);
      invocation.resultSlot().clear();
      return RawValue::null();
    } else {
      const auto result = std::invoke(function, object, static_cast<Parameters>(std::get<Positions>(arguments))...);
      invocation.resultSlot().bits = bitsOfNumber(result);
      return Value(result).leak();
    }
  }

  // The number narrowed to the type, as the invocation keeps it.
  template <class T>
  static T keep(NSInvocation& invocation, std::size_t position, RawValue number) {
    constexpr std::size_t kFirst = NSMethodSignature::kHiddenArguments;
    const std::uint64_t bits = bitsOfNumberIn<T>(number);
    invocation.slotAtIndex(static_cast<std::int32_t>(position + kFirst)).bits = bits;
    return numberOfBits<T>(bits);
  }
};

// The types of everything that can be a method: member functions, functions and function objects that take the object
// first, and data members, which take nothing. None for a function object with several calls, or a template for one.
template <class Function>
struct MethodTypesOf;

template <class Types>
struct WithoutObject;
template <class R, class First, class... P>
struct WithoutObject<MethodTypes<R, First, P...>> {
  using Types = MethodTypes<R, P...>;
};

template <class Function>
requires requires {
  typename WithoutObject<typename MethodTypesOf<decltype(&Function::operator())>::Types>::Types;
}
struct MethodTypesOf<Function> : WithoutObject<typename MethodTypesOf<decltype(&Function::operator())>::Types> {};

template <class R, class First, class... P>
struct MethodTypesOf<R (*)(First, P...)> {
  using Types = MethodTypes<R, P...>;
};
template <class R, class First, class... P>
struct MethodTypesOf<R (*)(First, P...) noexcept> : MethodTypesOf<R (*)(First, P...)> {};

template <class Class, class Member>
requires std::is_object_v<Member>
struct MethodTypesOf<Member Class::*> {
  using Types = MethodTypes<const Member&>;
};
template <class Class, class R, class... P>
struct MethodTypesOf<R (Class::*)(P...)> {
  using Types = MethodTypes<R, P...>;
};
template <class Class, class R, class... P>
struct MethodTypesOf<R (Class::*)(P...) noexcept> : MethodTypesOf<R (Class::*)(P...)> {};
template <class Class, class R, class... P>
struct MethodTypesOf<R (Class::*)(P...) const> : MethodTypesOf<R (Class::*)(P...)> {};
template <class Class, class R, class... P>
struct MethodTypesOf<R (Class::*)(P...) const noexcept> : MethodTypesOf<R (Class::*)(P...)> {};
template <class Class, class R, class... P>
struct MethodTypesOf<R (Class::*)(P...)&> : MethodTypesOf<R (Class::*)(P...)> {};
template <class Class, class R, class... P>
struct MethodTypesOf<R (Class::*)(P...)& noexcept> : MethodTypesOf<R (Class::*)(P...)> {};
template <class Class, class R, class... P>
struct MethodTypesOf<R (Class::*)(P...) const&> : MethodTypesOf<R (Class::*)(P...)> {};
template <class Class, class R, class... P>
struct MethodTypesOf<R (Class::*)(P...) const& noexcept> : MethodTypesOf<R (Class::*)(P...)> {};

template <class Function>
concept MethodFunction = requires {
  typename MethodTypesOf<Function>::Types;
};

// The code of a method. Objects are passed by their address, as the class that the method is of.
class HostMethodCode {
 public:
  HostMethodCode(const HostMethodCode&) = delete;
  HostMethodCode& operator=(const HostMethodCode&) = delete;
  virtual ~HostMethodCode();

  // Takes the arguments from the invocation and leaves the result there.
  virtual void call(void* object, NSInvocation& invocation) = 0;
  // The same for numbers that are given beside it, where that is possible. Nothing, and nothing is done, where it is
  // not, which is the default, and for any other values.
  virtual RawValue callWithNumbers(void* object, NSInvocation& invocation, std::span<const Value> values);
  // Whether it is possible with some values.
  virtual bool takesNumbers() const noexcept { return false; }

 protected:
  HostMethodCode() = default;
};

// The code of a function of C++ that takes the object first.
template <class T, class Types, class Function>
class HostMethodCodeOf final : public HostMethodCode {
 public:
  explicit HostMethodCodeOf(Function function) : function_(std::move(function)) {}

  void call(void* object, NSInvocation& invocation) override {
    Types::call(function_, *static_cast<T*>(object), invocation);
  }
  RawValue callWithNumbers(void* object, NSInvocation& invocation, std::span<const Value> values) override {
    if constexpr (Types::kTakesNumbers) {
      return Types::callWithNumbers(function_, *static_cast<T*>(object), invocation, values);
    }
    return HostMethodCode::callWithNumbers(object, invocation, values);
  }
  bool takesNumbers() const noexcept override { return Types::kTakesNumbers; }

 private:
  Function function_;
};

// The implementation behind a selector: the types of the method, and the code that is called with an object of the
// class and takes its arguments from an invocation, where it leaves its result.
class HostMethod {
 public:
  using Code = std::function<void(void* object, NSInvocation& invocation)>;

  // Code made by hand, for a signature with any encodings; see NSInvocation for what it reads and stores. `isConstant`
  // says that it changes nothing in the object. Raises `NSInvalidArgumentException` for an absent signature and for no
  // code.
  HostMethod(const Ref<NSMethodSignature>& signature, Code code, bool isConstant = false);

  // The method of an object of class T that a member function, a data member, or a callable that takes the object first
  // makes up.
  template <class T, class Function>
  static HostMethod of(Function function) {
    static_assert(MethodFunction<Function>,
                  "A method is a member function, or a callable with one call operator that takes the object first");
    if constexpr (MethodFunction<Function>) {
      using Types = typename MethodTypesOf<Function>::Types;
      constexpr bool kIsConstant = Types::template kTakes<Function, const T>;
      static_assert(kIsConstant || Types::template kTakes<Function, T>, "The method is not one of this class");
      requirePresent(function, "function != nil");
      return HostMethod(Types::signature(), std::make_shared<HostMethodCodeOf<T, Types, Function>>(std::move(function)),
                        kIsConstant);
    }
  }

  const Ref<NSMethodSignature>& signature() const noexcept { return signature_; }
  // Whether it can be called with an object that is constant.
  bool isConstant() const noexcept { return isConstant_; }

  // The same code with other encodings. Raises `NSInvalidArgumentException` for another number of arguments.
  HostMethod withSignature(const Ref<NSMethodSignature>& signature) const;

  void call(void* object, NSInvocation& invocation) const { code_->call(object, invocation); }
  // Whether callWithNumbers() can be asked, which HostMethodCode describes.
  bool takesNumbers() const noexcept { return code_->takesNumbers(); }
  RawValue callWithNumbers(void* object, NSInvocation& invocation, std::span<const Value> values) const {
    return code_->callWithNumbers(object, invocation, values);
  }

 private:
  HostMethod(Ref<NSMethodSignature> signature, std::shared_ptr<HostMethodCode> code, bool isConstant)
      : signature_(std::move(signature)), code_(std::move(code)), isConstant_(isConstant) {}

  Ref<NSMethodSignature> signature_;
  std::shared_ptr<HostMethodCode> code_;  // of all copies
  bool isConstant_;
};

}  // namespace tavlo
