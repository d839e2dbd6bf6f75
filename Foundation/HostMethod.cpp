#include "Foundation/HostMethod.h"

#include "Foundation/NSException.h"

namespace tavlo {

void raiseUnsuitableObject(const NSInvocation& invocation, std::int32_t index, std::string_view expected) {
  const Value& object = invocation.slotAtIndex(index).object;
  NSException::raise(NSInvalidArgumentException, "%@: incorrect object at index %d: %@ supplied, %@ expected.",
                     NSStringFromSelector(invocation.selector()), index, object.className(), expected);
}

HostMethod::HostMethod(const Ref<NSMethodSignature>& signature, Code code, bool isConstant)
    : signature_(signature), code_(std::move(code)), isConstant_(isConstant) {
  if (signature_ == nullptr) NSException::raise(NSInvalidArgumentException, "A method needs a signature");
  if (!code_) NSException::raise(NSInvalidArgumentException, "A method needs code");
}

HostMethod HostMethod::withSignature(const Ref<NSMethodSignature>& signature) const {
  HostMethod method(signature, code_, isConstant_);
  if (signature->numberOfArguments() != signature_->numberOfArguments()) {
    NSException::raise(NSInvalidArgumentException, "A signature of %d arguments does not fit a method of %d",
                       signature->numberOfArguments(), signature_->numberOfArguments());
  }
  return method;
}

}  // namespace tavlo
