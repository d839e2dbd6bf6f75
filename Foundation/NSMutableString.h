#pragma once

#include <string_view>

#include "Foundation/NSObject.h"
#include "Foundation/Text.h"
#include "Foundation/TextBuffer.h"
#include "Foundation/Value.h"

namespace tavlo {

// A text that grows, shared between those who hold it; not a string value of the language.
class NSMutableString final : public NSObject {
 public:
  NSMutableString() = default;

  static Ref<NSMutableString> mutableString() { return makeRef<NSMutableString>(); }

  // Raises `NSInvalidArgumentException` for an absent text.
  void appendString(const Text& text);

  // Empties the text and keeps its memory, for the next one to be written there.
  void clear() noexcept { text_.clear(); }

  // The text so far, good until it changes.
  std::string_view string() const noexcept { return text_.view(); }
  // The text itself, for who appends to it piece by piece.
  TextBuffer& mutableText() noexcept { return text_; }

  const char* className() const override { return "NSMutableString"; }
  void describe(Description& out) const override;

 private:
  TextBuffer text_;
};

}  // namespace tavlo
