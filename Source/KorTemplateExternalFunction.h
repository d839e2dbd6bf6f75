#pragma once

#include <concepts>
#include <memory>
#include <span>
#include <utility>

#include "Foundation/HostObject.h"
#include "Foundation/NSInvocation.h"
#include "Foundation/Selector.h"
#include "Source/KorTemplateFunction.h"

namespace tavlo {

// A method of an object of the host's, as a function that templates call. The values of a call are converted to what
// the method takes, and its result to a value; see Source/NSInvocation+Conversion.h. One invocation serves all calls: a
// function belongs to one thread at a time, but the method may call the same function again, run other templates, and
// replace or remove the function.
class KorTemplateExternalFunction final : public KorTemplateFunction {
 public:
  // Not to be used: fails.
  KorTemplateExternalFunction();
  // Over an invocation, which must not be absent.
  explicit KorTemplateExternalFunction(const Ref<NSInvocation>& invocation);
  static Ref<KorTemplateExternalFunction> functionWithInvocation(const Ref<NSInvocation>& invocation);

  // The target's method behind the selector. The target stays the host's: it must live for as long as the function is
  // called, and is not looked at otherwise. Raises `NSInvalidArgumentException` when there is no such method; neither
  // argument may be absent.
  static Ref<KorTemplateExternalFunction> functionWithSelectorTarget(const Selector& selector, NSObject* target);
  static Ref<KorTemplateExternalFunction> functionWithSelectorTarget(const Selector& selector, NSObject& target) {
    return functionWithSelectorTarget(selector, &target);
  }
  template <std::derived_from<NSObject> T>
  static Ref<KorTemplateExternalFunction> functionWithSelectorTarget(const Selector& selector, const Ref<T>& target) {
    return functionWithSelectorTarget(selector, static_cast<NSObject*>(target.get()));
  }
  // An object that nobody else need hold is kept by functionWithSelectorOwning().
  template <std::derived_from<NSObject> T>
  static Ref<KorTemplateExternalFunction> functionWithSelectorTarget(const Selector& selector,
                                                                     Ref<T>&& target) = delete;
  // The same for an object of a class that the host has described.
  template <Described T>
  requires(!std::derived_from<T, NSObject>) static Ref<KorTemplateExternalFunction> functionWithSelectorTarget(
      const Selector& selector, T& target) {
    return functionOwning(selector, hostReference(target).template ref<NSObject>());
  }

  // The same with a target that the function owns.
  template <std::derived_from<NSObject> T>
  static Ref<KorTemplateExternalFunction> functionWithSelectorOwning(const Selector& selector, const Ref<T>& target) {
    return functionOwning(selector, target);
  }
  template <Described T>
  static Ref<KorTemplateExternalFunction> functionWithSelectorOwning(const Selector& selector,
                                                                     std::shared_ptr<T> target) {
    return functionOwning(selector, hostShared(std::move(target)).template ref<NSObject>());
  }
  template <Described T>
  static Ref<KorTemplateExternalFunction> functionWithSelectorOwning(const Selector& selector,
                                                                     std::unique_ptr<T> target) {
    return functionWithSelectorOwning(selector, std::shared_ptr<T>(std::move(target)));
  }

  const Ref<NSInvocation>& invocation() const noexcept { return invocation_; }
  // Must not be absent.
  void setInvocation(const Ref<NSInvocation>& value);

  // The method's result, never absent. Raises `NSGenericException` for another number of values than the method takes,
  // and what converting them raises: the method is not called then. Whatever the method raises passes through. Neither
  // argument may be absent; the environment is not passed on.
  Value invokeWithEnvironment(KorTemplateEnvironment* environment, ListArgument<Value> arguments) override;
  RawValue invoke(KorTemplateEnvironment& environment, std::span<const Value> arguments) override;

  const char* className() const override;

 private:
  static Ref<KorTemplateExternalFunction> functionOwning(const Selector& selector, const Ref<NSObject>& target);

  Ref<NSInvocation> invocation_;
};

}  // namespace tavlo
