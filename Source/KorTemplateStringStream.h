#pragma once

#include <string>

#include "Foundation/NSMutableString.h"
#include "Source/KorTemplateStream.h"

namespace tavlo {

// Appends what is written to a text that the host holds too.
class KorTemplateStringStream final : public KorTemplateStream {
 public:
  // Over a new empty buffer.
  KorTemplateStringStream();
  // Over the given buffer, which is shared, not copied.
  explicit KorTemplateStringStream(const Ref<NSMutableString>& buffer);

  static Ref<KorTemplateStringStream> stringStream() { return makeRef<KorTemplateStringStream>(); }
  static Ref<KorTemplateStringStream> stringStreamWithBuffer(const Ref<NSMutableString>& buffer) {
    return makeRef<KorTemplateStringStream>(buffer);
  }

  // A stream that gathers in a buffer of its own and, whenever it is flushed, appends what it has gathered to a string
  // of the host's, which must outlive it. That is so when an execution has ended, whichever way, and before each
  // diagnostic.
  static Ref<KorTemplateStringStream> stringStreamAppendingTo(std::string& text);

  const Ref<NSMutableString>& buffer() const noexcept { return buffer_; }
  // The buffer may not be absent.
  void setBuffer(const Ref<NSMutableString>& value);

  // Raises `NSInvalidArgumentException` for an absent text.
  void write(const Text& text) override;
  // Moves what is gathered to the host's string; does nothing for a stream that has none.
  void flush() override;

  const char* className() const override { return "KorTemplateStringStream"; }

  // The buffer's text, for the engine to append to; null without a buffer.
  TextBuffer* target() const noexcept { return buffer_ == nullptr ? nullptr : &buffer_->mutableText(); }

 private:
  Ref<NSMutableString> buffer_;
  std::string* text_ = nullptr;  // the host's, where the buffer is emptied to; null for none
};

}  // namespace tavlo
