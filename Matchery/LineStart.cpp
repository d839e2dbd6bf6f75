#include "Matchery/LineStart.h"

#include "Foundation/Utf8.h"

namespace tavlo {

// Reads as much of the pattern as it takes to know that the whole of it stands behind one "^", and what comes next. It
// gives up at whatever it does not know.
class LineStart::Reader {
 public:
  explicit Reader(std::string_view pattern) : pattern_(pattern) {}

  std::optional<LineStart> read() {
    if (!take('^') || hasUnknownParts() || !readAtom()) return {};
    skipToAlternative();
    const bool mayStopAtClass = isAt('[') && pattern_.find('|', at_) == std::string_view::npos;
    if (at_ < pattern_.size() && !mayStopAtClass) return {};
    return result_;
  }

 private:
  bool isAt(char letter) const { return at_ < pattern_.size() && pattern_[at_] == letter; }
  bool isAtOneOf(std::string_view letters) const {
    return at_ < pattern_.size() && letters.find(pattern_[at_]) != std::string_view::npos;
  }
  bool take(char letter) {
    if (!isAt(letter)) return false;
    ++at_;
    return true;
  }

  // Options, looks around, callouts, quotes, control characters: what changes the meaning of what stands beside it.
  bool hasUnknownParts() const {
    for (std::size_t at = 0; at + 1 < pattern_.size(); ++at) {
      const std::string_view rest = pattern_.substr(at);
      for (const std::string_view part : {"(*", "\\Q", "\\c", "\\C", "\\M"}) {
        if (rest.starts_with(part)) return true;
      }
      if (rest.starts_with("(?") && !rest.starts_with("(?:")) return true;
    }
    return false;
  }

  // Takes what an alternative begins with; false for what may be empty.
  bool readAtom() {
    if (take('(')) {
      if (!readGroup()) return false;
    } else if (take('\\')) {
      if (!readEscape()) return false;
    } else if (at_ == pattern_.size() || isAtOneOf("^$.[]()|?*+{}")) {
      return false;
    } else {
      add(pattern_[at_]);
      at_ += codePointAt(pattern_, at_).byteLength;
    }
    if (take('+') && isAtOneOf("?*+{")) return false;
    return !isAtOneOf("?*{");
  }

  bool readGroup() {
    if (take('?')) (void)take(':');
    do {
      if (!readAtom()) return false;
      skipToAlternative();
    } while (take('|'));
    return take(')');
  }

  bool readEscape() {
    if (take('d')) {
      for (char digit = '0'; digit <= '9'; ++digit) add(digit);
      for (unsigned byte = 0x80; byte < result_.firstBytes_.size(); ++byte) result_.firstBytes_.set(byte);
      return true;
    }
    if (!isAtOneOf("^$.[]()|?*+{}\\/-")) return false;
    add(pattern_[at_++]);
    return true;
  }

  void add(char byte) { result_.firstBytes_.set(static_cast<unsigned char>(byte)); }

  // Goes on to the "|" or ")" that ends the alternative, or to a class, in which these stand for themselves, or to the
  // end.
  void skipToAlternative() {
    for (int depth = 0; at_ < pattern_.size() && !isAt('['); ++at_) {
      if (isAt('\\')) {
        ++at_;
      } else if (isAt('(')) {
        ++depth;
      } else if (isAt('|') || isAt(')')) {
        if (depth == 0) return;
        if (isAt(')')) --depth;
      }
    }
  }

  std::string_view pattern_;
  std::size_t at_ = 0;
  LineStart result_;
};

std::optional<LineStart> LineStart::of(std::string_view pattern) {
  return Reader(pattern).read();
}

}  // namespace tavlo
