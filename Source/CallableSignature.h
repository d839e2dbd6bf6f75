#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <type_traits>
#include <utility>

#include "Foundation/Described.h"
#include "Foundation/NSException.h"
#include "Foundation/Value.h"
#include "Foundation/ValueConversion.h"

namespace tavlo {

class KorTemplateEnvironment;

// Kinds of parameters

// All values that are left.
template <class Parameter>
concept RestParameter = std::same_as<std::remove_cvref_t<Parameter>, std::span<const Value>>;

template <class T>
inline constexpr bool kIsOptional = false;
template <class T>
inline constexpr bool kIsOptional<std::optional<T>> = true;
// May be left out at the end.
template <class Parameter>
concept OptionalParameter = kIsOptional<std::remove_cvref_t<Parameter>>;

// What only reads the object that is converted for the call, or is the host's own object.
template <class Parameter>
concept LentParameter = !std::is_lvalue_reference_v<Parameter> || std::is_const_v<std::remove_reference_t<Parameter>> ||
                        Described<std::remove_cvref_t<Parameter>>;

// Whether the parameter can be made of what holds its object. A reference is one to what holds it, or to the host's own
// object; it would outlive anything that is made for it alone.
template <class Parameter, class Held>
consteval bool takesHeld() {
  using Object = std::remove_cvref_t<Parameter>;
  if constexpr (!std::is_reference_v<Parameter>) {
    return std::constructible_from<Parameter, Held>;
  } else {
    const bool isHostObject = std::is_lvalue_reference_v<Parameter> &&
                              std::same_as<Held, std::reference_wrapper<std::remove_reference_t<Parameter>>>;
    return std::same_as<Held, Object> || isHostObject;
  }
}

template <class Parameter>
concept ValueParameter = ConvertibleFromValue<std::remove_cvref_t<Parameter>> && LentParameter<Parameter> &&
    takesHeld<Parameter, HeldFromValue<ConvertedFor<Parameter>>>();

// What a callable's parameter may be.
template <class Parameter>
concept UsableParameter =
    std::same_as<Parameter, KorTemplateEnvironment&> || RestParameter<Parameter> || ValueParameter<Parameter>;

// A result that stays the host's object.
template <class Result>
concept ReferenceResult = std::is_lvalue_reference_v<Result> && !std::is_const_v<std::remove_reference_t<Result>> &&
                          Described<std::remove_cvref_t<Result>>;

template <class Result>
concept UsableResult = std::is_void_v<Result> || ReferenceResult<Result> || ConvertibleToValue<Result>;

// Signatures

template <class Result, class... Parameters>
struct CallableSignature {
  static constexpr std::size_t kParameterCount = sizeof...(Parameters);

  // Whether the first parameter is the environment.
  static constexpr std::size_t kTakesEnvironment = [] {
    constexpr bool kAre[] = {std::same_as<Parameters, KorTemplateEnvironment&>..., false};
    return kAre[0] ? std::size_t{1} : std::size_t{0};
  }();
  // Whether the last parameter takes what is left.
  static constexpr bool kHasRest = [] {
    constexpr bool kAre[] = {false, RestParameter<Parameters>...};
    return kAre[kParameterCount];
  }();
  // Of template values, without the rest.
  static constexpr std::size_t kMostArguments = kParameterCount - kTakesEnvironment - (kHasRest ? 1 : 0);
  static constexpr std::size_t kLeastArguments = [] {
    constexpr bool kAre[] = {OptionalParameter<Parameters>..., false};
    std::size_t count = kMostArguments;
    while (count > 0 && kAre[kTakesEnvironment + count - 1]) --count;
    return count;
  }();

  // The environment elsewhere than first, and the rest elsewhere than last, are no parameters.
  static constexpr std::size_t kEnvironments =
      (std::size_t{0} + ... + (std::same_as<Parameters, KorTemplateEnvironment&> ? 1 : 0));
  static constexpr std::size_t kRests = (std::size_t{0} + ... + (RestParameter<Parameters> ? 1 : 0));
  static constexpr bool kIsInOrder = kEnvironments == kTakesEnvironment && kRests == (kHasRest ? 1 : 0);

  static constexpr bool kConverts = UsableResult<Result> && (UsableParameter<Parameters> && ...);

  // Refuses, each in a line of the compiler's, what cannot be converted.
  static constexpr void check() {
    checkResult<Result>();
    (checkParameter<Parameters>(), ...);
    static_assert(kIsInOrder,
                  "the environment must be the first parameter, and std::span<const tavlo::Value> the last one");
  }

