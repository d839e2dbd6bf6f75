#include "Source/KorTemplateStringStream.h"

#include "Foundation/NSException.h"
#include "Source/NodeKind.h"

namespace tavlo {

KorTemplateStringStream::KorTemplateStringStream() : KorTemplateStringStream(NSMutableString::mutableString()) {}

KorTemplateStringStream::KorTemplateStringStream(const Ref<NSMutableString>& buffer)
    : KorTemplateStream(kStringStreamKind), buffer_(buffer) {}

Ref<KorTemplateStringStream> KorTemplateStringStream::stringStreamAppendingTo(std::string& text) {
  Ref<KorTemplateStringStream> stream = stringStream();
  stream->text_ = &text;
  return stream;
}

void KorTemplateStringStream::flush() {
  if (text_ == nullptr || buffer_ == nullptr) return;
  text_->append(buffer_->string());
  buffer_->clear();
}

void KorTemplateStringStream::setBuffer(const Ref<NSMutableString>& value) {
  requireParameter(value != nullptr, "value != nil");
  buffer_ = value;
}

void KorTemplateStringStream::write(const Text& text) {
  if (buffer_ != nullptr) buffer_->appendString(text);
}

}  // namespace tavlo
