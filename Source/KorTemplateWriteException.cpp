#include "Source/KorTemplateWriteException.h"

#include <system_error>

namespace tavlo {

namespace {

std::string reasonOf(const std::string& stream, int errorNumber) {
  const std::string why = errorNumber == 0 ? "the stream has failed" : std::generic_category().message(errorNumber);
  return "The text cannot be written to " + stream + ": " + why;
}

}  // namespace

KorTemplateWriteException::KorTemplateWriteException(const std::string& stream, int errorNumber)
    : NSException(NSGenericException, reasonOf(stream, errorNumber)), errorNumber_(errorNumber) {}

KorTemplateWriteException::~KorTemplateWriteException() = default;

}  // namespace tavlo
