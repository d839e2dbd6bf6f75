#include "Foundation/NSInvocation.h"

#include "Foundation/HostMethod.h"
#include "Foundation/NSException.h"
#include "Foundation/StackGuard.h"

namespace tavlo {

namespace {

// What a slot keeps for an encoding. Integers of one size stand for each other.
struct SlotKind {
  enum class Holds : std::uint8_t { Integer, Real, Object, Nothing, Other };

  Holds holds;
  std::size_t size;

  friend bool operator==(const SlotKind& left, const SlotKind& right) noexcept = default;
};

struct KindRow {
  char code;
  SlotKind kind;
};

constexpr KindRow kKinds[] = {
    {'c', {SlotKind::Holds::Integer, sizeof(char)}},
    {'C', {SlotKind::Holds::Integer, sizeof(char)}},
    {'B', {SlotKind::Holds::Integer, sizeof(bool)}},
    {'s', {SlotKind::Holds::Integer, sizeof(short)}},
    {'S', {SlotKind::Holds::Integer, sizeof(short)}},
    {'i', {SlotKind::Holds::Integer, sizeof(int)}},
    {'I', {SlotKind::Holds::Integer, sizeof(int)}},
    {'l', {SlotKind::Holds::Integer, sizeof(long)}},
    {'L', {SlotKind::Holds::Integer, sizeof(long)}},
    {'q', {SlotKind::Holds::Integer, sizeof(long long)}},
    {'f', {SlotKind::Holds::Real, sizeof(float)}},
    {'Q', {SlotKind::Holds::Integer, sizeof(long long)}},
    {'d', {SlotKind::Holds::Real, sizeof(double)}},
    {'@', {SlotKind::Holds::Object, 0}},
    {'v', {SlotKind::Holds::Nothing, 0}},
};

SlotKind kindOf(std::string_view encoding) noexcept {
  for (const KindRow& row : kKinds) {
    if (encoding.size() == 1 && encoding.front() == row.code) return row.kind;
  }
  return {SlotKind::Holds::Other, 0};
}

bool areSameKinds(const NSMethodSignature& left, const NSMethodSignature& right) {
  if (left.numberOfArguments() != right.numberOfArguments()) return false;
  if (kindOf(left.methodReturnType()) != kindOf(right.methodReturnType())) return false;
  const auto count = static_cast<std::int32_t>(left.numberOfArguments());
  for (std::int32_t index = 0; index < count; ++index) {
    if (kindOf(left.getArgumentTypeAtIndex(index)) != kindOf(right.getArgumentTypeAtIndex(index))) return false;
  }
  return true;
}

void requireSameKind(std::string_view given, std::string_view expected) {
  if (given == expected || kindOf(given) == kindOf(expected)) return;
  NSException::raise(NSInvalidArgumentException, "A value of type \"%s\" cannot stand where the method has \"%s\"",
                     given, expected);
}

}  // namespace

NSInvocation::NSInvocation(const Ref<NSMethodSignature>& signature) : signature_(signature) {
  if (signature == nullptr) NSException::raise(NSInvalidArgumentException, "An invocation needs a method signature");
  arguments_.resize(signature->numberOfArguments());
  hasObjects_ = signature->returnCode() == '@';
  for (std::size_t index = NSMethodSignature::kHiddenArguments; index < arguments_.size(); ++index) {
    if (signature->argumentCodeAtIndex(static_cast<std::int32_t>(index)) == '@') hasObjects_ = true;
  }
}

void NSInvocation::setSelector(const Selector& value) {
  selector_ = value;
  forgetMethod();
}

void NSInvocation::setTarget(NSObject* value) {
  forgetMethod();
  target_ = value;
  if (retainsTarget_) ownedTarget_ = Ref<NSObject>::retaining(value);
}

void NSInvocation::retainArguments() {
  retainsTarget_ = true;
  ownedTarget_ = Ref<NSObject>::retaining(target_);
}

void NSInvocation::invoke() {
  if (target_ == nullptr) return result_.clear();
  checkStack();  // a method may invoke itself
  if (method_.method == nullptr) findMethod();
  const Ref<NSObject> target = ownedTarget_;  // the method may set another one, and let go of this
  const Ref<NSInvocation> itself = Ref<NSInvocation>::retaining(this);
  method_.method->call(method_.self, *this);
}

RawValue NSInvocation::callWithNumbers(std::span<const Value> values) {
  const Ref<NSObject> target = ownedTarget_;  // the method may set another one
  return method_.method->callWithNumbers(method_.self, *this, values);
}

void NSInvocation::clearObjects() noexcept {
  for (ArgumentSlot& slot : arguments_) slot.object.clear();
  result_.object.clear();
}

void NSInvocation::findMethod() {
  const BoundMethod found = target_->methodForSelector(selector_);
  if (found.method == nullptr) {
    NSException::raise(NSInvalidArgumentException, "%s has no method %@", target_->className(),
                       NSStringFromSelector(selector_));
  }
  if (!areSameKinds(*signature_, *found.method->signature())) {
    NSException::raise(NSInvalidArgumentException, "%@: the invocation's signature is not that of the method of %s",
                       NSStringFromSelector(selector_), target_->className());
  }
  method_ = found;
  takesNumbers_ = signature_ == found.method->signature() && found.method->takesNumbers();
}

void NSInvocation::requireArgumentType(std::string_view encoding, std::int32_t index) const {
  if (index < static_cast<std::int32_t>(NSMethodSignature::kHiddenArguments)) {
    NSException::raise(NSInvalidArgumentException, "The arguments begin at index 2: there is none at index %d", index);
  }
  requireSameKind(encoding, signature_->getArgumentTypeAtIndex(index));
}

void NSInvocation::requireReturnType(std::string_view encoding) const {
  requireSameKind(encoding, signature_->methodReturnType());
}

const char* NSInvocation::className() const {
  return "NSInvocation";
}

}  // namespace tavlo
