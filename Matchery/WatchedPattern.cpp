#include "Matchery/WatchedPattern.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "Matchery/POSIXBracket.h"

namespace tavlo {

namespace {

constexpr std::string_view kCall = "(?{t})";
constexpr std::string_view kDigits = "0123456789";
constexpr std::string_view kHexDigits = "0123456789abcdefABCDEF";
constexpr std::size_t kNone = std::string_view::npos;

class Watcher {
 public:
  // The pattern must be one that compiles.
  explicit Watcher(std::string_view pattern)
      : pattern_(pattern), hasCalls_(pattern.find("\\g") != std::string_view::npos) {}

  std::optional<std::string> watched() {
    out_ = kCall;
    while (at_ < pattern_.size()) {
      const std::size_t size = step();
      if (size == kNone || size > pattern_.size() - at_) return {};
      out_.append(pattern_.substr(at_, size));
      at_ += size;
      out_.append(after_);
      after_ = {};
    }
    return std::move(out_);
  }

 private:
  char letterAt(std::size_t at) const { return at < pattern_.size() ? pattern_[at] : '\0'; }

  // The size of the next part, or none where it is not known. What goes before it is written.
  std::size_t step() {
    switch (pattern_[at_]) {
      case '(':
        return groupStart();
      case ')':
        fillEmptyAlternative();
        if (isQuantified(at_ + 1) || hasCalls_) out_.append(kCall);
        if (depth_-- == lookBehind_) lookBehind_ = 0;
        return 1;
      case '|':
        fillEmptyAlternative();
        return opening(1);
      case '*':
      case '+':
      case '?':
        return quantifier(letterAt(at_ + 1) == '?' || letterAt(at_ + 1) == '+' ? 2 : 1, lookBehind_ == 0);
      case '{':
        return interval(intervalAt(at_));
      case '\\':
        return escape();
      case '[':
        return atom(classSize());
      default:
        return atom(characterSize());
    }
  }

  bool isQuantified(std::size_t at) const {
    const char letter = letterAt(at);
    return letter == '*' || letter == '+' || letter == '?' || (letter == '{' && intervalAt(at).size > 0);
  }

  std::size_t atom(std::size_t size) {
    if (size != kNone && isQuantified(at_ + size)) out_.append(kCall);
    return size;
  }

  std::size_t characterSize() const {
    std::size_t end = at_ + 1;
    while ((static_cast<unsigned char>(letterAt(end)) & 0xC0) == 0x80) ++end;
    return end - at_;
  }

  // "{2}", "{2,}", "{,2}" or "{2,3}"; the size is 0 where none stands there.
  struct Interval {
    std::size_t size = 0;
    bool isFixed = false;  // "{2}" or "{2,2}"
    bool isOnce = false;   // "{1}"
  };

  Interval intervalAt(std::size_t at) const {
    const std::size_t end = pattern_.find_first_not_of("0123456789,", at + 1);
    if (end == kNone || pattern_[end] != '}') return {};
    const std::string_view inside = pattern_.substr(at + 1, end - at - 1);
    const std::size_t comma = inside.find(',');
    const std::string_view least = withoutZeros(inside.substr(0, comma));
    const bool isFixed = comma == kNone || withoutZeros(inside.substr(comma + 1)) == least;
    return {end + 1 - at, isFixed, isFixed && least.size() < 2 && least <= "1"};
  }

  static std::string_view withoutZeros(std::string_view digits) {
    return digits.substr(std::min(digits.find_first_not_of('0'), digits.size()));
  }

  // None for "{1}", which the engine drops so that what stands before and behind it are one; for "{2}?", which means
  // another thing behind letters than behind a call; and where a loop in a look-behind has no end of its own: there the
  // engine drops some, and takes the place for the end of the text in others.
  std::size_t interval(const Interval& interval) {
    if (interval.size == 0) return atom(1);
    const bool isLazy = letterAt(at_ + interval.size) == '?';
    const bool isKnown = !interval.isOnce && !(interval.isFixed && isLazy) && (interval.isFixed || lookBehind_ == 0);
    return quantifier(interval.size + (isLazy ? 1 : 0), isKnown);
  }

  // None where another quantifier follows, too: the engine goes through the inner loop without a call between.
  std::size_t quantifier(std::size_t size, bool isKnown) const {
    return isKnown && !isQuantified(at_ + size) ? size : kNone;
  }

  // From `at` to behind the next `last`.
  std::size_t sizeTo(char last, std::size_t at) const {
    const std::size_t end = pattern_.find(last, at);
    return end == kNone ? kNone : end + 1 - at_;
  }

  std::size_t sizeOver(std::string_view letters, std::size_t at) const {
    const std::size_t end = pattern_.find_first_not_of(letters, at);
    return std::min(end, pattern_.size()) - at_;
  }

  // To behind a name in "<>" or "''" that begins at `at`.
  std::size_t sizeOverName(std::size_t at) const {
    if (letterAt(at) == '<') return sizeTo('>', at + 1);
    return letterAt(at) == '\'' ? sizeTo('\'', at + 1) : kNone;
  }

