#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Foundation/Utf8.h"
#include "Fuzzers/Checks.h"
#include "Matchery/KorRegex.h"
#include "Tests/Source/KorTemplateParserSupport.h"

// A pattern, a zero byte, and a subject. Each search is small enough to end soon.

namespace tavlo::fuzz {

namespace {

constexpr std::size_t kLongestPattern = 200;
constexpr std::size_t kLongestSubject = 400;

// Whether the pattern matches; absent where the search was given up.
std::optional<bool> matches(const KorRegex& regex, const std::string& subject, std::uint64_t retries) {
  std::optional<bool> answer;
  const test::parsing::Raised raised =
      test::parsing::raisedBy([&] { answer = regex.matchesString(*NSString::stringWithUTF8(subject), retries); });
  require(raised.name.empty() || raised.name == "KorTemplateLimitException", "A search ends, or reaches its limit");
  return answer;
}

// Answers of searches with more and with fewer retries, where there are answers, are the same.
void checkSearches(const KorRegex& regex, const std::string& subject) {
  const std::optional<bool> expected = matches(regex, subject, 3000);
  for (const std::uint64_t retries : {3000U, 100U, 1U}) {
    const std::optional<bool> answer = matches(regex, subject, retries);
    require(!answer.has_value() || answer == expected || !expected.has_value(), "Retries do not change the answer");
  }
}

// The ends of matches at a few places lie in the text, at the bounds of characters.
void checkEnds(const KorRegex& regex, const std::string& subject) {
  constexpr std::size_t kPlaces = 8;
  std::size_t at = 0;
  for (std::size_t place = 0; place < kPlaces && at <= subject.size(); ++place) {
    std::optional<std::size_t> end;
    (void)test::parsing::raisedBy([&] { end = regex.matchEnd(subject, at); });
    if (end.has_value()) {
      require(*end >= at && *end <= subject.size(), "A match ends within the text");
      require(*end == subject.size() || !isContinuation(subject[*end]), "A match ends between characters");
    }
    at += at < subject.size() ? codePointAt(subject, at).byteLength : 1;
  }
}

void run(std::string pattern, std::string subject) {
  if (pattern.size() > kLongestPattern) return;
  subject.resize(std::min(subject.size(), kLongestSubject));
  subject.resize(firstInvalidByte(subject).value_or(subject.size()));
  Ref<KorRegex> regex;
  const test::parsing::Raised raised = test::parsing::raisedBy([&] { regex = KorRegex::compileExpression(pattern); });
  if (regex == nullptr) {
    require(raised.name == NSInvalidArgumentException, "A pattern that does not compile is an invalid argument");
    return;
  }
  requireEqual(regex->description(), "/" + pattern + "/", "A pattern describes itself between slashes");
  require(regex->isEqual(*KorRegex::compileExpression(pattern)), "Equal patterns are equal");
  checkSearches(*regex, subject);
  checkEnds(*regex, subject);
}

}  // namespace

}  // namespace tavlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto [pattern, subject] = tavlo::fuzz::partsOf(data, size);
  tavlo::fuzz::run(pattern, subject);
  return 0;
}
