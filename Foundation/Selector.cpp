#include "Foundation/Selector.h"

#include <algorithm>

#include "Foundation/NSString.h"

namespace tavlo {

std::size_t Selector::numberOfArguments() const noexcept {
  return static_cast<std::size_t>(std::ranges::count(view(), ':'));
}

Ref<NSString> NSStringFromSelector(const Selector& selector) {  // NOLINT(readability-identifier-naming)
  return selector.isAbsent() ? Ref<NSString>() : NSString::stringWithUTF8(selector.view());
}

Ref<NSString> NSStringFromClass(const ClassReference& reference) {  // NOLINT(readability-identifier-naming)
  return reference.isAbsent() ? Ref<NSString>() : NSString::stringWithUTF8(reference.name());
}

}  // namespace tavlo
