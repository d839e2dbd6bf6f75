#include "Matchery/KorRegex.h"

#include <malloc.h>
#include <oniguruma.h>

#include <algorithm>
#include <atomic>
#include <bitset>
#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <exception>
#include <limits>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <utility>

#include "Foundation/Description.h"
#include "Foundation/NSException.h"
#include "Foundation/StackGuard.h"
#include "Foundation/ThreadEnd.h"
#include "Foundation/Utf8.h"
#include "Foundation/WorkMeter.h"
#include "Matchery/WatchedPattern.h"

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

// Subjects up to this length, in bytes, may take only so many retries all together; in longer ones each place where a
// match may begin has its own count.
constexpr std::size_t kShortSubject = 16 * std::size_t{1024};
constexpr std::chrono::milliseconds kLongestSearch{500};

// The steps that a search may take unwatched: some tenths of a second.
constexpr std::uint64_t kPlainSteps = 100'000'000;
// The length, in bytes, up to which one figure of retries does for every plain search, and the most that it may be: low
// enough to be the same for most patterns, so that the engine need not be told anew.
constexpr std::size_t kTinySubject = 256;
constexpr std::uint64_t kRetriesInTinySubject = 65'536;
// The bytes that the steps of a search at one place may go through: some tenths of a second.
constexpr std::uint64_t kBytesAtOnePlace = 160'000'000;
// Where a plain search may take fewer retries it is not tried.
constexpr std::uint64_t kFewestRetries = 16;

// The bounds of one search; made once, since the engine only reads it.
struct FreeMatchParameters {
  void operator()(OnigMatchParam* parameters) const { onig_free_match_param(parameters); }
};
using MatchParameters = std::unique_ptr<OnigMatchParam, FreeMatchParameters>;

// How often a search, and a place in it, may be retried; 0 is without a bound.
struct Retries {
  std::uint64_t inSearch;
  std::uint64_t atOnePlace;
  friend bool operator==(const Retries&, const Retries&) = default;
};

void setRetries(OnigMatchParam& parameters, const Retries& retries) {
  onig_set_retry_limit_in_search_of_match_param(&parameters, retries.inSearch);
  onig_set_retry_limit_in_match_of_match_param(&parameters, retries.atOnePlace);
}

MatchParameters makeParameters() {
  MatchParameters parameters(onig_new_match_param());
  if (parameters == nullptr) throw std::bad_alloc();
  onig_initialize_match_param(parameters.get());
  constexpr unsigned kMostEntries = 3'000'000;  // of the search's own stack: some 150 MiB
  onig_set_match_stack_limit_size_of_match_param(parameters.get(), kMostEntries);
  return parameters;
}

// Those that the thread has used last.
[[gnu::tls_model("initial-exec")]] constinit thread_local OnigMatchParam* knownParameters = nullptr;
[[gnu::tls_model("initial-exec")]] constinit thread_local Retries knownRetries{0, 0};

void freeKnownParameters() noexcept {
  onig_free_match_param(std::exchange(knownParameters, nullptr));
}

// Those of one search. They stay for the thread's next one, unless nothing can be done when the thread ends.
class SearchParameters {
 public:
  explicit SearchParameters(const Retries& retries) {
    if (knownParameters != nullptr && knownRetries == retries) return;
    if (knownParameters == nullptr) {
      own_ = makeParameters();
      if (ThreadEnd::run(freeKnownParameters)) knownParameters = own_.release();
    }
    setRetries(*get(), retries);
    knownRetries = retries;
  }

  OnigMatchParam* get() const { return own_ == nullptr ? knownParameters : own_.get(); }

 private:
  MatchParameters own_;
};

int search(const re_pattern_buffer* compiled, std::string_view text, OnigMatchParam* parameters) {
  const OnigUChar* start = bytes(text);
  const OnigUChar* end = start + text.size();
  return onig_search_with_param(const_cast<re_pattern_buffer*>(compiled),  // NOLINT(*-const-cast): it is only read
                                start, end, start, end, nullptr, ONIG_OPTION_NONE, parameters);
}

bool isOutOfRetries(int answer) {
  return answer == ONIGERR_RETRY_LIMIT_IN_SEARCH_OVER || answer == ONIGERR_RETRY_LIMIT_IN_MATCH_OVER;
}

