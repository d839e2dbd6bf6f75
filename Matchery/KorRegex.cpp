#include "Matchery/KorRegex.h"

#include <oniguruma.h>

#include <algorithm>
#include <bitset>
#include <chrono>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <utility>

#include "Foundation/Description.h"
#include "Foundation/NSException.h"
#include "Foundation/Utf8.h"

namespace tavlo {

namespace {

const OnigUChar* bytes(std::string_view text) {
  return reinterpret_cast<const OnigUChar*>(text.data());
}

void initializeEngine() {
  static std::once_flag once;
  std::call_once(once, [] {
    OnigEncoding encodings[] = {ONIG_ENCODING_UTF8};
    onig_initialize(encodings, 1);
  });
}

[[noreturn]] void raiseDoesNotCompile(std::string_view pattern, std::string_view reason) {
  NSException::raise(NSInvalidArgumentException, "The regular expression /%s/ does not compile: %s", pattern, reason);
}

// How deep the pattern's groups and classes lie inside one another, counted before the engine sees it, whose parser
// recurses. It never counts too little: where extended mode is in play, what a "#" hides until the end of its line
// closes nothing.
class NestingCounter {
 public:
  explicit NestingCounter(std::string_view pattern) : pattern_(pattern), isExtended_(hasExtendedMode(pattern)) {}

  std::int32_t deepest() {
    for (at_ = 0; at_ < pattern_.size(); ++at_) step();
    return deepest_;
  }

 private:
  static bool hasExtendedMode(std::string_view pattern) {
    for (std::size_t at = pattern.find("(?"); at != std::string_view::npos; at = pattern.find("(?", at + 1)) {
      const std::string_view options = pattern.substr(at + 2, pattern.find_first_of(":)(", at + 2) - at - 2);
      if (options.find('x') != std::string_view::npos) return true;
    }
    return false;
  }

  void step() {
    const char letter = pattern_[at_];
    if (letter == '\\') {
      ++at_;
    } else if (letter == '[') {
      openClass();
    } else if (classes_ > 0) {
      if (letter == ']') --classes_;
    } else {
      stepOutsideClasses(letter);
    }
  }

  void stepOutsideClasses(char letter) {
    if (pattern_.substr(at_).starts_with("(?#")) {
      skipComment();
    } else if (letter == '(') {
      open(groups_);
    } else if (letter == '#' || letter == '\n') {
      isHidden_ = isExtended_ && letter == '#';
    } else if (letter == ')' && groups_ > 0 && !isHidden_) {
      --groups_;
    }
  }

  void openClass() {
    open(classes_);
    if (at_ + 1 < pattern_.size() && pattern_[at_ + 1] == '^') ++at_;
    if (at_ + 1 < pattern_.size() && pattern_[at_ + 1] == ']') ++at_;  // stands for itself there
  }

  void skipComment() {
    while (at_ + 1 < pattern_.size() && pattern_[at_] != ')') at_ += pattern_[at_] == '\\' ? 2 : 1;
  }

  void open(std::int32_t& depth) {
    ++depth;
    deepest_ = std::max({deepest_, groups_, classes_});
  }

