#pragma once

#include <cstdint>
#include <exception>
#include <memory>
#include <string>

namespace tavlo {

// Which bound was reached.
enum class KorTemplateLimit : std::uint8_t {
  Nesting,
  FunctionDepth,
  Stack,
  RegexRetries,
  StringLength,
  ValueDepth,
};

// How far a template may go. What reaches a bound ends with `KorTemplateLimitException`.
struct KorTemplateLimits {
  // Blocks and parentheses inside one another in one template; an argument list is one pair.
  std::int32_t nesting = 1000;
  // Running functions inside one another, the template's and the host's.
  std::int32_t functionDepth = 1000;
  // What must be left of the running thread's stack, in bytes.
  std::uint64_t stackLeft = std::uint64_t{64} * 1024;
  // Retries of one regular expression search.
  std::uint64_t regexRetries = 1'000'000;
  // One string made by the template, in bytes.
  std::uint64_t stringLength = std::uint64_t{256} * 1024 * 1024;

  // Collections inside one another in a value that is described or compared.
  static constexpr std::int32_t kValueDepth = 1000;
};

// A bound was reached. It stands outside the `NSException` family, so that no function call turns it into a diagnostic.
class [[gnu::visibility("default")]] KorTemplateLimitException : public std::exception {
 public:
  KorTemplateLimitException(KorTemplateLimit limit, std::uint64_t value);
  KorTemplateLimitException(KorTemplateLimit limit, std::uint64_t value, std::string text);
  KorTemplateLimitException(const KorTemplateLimitException&) noexcept = default;
  KorTemplateLimitException& operator=(const KorTemplateLimitException&) noexcept = default;
  ~KorTemplateLimitException() override;

  KorTemplateLimit limit() const noexcept {
    return limit_;
  }
  // The bound's value.
  std::uint64_t value() const noexcept {
    return value_;
  }
  const char* what() const noexcept override {
    return text_->c_str();
  }

 private:
  KorTemplateLimit limit_;
  std::uint64_t value_;
  std::shared_ptr<const std::string> text_;
};

[[noreturn]] void raiseLimit(KorTemplateLimit limit, std::uint64_t value);
// For a search whose time is over before it has taken so many retries; the limit is that of the retries.
[[noreturn]] void raiseSearchTime(std::uint64_t retries);

// Raises when collections nest deeper than the bound for described and compared values, or than the running thread's
// stack allows, which is looked at every few levels.
void checkValueDepth(std::int32_t depth);
inline void requireValueDepth(std::int32_t depth) {
  constexpr std::int32_t kLevelsBetweenChecks = 16;
  if (depth > KorTemplateLimits::kValueDepth || depth % kLevelsBetweenChecks == 0) [[unlikely]]
    checkValueDepth(depth);
}

}  // namespace tavlo
