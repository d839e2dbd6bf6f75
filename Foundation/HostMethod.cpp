#include "Foundation/HostMethod.h"

#include "Foundation/NSException.h"

namespace tavlo {

void raiseUnsuitableObject(const NSInvocation& invocation, std::int32_t index, const Value& object,
                           std::string_view expected) {
  NSException::raise(NSInvalidArgumentException, "%@: incorrect object at index %d: %@ supplied, %@ expected.",
                     NSStringFromSelector(invocation.selector()), index, object.className(), expected);
}

namespace {

// Code that was made by hand.
class HandMadeCode final : public HostMethodCode {
 public:
  explicit HandMadeCode(HostMethod::Code code) : code_(std::move(code)) {}

  void call(void* object, NSInvocation& invocation) override { code_(object, invocation); }

 private:
  HostMethod::Code code_;
};

}  // namespace

HostMethodCode::~HostMethodCode() = default;

RawValue HostMethodCode::callWithNumbers(void* /*object*/, NSInvocation& /*invocation*/,
                                         std::span<const Value> /*values*/) {
  return RawValue::nothing();
}

HostMethod::HostMethod(const Ref<NSMethodSignature>& signature, Code code, bool isConstant)
    : signature_(signature), isConstant_(isConstant) {
  if (signature_ == nullptr) NSException::raise(NSInvalidArgumentException, "A method needs a signature");
  if (!code) NSException::raise(NSInvalidArgumentException, "A method needs code");
  code_ = std::make_shared<HandMadeCode>(std::move(code));
}

HostMethod HostMethod::withSignature(const Ref<NSMethodSignature>& signature) const {
  if (signature == nullptr) NSException::raise(NSInvalidArgumentException, "A method needs a signature");
  HostMethod method(signature, code_, isConstant_);
  if (signature->numberOfArguments() != signature_->numberOfArguments()) {
    NSException::raise(NSInvalidArgumentException, "A signature of %d arguments does not fit a method of %d",
                       signature->numberOfArguments(), signature_->numberOfArguments());
  }
  return method;
}

}  // namespace tavlo
