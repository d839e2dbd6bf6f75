#pragma once

#include <cstddef>
#include <exception>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>

#include "Foundation/StringFormat.h"

namespace tavlo {

// The names of the exceptions that the system raises.
inline constexpr const char* NSGenericException = "NSGenericException";
inline constexpr const char* NSInternalInconsistencyException = "NSInternalInconsistencyException";
inline constexpr const char* NSInvalidArgumentException = "NSInvalidArgumentException";
inline constexpr const char* NSRangeException = "NSRangeException";
inline constexpr const char* NSUndefinedKeyException = "NSUndefinedKeyException";

// The family of exceptions that the engine and its hosts raise. Thrown by value, caught by const reference; a copy
// shares its texts and cannot throw. What is not valid UTF-8 in a text becomes U+FFFD.
class [[gnu::visibility("default")]] NSException : public std::exception {
 public:
  NSException(std::string_view name, std::string_view reason);
  // Without a reason; the name stands in for it where a text is asked for.
  explicit NSException(std::string_view name);
  NSException(const NSException&) noexcept = default;
  NSException& operator=(const NSException&) noexcept = default;
  ~NSException() override;

  const std::string& name() const noexcept {
    return texts_->name;
  }
  // Empty when there is none.
  const std::string& reason() const noexcept {
    return texts_->reason;
  }
  bool hasReason() const noexcept {
    return texts_->hasReason;
  }
  // The reason, or the name when there is no reason.
  const std::string& description() const noexcept {
    return texts_->hasReason ? texts_->reason : texts_->name;
  }
  const char* what() const noexcept override {
    return description().c_str();
  }

  // Raises an exception of that name; the reason is formatted by `stringWithFormat`.
  template <class... Arguments>
  [[noreturn]] static void raise(const char* name, const char* format, const Arguments&... arguments) {
    throw NSException(name, stringWithFormat(format, arguments...));
  }

 private:
  struct Texts {
    std::string name;
    std::string reason;
    bool hasReason;
  };
  std::shared_ptr<const Texts> texts_;
};

// What an exception of the standard library's family says, as a host may have written it: its name where it says
// nothing at all.
std::string_view reasonOf(const std::exception& exception) noexcept;

// The assertion handler: raises `NSInternalInconsistencyException` with the description as its reason.
[[noreturn]] void failAssertion(std::string_view description);
// The same with "Invalid parameter not satisfying: %s" and the condition.
[[noreturn]] void failParameter(const char* condition);

// What a caller can get wrong: raises with the text of the condition unless it holds.
inline void requireParameter(bool condition, const char* text) {
  if (!condition) [[unlikely]]
    failParameter(text);
}

// The same of what can be empty, as pointers and a `std::function` can.
template <class T>
void requirePresent([[maybe_unused]] const T& object, [[maybe_unused]] const char* condition) {
  if constexpr (std::is_convertible_v<std::nullptr_t, T> && requires { object != nullptr; }) {
    requireParameter(object != nullptr, condition);
  }
}

}  // namespace tavlo
