#pragma once

#include <string>

#include "Foundation/NSException.h"

namespace tavlo {

// A stream of the library's could not deliver what it was given: an `NSGenericException` that says which stream and
// why.
class [[gnu::visibility("default")]] KorTemplateWriteException : public NSException {
 public:
  // `stream` is what the message calls the stream; the number is the system's, 0 where that is not known.
  KorTemplateWriteException(const std::string& stream, int errorNumber);
  KorTemplateWriteException(const KorTemplateWriteException&) noexcept = default;
  KorTemplateWriteException& operator=(const KorTemplateWriteException&) noexcept = default;
  ~KorTemplateWriteException() override;

  // Such as EPIPE or ENOSPC; 0 where it is not known.
  int errorNumber() const noexcept {
    return errorNumber_;
  }

 private:
  int errorNumber_;
};

}  // namespace tavlo