// The engine's answer: a position, or absent where nothing matches.
std::optional<std::size_t> position(int answer, std::uint64_t retries) {
  if (answer >= 0) return static_cast<std::size_t>(answer);
  if (answer == ONIG_MISMATCH) return {};
  if (answer == ONIGERR_MEMORY) throw std::bad_alloc();
  if (answer == ONIG_ABORT) raiseSearchTime(retries);
  // What is left are the bounds on a search's retries and stack.
  raiseLimit(KorTemplateLimit::RegexRetries, retries);
}

// To look at a place, and to take a turn of a group, takes as long as to go through some bytes.
constexpr std::uint64_t kBytesOfPlace = 8;
constexpr std::uint64_t kBytesOfTurn = 24;

// The bytes that the engine may go through between two looks at a search that goes on.
constexpr std::ptrdiff_t kBytesBetweenLooks = std::ptrdiff_t{1} << 20;

// The clock of a watched search. Where steps are limited its work is counted, for which the engine must not be left by
// an exception: a limit that is reached ends the search, and is raised behind it.
class Watch {
 public:
  // `bytesOfPattern`: what the engine may go through of the pattern between two calls. `bytesOfText`: how much of the
  // text at most, and `times` how often.
  Watch(std::size_t bytesOfPattern, std::size_t bytesOfText, std::uint64_t times = 1)
      : bytesOfPattern_(bytesOfPattern), bytesOfText_(bytesOfText), times_(times) {}

  // What the engine calls; it ends the search when the time is over.
  static int call(OnigCalloutArgs* arguments, void* watch) {
    const std::ptrdiff_t left =
        onig_get_string_end_by_callout_args(arguments) - onig_get_current_by_callout_args(arguments);
    int entries = 0;
    int size = 0;
    (void)onig_get_used_stack_size_in_callout(arguments, &entries, &size);
    auto& itself = *static_cast<Watch*>(watch);
    itself.unseen_ += kBytesOfPlace * itself.bytesOfPattern_;
    return itself.isOver(left, itself.times_, entries) ? ONIG_ABORT : ONIG_CALLOUT_SUCCESS;
  }

  // From here on the engine may go through so many bytes, so many times, before it calls again, and through so many
  // entries of its stack, in which it looks for the count of a group or for where a call came from.
  bool isOver(std::ptrdiff_t bytes, std::uint64_t times = 1, int entries = 0) {
    constexpr std::ptrdiff_t kBytesOfCall = 64;
    constexpr std::uint64_t kBytesOfEntry = 2;
    bytes = std::min(bytes, static_cast<std::ptrdiff_t>(bytesOfText_));
    bytes_ += bytes + kBytesOfCall + static_cast<std::ptrdiff_t>(bytesOfPattern_);
    const auto most = static_cast<std::uint64_t>(kBytesBetweenLooks);
    unseen_ += static_cast<std::uint64_t>(bytes + kBytesOfCall) * std::min(times, most);
    unseen_ += static_cast<std::uint64_t>(std::max(entries, 0)) * kBytesOfEntry;
    if (unseen_ < most) return false;
    unseen_ = 0;
    return mayNotGoOn() || std::chrono::steady_clock::now() > deadline_;
  }

  // Counts what has not been counted yet, and raises a limit that was reached.
  void settle() {
    (void)mayNotGoOn();
    if (reached_ != nullptr) std::rethrow_exception(reached_);
  }

 private:
  bool mayNotGoOn() noexcept {
    try {
      const auto bytes = static_cast<std::size_t>(std::exchange(bytes_, 0));
      if (reached_ == nullptr) work_.countBytes(bytes);
    } catch (...) {
      reached_ = std::current_exception();
    }
    return reached_ != nullptr;
  }

  std::size_t bytesOfPattern_;
  std::size_t bytesOfText_;
  std::uint64_t times_;
  WorkCounter work_;
  std::chrono::steady_clock::time_point deadline_ = std::chrono::steady_clock::now() + kLongestSearch;
  std::ptrdiff_t bytes_ = 0;  // that are not counted yet
  std::uint64_t unseen_ = 0;  // the same since the last look at the clock, as often as they may be gone through
  std::exception_ptr reached_;
};

