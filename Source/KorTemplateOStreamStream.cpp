#include "Source/KorTemplateOStreamStream.h"

#include <ostream>
#include <utility>

#include "Foundation/NSException.h"
#include "Source/KorTemplateWriteException.h"

namespace tavlo {

KorTemplateOStreamStream::KorTemplateOStreamStream(std::ostream& stream, std::string name)
    : stream_(stream), name_(std::move(name)) {}

void KorTemplateOStreamStream::requireGood() const {
  if (!stream_.good()) throw KorTemplateWriteException(name_, 0);
}

void KorTemplateOStreamStream::write(const Text& text) {
  if (text.isAbsent()) NSException::raise(NSInvalidArgumentException, "An absent text cannot be written");
  requireGood();
  stream_.write(text.view().data(), static_cast<std::streamsize>(text.view().size()));
  requireGood();
}

void KorTemplateOStreamStream::flush() {
  requireGood();
  stream_.flush();
  requireGood();
}

}  // namespace tavlo
