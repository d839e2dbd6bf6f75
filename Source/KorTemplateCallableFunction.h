#pragma once

#include <concepts>
#include <cstddef>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>

#include "Foundation/Described.h"
#include "Foundation/NSException.h"
#include "Foundation/Name.h"
#include "Foundation/Ref.h"
#include "Foundation/Value.h"
#include "Foundation/ValueConversion.h"
#include "Source/CallableSignature.h"
#include "Source/KorTemplateEnvironment.h"
#include "Source/KorTemplateFunction.h"
#include "Source/KorTemplateLayer.h"

namespace tavlo {

// A function of the host's that is no method of an object: anything that can be called. Its parameters say what it
// takes; see callableFunction().
class KorTemplateCallableFunction : public KorTemplateFunction {
 public:
  // As messages name it.
  const Name& functionName() const noexcept { return functionName_; }

  // Raises `NSGenericException` for a wrong number of values and for a value that a parameter does not take, before the
  // callable is called; what that throws passes through. Neither argument may be absent. The null object where the
  // callable has no result.
  Value invokeWithEnvironment(KorTemplateEnvironment* environment, ListArgument<Value> arguments) override;
  RawValue invoke(KorTemplateEnvironment& environment, std::span<const Value> arguments) override = 0;

  // Whether several threads may call it at once, so that a layer that holds it can be shared: not unless it was said.
  bool canBeShared() const override { return bearsThreads_; }
  void setBearsThreads() noexcept { bearsThreads_ = true; }

  const char* className() const override;

 protected:
  explicit KorTemplateCallableFunction(const Name& functionName) : functionName_(functionName) {}

  // "NAME. Incorrect number of arguments: 3 supplied, 1 to 2 expected."
  [[noreturn]] void raiseArgumentCount(std::size_t supplied, std::span<const ArgumentCounts> expected) const;
  // "Incorrect type for double argument at index 2 of NAME. NSNumber expected."; positions count from 0 here, and from
  // 2 in the message, as those of methods do.
  [[noreturn]] void raiseArgumentType(std::size_t position, const std::string& typeName,
                                      const std::string& expected) const;

 private:
  Name functionName_;
  bool bearsThreads_ = false;
};

// A parameter's value for the time of a call, before it is handed over. The environment is none of the template's
// values, and the rest of them is taken as it stands.
template <class Parameter>
struct ParameterHolder {
  using Type = HeldFromValue<ConvertedFor<Parameter>>;
};
template <>
struct ParameterHolder<KorTemplateEnvironment&> {
  using Type = std::reference_wrapper<KorTemplateEnvironment>;
};
template <RestParameter Parameter>
struct ParameterHolder<Parameter> {
  using Type = std::span<const Value>;
};

// The callables of one name, told apart by the number of values they take.
template <class... Callables>
class CallablesFunction final : public KorTemplateCallableFunction {
 public:
  template <class... Arguments>
  explicit CallablesFunction(const Name& functionName, Arguments&&... callables)
      : KorTemplateCallableFunction(functionName), callables_(std::forward<Arguments>(callables)...) {}

  RawValue invoke(KorTemplateEnvironment& environment, std::span<const Value> arguments) override {
    return invokeFrom<0>(environment, arguments);
  }

 private:
  static constexpr ArgumentCounts kCounts[] = {argumentCounts<SignatureOf<Callables>>()...};

  // Calls the first of the callables from `index` on that takes so many values.
  template <std::size_t Index>
  RawValue invokeFrom(KorTemplateEnvironment& environment, std::span<const Value> arguments) {
    if constexpr (Index == sizeof...(Callables)) {
      raiseArgumentCount(arguments.size(), kCounts);
    } else {
      if (!kCounts[Index].accepts(arguments.size())) return invokeFrom<Index + 1>(environment, arguments);
      using Signature = SignatureOf<std::tuple_element_t<Index, std::tuple<Callables...>>>;
      return call(Signature(), std::get<Index>(callables_), environment, arguments,
                  std::make_index_sequence<Signature::kParameterCount>());
    }
  }