// Runs `match`, which takes the most retries, with so many of them. Where steps are limited it begins with few, which
// are not counted and go through little: those that were not enough are counted, each as a step at least, and it begins
// again with more.
template <class Match>
int countingRetries(std::uint64_t bound, std::uint64_t bytesOfPattern, std::uint64_t bytesOfText, const Match& match) {
  constexpr std::uint64_t kFirst = 64;
  constexpr std::uint64_t kBytesOfFirst = 8192;
  constexpr std::uint64_t kTimesMore = 4;
  WorkMeter* const meter = WorkMeter::ofThread();
  if (meter == nullptr || !meter->limitsSteps()) return match(bound);
  const std::uint64_t first = std::clamp(kBytesOfFirst / bytesOfPattern, std::uint64_t{1}, kFirst);
  const std::uint64_t bytesOfRetry = bytesOfPattern + bytesOfText;
  for (std::uint64_t most = std::min(bound, first);; most = std::min(bound, most * kTimesMore)) {
    const int answer = match(most);
    if (isOutOfRetries(answer)) meter->count(most + most * bytesOfRetry / WorkMeter::kBytesOfStep);
    if (!isOutOfRetries(answer) || most == bound) return answer;
  }
}

// Blocks of memory that are asked for together, to see whether they are there. By malloc(), as the engine does.
class HeldBlocks {
 public:
  HeldBlocks() = default;
  HeldBlocks(const HeldBlocks&) = delete;
  HeldBlocks& operator=(const HeldBlocks&) = delete;
  ~HeldBlocks() {
    while (last_ != nullptr) std::free(std::exchange(last_, last_->before));
  }

  // `size`: at least that of a pointer. Answers how many bytes the block has; raises `std::bad_alloc` where there is
  // none.
  std::size_t take(std::size_t size) {
    void* const block = std::malloc(size);
    if (block == nullptr) throw std::bad_alloc();
    last_ = new (block) Block{last_};
    return malloc_usable_size(block);
  }

 private:
  struct Block {
    Block* before;
  };
  Block* last_ = nullptr;
};

// Makes sure of the memory that compiling the pattern takes: raises `std::bad_alloc` where there is none. The engine
// does not stand running out of it on the way, but may free a part of the pattern twice. What is made sure of is there
// afterwards, unless another thread takes it.
void requireMemoryFor(std::string_view pattern, const PatternShape& shape) {
  constexpr std::size_t kLeast = std::size_t{16} * 1024;
  constexpr std::size_t kBytesOfByte = 1024;
  constexpr std::size_t kBytesOfWeight = std::size_t{32} * 1024;
  constexpr std::size_t kPage = 4096;
  constexpr std::size_t kBytesOfPiece = 16 * kPage;  // what malloc() takes from its heap, as all that is small
  constexpr std::size_t kBytesOfNode = 128;
  HeldBlocks held;
  const std::size_t wanted = kLeast + pattern.size() * kBytesOfByte + shape.weight * kBytesOfWeight;
  for (std::size_t left = wanted / kPage * kPage; left > 0;) {
    const std::size_t size = std::min(left, kBytesOfPiece);
    left -= size;
    // A piece with the rest of a page behind it has pages of its own, as where the heap can grow no further. Each small
    // block takes a page then, so that the piece says nothing of many of them.
    if (held.take(size) < size + kPage / 2) continue;
    for (std::size_t node = 0; node < size; node += kBytesOfNode) held.take(kBytesOfNode);
  }
}

// The engine's own syntax, but for what would let a pattern call the engine's functions and end a search as it likes.
const OnigSyntaxType& syntaxOfPatterns() {
  static const OnigSyntaxType syntax = [] {
    OnigSyntaxType plain = *ONIG_SYNTAX_ONIGURUMA;
    plain.op2 &= ~(ONIG_SYN_OP2_QMARK_BRACE_CALLOUT_CONTENTS | ONIG_SYN_OP2_ASTERISK_CALLOUT_NAME);
    return plain;
  }();
  return syntax;
}

