#include "Foundation/NSException.h"

#include "Foundation/Utf8.h"

namespace tavlo {

NSException::NSException(std::string_view name, std::string_view reason)
    : texts_(std::make_shared<const Texts>(Texts{asValidUTF8(name), asValidUTF8(reason), true})) {}

NSException::NSException(std::string_view name)
    : texts_(std::make_shared<const Texts>(Texts{asValidUTF8(name), {}, false})) {}

NSException::~NSException() = default;

std::string_view reasonOf(const std::exception& exception) noexcept {
  const char* const reason = exception.what();
  return reason == nullptr ? "std::exception" : reason;
}

void failAssertion(std::string_view description) {
  throw NSException(NSInternalInconsistencyException, description);
}

void failParameter(const char* condition) {
  NSException::raise(NSInternalInconsistencyException, "Invalid parameter not satisfying: %s", condition);
}

}  // namespace tavlo
