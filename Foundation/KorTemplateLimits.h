#pragma once

#include <chrono>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
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
  Steps,
  Output,
  Time,
  Cancellation,
};

// How far a template may go. What reaches a bound ends with `KorTemplateLimitException`. A negative bound counts as 0.
struct KorTemplateLimits {
  // Blocks and parentheses inside one another in one template; an argument list is one pair.
  std::int32_t nesting = 1000;
  // Running functions inside one another, the template's and the host's.
  std::int32_t functionDepth = 1000;
  // What must be left of the running thread's stack, in bytes; less than `kLeastStackLeft` counts as that.
  static constexpr std::uint64_t kLeastStackLeft = std::uint64_t{16} * 1024;
  std::uint64_t stackLeft = std::uint64_t{64} * 1024;
  // Retries of one regular expression search.
  std::uint64_t regexRetries = 1'000'000;
  // One string made by the template, in bytes.
  std::uint64_t stringLength = std::uint64_t{256} * 1024 * 1024;

  // Collections inside one another in a value that is described or compared, and lazy ones in one that is hashed. The
  // stack bounds it too.
  std::int32_t valueDepth = 1000;

  // The rest bounds one execution, with all that is executed in the same environment inside it. Absent: without a
  // bound.

  // Its work: a step is a statement, an iteration, a call, an operator but for one between numbers that are at hand, an
  // element of a collection that is described, compared or read for a key path, or 256 bytes of a text that is made,
  // written, compared, converted or searched. A long search takes steps in proportion. What the host's functions do
  // counts as one call.
  std::optional<std::uint64_t> steps = std::nullopt;
  // What it writes to output streams, in bytes. The text that would go beyond is not written.
  std::optional<std::uint64_t> output = std::nullopt;
  // How long it takes, from the moment at which it begins. Looked at every few steps.
  std::optional<std::chrono::milliseconds> time = std::nullopt;
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
  // The bound's value: of the time in milliseconds, of a cancellation 0.
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

// Raises when collections nest deeper than the execution that runs on this thread allows for described and compared
// values, or than the thread's stack does.
void requireValueDepth(std::int32_t depth);
// How long a string may be that is made within that execution, in bytes; on a thread where none runs, by default.
std::uint64_t longestString() noexcept;
// Raises when a string of so many bytes is longer than that.
void requireStringLength(std::uint64_t bytes);

}  // namespace tavlo