// The bytes of all patterns that call out and stay for the next search, and the most that they may be: some thousands
// of patterns. One beyond is compiled for each search anew.
constexpr std::size_t kMostBytesOfWatched = std::size_t{32} << 20;
constinit std::atomic<std::size_t> bytesOfAllWatched{0};

bool mayStay(std::size_t bytes) noexcept {
  if (bytesOfAllWatched.fetch_add(bytes, std::memory_order_relaxed) + bytes <= kMostBytesOfWatched) return true;
  bytesOfAllWatched.fetch_sub(bytes, std::memory_order_relaxed);
  return false;
}

int compile(std::string_view pattern, const PatternShape& shape, const OnigSyntaxType& syntax,
            re_pattern_buffer*& compiled, OnigErrorInfo& information) {
  requireMemoryFor(pattern, shape);
  const int answer = onig_new(&compiled, bytes(pattern), bytes(pattern) + pattern.size(), ONIG_OPTION_NONE,
                              ONIG_ENCODING_UTF8, const_cast<OnigSyntaxType*>(&syntax),  // NOLINT(*-const-cast): read
                              &information);
  if (answer == ONIG_NORMAL) return answer;
  compiled = nullptr;
  if (answer == ONIGERR_MEMORY) throw std::bad_alloc();
  return answer;
}

// The engine's compiler recurses into groups, and from a call into the group it calls: some 2,230 bytes deep for each
// group that captures and is repeated.
void requireStackFor(const PatternShape& shape) {
  constexpr std::uint64_t kBytesOfLevel = 2560;
  const std::uint64_t levels = static_cast<std::uint64_t>(shape.depth) + static_cast<std::uint64_t>(shape.depthOfCalls);
  checkStack(levels * kBytesOfLevel);
}

// What a pattern goes through depends on that of a text: its length in bytes, where searching a class in characters
// beyond ASCII takes as long as in several, and whether it has such.
struct SearchedText {
  std::uint64_t length;
  bool isASCII;
};

SearchedText searchedText(const PatternShape& shape, std::size_t length, bool isASCII) {
  constexpr std::uint64_t kBytesOfSearchInClass = 4;
  return {shape.hasClasses && !isASCII ? kBytesOfSearchInClass * length : length, isASCII};
}

// The bytes that one loop of the pattern, or a reference to groups of one name, goes through in a text, at most; no
// more than a figure that is far too many.
std::uint64_t bytesOfLoop(const PatternShape& shape, const SearchedText& text) {
  constexpr std::uint64_t kTooMany = std::uint64_t{1} << 40;
  const std::int32_t most = text.isASCII ? shape.powerInASCII : shape.power;
  std::uint64_t bytes = text.length;
  for (std::int32_t power = 1; power < most && bytes < kTooMany && text.length > 1; ++power) bytes *= text.length;
  return std::min(bytes * shape.namesakes, kTooMany);
}

// How many letters the pattern takes as long as in that text, each of its bytes once.
std::uint64_t lettersOf(const PatternShape& shape, std::size_t patternLength, const SearchedText& text) {
  return patternLength + (text.isASCII ? 0 : shape.lettersBeyondASCII);
}

// The retries that a plain search of a text may take: between two of them the engine goes through the text at
// most once for each loop, as often as counted quantifiers repeat it, and looks at each place as often.
std::uint64_t plainRetries(const PatternShape& shape, std::size_t patternLength, const SearchedText& text) {
  const std::uint64_t loops = std::min<std::uint64_t>(shape.loops, KorRegex::kMaximumPatternLength);
  const std::uint64_t once = lettersOf(shape, patternLength, text) + 1 + (loops > 0 ? bytesOfLoop(shape, text) : 0);
  const std::uint64_t times =
      std::max<std::uint64_t>(loops, 1) + kBytesOfPlace * shape.places + kBytesOfTurn * shape.turns;
  return kPlainSteps / std::min(kPlainSteps, once * times) / shape.repetitions;
}

// The most bytes of the pattern that the engine goes through between two retries, apart from its loops: each byte once,
// and places, turns and the longest row as often as quantifiers with a count and calls repeat them. No more than a
// figure that is far too many.
std::uint64_t bytesOfWayThrough(const PatternShape& shape, std::size_t patternLength) {
  constexpr std::uint64_t kTooMany = std::uint64_t{1} << 32;
  const std::uint64_t ofTurn = std::min(kBytesOfPlace * shape.places + shape.turns + shape.row, kTooMany);
  return patternLength + 1 + std::min(ofTurn * std::min(shape.repetitions, kTooMany), kTooMany);
}

