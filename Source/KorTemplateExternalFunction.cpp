#include "Source/KorTemplateExternalFunction.h"

#include "Foundation/NSException.h"
#include "Foundation/StackGuard.h"
#include "Source/NSInvocation+Conversion.h"

namespace tavlo {

namespace {

// Lets go of a call's objects when it has ended, however it ends: refused, failed or done.
class RunningInvocation {
 public:
  explicit RunningInvocation(NSInvocation& invocation) : invocation_(invocation) {}
  RunningInvocation(const RunningInvocation&) = delete;
  RunningInvocation& operator=(const RunningInvocation&) = delete;
  ~RunningInvocation() { invocation_.releaseObjects(); }

 private:
  NSInvocation& invocation_;
};

[[noreturn, gnu::noinline]] void raiseArgumentCount(const NSInvocation& invocation, std::size_t supplied,
                                                    std::size_t expected) {
  NSException::raise(NSGenericException, "%@. Incorrect number of arguments: %d supplied, %d expected.",
                     NSStringFromSelector(invocation.selector()), supplied, expected);
}

void requireCount(const NSInvocation& invocation, std::span<const Value> arguments) {
  const std::size_t expected = invocation.methodSignature()->numberOfArguments() - NSMethodSignature::kHiddenArguments;
  if (arguments.size() != expected) raiseArgumentCount(invocation, arguments.size(), expected);
}

Ref<NSInvocation> invocationFor(const Selector& selector, const NSObject& target) {
  const Ref<NSMethodSignature> signature = target.methodSignatureForSelector(selector);
  if (signature == nullptr) {
    NSException::raise(NSInvalidArgumentException, "Failed to obtain methodSignature for %@",
                       NSStringFromSelector(selector));
  }
  Ref<NSInvocation> invocation = NSInvocation::invocationWithMethodSignature(signature);
  invocation->setSelector(selector);
  return invocation;
}

// A call with values of any kinds, step by step.
[[gnu::noinline]] RawValue invokeWith(NSInvocation& invocation, std::span<const Value> arguments) {
  requireCount(invocation, arguments);
  const RunningInvocation running(invocation);
  setObjectsForArguments(invocation, arguments);
  invocation.invoke();
  const RawValue result = takeReturnValue(invocation);
  return result.kind() == ValueKind::Absent ? RawValue::null() : result;
}

}  // namespace

KorTemplateExternalFunction::KorTemplateExternalFunction() {
  failAssertion("Default [KorTemplateExternalFunction init] should not be used");
}

KorTemplateExternalFunction::KorTemplateExternalFunction(const Ref<NSInvocation>& invocation)
    : invocation_(invocation) {
  requireParameter(invocation != nullptr, "theInvocation != nil");
}

Ref<KorTemplateExternalFunction> KorTemplateExternalFunction::functionWithInvocation(
    const Ref<NSInvocation>& invocation) {
  requireParameter(invocation != nullptr, "invocation != nil");
  return makeRef<KorTemplateExternalFunction>(invocation);
}

Ref<KorTemplateExternalFunction> KorTemplateExternalFunction::functionWithSelectorTarget(const Selector& selector,
                                                                                         NSObject* target) {
  requireParameter(!selector.isAbsent(), "selector != nil");
  requireParameter(target != nullptr, "target != nil");
  const Ref<NSInvocation> invocation = invocationFor(selector, *target);
  invocation->setTarget(target);
  return functionWithInvocation(invocation);
}

Ref<KorTemplateExternalFunction> KorTemplateExternalFunction::functionOwning(const Selector& selector,
                                                                             const Ref<NSObject>& target) {
  Ref<KorTemplateExternalFunction> function = functionWithSelectorTarget(selector, target);
  function->invocation()->retainArguments();
  return function;
}

void KorTemplateExternalFunction::setInvocation(const Ref<NSInvocation>& value) {
  requireParameter(value != nullptr, "value != nil");
  invocation_ = value;
}

Value KorTemplateExternalFunction::invokeWithEnvironment(KorTemplateEnvironment* environment,
                                                         ListArgument<Value> arguments) {
  requireParameter(environment != nullptr, "environment != nil");
  requireParameter(!arguments.isAbsent(), "args != nil");
  checkStack();  // a method may call its own function
  return Value::adopt(invoke(*environment, arguments.span()));
}

RawValue KorTemplateExternalFunction::invoke(KorTemplateEnvironment& /*environment*/,
                                             std::span<const Value> arguments) {
  const Ref<NSInvocation> invocation = invocation_;  // the method may set another one
  const RawValue number = invocation->invokeWithNumbers(arguments);
  return number.isNothing() ? invokeWith(*invocation, arguments) : number;
}

const char* KorTemplateExternalFunction::className() const {
  return "KorTemplateExternalFunction";
}

}  // namespace tavlo