  std::string_view pattern_;
  bool isExtended_;
  bool isHidden_ = false;  // behind a "#" that may begin a comment
  std::size_t at_ = 0;
  std::int32_t groups_ = 0;
  std::int32_t classes_ = 0;
  std::int32_t deepest_ = 0;
};

// Subjects up to this length, in bytes, are searched at one go.
constexpr std::size_t kShortSubject = 16 * std::size_t{1024};
constexpr std::chrono::milliseconds kLongestSearch{500};

// The bounds of one search; made once, since the engine only reads it.
struct FreeMatchParameters {
  void operator()(OnigMatchParam* parameters) const { onig_free_match_param(parameters); }
};
using MatchParameters = std::unique_ptr<OnigMatchParam, FreeMatchParameters>;

MatchParameters boundedTo(std::uint64_t retries) {
  MatchParameters parameters(onig_new_match_param());
  if (parameters == nullptr) throw std::bad_alloc();
  onig_initialize_match_param(parameters.get());
  onig_set_retry_limit_in_match_of_match_param(parameters.get(), retries);
  onig_set_retry_limit_in_search_of_match_param(parameters.get(), retries);
  return parameters;
}

OnigMatchParam* parametersFor(std::uint64_t retries) {
  thread_local std::uint64_t knownRetries = 0;
  thread_local MatchParameters known;
  if (known == nullptr || knownRetries != retries) {
    known = boundedTo(retries);
    knownRetries = retries;
  }
  return known.get();
}

// The engine's answer: a position, or absent where nothing matches.
std::optional<std::size_t> position(int answer, std::uint64_t retries) {
  if (answer >= 0) return static_cast<std::size_t>(answer);
  if (answer == ONIG_MISMATCH) return {};
  if (answer == ONIGERR_MEMORY) throw std::bad_alloc();
  // What is left are the bounds on a search's retries, time and stack.
  raiseLimit(KorTemplateLimit::RegexRetries, retries);
}

}  // namespace

KorRegex::KorRegex(Ref<NSString> pattern)
    : NSObject(kRegexKind, Counting::Atomic),
      pattern_(std::move(pattern)),
      dependsOnStart_(pattern_->view().find("\\G") != std::string_view::npos) {
  const std::string_view text = pattern_->view();
  OnigErrorInfo information;
  const int answer = onig_new(&compiled_, bytes(text), bytes(text) + text.size(), ONIG_OPTION_NONE, ONIG_ENCODING_UTF8,
                              ONIG_SYNTAX_ONIGURUMA, &information);
  if (answer == ONIG_NORMAL) return;
  compiled_ = nullptr;
  if (answer == ONIGERR_MEMORY) throw std::bad_alloc();
  OnigUChar reason[ONIG_MAX_ERROR_MESSAGE_LEN];
  const int length = onig_error_code_to_str(reason, answer, &information);
  raiseDoesNotCompile(text, {reinterpret_cast<const char*>(reason), static_cast<std::size_t>(std::max(length, 0))});
}

KorRegex::~KorRegex() {
  if (compiled_ != nullptr) onig_free(compiled_);
}

Ref<KorRegex> KorRegex::compileExpression(const Text& pattern) {
  if (pattern.isAbsent()) return {};
  requireValidUTF8(pattern.view());
  if (pattern.view().size() > kMaximumPatternLength) {
    raiseDoesNotCompile(pattern.view(), "it is longer than 65536 bytes");
  }
  if (NestingCounter(pattern.view()).deepest() > kMaximumGroupDepth) {
    raiseDoesNotCompile(pattern.view(), "its groups are nested deeper than 100");
  }
  initializeEngine();
  return Ref<KorRegex>::adopt(new KorRegex(NSString::stringWithValidUTF8(pattern.view(), Counting::Atomic)));
}

bool KorRegex::matchesString(const NSString& subject, std::uint64_t retries) const {
  const std::string_view text = subject.view();
  if (text.size() > kShortSubject && !dependsOnStart_) return matchesSomewhere(text, retries);
  const OnigUChar* start = bytes(text);
  const OnigUChar* end = start + text.size();
  const int answer =
      onig_search_with_param(compiled_, start, end, start, end, nullptr, ONIG_OPTION_NONE, parametersFor(retries));
  return position(answer, retries).has_value();
}

// From every place of a long text the engine may look as far as its end, which no count of retries notices: the places
// are tried one after another, with a look at the clock now and then. (A search through a part of the places would not
// do: it lets no match reach beyond that part.)
bool KorRegex::matchesSomewhere(std::string_view text, std::uint64_t retries) const {
  constexpr std::size_t kPlacesBetweenLooks = 32;
  const auto deadline = std::chrono::steady_clock::now() + kLongestSearch;
  std::size_t places = 0;
  for (std::size_t at = 0; at <= text.size(); ++at) {
    if (at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80) continue;  // inside a character
    if (matchEnd(text, at, retries).has_value()) return true;
    if (++places % kPlacesBetweenLooks == 0 && std::chrono::steady_clock::now() > deadline) {
      raiseLimit(KorTemplateLimit::RegexRetries, retries);
    }
  }
  return false;
}

std::optional<std::size_t> KorRegex::matchEnd(std::string_view text, std::size_t offset) const {
  return matchEnd(text, offset, KorTemplateLimits{}.regexRetries);
}

std::optional<std::size_t> KorRegex::matchEnd(std::string_view text, std::size_t offset, std::uint64_t retries) const {
  const int answer = onig_match_with_param(compiled_, bytes(text), bytes(text) + text.size(), bytes(text) + offset,
                                           nullptr, ONIG_OPTION_NONE, parametersFor(retries));
  const std::optional<std::size_t> length = position(answer, retries);
  if (!length.has_value()) return {};
  return offset + *length;
}

void KorRegex::describe(Description& out) const {
  out.part("/");
  out.part(pattern_->view());
  out.part("/");
}

bool KorRegex::isEqual(const NSObject& other, std::int32_t /*depth*/) const {
  return other.kind() == kRegexKind && static_cast<const KorRegex&>(other).pattern().view() == pattern().view();
}

const KorRegex* regexIn(const Value& value) noexcept {
  const NSObject* object = value.object();
  return object != nullptr && object->kind() == kRegexKind ? static_cast<const KorRegex*>(object) : nullptr;
}

namespace {

bool hasType(char32_t character, unsigned type) {
  return ONIGENC_IS_CODE_CTYPE(ONIG_ENCODING_UTF8, static_cast<OnigCodePoint>(character), type) != 0;
}

}  // namespace

bool isLongWordCharacter(char32_t character) noexcept {
  return hasType(character, ONIGENC_CTYPE_WORD);
}

bool isWordCharacterInClass(char32_t character) {
  // Where the engine's classes differ from its "\w" they do so among the characters of one byte in Latin-1.
  constexpr char32_t kFirst = 0x80;
  constexpr char32_t kEnd = 0x100;
  static const std::bitset<kEnd> words = [] {
    std::bitset<kEnd> answers;
    const Ref<KorRegex> wordClass = KorRegex::compileExpression("[\\w]");
    for (char32_t one = kFirst; one < kEnd; ++one) {
      std::string text;
      appendCodePoint(text, one);
      answers.set(one, wordClass->matchEnd(text, 0).has_value());
    }
    return answers;
  }();
  return character >= kFirst && character < kEnd ? words.test(character) : isWordCharacter(character);
}

bool isDigitCharacter(char32_t character) noexcept {
  return hasType(character, ONIGENC_CTYPE_DIGIT);
}

bool isSpaceCharacter(char32_t character) noexcept {
  return hasType(character, ONIGENC_CTYPE_SPACE);
}

}  // namespace tavlo