// The retries that a search may always take at one place of a text; 0 where even one may take too long. A step
// that takes a power of the text's length, looks at many places or is repeated must be quick; one that goes through the
// text is, in all but huge ones.
std::uint64_t fewestRetriesAtOnePlace(const PatternShape& shape, std::size_t patternLength, const SearchedText& text) {
  const std::uint64_t once =
      bytesOfLoop(shape, text) * (1 + kBytesOfPlace * shape.places + kBytesOfTurn * shape.turns) +
      lettersOf(shape, patternLength, text) + 1;
  return std::min<std::uint64_t>(kBytesAtOnePlace / once / shape.repetitions, 1'000);
}

}  // namespace

void KorRegex::Free::operator()(re_pattern_buffer* compiled) const {
  onig_free(compiled);
}

KorRegex::KorRegex(Ref<NSString> pattern, const PatternShape& shape, std::uint64_t parts)
    : NSObject(kRegexKind, Counting::Atomic),
      pattern_(std::move(pattern)),
      shape_(shape),
      lineStart_(LineStart::of(pattern_->view())),
      parts_(parts),
      retriesInShortTexts_(
          std::min(plainRetries(shape, pattern_->view().size(), {kTinySubject, false}), kRetriesInTinySubject)),
      bytesOfPattern_(bytesOfWayThrough(shape, pattern_->view().size())) {
  const std::string_view text = pattern_->view();
  OnigErrorInfo information;
  re_pattern_buffer* compiled = nullptr;
  const int answer = compile(text, shape, syntaxOfPatterns(), compiled, information);
  compiled_.reset(compiled);
  if (answer == ONIG_NORMAL) return;
  OnigUChar reason[ONIG_MAX_ERROR_MESSAGE_LEN];
  const int length = onig_error_code_to_str(reason, answer, &information);
  raiseDoesNotCompile(text, {reinterpret_cast<const char*>(reason), static_cast<std::size_t>(std::max(length, 0))});
}

KorRegex::~KorRegex() {
  const Compiled watched(watched_.load(std::memory_order_acquire));
  if (watched != nullptr) bytesOfAllWatched.fetch_sub(bytesOfWatched(), std::memory_order_relaxed);
}

Ref<KorRegex> KorRegex::compileExpression(const Text& pattern) {
  std::uint64_t enough = std::numeric_limits<std::uint64_t>::max();
  return compileExpression(pattern, enough);
}

Ref<KorRegex> KorRegex::compileExpression(const Text& pattern, std::uint64_t& partsLeft) {
  constexpr std::uint64_t kPartsOfPattern = 4;
  constexpr std::uint64_t kPartsOfType = 4;
  constexpr std::uint64_t kPartsOfByteOfAnyCase = 2;
  constexpr std::uint64_t kVisitsOfPart = 64;
  if (pattern.isAbsent()) return {};
  requireValidUTF8(pattern.view());
  if (pattern.view().size() > kMaximumPatternLength) {
    raiseDoesNotCompile(pattern.view(), "it is longer than 65536 bytes");
  }
  const PatternShape shape = PatternShape::of(pattern.view());
  if (shape.depth > kMaximumGroupDepth) {
    raiseDoesNotCompile(pattern.view(), "its groups are nested deeper than 100");
  }
  if (shape.calls > kMaximumCalls) {
    raiseDoesNotCompile(pattern.view(), "it calls its groups more than 40 times");
  }
  if (shape.refersToLevels) {
    raiseDoesNotCompile(pattern.view(), "it refers back to a group at a level of calls");
  }
  if (shape.namesakes > kMaximumNamesakes) {
    raiseDoesNotCompile(pattern.view(), "it refers back by name, and more than 16 groups have one name");
  }
  if (shape.weight > kMaximumWeight) {
    raiseDoesNotCompile(pattern.view(),
                        "it has too many character classes, or groups with names and references to them, or is too "
                        "long to ignore case");
  }
  if (shape.visits > PatternShape::kVisitsCounted) {
    raiseDoesNotCompile(
        pattern.view(),
        "its groups call one another, look behind inside one another, or are conditions of conditions, too often, or "
        "it is too long for groups as deep as these");
  }
  const std::uint64_t parts = kPartsOfPattern + kPartsOfWeight * shape.weight + shape.loops +
                              kPartsOfType * shape.types + kPartsOfByteOfAnyCase * shape.bytesOfAnyCase +
                              shape.visits / kVisitsOfPart;
  if (parts > partsLeft) {
    raiseDoesNotCompile(pattern.view(), "the patterns together have too many character classes or loops");
  }
  partsLeft -= parts;
  requireStackFor(shape);
  initializeEngine();
  return Ref<KorRegex>::adopt(
      new KorRegex(NSString::stringWithValidUTF8(pattern.view(), Counting::Atomic), shape, parts));
}

