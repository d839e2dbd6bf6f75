#include "Source/KorTemplateStringStream.h"

#include "Foundation/NSException.h"
#include "Source/NodeKind.h"

namespace tavlo {

KorTemplateStringStream::KorTemplateStringStream() : KorTemplateStringStream(NSMutableString::mutableString()) {}

KorTemplateStringStream::KorTemplateStringStream(const Ref<NSMutableString>& buffer)
    : KorTemplateStream(kStringStreamKind), buffer_(buffer) {}

void KorTemplateStringStream::setBuffer(const Ref<NSMutableString>& value) {
  requireParameter(value != nullptr, "value != nil");
  buffer_ = value;
}

void KorTemplateStringStream::write(const Text& text) {
  if (buffer_ != nullptr) buffer_->appendString(text);
}

}  // namespace tavlo
