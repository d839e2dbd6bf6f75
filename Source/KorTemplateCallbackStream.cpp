#include "Source/KorTemplateCallbackStream.h"

#include <algorithm>
#include <utility>

#include "Foundation/NSException.h"

namespace tavlo {

KorTemplateCallbackStream::KorTemplateCallbackStream(Callback callback, std::size_t capacity)
    : callback_(std::move(callback)), capacity_(capacity) {
  requireParameter(callback_ != nullptr, "callback != nil");
}

Ref<KorTemplateCallbackStream> KorTemplateCallbackStream::streamWithCallback(Callback callback, std::size_t capacity) {
  return makeRef<KorTemplateCallbackStream>(std::move(callback), capacity);
}

void KorTemplateCallbackStream::write(const Text& text) {
  if (text.isAbsent()) NSException::raise(NSInvalidArgumentException, "An absent text cannot be written");
  const Ref<KorTemplateStream> itself = Ref<KorTemplateStream>::retaining(this);  // the callback may let go of it
  if (gathered_.size() + text.view().size() > capacity_) flush();
  if (gathered_.empty() && text.view().size() >= capacity_) {
    if (!text.view().empty()) callback_(text.view());
    return;
  }
  constexpr std::size_t kMostReserved = std::size_t{64} * 1024;
  if (gathered_.empty()) gathered_.reserve(std::min(capacity_, kMostReserved));
  gathered_ += text.view();
}

void KorTemplateCallbackStream::flush() {
  if (gathered_.empty()) return;
  const Ref<KorTemplateStream> itself = Ref<KorTemplateStream>::retaining(this);  // the callback may let go of it
  std::string piece;
  piece.swap(gathered_);  // what the callback writes here meanwhile comes behind
  callback_(piece);
  if (!gathered_.empty()) return;
  piece.clear();
  gathered_.swap(piece);  // the memory serves again
}

}  // namespace tavlo