std::uint64_t KorRegex::retriesForPlainSearch(std::size_t length, bool isASCII) const {
  const SearchedText text = searchedText(shape_, length, isASCII);
  return text.length <= kTinySubject ? retriesInShortTexts_ : plainRetries(shape_, pattern_->view().size(), text);
}

// The engine counts retries, but one retry may go through the whole text, or through a part of it as often as a
// quantifier counts. So the pattern as it stands may take as many retries as are quick in the worst case, which is
// nearly always enough; what takes more is searched again with the pattern that calls out, under a clock.
bool KorRegex::matchesString(const NSString& subject, std::uint64_t retries) const {
  const std::string_view text = subject.view();
  WorkMeter* const meter = WorkMeter::ofThread();
  if (meter != nullptr) meter->countBytes(text.size());
  if (lineStart_.has_value() && !lineStart_->mayMatch(text)) return false;
  if (meter != nullptr) meter->countBytes(bytesOfPattern_);
  checkStack();
  const std::uint64_t plain = std::min(retries, retriesForPlainSearch(text.size(), subject.isASCII()));
  if (plain >= std::min(retries, kFewestRetries)) {
    const int answer = countingRetries(plain, bytesOfPattern_, bytesOfRetry(text), [&](std::uint64_t most) {
      return search(compiled_.get(), text, SearchParameters({most, most}).get());
    });
    if (meter != nullptr) meter->look();
    const bool isSettled = !isOutOfRetries(answer) || (plain == retries && text.size() <= kShortSubject);
    if (isSettled) return position(answer, retries).has_value();
  }
  const bool isMatch = matchesWatched(text, retries);
  if (meter != nullptr) meter->look();
  return isMatch;
}

bool KorRegex::matchesWatched(std::string_view text, std::uint64_t retries) const {
  const Borrowed watched = this->watched();
  if (watched.pattern == nullptr) return matchesPlaceByPlace(text, retries);
  // A retry of a loop may go through all that stands up to the next one, where it calls out again.
  const std::uint64_t bound = std::min(retries, kBytesAtOnePlace / (shape_.row + 1));
  const MatchParameters parameters = makeParameters();
  setRetries(*parameters, {text.size() <= kShortSubject ? bound : 0, bound});
  Watch watch(pattern_->view().size(), bytesBetweenLooks(text), shape_.namesakes);
  onig_set_progress_callout_of_match_param(parameters.get(), &Watch::call);
  onig_set_callout_user_data_of_match_param(parameters.get(), &watch);
  const int answer = search(watched.pattern, text, parameters.get());
  watch.settle();
  if (isOutOfRetries(answer) && bound < retries) raiseSearchTime(retries);
  return position(answer, retries).has_value();
}

// What the pattern that calls out takes at most, in bytes.
std::size_t KorRegex::bytesOfWatched() const noexcept {
  constexpr std::size_t kLeast = 1024;
  constexpr std::size_t kBytesOfByte = 350;  // two calls for "()"
  constexpr std::size_t kBytesOfPart = 400;
  return kLeast + kBytesOfByte * pattern_->view().size() + kBytesOfPart * parts_;
}

