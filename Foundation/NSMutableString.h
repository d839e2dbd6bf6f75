#pragma once

#include <string>
#include <string_view>

#include "Foundation/NSObject.h"
#include "Foundation/Text.h"
#include "Foundation/Value.h"

namespace tavlo {

// A text that grows, shared between those who hold it; not a string value of the language.
class NSMutableString final : public NSObject {
 public:
  NSMutableString() = default;

  static Ref<NSMutableString> mutableString() { return makeRef<NSMutableString>(); }

  // Raises `NSInvalidArgumentException` for an absent text.
  void appendString(const Text& text);

  const std::string& string() const noexcept { return text_; }
  // The text itself, for who appends to it piece by piece.
  std::string& mutableText() noexcept { return text_; }

  const char* className() const override { return "NSMutableString"; }
  void describe(Description& out) const override;

 private:
  std::string text_;
};

}  // namespace tavlo
