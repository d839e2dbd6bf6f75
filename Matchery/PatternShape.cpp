#include "Matchery/PatternShape.h"

#include <algorithm>
#include <vector>

namespace tavlo {

namespace {

bool isDigit(char letter) {
  return letter >= '0' && letter <= '9';
}

bool isLetter(char letter) {
  return (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z');
}

// One pass over the pattern. Where a "#" may begin a comment of extended mode, nobody knows what is hidden: nothing
// closes there, and every quantifier counts as one more.
class ShapeReader {
 public:
  explicit ShapeReader(std::string_view pattern)
      : pattern_(pattern),
        isExtended_(hasExtendedMode(pattern)),
        mayHide_(isExtended_ && pattern.find('#') != std::string_view::npos) {}

  PatternShape read() {
    for (; at_ < pattern_.size() && shape_.depth <= PatternShape::kCounted; ++at_) step();
    return shape_;
  }

 private:
  // A group that is not closed yet, or the whole pattern.
  struct Level {
    std::int32_t opened;   // the levels it opens itself, with the option groups in it
    std::int32_t tallest;  // of what it has held so far
  };

  static bool hasExtendedMode(std::string_view pattern) {
    for (std::size_t at = pattern.find("(?"); at != std::string_view::npos; at = pattern.find("(?", at + 1)) {
      const std::string_view options = pattern.substr(at + 2, pattern.find_first_of(":)(", at + 2) - at - 2);
      if (options.find('x') != std::string_view::npos) return true;
    }
    return false;
  }

  bool isAt(std::string_view text) const { return pattern_.substr(at_).starts_with(text); }

  void step() {
    const char letter = pattern_[at_];
    if (letter == '\\') {
      stepOverEscape();
    } else if (letter == '[') {
      openClass();
    } else if (classes_ > 0) {
      if (letter == ']' && --classes_ == 0) endAtom(0);
    } else {
      stepOutsideClasses(letter);
    }
  }

  void stepOverEscape() {
    if (++at_ >= pattern_.size() || classes_ > 0) return;
    const char letter = pattern_[at_];
    if (letter == 'g') {
      ++shape_.calls;
      shape_.depthOfCalls += depth_ + 1;
    }
    if (letter == 'g' || letter == 'k' || isDigit(letter)) ++shape_.loops;
    endAtom(0);
  }

  void stepOutsideClasses(char letter) {
    if (isAt("(?#") && !mayHide_) {
      skipComment();
    } else if (letter == '(') {
      openGroup();
    } else if (letter == ')') {
      closeGroup();
    } else if (letter == '*' || letter == '+' || letter == '?') {
      stepOverLoop();
    } else if (letter == '{' && stepOverInterval()) {
      addQuantifier();
    } else if (!isExtended_ || (letter != ' ' && (letter < '\t' || letter > '\r'))) {
      if (letter == '|') ++shape_.loops;
      endAtom(0);
    }
  }

  void openClass() {
    if (mayHide_) {
      ++depth_;
      noteDepth(0);
      return;
    }
    ++classes_;
    shape_.depth = std::max(shape_.depth, classes_);
    noteDepth(classes_ - 1);
    if (at_ + 1 < pattern_.size() && pattern_[at_ + 1] == '^') ++at_;
    if (at_ + 1 < pattern_.size() && pattern_[at_ + 1] == ']') ++at_;  // stands for itself there
  }

  void skipComment() {
    while (at_ + 1 < pattern_.size() && pattern_[at_] != ')') at_ += pattern_[at_] == '\\' ? 2 : 1;
  }

  void openGroup() {
    ++shape_.loops;
    endAtom(0);
    if (isOptionsAlone()) {
      // The rest of the group around it becomes its content.
      at_ = pattern_.find(')', at_);
      ++levels_.back().opened;
      ++depth_;
      noteDepth(0);
      return;
    }
    // The engine builds an absent operator of several nodes, one inside the other.
    const std::int32_t opened = isAt("(?~") ? 6 : 1;
    levels_.push_back({opened, 0});
    depth_ += opened;
    noteDepth(0);
  }

  bool isOptionsAlone() const {
    std::size_t at = at_ + 1;
    if (at >= pattern_.size() || pattern_[at] != '?') return false;
    for (++at; at < pattern_.size(); ++at) {
      const char letter = pattern_[at];
      if (!isLetter(letter) && letter != '-' && letter != '{' && letter != '}') return letter == ')';
    }
    return false;
  }

  void closeGroup() {
    if (levels_.size() == 1 || mayHide_) return;
    const Level closed = levels_.back();
    levels_.pop_back();
    depth_ -= closed.opened;
    endAtom(closed.opened + closed.tallest);
  }

  // Past the quantifier's own "?" or "+".
  void stepOverLoop() {
    ++shape_.loops;
    addQuantifier();
    if (at_ + 1 < pattern_.size() && (pattern_[at_ + 1] == '?' || pattern_[at_ + 1] == '+')) ++at_;
  }

  // Whether "{2}", "{2,}", "{,2}" or "{2,3}" stands there; then past it.
  bool stepOverInterval() {
    std::size_t at = at_ + 1;
    std::uint64_t largest = 1;
    std::uint64_t number = 0;
    for (; at < pattern_.size() && (isDigit(pattern_[at]) || pattern_[at] == ','); ++at) {
      number = pattern_[at] == ',' ? 0 : std::min<std::uint64_t>(number * 10 + (pattern_[at] - '0'), 1'000'000);
      largest = std::max(largest, number);
    }
    if (at >= pattern_.size() || pattern_[at] != '}') return false;
    ++shape_.loops;
    // One character is repeated as often as the text is long; what may be empty is repeated as often as it says.
    const char before = at_ > 0 ? pattern_[at_ - 1] : ' ';
    if (!isLetter(before) && before != ']' && before != '.') {
      shape_.repetitions = std::min<std::uint64_t>(shape_.repetitions * largest, std::uint64_t{1} << 40);
    }
    at_ = at;
    return true;
  }

  // The first quantifier of an atom lies no deeper than the atom; those that follow it directly do.
  void addQuantifier() {
    if (quantifiers_++ > 0) ++height_;
    keepHeight();
  }

  void endAtom(std::int32_t height) {
    if (mayHide_) return;
    quantifiers_ = 0;
    height_ = height;
    keepHeight();
  }

  void keepHeight() {
    levels_.back().tallest = std::max(levels_.back().tallest, height_);
    noteDepth(height_);
  }

  void noteDepth(std::int32_t below) { shape_.depth = std::max(shape_.depth, depth_ + below); }

  std::string_view pattern_;
  bool isExtended_;
  bool mayHide_;
  std::size_t at_ = 0;
  std::int32_t depth_ = 0;
  std::int32_t classes_ = 0;
  std::int32_t quantifiers_ = 0;  // since the last atom
  std::int32_t height_ = 0;       // of the last atom with them
  std::vector<Level> levels_{{0, 0}};
  PatternShape shape_;
};

}  // namespace

PatternShape PatternShape::of(std::string_view pattern) {
  return ShapeReader(pattern).read();
}

}  // namespace tavlo
