#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "Foundation/Name.h"
#include "Foundation/Text.h"
#include "Foundation/Value.h"

namespace tavlo {

// One argument of a format, of whatever type the caller has: a text, a number or a value.
class FormatArgument {
 public:
  // NOLINTBEGIN(google-explicit-constructor): implicit on purpose
  template <IntegerLike T>
  FormatArgument(T number) : value_(number) {}
  FormatArgument(const Value& value) : value_(value) {}
  template <class T>
  requires std::derived_from<T, NSObject> FormatArgument(const Ref<T>& object) : value_(object) {}
  FormatArgument(const Name& name) : text_(name.isAbsent() ? Text() : Text(name.view())) {}
  FormatArgument(const Text& text) : text_(text) {}
  template <TextLike T>
  FormatArgument(const T& text) : text_(text) {}
  FormatArgument(std::nullptr_t) {}
  // NOLINTEND(google-explicit-constructor)

  bool isText() const noexcept { return !text_.isAbsent(); }
  std::string_view text() const noexcept { return text_.view(); }
  const Value& value() const noexcept { return value_; }

 private:
  Text text_;
  Value value_;
};

// The format with each "%@", "%s" and "%d" replaced by the next argument's text, and "%%" by "%". Arguments are
// formatted by their type, whichever placeholder stands for them; an absent one reads "(null)". A placeholder without
// an argument stays as it is.
std::string formattedString(std::string_view format, std::span<const FormatArgument> arguments);

template <class... Arguments>
std::string stringWithFormat(std::string_view format, const Arguments&... arguments) {
  const std::array<FormatArgument, sizeof...(Arguments)> list{FormatArgument(arguments)...};
  return formattedString(format, list);
}

}  // namespace tavlo
