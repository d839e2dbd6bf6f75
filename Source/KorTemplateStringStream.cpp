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
  constexpr std::size_t kMuchRoom = std::size_t{1} << 20;
  const std::size_t size = buffer_->string().size();
  text_->append(buffer_->string());
  TextBuffer& gathered = buffer_->mutableText();
  gathered.clear();
  if (gathered.capacity() > kMuchRoom && gathered.capacity() / 4 > size) gathered.release();  // one was much longer
}

void KorTemplateStringStream::setBuffer(const Ref<NSMutableString>& value) {
  requireParameter(value != nullptr, "value != nil");
  buffer_ = value;
}

void KorTemplateStringStream::write(const Text& text) {
  if (buffer_ != nullptr) buffer_->appendString(text);
}

}  // namespace tavlo
