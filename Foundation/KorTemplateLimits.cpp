#include "Foundation/KorTemplateLimits.h"

#include <utility>

#include "Foundation/StackGuard.h"
#include "Foundation/StringFormat.h"

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
  }
  return "A limit of %d was reached";
}

}  // namespace

KorTemplateLimitException::KorTemplateLimitException(KorTemplateLimit limit, std::uint64_t value)
    : KorTemplateLimitException(limit, value, stringWithFormat(textOf(limit), value)) {}

KorTemplateLimitException::KorTemplateLimitException(KorTemplateLimit limit, std::uint64_t value, std::string text)
    : limit_(limit), value_(value), text_(std::make_shared<const std::string>(std::move(text))) {}

KorTemplateLimitException::~KorTemplateLimitException() = default;

void raiseLimit(KorTemplateLimit limit, std::uint64_t value) {
  throw KorTemplateLimitException(limit, value);
}

void checkValueDepth(std::int32_t depth) {
  checkStack();
  if (depth > KorTemplateLimits::kValueDepth) raiseLimit(KorTemplateLimit::ValueDepth, KorTemplateLimits::kValueDepth);
}

void raiseSearchTime(std::uint64_t retries) {
  throw KorTemplateLimitException(KorTemplateLimit::RegexRetries, retries,
                                  "A regular expression search takes longer than half a second");
}

}  // namespace tavlo