  template <class Result, class... Parameters, class Callable, std::size_t... Indices>
  RawValue call(CallableSignature<Result, Parameters...> signature, Callable& callable,
                [[maybe_unused]] KorTemplateEnvironment& environment, [[maybe_unused]] std::span<const Value> arguments,
                std::index_sequence<Indices...> /*indices*/) const {
    using Signature = decltype(signature);
    [[maybe_unused]] PartsFor<ConvertedFor<Parameters>...> parts;
    // In braces, so that they are converted from the first to the last.
    [[maybe_unused]] std::tuple<typename ParameterHolder<Parameters>::Type...> held{
        hold<Parameters, Indices - Signature::kTakesEnvironment>(environment, arguments, parts)...};
    if constexpr (std::is_void_v<Result>) {
      std::invoke(callable, handOver<Parameters>(std::get<Indices>(held))...);
      return RawValue::null();
    } else if constexpr (ReferenceResult<Result>) {
      return hostReference(std::invoke(callable, handOver<Parameters>(std::get<Indices>(held))...)).leak();
    } else {
      return presentValueOf(std::invoke(callable, handOver<Parameters>(std::get<Indices>(held))...)).leak();
    }
  }

  template <class Parameter, std::size_t Position, class Parts>
  typename ParameterHolder<Parameter>::Type hold(KorTemplateEnvironment& environment, std::span<const Value> arguments,
                                                 [[maybe_unused]] Parts& parts) const {
    if constexpr (std::same_as<Parameter, KorTemplateEnvironment&>) {
      return environment;
    } else if constexpr (RestParameter<Parameter>) {
      return arguments.subspan(Position < arguments.size() ? Position : arguments.size());
    } else {
      using Type = ConvertedFor<Parameter>;
      if constexpr (OptionalParameter<Parameter>) {
        if (Position >= arguments.size()) return {};
      }
      auto object = argumentFrom<Type>(arguments[Position], parts);
      if (!object.has_value()) [[unlikely]]
        raiseType<Type>(Position, arguments[Position]);
      return *std::move(object);
    }
  }

  // A value's type is named only once it is wrong.
  template <class Type>
  [[noreturn, gnu::noinline, gnu::cold]] void raiseType(std::size_t position, const Value& value) const {
    raiseArgumentType(position, convertedTypeName<Type>(), expectedClassNameFor<Type>(value));
  }

  template <class Parameter, class Held>
  static Parameter handOver(Held& held) {
    if constexpr (std::is_lvalue_reference_v<Parameter>) {
      return static_cast<Parameter>(held);
    } else {
      return static_cast<Parameter>(std::move(held));
    }
  }

  std::tuple<Callables...> callables_;
};

// A function for templates of one or several callables: function pointers, lambdas, function objects, pointers to
// member functions of described classes (the object is then the first argument). The name is the one in messages.
//
// Each parameter is what ValueConversion reads, by value or as `const T&`; an object of a described class may be `T&`.
// The first one may be `KorTemplateEnvironment&`, the last one `std::span<const Value>`, which takes all values that
// are left. Parameters of `std::optional` at the end may be left out. The result is what ValueConversion writes, or
// void; of a described class `T&` and a pointer stay the host's object, every other result is the template's own.
//
// The callables are kept, and called on the thread of the execution; one that is replaced, or replaces itself, while it
// runs lives until the outermost execution has ended. Raises "Invalid parameter not satisfying: callable != nil" for
// one that is empty.
template <class... Callables>
Ref<KorTemplateCallableFunction> callableFunction(const Name& name, Callables&&... callables) {
  (checkCallable<std::decay_t<Callables>>(), ...);
  if constexpr ((UsableCallable<std::decay_t<Callables>> && ...)) {
    static_assert(areDistinct<SignatureOf<std::decay_t<Callables>>...>(),
                  "two callables of one function take the same number of arguments");
    (requirePresent<std::decay_t<Callables>>(callables, "callable != nil"), ...);
    return makeRef<CallablesFunction<std::decay_t<Callables>...>>(name, std::forward<Callables>(callables)...);
  } else {
    return {};  // never runs: the checks above have failed
  }
}

// The same for what setFunction() is given: callables, or one pointer to a member function and its object.
template <class... Callables>
Ref<KorTemplateCallableFunction> boundFunction(const Name& name, Callables&&... callables) {
  if constexpr (kIsBoundMethod<std::decay_t<Callables>...>) {
    return callableFunction(name, boundMethod(std::forward<Callables>(callables)...));
  } else {
    return callableFunction(name, std::forward<Callables>(callables)...);
  }
}

template <class... Callables>
void KorTemplateEnvironment::setFunction(const Name& name, Callables&&... callables) {
  setFunctionForName(boundFunction(name, std::forward<Callables>(callables)...), name);
}

template <class... Callables>
void KorTemplateLayer::setFunction(const Name& name, Callables&&... callables) {
  const Ref<KorTemplateCallableFunction> function = boundFunction(name, std::forward<Callables>(callables)...);
  function->setBearsThreads();
  setFunctionForName(function, name);
}

}  // namespace tavlo
