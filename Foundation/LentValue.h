#pragma once

#include <string_view>
#include <utility>

#include "Foundation/Value.h"

namespace tavlo {

// What was read to be written at once: a text where it lives, or a value. A text is good until other code runs, and as
// long as the object it was read from.
class LentValue {
 public:
  // Raises `NSInvalidArgumentException` that names the byte offset when the text is not valid UTF-8.
  void setText(std::string_view text);
  void set(Value value) noexcept {
    isText_ = false;
    value_ = std::move(value);
  }

  bool isText() const noexcept { return isText_; }
  // Of a text.
  std::string_view text() const noexcept { return text_; }
  // Of everything else.
  const Value& value() const noexcept { return value_; }

 private:
  Value value_;
  std::string_view text_;
  bool isText_ = false;
};

}  // namespace tavlo
