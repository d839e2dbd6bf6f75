#include "Foundation/HostMethodTable.h"

#include "Foundation/NSException.h"

namespace tavlo {

HostMethodTable& HostMethodTable::addMethod(const Selector& selector, HostMethod method) {
  if (selector.isAbsent()) NSException::raise(NSInvalidArgumentException, "A method needs a selector");
  const std::size_t taken = method.signature()->numberOfArguments() - NSMethodSignature::kHiddenArguments;
  if (selector.numberOfArguments() != taken) {
    NSException::raise(NSInvalidArgumentException,
                       "%@: the selector names %d arguments by its colons, the method takes %d",
                       NSStringFromSelector(selector), selector.numberOfArguments(), taken);
  }
  if (!methods_.emplace(selector, std::move(method)).second) {
    NSException::raise(NSInvalidArgumentException, "%@: the class has this method already",
                       NSStringFromSelector(selector));
  }
  return *this;
}

BoundMethod HostMethodTable::findAmong(const Selector& selector, void* object, bool isConstant) const {
  const auto found = methods_.find(selector);
  if (found != methods_.end()) {
    const bool isCallable = !isConstant || found->second.isConstant();
    return isCallable ? BoundMethod{&found->second, object} : BoundMethod{};
  }
  for (auto base = bases_.rbegin(); base != bases_.rend(); ++base) {
    const BoundMethod inherited = base->table->findAmong(selector, base->upcast(object), isConstant);
    if (inherited.method != nullptr) return inherited;
  }
  return {};
}

}  // namespace tavlo