  std::size_t escape() {
    const char letter = letterAt(at_ + 1);
    const char next = letterAt(at_ + 2);
    if (std::string_view("pPxo").find(letter) != kNone && next == '{') return atom(sizeTo('}', at_));
    if (letter == 'x' || letter == 'u') return atom(sizeOver(kHexDigits, at_ + 2));
    // The engine mistakes some loops over "\R", other ones when it calls out between them; which characters belong
    // together it finds by going back over the text, without a call.
    if (std::string_view("cCMQRyYX").find(letter) != kNone) return kNone;
    // Behind such a place and a call the engine takes ".*" for one that begins at the start of a line only.
    if (std::string_view("bBGK").find(letter) != kNone && next == '.' && isQuantified(at_ + 3)) return kNone;
    if (letter == 'k') return reference(sizeOverName(at_ + 2));
    if (letter == 'g') return atom(sizeOverName(at_ + 2));
    if (kDigits.find(letter) != kNone) return digits();
    ++at_;  // what is escaped may take several bytes
    const std::size_t size = characterSize();
    --at_;
    return atom(size + 1);
  }

  // Digits behind a backslash: a reference to a group, or an octal number of up to three digits where there cannot be
  // so many groups; none where that is open.
  std::size_t digits() {
    constexpr std::size_t kMostOctalDigits = 3;
    const std::size_t size = sizeOver(kDigits, at_ + 1);
    const std::size_t octalDigits = std::min(sizeOver("01234567", at_ + 1) - 1, kMostOctalDigits);
    if (letterAt(at_ + 1) == '0') return atom(1 + octalDigits);
    if (size == 2) return reference(size);
    std::size_t number = 0;
    for (std::size_t at = at_ + 1; at < at_ + size && number <= pattern_.size(); ++at) {
      number = number * 10 + static_cast<std::size_t>(pattern_[at] - '0');
    }
    return number > groups_ && octalDigits > 0 ? atom(1 + octalDigits) : kNone;
  }

  // What it refers to may be empty: then only its own count ends the loop over it.
  std::size_t reference(std::size_t size) {
    if (size == kNone) return size;
    if (isQuantified(at_ + size)) {
      out_.append("(?:");
      after_ = ")";
    }
    out_.append(kCall);
    return size;
  }

  // None where an escape may take another bracket with it, or "[:" stands for itself: the engine's own ways to find the
  // end of such a class are not followed here.
  std::size_t classSize() const {
    std::size_t depth = 0;
    for (std::size_t at = at_; at < pattern_.size();) {
      const std::size_t size = sizeInClass(at, depth);
      if (size == kNone) return kNone;
      at += size;
      if (depth == 0) return at - at_;
    }
    return kNone;
  }

  // The size of the next part of a class, or none; `depth` counts the classes that are open behind it.
  std::size_t sizeInClass(std::size_t at, std::size_t& depth) const {
    const char letter = pattern_[at];
    const char next = letterAt(at + 1);
    if (letter == '\\') return std::string_view("cCM").find(next) != kNone ? kNone : 2;
    if (letter == ']') --depth;
    if (letter != '[') return 1;
    if (next == ':' && depth > 0) {
      const std::size_t size = sizeOfPOSIXBracket(pattern_.substr(at));
      return size > 0 ? size : kNone;
    }
    ++depth;
    const std::size_t size = next == '^' ? 2 : 1;
    return letterAt(at + size) == ']' ? size + 1 : size;  // stands for itself there
  }

  std::size_t groupStart() {
    const char second = letterAt(at_ + 1);
    if (second == '*') return kNone;
    if (second != '?') return opening(1);
    const char third = letterAt(at_ + 2);
    const char fourth = letterAt(at_ + 3);
    if (std::string_view(":=!>").find(third) != kNone) return opening(3);
    if (third == '<' && (fourth == '=' || fourth == '!')) {
      if (lookBehind_ == 0) lookBehind_ = depth_ + 1;
      return opening(4);
    }
    if (third == '<') return opening(sizeTo('>', at_));
    if (third == '\'') return opening(sizeTo('\'', at_ + 3));
    const std::size_t end = pattern_.find_first_not_of("imWDSP-", at_ + 2);
    const char last = end == kNone ? '\0' : pattern_[end];
    if (last == ')') return end + 1 - at_;
    return last == ':' ? opening(end + 1 - at_) : kNone;
  }

  std::size_t opening(std::size_t size) {
    after_ = kCall;
    if (size != kNone) alternative_ = at_ + size;
    if (pattern_[at_] == '(') ++depth_;
    return size;
  }

  // A group whose alternative is nothing but a call may not be repeated.
  void fillEmptyAlternative() {
    if (at_ == alternative_) out_.append("(?:)");
  }

  std::string_view pattern_;
  std::size_t groups_ = static_cast<std::size_t>(std::ranges::count(pattern_, '('));  // at most
  bool hasCalls_;
  std::size_t at_ = 0;
  std::size_t alternative_ = 0;  // where the last one began
  std::size_t depth_ = 0;        // of the groups that are open
  std::size_t lookBehind_ = 0;   // the depth of the outermost that looks behind, 0 where none does
  std::string_view after_;       // what goes behind the next part
  std::string out_;
};

}  // namespace

std::optional<std::string> watchedPattern(std::string_view pattern) {
  return Watcher(pattern).watched();
}

}  // namespace tavlo
