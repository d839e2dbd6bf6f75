#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Foundation/ListArgument.h"
#include "Foundation/NSObject.h"
#include "Foundation/Ref.h"
#include "Foundation/TypeEncoding.h"

namespace tavlo {

// The types of a method's arguments and of its result, as encodings. Positions 0 and 1 are the receiver and the
// selector, which every method has; the first argument of its own is at position 2.
class NSMethodSignature final : public NSObject {
 public:
  // The positions of the receiver and of the selector.
  static constexpr std::size_t kHiddenArguments = 2;

  // The encodings of the result and of the arguments from position 2 on. Raises `NSInvalidArgumentException` for an
  // empty encoding.
  NSMethodSignature(std::string_view returnType, ListArgument<std::string_view> argumentTypes);
  static Ref<NSMethodSignature> signatureWithTypes(std::string_view returnType,
                                                   ListArgument<std::string_view> argumentTypes) {
    return makeRef<NSMethodSignature>(returnType, argumentTypes);
  }
  // That of a function of C++ with this result and these parameters.
  template <class Result, class... Parameters>
  static Ref<NSMethodSignature> signatureOf() {
    const std::vector<std::string> types{typeEncoding<Parameters>()...};
    return makeRef<NSMethodSignature>(typeEncoding<Result, TypeUse::Result>(),
                                      std::vector<std::string_view>(types.begin(), types.end()));
  }

  // With the two hidden ones.
  std::size_t numberOfArguments() const noexcept { return argumentTypes_.size(); }
  // The encoding at a position. Raises `NSInvalidArgumentException` for a position that there is not.
  const std::string& getArgumentTypeAtIndex(std::int32_t index) const { return argumentTypes_[checked(index)]; }
  const std::string& methodReturnType() const noexcept { return returnType_; }

  // The same where it is a single character, and zero where it is longer.
  char argumentCodeAtIndex(std::int32_t index) const { return argumentCodes_[checked(index)]; }
  char returnCode() const noexcept { return returnCode_; }

  const char* className() const override;
  bool canBeShared() const override { return true; }

 private:
  static char codeOf(const std::string& type) noexcept { return type.size() == 1 ? type.front() : '\0'; }
  std::size_t checked(std::int32_t index) const {
    const auto position = static_cast<std::size_t>(index);
    if (position >= argumentTypes_.size()) [[unlikely]]
      raiseIndex(index);
    return position;
  }
  [[noreturn]] void raiseIndex(std::int32_t index) const;

  std::string returnType_;
  std::vector<std::string> argumentTypes_;
  std::vector<char> argumentCodes_;
  char returnCode_;
};

}  // namespace tavlo
