#include "Foundation/NSException.h"

namespace tavlo {

NSException::NSException(std::string_view name, std::string_view reason)
    : texts_(std::make_shared<const Texts>(Texts{std::string(name), std::string(reason), true})) {}

NSException::NSException(std::string_view name)
    : texts_(std::make_shared<const Texts>(Texts{std::string(name), {}, false})) {}

NSException::~NSException() = default;

void failAssertion(std::string_view description) {
  throw NSException(NSInternalInconsistencyException, description);
}

void failParameter(const char* condition) {
  NSException::raise(NSInternalInconsistencyException, "Invalid parameter not satisfying: %s", condition);
}

}  // namespace tavlo
