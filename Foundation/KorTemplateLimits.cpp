#include "Foundation/KorTemplateLimits.h"

#include <cstddef>
#include <string_view>
#include <utility>

#include "Foundation/StackGuard.h"
#include "Foundation/WorkMeter.h"

namespace tavlo {

namespace {

// What each limit says, with its value in place of "%d".
const char* textOf(KorTemplateLimit limit) {
  switch (limit) {
    case KorTemplateLimit::Nesting:
      return "Blocks and parentheses are nested deeper than %d";
    case KorTemplateLimit::FunctionDepth:
      return "Functions are running deeper than %d inside one another";
    case KorTemplateLimit::Stack:
      return "Less than %d bytes of the thread's stack are left";
    case KorTemplateLimit::RegexRetries:
      return "A regular expression search needs more than %d retries";
    case KorTemplateLimit::StringLength:
      return "A string is longer than %d bytes";
    case KorTemplateLimit::ValueDepth:
      return "A value is nested deeper than %d";
    case KorTemplateLimit::Steps:
      return "The execution takes more than %d steps";
    case KorTemplateLimit::Output:
      return "The execution writes more than %d bytes";
    case KorTemplateLimit::Time:
      return "The execution takes longer than %d milliseconds";
    case KorTemplateLimit::Cancellation:
      return "The execution was cancelled";
  }
  return "A limit of %d was reached";
}

// Put together by hand: describing a value is work, which the limit forbids.
std::string textOf(KorTemplateLimit limit, std::uint64_t value) {
  constexpr std::string_view kPlaceholder = "%d";
  std::string text = textOf(limit);
  const std::size_t at = text.find(kPlaceholder);
  return at == std::string::npos ? text : text.replace(at, kPlaceholder.size(), std::to_string(value));
}

}  // namespace

KorTemplateLimitException::KorTemplateLimitException(KorTemplateLimit limit, std::uint64_t value)
    : KorTemplateLimitException(limit, value, textOf(limit, value)) {}

KorTemplateLimitException::KorTemplateLimitException(KorTemplateLimit limit, std::uint64_t value, std::string text)
    : limit_(limit), value_(value), text_(std::make_shared<const std::string>(std::move(text))) {}

KorTemplateLimitException::~KorTemplateLimitException() = default;

void raiseLimit(KorTemplateLimit limit, std::uint64_t value) {
  throw KorTemplateLimitException(limit, value);
}

void requireValueDepth(std::int32_t depth) {
  const WorkMeter* const meter = WorkMeter::ofThread();
  const std::int32_t bound = meter == nullptr ? KorTemplateLimits{}.valueDepth : meter->valueDepth();
  checkStack();  // each time: a host's class may count itself, and be asked for every second depth only
  if (depth > bound) raiseLimit(KorTemplateLimit::ValueDepth, static_cast<std::uint64_t>(bound));
}

std::uint64_t longestString() noexcept {
  const WorkMeter* const meter = WorkMeter::ofThread();
  return meter == nullptr ? KorTemplateLimits{}.stringLength : meter->stringLength();
}

void requireStringLength(std::uint64_t bytes) {
  const std::uint64_t bound = longestString();
  if (bytes > bound) raiseLimit(KorTemplateLimit::StringLength, bound);
}

void raiseSearchTime(std::uint64_t retries) {
  throw KorTemplateLimitException(KorTemplateLimit::RegexRetries, retries,
                                  "A regular expression search takes longer than half a second");
}

}  // namespace tavlo