KorRegex::Borrowed KorRegex::watched() const {
  // Compiling counts in each search, so that no step depends on what has stayed.
  if (WorkMeter* const meter = WorkMeter::ofThread()) meter->count(parts_ + pattern_->view().size() / kBytesOfPlace);
  if (const re_pattern_buffer* stays = watched_.load(std::memory_order_acquire)) return {stays};
  const std::optional<std::string> pattern = watchedPattern(pattern_->view());
  if (!pattern.has_value()) return {};
  requireStackFor(shape_);
  OnigErrorInfo information;
  re_pattern_buffer* buffer = nullptr;
  (void)compile(*pattern, shape_, *ONIG_SYNTAX_ONIGURUMA, buffer, information);
  Compiled compiled(buffer);
  if (compiled == nullptr || !mayStay(bytesOfWatched())) return {buffer, std::move(compiled)};
  re_pattern_buffer* stays = nullptr;
  if (watched_.compare_exchange_strong(stays, buffer, std::memory_order_acq_rel)) return {compiled.release()};
  bytesOfAllWatched.fetch_sub(bytesOfWatched(), std::memory_order_relaxed);  // another thread was first
  return {stays};
}

// The search with a pattern that cannot be made to call out: the clock is looked at between places only, and at one
// place the pattern may take as many retries as are quick in the worst case, or a thousand while those go through the
// text in some tenths of a second; what takes more counts as too long. Where the pattern asks for the place where the
// search began, the whole search is as one place.
bool KorRegex::matchesPlaceByPlace(std::string_view text, std::uint64_t retries) const {
  const bool isASCII = endOfASCII(text, 0) == text.size();
  const std::uint64_t fewest =
      fewestRetriesAtOnePlace(shape_, pattern_->view().size(), searchedText(shape_, text.size(), isASCII));
  if (fewest == 0) raiseSearchTime(retries);
  const std::uint64_t bound = std::min(retries, std::max(retriesForPlainSearch(text.size(), isASCII), fewest));
  const auto matches = [&](int answer) {
    if (isOutOfRetries(answer) && bound < retries) raiseSearchTime(retries);
    return position(answer, retries).has_value();
  };
  if (pattern_->view().find("\\G") != std::string_view::npos) {
    return matches(countingRetries(bound, bytesOfPattern_, bytesOfRetry(text), [&](std::uint64_t most) {
      return search(compiled_.get(), text, SearchParameters({most, most}).get());
    }));
  }
  Watch watch(pattern_->view().size(), bytesBetweenLooks(text));
  // With a loop in the pattern each retry may go through all that is left.
  const std::uint64_t timesAtOnePlace =
      std::max((std::max<std::uint64_t>(shape_.loops, 1) + kBytesOfPlace * shape_.places) * shape_.repetitions,
               shape_.loops > 0 ? bound : 0);
  const std::uint64_t bytesOfRetries = bound * shape_.row;
  const OnigUChar* end = bytes(text) + text.size();
  for (std::size_t at = 0; at <= text.size(); ++at) {
    if (at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80) continue;  // inside a character
    // What is repeated takes time at each place, of which the clock must hear; as work it counts once.
    const std::size_t left = text.size() - at;
    const std::uint64_t times = std::max(timesAtOnePlace, bytesOfRetries / (left + 1));
    if (watch.isOver(static_cast<std::ptrdiff_t>(left), times)) {
      watch.settle();
      raiseSearchTime(retries);
    }
    if (matches(countingRetries(bound, bytesOfPattern_, bytesOfRetry(text), [&](std::uint64_t most) {
          return onig_match_with_param(compiled_.get(), bytes(text), end, bytes(text) + at, nullptr, ONIG_OPTION_NONE,
                                       SearchParameters({0, most}).get());
        }))) {
      return true;
    }
  }
  watch.settle();
  return false;
}

std::optional<std::size_t> KorRegex::matchEnd(std::string_view text, std::size_t offset) const {
  constexpr std::uint64_t kRetries = KorTemplateLimits{}.regexRetries;
  const int answer =
      onig_match_with_param(compiled_.get(), bytes(text), bytes(text) + text.size(), bytes(text) + offset, nullptr,
                            ONIG_OPTION_NONE, SearchParameters({kRetries, kRetries}).get());
  const std::optional<std::size_t> length = position(answer, kRetries);
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
