#include "Matchery/PatternShape.h"

#include <algorithm>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Foundation/Utf8.h"
#include "Matchery/POSIXBracket.h"

namespace tavlo {

namespace {

bool isDigit(char letter) {
  return letter >= '0' && letter <= '9';
}

bool isLetter(char letter) {
  return (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z');
}

// A group that can be called.
struct CalledGroup {
  std::uint64_t visits = 0;   // of bytes in it, when it is gone through once
  std::size_t firstCall = 0;  // in it
  std::size_t endOfCalls = 0;
};

struct GroupCall {
  std::size_t target;    // the place of the group; beyond all groups for the whole pattern
  std::uint64_t factor;  // how often what is there is gone through
};

// Follows the calls as the engine's compiler does: into the called group each time anew, but not where that is being
// followed already.
class CallWalk {
 public:
  CallWalk(const std::vector<CalledGroup>& groups, const std::vector<GroupCall>& calls)
      : groups_(groups), calls_(calls), isOpen_(groups.size()) {}

  // Of all that the last group, which is the whole pattern, leads to.
  std::uint64_t visits() {
    follow(groups_.size() - 1, 1);
    return visits_;
  }

 private:
  void follow(std::size_t index, std::uint64_t factor) {
    constexpr std::uint64_t kOfGroup = 16;
    if (isOpen_[index] || visits_ > PatternShape::kVisitsCounted) return;
    isOpen_[index] = true;
    const CalledGroup& group = groups_[index];
    visits_ += (group.visits + kOfGroup) * factor;
    for (std::size_t call = group.firstCall; call < group.endOfCalls; ++call) {
      follow(std::min(calls_[call].target, groups_.size() - 1), factor * calls_[call].factor);
    }
    isOpen_[index] = false;
  }

  const std::vector<CalledGroup>& groups_;
  const std::vector<GroupCall>& calls_;
  std::vector<bool> isOpen_;
  std::uint64_t visits_ = 0;
};

// One pass over the pattern.
class ShapeReader {
 public:
  explicit ShapeReader(std::string_view pattern) : pattern_(pattern) {}

  PatternShape read() {
    while (at_ < pattern_.size() && shape_.depth <= PatternShape::kCounted) {
      const std::size_t from = at_;
      step();
      visit(std::min(++at_, pattern_.size()) - from);
    }
    visitAlternatives(levels_.front());
    shape_.weight = weight();
    shape_.hasClasses = shape_.types + sets_ + openedClasses_ > 0 || ignoresCase_;
    if (ignoresCase_) {
      shape_.bytesOfAnyCase = pattern_.size();
      shape_.lettersBeyondASCII += (kLettersOfAnyCase - 1) * pattern_.size();
    }
    shape_.visits = visits();
    if (refersByName_) {
      for (const auto& [name, groups] : groupsOfNames_) shape_.namesakes = std::max(shape_.namesakes, groups.count);
    }
    // Groups that call the next one several times run it as often as that multiplies: most often where each does so
    // three times.
    for (std::int32_t calls = shape_.calls; calls > 0; calls -= 3) repeat(3);
    if (shape_.calls > 0) noteTurns(levels_.front().places, shape_.loops);
    // What is looked at inside a group that calls itself lies inside itself.
    if (shape_.power > 1) shape_.power += shape_.calls;
    if (shape_.powerInASCII > 1) shape_.powerInASCII += shape_.calls;
    return shape_;
  }

 private:
  static constexpr std::size_t kNoGroup = std::string_view::npos;
  // That take as long as one of it.
  static constexpr std::uint64_t kLettersOfClass = 4;
  static constexpr std::uint64_t kLettersOfAnyCase = 4;
  static constexpr std::uint64_t kLettersOfWordEdge = 12;
  static constexpr std::uint64_t kBytesOfVisit = 2;  // where the engine's compiler asks how long something is

  // A group that is not closed yet, or the whole pattern.
  struct Level {
    std::int32_t opened = 0;   // the levels it opens itself, with the option groups in it
    std::int32_t tallest = 0;  // of what it has held so far
    bool isExtended = false;   // white space and comments do not count
    bool looksAround = false;  // what it holds is looked at from every place anew
    bool looksBehind = false;
    bool isCondition = false;
    bool hasCondition = false;
    std::uint64_t places = 0;      // such as "\b" in it
    std::uint64_t from = 0;        // in bytes, with what is written more than once
    std::uint64_t loops = 0;       // before it
    std::uint64_t row = 0;         // before it, since a quantifier
    std::uint64_t longestRow = 0;  // at the end of its alternatives so far
    std::size_t group = kNoGroup;  // that can be called
    std::uint64_t types = 0;       // before it, as the next
    std::uint64_t sets = 0;
    bool hasAlternatives = false;    // since options that stand alone
    std::uint64_t alternations = 0;  // one inside the other, behind such options
  };

  // A call, with what it says where it stands.
  struct NamedCall {
    std::string_view name;
    std::size_t groupsBefore;
    std::uint64_t factor;
  };

  // What groups with one name have in common.
  struct Namesakes {
    std::uint32_t count = 0;
    std::size_t last = 0;  // the place of the last of them
  };

  // What the options at the start of a group say.
  struct Options {
    bool isExtended;
    bool standAlone;  // "(?x)", not "(?x:"
  };

  std::uint64_t weight() const {
    constexpr std::uint64_t kOfAnyCase = 4;
    constexpr std::uint64_t kBytesOfAnyCase = 32;
    constexpr std::uint64_t kPlainClasses = 32;  // cost no more than one property
    constexpr std::uint64_t kBytesOfClass = 512;
    constexpr std::uint64_t kGroupsOfName = 4096;
    constexpr std::uint64_t kBytesLookedAt = 8192;
    constexpr std::uint64_t kPairsOfNames = 20'000;
    constexpr std::uint64_t kPairsOfRanges = std::uint64_t{128} * 1024;
    const std::uint64_t others = bytesAroundClasses_ / kBytesOfClass + references_ * namedGroups_ / kGroupsOfName +
                                 namedGroups_ * namedGroups_ / kPairsOfNames + bytesBehindBrackets_ / kBytesLookedAt +
                                 comparedRanges_ / kPairsOfRanges;
    if (!ignoresCase_) return others + sets_ + openedClasses_ / kPlainClasses;
    return others + kOfAnyCase * (sets_ + openedClasses_) + pattern_.size() / kBytesOfAnyCase;
  }

  // A condition is gone through twice. What looks behind is again for each group around it that does, and that as well.
  std::uint64_t timesInConditions() const {
    constexpr std::uint64_t kMany = 24;
    return std::uint64_t{1} << std::min(conditions_, kMany);
  }
  std::uint64_t timesHere() const { return (1 + lookBehinds_ * lookBehinds_) * timesInConditions(); }

  void visit(std::uint64_t bytes) { visits_ += bytes * timesHere(); }

  std::uint64_t visits() {
    constexpr std::int32_t kFew = 100;  // more are refused, whatever they visit
    if (calls_.empty() || shape_.calls > kFew) return visits_;
    std::vector<GroupCall> calls;
    for (const NamedCall& call : calls_) calls.push_back({targetOf(call), call.factor});
    groups_.push_back({visits_, 0, calls.size()});
    return CallWalk(groups_, calls).visits();
  }

  // The place of the group that is called; that behind all groups where there is none.
  std::size_t targetOf(const NamedCall& call) const {
    const auto named = groupsOfNames_.find(call.name);
    if (named != groupsOfNames_.end()) return named->second.last;
    std::size_t number = 0;
    for (const char letter : call.name) {
      if (isDigit(letter)) number = std::min(number * 10 + static_cast<std::size_t>(letter - '0'), pattern_.size());
    }
    if (call.name.starts_with('-')) return number <= call.groupsBefore ? call.groupsBefore - number : groups_.size();
    if (call.name.starts_with('+')) return call.groupsBefore + number - 1;
    return number == 0 ? groups_.size() : number - 1;
  }

  void closeCallable(std::size_t index) {
    CalledGroup& group = groups_[index];
    group.visits = visits_ - group.visits;
    group.endOfCalls = calls_.size();
  }

  void noteLook() {
    ++looks_;
    shape_.power = std::max(shape_.power, 1 + looks_);
    shape_.powerInASCII = std::max(shape_.powerInASCII, 1 + looks_);
  }
  void noteJoined() { shape_.power = std::max(shape_.power, 2 + looks_); }

  void repeat(std::uint64_t times) {
    shape_.repetitions = std::min<std::uint64_t>(shape_.repetitions * times, std::uint64_t{1} << 40);
  }

  void noteTurns(std::uint64_t places, std::uint64_t loops) {
    constexpr std::uint64_t kMost = std::uint64_t{1} << 20;
    shape_.places = std::min(shape_.places + places, kMost);
    shape_.turns = std::min(shape_.turns + loops, kMost);
  }

  bool isAt(std::string_view text) const { return pattern_.substr(at_).starts_with(text); }

  void step() {
    const char letter = pattern_[at_];
    if (letter == '\\') {
      stepOverEscape();
    } else if (letter == '[' && classes_ > 0 && isAt("[:")) {
      stepOverPOSIXBracket();
    } else if (letter == '[') {
      openClass();
    } else if (classes_ > 0) {
      stepInClass(letter);
    } else {
      stepOutsideClasses(letter);
    }
  }

  void stepInClass(char letter) {
    if (!isContinuation(letter)) ++charactersOfClass_;
    if (!isContinuation(letter)) ++charactersOfClass_;
    if (isAt("&&")) {
      intersect();
      intersectedSets_ = ++sets_;
    }
    if (letter != ']') return;
    if (intersectedRanges_ > 0) intersect();
    if (--classes_ > 0) return;
    row_ += kLettersOfClass - 1;
    endAtom(0);
  }

  // The engine compares each range of what stands before "&&" with each behind it, up to the next one or the class's
  // end.
  void intersect() {
    constexpr std::uint64_t kRangesOfSet = 700;
    const std::uint64_t ranges =
        std::exchange(charactersOfClass_, 0) + kRangesOfSet * (sets_ - std::exchange(intersectedSets_, sets_));
    comparedRanges_ += intersectedRanges_ * ranges;
    intersectedRanges_ += ranges;
  }

  void stepOverEscape() {
    if (++at_ >= pattern_.size()) return;
    const char letter = pattern_[at_];
    constexpr std::string_view kTypes = "wWdDsShHR";
    const bool isType = kTypes.find(letter) != kTypes.npos;
    if (letter == 'p' || letter == 'P' || (classes_ > 0 && isType)) ++sets_;
    ++charactersOfClass_;
    stepOverControl();
    if ((letter == 'p' || letter == 'P') && pattern_.substr(at_ + 1).starts_with('{')) {
      at_ = std::min(pattern_.find('}', at_), pattern_.size());  // past the property's name
    }
    if (classes_ > 0) return;
    noteEscape(letter, isType);
    endAtom(0);
  }

  // Something that may take as many steps as the text has characters.
  void noteLoop() {
    ++shape_.loops;
    shape_.goesThroughText = true;
  }

  // An escape that takes as long as so many letters.
  void noteLetters(std::uint64_t letters) {
    constexpr std::uint64_t kBytesOfEscape = 2;
    row_ += letters - 1;
    shape_.lettersBeyondASCII += letters - kBytesOfEscape;
  }

  void noteEscape(char letter, bool isType) {
    constexpr std::string_view kPlaces = "bBAzZGK";
    constexpr std::uint64_t kPartsOfJoined = 64;
    if (isType || letter == 'p' || letter == 'P') noteLetters(kLettersOfClass);
    if (letter == 'b' || letter == 'B') noteLetters(kLettersOfWordEdge);
    if (isType) ++shape_.types;
    if (kPlaces.find(letter) != kPlaces.npos) ++levels_.back().places;
    if (letter == 'g' || letter == 'k' || isDigit(letter)) {
      noteLoop();
      levels_.back().places += 2;
    }
    if (letter == 'y' || letter == 'Y' || letter == 'X') {
      noteLoop();
      noteJoined();
    }
    if (letter == 'X' || letter == 'R') visit(kPartsOfJoined);
    if (letter == 'g') stepOverCall();
    if (letter == 'k') {
      noteReference();
      stepOverName(at_ + 1);
    }
  }

  void stepOverCall() {
    ++shape_.calls;
    shape_.depthOfCalls += depth_ + 1;
    const std::size_t name = at_ + 2;
    stepOverName(at_ + 1);
    if (name <= at_) calls_.push_back({pattern_.substr(name, at_ - name), groups_.size(), timesHere()});
  }

  // Past a name in "<>" or "''" that begins at `at`, if one does there: it may hold whatever means something elsewhere.
  void stepOverName(std::size_t at) {
    if (at >= pattern_.size() || (pattern_[at] != '<' && pattern_[at] != '\'')) return;
    const char last = pattern_[at] == '<' ? '>' : '\'';
    const std::size_t end = pattern_.find_first_of(last == '>' ? ">)" : "')", at + 1);
    if (end == std::string_view::npos) {
      at_ = pattern_.size();  // no engine reads further
    } else {
      at_ = pattern_[end] == last ? end : end - 1;
    }
  }

  // "\k<name>", "\k'-1'", or one with a level behind the name: a sign that is not its first character. "\k" before
  // anything else is a letter.
  void noteReference() {
    const std::size_t name = at_ + 2;
    if (name > pattern_.size() || (pattern_[name - 1] != '<' && pattern_[name - 1] != '\'')) return;
    ++references_;
    refersByName_ = true;
    if (endOfName_ < name) endOfName_ = std::min(pattern_.find_first_of(">'", name), pattern_.size());
    if (signInName_ <= name) signInName_ = std::min(pattern_.find_first_of("+-", name + 1), pattern_.size());
    if (signInName_ < endOfName_) shape_.refersToLevels = true;
  }

  // Past what "\cX", "\C-X" and "\M-X" stand before, which may be another escape, and so on: the engine recurses.
  void stepOverControl() {
    for (std::int32_t levels = 0;; ++levels) {
      if (isAt("c")) {
        ++at_;
      } else if (isAt("C-") || isAt("M-")) {
        at_ += 2;
      } else {
        return;
      }
      noteDepth(levels);
      if (!isAt("\\")) return;
      ++at_;
    }
  }

  // "[:alpha:]" in a class; "[:" that is none of these opens a class, or stands for itself where a ":]" follows.
  void stepOverPOSIXBracket() {
    if (!hasPOSIXEnd(at_ + 2)) return openClass();
    const std::size_t size = sizeOfPOSIXBracket(pattern_.substr(at_));
    if (size == 0) return;
    at_ += size - 1;
    ++sets_;
  }

  // Whether ":]" comes before any other "]". The engine looks for that anew each time, here it is kept.
  bool hasPOSIXEnd(std::size_t at) {
    if (at > posixEnd_ || posixEnd_ == 0) {
      posixEnd_ = at;
      hasPOSIXEnd_ = false;
      for (; posixEnd_ < pattern_.size() && pattern_[posixEnd_] != ']'; ++posixEnd_) {
        hasPOSIXEnd_ = pattern_.substr(posixEnd_).starts_with(":]");
        if (hasPOSIXEnd_) break;
        if (pattern_[posixEnd_] == '\\') ++posixEnd_;
      }
    }
    bytesBehindBrackets_ += std::max(posixEnd_, at) - at;
    return hasPOSIXEnd_;
  }

  void stepOutsideClasses(char letter) {
    const bool isExtended = levels_.back().isExtended;
    if (isAt("(?#")) {
      skipComment();
    } else if (isExtended && letter == '#') {
      at_ = std::min(pattern_.find('\n', at_), pattern_.size());
    } else if (letter == '(') {
      openGroup();
    } else if (letter == ')') {
      closeGroup();
    } else if (letter == '*' || letter == '+' || letter == '?') {
      stepOverLoop();
    } else if (letter == '{' && stepOverInterval()) {
      addQuantifier();
    } else if (!isExtended || (letter != ' ' && (letter < '\t' || letter > '\r'))) {
      stepOverLetter(letter);
    }
  }

  void stepOverLetter(char letter) {
    if (letter == '|') {
      ++shape_.loops;
      beginAlternative();
    }
    if (letter == '^' || letter == '$') ++levels_.back().places;
    endAtom(0);
  }

  void beginAlternative() {
    Level& level = levels_.back();
    if (!std::exchange(level.hasAlternatives, true)) ++level.alternations;
    level.longestRow = std::max(level.longestRow, row_);
    row_ = level.row;
  }

  void openClass() {
    if (classes_ == 0) {
      outermostClass_ = at_;
      intersectedSets_ = sets_;
      intersectedRanges_ = charactersOfClass_ = 0;
    }
    bytesAroundClasses_ += at_ - outermostClass_;
    ++classes_;
    ++openedClasses_;
    shape_.depth = std::max(shape_.depth, classes_);
    noteDepth(classes_ - 1);
    if (at_ + 1 < pattern_.size() && pattern_[at_ + 1] == '^') ++at_;
    if (at_ + 1 < pattern_.size() && pattern_[at_ + 1] == ']') ++at_;  // stands for itself there
  }

  void skipComment() {
    while (at_ + 1 < pattern_.size() && pattern_[at_] != ')') at_ += pattern_[at_] == '\\' ? 2 : 1;
  }

  // Whether the group that begins here may take more of the text than what stands in it.
  bool mayGoThroughText() const { return isAt("(?<=") || isAt("(?<!") || isAt("(?~") || isAt("(?(") || isAt("(*"); }

  void openGroup() {
    ++shape_.loops;
    const bool isCondition = at_ == condition_;
    if (isAt("(?(")) condition_ = at_ + 2;
    if (isAt("(?(")) levels_.back().places += 2;
    if (isAt("(?(<") || isAt("(?('")) {
      ++references_;
      refersByName_ = true;
    }
    endAtom(0);
    bool isExtended = levels_.back().isExtended;
    if (const std::optional<Options> options = optionsHere()) {
      if (options->standAlone) return applyToRest(*options);
      isExtended = options->isExtended;
    }
    // The engine builds an absent operator of several nodes, one inside the other.
    const std::int32_t opened = isAt("(?~") ? 6 : 1;
    const bool looksAround = isAt("(?=") || isAt("(?!") || isAt("(?<=") || isAt("(?<!") || isAt("(?~");
    const bool looksBehind = isAt("(?<=") || isAt("(?<!");
    shape_.goesThroughText |= mayGoThroughText();
    levels_.push_back({.opened = opened,
                       .isExtended = isExtended,
                       .looksAround = looksAround,
                       .looksBehind = looksBehind,
                       .isCondition = isCondition,
                       .hasCondition = isAt("(?("),
                       .from = bytesSoFar(),
                       .loops = shape_.loops,
                       .row = row_,
                       .types = shape_.types,
                       .sets = sets_});
    if (isCondition) ++conditions_;
    if (looksBehind) ++lookBehinds_;
    if (looksAround) noteLook();
    depth_ += opened;
    noteDepth(0);
    if (isCondition) {
      stepOverCondition();
    } else if (!looksAround) {
      openCaptured();
    }
  }

  // "(<name>)", "('1')" or "(1)" behind "(?", which asks whether that group has matched: maybe at a level, as
  // references may. Any other condition is a pattern.
  void stepOverCondition() {
    const std::size_t opened = at_ + 1;
    stepOverName(opened);
    const bool isName = at_ > opened;
    const std::size_t name = opened + (isName ? 1 : 0);
    const std::size_t end = isName ? at_ : pattern_.find_first_not_of("0123456789+-", name);
    if (end >= pattern_.size() || (!isName && pattern_[end] != ')')) return;
    if (pattern_.substr(name, end - name).find_first_of("+-", 1) != std::string_view::npos) {
      shape_.refersToLevels = true;
    }
  }

  // Where the group has a name, or nothing else is said of it.
  void openCaptured() {
    const bool isNamed = isAt("(?<") || isAt("(?'");
    if (!isNamed && (isAt("(?") || isAt("(*"))) return;
    levels_.back().group = groups_.size();
    groups_.push_back({visits_, calls_.size(), calls_.size()});
    if (!isNamed) return;
    const std::size_t name = at_ + 3;
    ++namedGroups_;
    stepOverName(at_ + 2);
    if (name <= at_) noteName(pattern_.substr(name, at_ - name));
  }

  void noteName(std::string_view name) {
    Namesakes& namesakes = groupsOfNames_[name];
    ++namesakes.count;
    namesakes.last = groups_.size() - 1;
  }

  // The rest of the group around options that stand alone becomes their content.
  void applyToRest(const Options& options) {
    at_ = pattern_.find(')', at_);
    levels_.back().isExtended = options.isExtended;
    levels_.back().hasAlternatives = false;
    ++levels_.back().opened;
    ++depth_;
    noteDepth(0);
  }

  // The options with which the group here begins; absent where it begins otherwise.
  std::optional<Options> optionsHere() {
    if (!isAt("(?")) return {};
    bool isExtended = levels_.back().isExtended;
    bool isOn = true;
    for (std::size_t at = at_ + 2; at < pattern_.size(); ++at) {
      const char letter = pattern_[at];
      if (letter == ':' || letter == ')') return Options{isExtended, letter == ')'};
      if (letter == 'x') isExtended = isOn;
      if (letter == 'i' && isOn) ignoresCase_ = true;
      if (letter == '-') isOn = false;
      if (!isLetter(letter) && letter != '-' && letter != '{' && letter != '}') return {};
    }
    return {};
  }

  void closeGroup() {
    if (levels_.size() == 1) return;
    const Level closed = levels_.back();
    levels_.pop_back();
    row_ = std::max(row_, closed.longestRow);
    if (closed.looksAround) --looks_;
    if (closed.looksBehind) --lookBehinds_;
    if (closed.isCondition) --conditions_;
    if (closed.group != kNoGroup) closeCallable(closed.group);
    depth_ -= closed.opened;
    levels_.back().places += closed.places;
    typesBefore_ = closed.types;
    setsBefore_ = closed.sets;
    if (mayBeRepeated()) {
      noteTurns(closed.places, 1 + shape_.loops - closed.loops);
      visit((bytesSoFar() - closed.from) / kBytesOfVisit);
    }
    visitAlternatives(closed);
    endAtom(closed.opened + closed.tallest);
  }

  std::uint64_t bytesSoFar() const { return at_ + copiedLetters_; }

  // What looks behind has them counted in how often it is gone through.
  void visitAlternatives(const Level& level) {
    const std::uint64_t times = level.alternations + (level.looksAround ? 1 : 0) + (level.hasCondition ? 1 : 0);
    visits_ += (bytesSoFar() - level.from) / kBytesOfVisit * times * timesInConditions();
  }

  // Whether a quantifier follows, or something that may hide one.
  bool mayBeRepeated() const {
    std::size_t next = at_ + 1;
    if (levels_.back().isExtended) next = std::min(pattern_.find_first_not_of(" \t\n\v\f\r", next), pattern_.size());
    const std::string_view rest = pattern_.substr(std::min(next, pattern_.size()));
    if (rest.empty()) return false;
    return std::string_view("*+?{#").find(rest.front()) != std::string_view::npos || rest.starts_with("(?#");
  }

  // Past the quantifier's own "?" or "+".
  void stepOverLoop() {
    ++shape_.loops;
    if (!isAt("?") || isAt("?+")) shape_.goesThroughText = true;
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
    noteLoop();
    noteCopies(largest);
    // One character is repeated as often as the text is long; what may be empty is repeated as often as it says.
    const char before = at_ > 0 ? pattern_[at_ - 1] : ' ';
    if (!isLetter(before) && before != ']' && before != '.') {
      repeat(largest);
    }
    at_ = at;
    return true;
  }

  // The engine writes what is repeated a few times that often, where it is as short as that.
  void noteCopies(std::uint64_t times) {
    constexpr std::uint64_t kMostCopied = 10;
    constexpr std::uint64_t kMostLetters = 100;
    const std::uint64_t letters = std::min(times, kMostLetters);
    copiedLetters_ += letters;
    visit(letters);
    const std::uint64_t one = atomTypes_ + atomSets_;
    const std::uint64_t copies = one == 0 ? 1 : std::min(times, kMostCopied / one);
    if (copies < 2) return;
    shape_.types += atomTypes_ * (copies - 1);
    sets_ += atomSets_ * (copies - 1);
    atomTypes_ *= copies;
    atomSets_ *= copies;
    typesBefore_ = shape_.types;
    setsBefore_ = sets_;
  }

  // The first quantifier of an atom lies no deeper than the atom; those that follow it directly do, and go through
  // those before in every turn.
  void addQuantifier() {
    row_ = 0;
    if (quantifiers_++ > 0) {
      ++height_;
      noteTurns(0, 2);
    }
    keepHeight();
  }

  void endAtom(std::int32_t height) {
    row_ += ignoresCase_ ? kLettersOfAnyCase : 1;
    shape_.row = std::max(shape_.row, row_);
    quantifiers_ = 0;
    atomTypes_ = shape_.types - std::exchange(typesBefore_, shape_.types);
    atomSets_ = sets_ - std::exchange(setsBefore_, sets_);
    height_ = height;
    keepHeight();
  }

  void keepHeight() {
    levels_.back().tallest = std::max(levels_.back().tallest, height_);
    noteDepth(height_);
  }

  void noteDepth(std::int32_t below) { shape_.depth = std::max(shape_.depth, depth_ + below); }

  std::string_view pattern_;
  std::size_t at_ = 0;
  std::int32_t depth_ = 0;
  std::size_t condition_ = std::string_view::npos;  // where the last "(?(" has its second parenthesis
  std::int32_t classes_ = 0;
  std::int32_t looks_ = 0;  // groups around the place that look around
  std::uint64_t openedClasses_ = 0;
  std::size_t outermostClass_ = 0;         // where it begins, of those that are open
  std::uint64_t bytesAroundClasses_ = 0;   // of the outermost class, before each class in it
  std::uint64_t bytesBehindBrackets_ = 0;  // of each "[:" in a class, to where ":]" or "]" ends what it looks at
  std::size_t posixEnd_ = 0;               // where the last of these ends, 0 before the first
  bool hasPOSIXEnd_ = false;               // whether ":]" stands there
  std::uint64_t references_ = 0;           // to names
  std::size_t endOfName_ = 0;              // the next ">" or "'" behind the last of them, or the end
  std::size_t signInName_ = 0;             // the next sign there, or the end
  bool refersByName_ = false;
  std::uint64_t namedGroups_ = 0;
  std::unordered_map<std::string_view, Namesakes> groupsOfNames_;
  std::uint64_t row_ = 0;          // since a quantifier
  std::uint64_t lookBehinds_ = 0;  // groups around the place that look behind
  std::uint64_t conditions_ = 0;   // that lie around it
  std::uint64_t visits_ = 0;       // of what has been read, without calls
  std::uint64_t copiedLetters_ = 0;
  std::vector<CalledGroup> groups_;
  std::vector<NamedCall> calls_;
  std::uint64_t comparedRanges_ = 0;     // of classes that are intersected
  std::uint64_t intersectedRanges_ = 0;  // of the outermost class, up to the last "&&", or a "]" behind one
  std::uint64_t charactersOfClass_ = 0;  // since then
  std::uint64_t intersectedSets_ = 0;    // before that place
  std::uint64_t sets_ = 0;               // properties, types and brackets in classes, and what they have in common
  std::uint64_t atomTypes_ = 0;          // types, and of these sets, in the last atom
  std::uint64_t atomSets_ = 0;
  std::uint64_t typesBefore_ = 0;  // the last atom's end
  std::uint64_t setsBefore_ = 0;
  bool ignoresCase_ = false;      // anywhere
  std::int32_t quantifiers_ = 0;  // since the last atom
  std::int32_t height_ = 0;       // of the last atom with them
  std::vector<Level> levels_{Level()};
  PatternShape shape_;
};

}  // namespace

PatternShape PatternShape::of(std::string_view pattern) {
  return ShapeReader(pattern).read();
}

}  // namespace tavlo
