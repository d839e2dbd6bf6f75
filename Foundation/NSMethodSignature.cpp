#include "Foundation/NSMethodSignature.h"

#include "Foundation/NSException.h"

namespace tavlo {

namespace {

void requireEncoding(std::string_view type) {
  if (type.empty()) NSException::raise(NSInvalidArgumentException, "A method's types cannot have empty encodings");
}

}  // namespace

NSMethodSignature::NSMethodSignature(std::string_view returnType, ListArgument<std::string_view> argumentTypes)
    : NSObject(ObjectKind::Other, Counting::Atomic),
      returnType_(returnType),
      argumentTypes_{"@", ":"},
      returnCode_(codeOf(returnType_)) {
  requireEncoding(returnType);
  for (const std::string_view type : argumentTypes) {
    requireEncoding(type);
    argumentTypes_.emplace_back(type);
  }
  for (const std::string& type : argumentTypes_) argumentCodes_.push_back(codeOf(type));
}

const char* NSMethodSignature::className() const {
  return "NSMethodSignature";
}

void NSMethodSignature::raiseIndex(std::int32_t index) const {
  NSException::raise(NSInvalidArgumentException, "There is no argument at index %d: the method has %d arguments", index,
                     numberOfArguments());
}

}  // namespace tavlo
