#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "Foundation/NSString.h"

namespace tavlo {

// A view of UTF-8 text that may be absent, for parameters: made from whatever holds text, absent from `nullptr`. It
// owns nothing and is good for the call.
class Text {
 public:
  constexpr Text() noexcept = default;
  // NOLINTBEGIN(google-explicit-constructor): implicit on purpose
  constexpr Text(std::nullptr_t) noexcept {}
  constexpr Text(std::string_view text) noexcept
      : data_(text.data() == nullptr ? "" : text.data()), size_(text.size()) {}
  Text(const std::string& text) noexcept : Text(std::string_view(text)) {}
  constexpr Text(const char* text) noexcept : data_(text), size_(text == nullptr ? 0 : std::string_view(text).size()) {}
  Text(const NSString* text) noexcept {
    if (text != nullptr) *this = Text(text->view());
  }
  Text(const Ref<NSString>& text) noexcept : Text(text.get()) {}
  // NOLINTEND(google-explicit-constructor)

  constexpr bool isAbsent() const noexcept { return data_ == nullptr; }
  // The text; empty for an absent one.
  constexpr std::string_view view() const noexcept { return {data_ == nullptr ? "" : data_, size_}; }

 private:
  const char* data_ = nullptr;
  std::size_t size_ = 0;
};

}  // namespace tavlo