 private:
  template <class Parameter>
  static constexpr void checkParameter() {
    using Type = std::remove_cvref_t<Parameter>;
    constexpr bool kHoldsEveryNumber = !UnfixedEnum<Type> || NamedEnum<Type>;
    static_assert(kHoldsEveryNumber,
                  "this enumeration cannot hold every number that a template may pass: declare it with a fixed type, "
                  "as \"enum class Status\" or \"enum Status : int\", or name its values by describeEnum()");
    static_assert(UsableParameter<Parameter> || !kHoldsEveryNumber,
                  "this parameter cannot be made from a template's value: it must be a type that "
                  "tavlo::ValueConversion reads, by value or as a const reference");
  }
  template <class Type>
  static constexpr void checkResult() {
    static_assert(UsableResult<Type>,
                  "this result cannot become a template's value: it must be void or a type that "
                  "tavlo::ValueConversion writes");
  }
};

// The signature that a type of function has; of a member function without its object.
template <class Function>
struct FunctionSignature {};
template <class Result, class... Parameters>
struct FunctionSignature<Result(Parameters...)> {
  using Type = CallableSignature<Result, Parameters...>;
  template <class Object>
  using WithObject = CallableSignature<Result, Object&, Parameters...>;
};
template <class Result, class... Parameters>
struct FunctionSignature<Result(Parameters...) noexcept> : FunctionSignature<Result(Parameters...)> {};
template <class Result, class... Parameters>
struct FunctionSignature<Result(Parameters...)&> : FunctionSignature<Result(Parameters...)> {};
template <class Result, class... Parameters>
struct FunctionSignature<Result(Parameters...)& noexcept> : FunctionSignature<Result(Parameters...)> {};
template <class Result, class... Parameters>
struct FunctionSignature<Result(Parameters...) const> {
  using Type = CallableSignature<Result, Parameters...>;
  template <class Object>
  using WithObject = CallableSignature<Result, const Object&, Parameters...>;
};
template <class Result, class... Parameters>
struct FunctionSignature<Result(Parameters...) const noexcept> : FunctionSignature<Result(Parameters...) const> {};
template <class Result, class... Parameters>
struct FunctionSignature<Result(Parameters...) const&> : FunctionSignature<Result(Parameters...) const> {};
template <class Result, class... Parameters>
struct FunctionSignature<Result(Parameters...) const& noexcept> : FunctionSignature<Result(Parameters...) const> {};

// A member function together with the object whose it is: a pointer or a `std::reference_wrapper` (the host keeps the
// object for as long as a template can call), a smart pointer, or the object by value.
template <class Method, class Object>
struct MethodOnObject {
  template <class... Arguments>
  decltype(auto) operator()(Arguments&&... arguments) {
    return std::invoke(method, object, std::forward<Arguments>(arguments)...);
  }

  Method method;
  Object object;
};

// The signature with which templates call a callable.
template <class Callable>
struct CallableTraits {};
template <class Function>
requires std::is_function_v<Function>
struct CallableTraits<Function*> : FunctionSignature<Function> {
};
// Of a member function without an object: that is the first argument.
template <class Function, class Object>
requires std::is_function_v<Function>
struct CallableTraits<Function Object::*> {
  using Type = typename FunctionSignature<Function>::template WithObject<Object>;
};
template <class Function, class Class, class Object>
struct CallableTraits<MethodOnObject<Function Class::*, Object>> : FunctionSignature<Function> {};

template <class Function, class Object>
FunctionSignature<Function> callOperatorTraits(Function Object::*callOperator);
template <class Function>
FunctionSignature<Function> callOperatorTraits(Function* callOperator);  // a static one
template <class Callable>
requires std::is_class_v<Callable> && requires {
  callOperatorTraits(&Callable::operator());
}
struct CallableTraits<Callable> : decltype(callOperatorTraits(&Callable::operator())) {};

template <class Callable>
concept HasSignature = requires {
  typename CallableTraits<Callable>::Type;
};
template <HasSignature Callable>
using SignatureOf = typename CallableTraits<Callable>::Type;

template <class Callable>
concept UsableCallable =
    HasSignature<Callable> && SignatureOf<Callable>::kConverts && SignatureOf<Callable>::kIsInOrder;

// Refuses, each in a line of the compiler's, what templates cannot call.
template <class Callable>
constexpr void checkCallable() {
  static_assert(HasSignature<Callable>,
                "this cannot be called by a template: it must be a function, or an object with one call operator "
                "whose parameters have known types");
  if constexpr (HasSignature<Callable>) SignatureOf<Callable>::check();
}

// How many values a callable takes.
struct ArgumentCounts {
  static constexpr std::size_t kAnyNumber = SIZE_MAX;

  constexpr bool accepts(std::size_t count) const noexcept { return count >= least && count <= most; }

  std::size_t least;
  std::size_t most;
};

template <class Signature>
consteval ArgumentCounts argumentCounts() {
  return {Signature::kLeastArguments, Signature::kHasRest ? ArgumentCounts::kAnyNumber : Signature::kMostArguments};
}

// Whether a number of arguments says which of the callables is meant.
template <class... Signatures>
consteval bool areDistinct() {
  constexpr ArgumentCounts kCounts[] = {argumentCounts<Signatures>()...};
  for (std::size_t one = 0; one < sizeof...(Signatures); ++one) {
    for (std::size_t other = one + 1; other < sizeof...(Signatures); ++other) {
      if (kCounts[one].least <= kCounts[other].most && kCounts[other].least <= kCounts[one].most) return false;
    }
  }
  return true;
}

// Whether the object, or what it points or refers to, is one of the class.
template <class Object, class Class>
consteval bool standsForObjectOf() {
  using Plain = std::remove_reference_t<std::unwrap_reference_t<Object>>;
  if constexpr (std::derived_from<std::remove_cv_t<Plain>, Class>) {
    return true;
  } else if constexpr (requires(Plain & pointer) { *pointer; }) {
    return std::derived_from<std::remove_cvref_t<decltype(*std::declval<Plain&>())>, Class>;
  } else {
    return false;
  }
}

// Whether these are a member function and the object that it is to be bound to.
template <class... Arguments>
inline constexpr bool kIsBoundMethod = false;
template <class Function, class Class, class Object>
requires std::is_function_v<Function>
inline constexpr bool kIsBoundMethod<Function Class::*, Object> = standsForObjectOf<Object, Class>();

// Raises "Invalid parameter not satisfying: %s" where either is a null pointer.
template <class Method, class Object>
MethodOnObject<Method, std::decay_t<Object>> boundMethod(Method method, Object&& object) {
  requirePresent(method, "callable != nil");
  requirePresent<std::decay_t<Object>>(object, "object != nil");
  return {method, std::forward<Object>(object)};
}

}  // namespace tavlo
