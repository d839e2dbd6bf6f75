#include "Source/KorTemplateProfile.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Foundation/Utf8.h"
#include "Source/KorTemplateFunction.h"
#include "Source/KorTemplateInternalFunction.h"
#include "Source/KorTemplateSource.h"
#include "Source/KorTemplateStatement.h"
#include "Source/PrintableText.h"

namespace tavlo {

// A frame of a stack: a template or a function, at a statement. It keeps what it is told apart by.
struct KorTemplateProfile::Node {
  // What runs, by which name, at which statement; equal names are one text.
  using Key = std::tuple<const NSObject*, const char*, const KorTemplateStatement*>;

  Node* parent = nullptr;
  Ref<const KorTemplateFunction> function;    // of a template; absent for any other
  Name name;                                  // of a function, as the template calls it
  Ref<const KorTemplateSource> source;        // absent where that is not known
  Ref<const KorTemplateStatement> statement;  // absent where none runs
  std::map<Key, Node*> children = {};
  Clock::duration time{};
};

// A level of what runs, and the frame around it.
struct KorTemplateProfile::Level {
  const KorTemplateActivation* activation;
  const KorTemplateFunction* function;
  const KorTemplateStatement* caller;
  const KorTemplateSource* source;
  Name name;
  Node* parent;

  bool is(const KorTemplateActivation& other) const noexcept {
    return activation == &other && function == other.function && caller == other.caller &&
           source == (other.function == nullptr ? other.source : nullptr);
  }
};

namespace {

constexpr std::string_view kLeftOut = "\u2026";
// A recursion would need room for the square of its depth, and for as many copies of its name.
constexpr std::size_t kFramesAtEnds = 32;
constexpr std::size_t kLongestName = 256;
// A template that calls itself twice has as many ways to its statements as it has time for; each takes some 200 bytes.
constexpr std::size_t kMostNodes = 400'000;
// Of all stacks together, in bytes. Those in which the least time was spent are left out of a longer text.
constexpr std::size_t kLongestText = 16 * std::size_t{1024} * 1024;

std::string frameName(std::string_view name) {
  std::size_t length = std::min(name.size(), kLongestName);
  if (length < name.size()) {
    while (length > kLongestName - 3 && isContinuation(name[length])) --length;
  }
  std::string text = printable(name.substr(0, length));
  std::ranges::replace(text, ';', ',');
  return length < name.size() ? text.append(kLeftOut) : text;
}

}  // namespace

KorTemplateProfile::KorTemplateProfile() : nodes_(2) {}

KorTemplateProfile::~KorTemplateProfile() = default;

void KorTemplateProfile::begin() noexcept {
  leaveLevelsFrom(0);
  current_ = &nodes_.front();
  since_ = Clock::now();
}

void KorTemplateProfile::settle() noexcept {
  if (current_ != nullptr) current_->time += Clock::now() - since_;
}

void KorTemplateProfile::end() noexcept {
  settle();
  current_ = nullptr;
  leaveLevelsFrom(0);
}

void KorTemplateProfile::noteStep(const FailureWatch::Position& at) {
  settle();
  std::vector<const KorTemplateActivation*> fresh;
  std::size_t known = 0;  // that many levels are still those of the last step
  for (const KorTemplateActivation* level = at.innermost; level != nullptr && known == 0; level = level->outer) {
    if (const std::optional<std::size_t> place = knownLevel(*level)) {
      known = *place + 1;
    } else {
      fresh.push_back(level);
    }
  }
  leaveLevelsFrom(known);
  for (auto level = fresh.rbegin(); level != fresh.rend(); ++level) enterLevel(**level);
  current_ = levels_.empty() ? &nodes_.front() : nodeAt(levels_.back(), at.statement);
  since_ = Clock::now();
}

std::optional<std::size_t> KorTemplateProfile::knownLevel(const KorTemplateActivation& activation) const {
  const auto place = places_.find(&activation);
  if (place == places_.end() || !levels_[place->second].is(activation)) return {};
  return place->second;
}

void KorTemplateProfile::leaveLevelsFrom(std::size_t index) {
  for (std::size_t place = index; place < levels_.size(); ++place) places_.erase(levels_[place].activation);
  levels_.erase(levels_.begin() + static_cast<std::ptrdiff_t>(index), levels_.end());
}

void KorTemplateProfile::enterLevel(const KorTemplateActivation& activation) {
  const bool isCall = activation.function != nullptr;
  levels_.push_back({&activation, activation.function, activation.caller, isCall ? nullptr : activation.source,
                     isCall ? *activation.functionName : Name(),
                     levels_.empty() ? &nodes_.front() : nodeAt(levels_.back(), activation.caller)});
  places_[&activation] = levels_.size() - 1;
}

KorTemplateProfile::Node* KorTemplateProfile::nodeAt(const Level& level, const KorTemplateStatement* statement) {
  Node* const rest = &nodes_[1];
  if (level.parent == rest) return rest;
  const bool isInternal = level.function != nullptr && level.function->kind() == kInternalFunctionKind;
  const KorTemplateSource* source = level.source;
  if (isInternal) source = static_cast<const KorTemplateInternalFunction*>(level.function)->source().get();
  if (level.function == nullptr && source == nullptr) return level.parent;  // what a host has entered the engine for
  if (!isInternal && statement == level.caller) statement = nullptr;        // none of its own has begun
  // A host's functions are told apart by their names alone: they may be others in each execution.
  const KorTemplateFunction* const function = isInternal ? level.function : nullptr;
  const NSObject* running = function;
  if (running == nullptr) running = source;
  const char* const nameText = level.name.isAbsent() ? nullptr : level.name.view().data();
  std::map<Node::Key, Node*>& children = level.parent->children;
  const Node::Key key = {running, nameText, statement};
  if (nodes_.size() >= kMostNodes) {
    const auto known = children.find(key);
    return known != children.end() && known->second != nullptr ? known->second : rest;
  }
  const auto child = children.try_emplace(key).first;
  if (child->second == nullptr) {  // it is new, or memory ran out when it was
    child->second = &nodes_.emplace_back(Node{level.parent, Ref<const KorTemplateFunction>::retaining(function),
                                              level.name, Ref<const KorTemplateSource>::retaining(source),
                                              Ref<const KorTemplateStatement>::retaining(statement)});
  }
  return child->second;
}

// Walks over the frames from the outermost one inwards. Several statements may stand on one line, and stacks that are
// cut may look alike: what has one text is one stack. The texts of most are not needed, as little time was spent there,
// so the first walks add up time and size by hashes of the texts.
class KorTemplateProfile::Folding {
 public:
  // `rest`: the time of what has no frame.
  Folding(const Node& around, Clock::duration rest) : around_(around), rest_(rest) {}

  std::string text() {
    walk([this](const Node& node) { stacks_[stackHash()].time += node.time; });
    std::erase_if(stacks_, [](const auto& entry) { return entry.second.microseconds() == 0; });
    walk([this](const Node& /*node*/) {
      const auto entry = stacks_.find(stackHash());
      if (entry != stacks_.end()) entry->second.size = stackSize();
    });
    std::vector<std::string> lines;
    if (const std::int64_t rest = leaveOutTheLeast(); rest > 0) lines.push_back(line(std::string(kLeftOut), rest));
    walk([&](const Node& /*node*/) {
      const auto entry = stacks_.find(stackHash());
      if (entry == stacks_.end()) return;
      lines.push_back(line(stack(), entry->second.microseconds()));
      stacks_.erase(entry);
    });
    std::ranges::sort(lines);
    std::string text;
    for (std::string& line : lines) text += std::exchange(line, {});
    return text;
  }

 private:
  // The numbers of the lines of sources, each of which is gone through once.
  class LineNumbers {
   public:
    std::size_t of(const KorTemplateSource& source, std::size_t offset) {
      const std::vector<std::size_t>& ends = endsIn(source);
      return static_cast<std::size_t>(std::ranges::upper_bound(ends, offset) - ends.begin()) + 1;
    }

   private:
    const std::vector<std::size_t>& endsIn(const KorTemplateSource& source) {
      const auto [entry, isNew] = ends_.try_emplace(&source);
      if (!isNew) return entry->second;
      const std::string_view text = source.text();
      for (std::size_t at = 0; at < text.size(); ++at) {
        const bool isEnd = text[at] == '\n' || (text[at] == '\r' && !text.substr(at + 1).starts_with('\n'));
        if (isEnd) entry->second.push_back(at + 1);
      }
      return entry->second;
    }

    std::map<const KorTemplateSource*, std::vector<std::size_t>> ends_;  // of each line, behind its break
  };

  // What is known of a stack of which not every one gets a text.
  struct Stack {
    Clock::duration time{};
    std::size_t size = 0;  // of its text, in bytes

    std::int64_t microseconds() const { return std::chrono::duration_cast<std::chrono::microseconds>(time).count(); }
  };

  static std::string line(std::string stack, std::int64_t microseconds) {
    return stack.append(" ").append(std::to_string(microseconds)).append("\n");
  }

  // Of stacks whose texts would be too long together, keeps those in which the most time was spent. Answers the
  // microseconds of the others, and of what has no frame.
  std::int64_t leaveOutTheLeast() {
    std::vector<std::pair<Clock::duration, std::uint64_t>> byTime;
    byTime.reserve(stacks_.size());
    for (const auto& [hash, stack] : stacks_) byTime.emplace_back(stack.time, hash);
    std::ranges::sort(byTime, std::greater());
    std::size_t size = 0;
    std::int64_t rest = std::chrono::duration_cast<std::chrono::microseconds>(rest_).count();
    for (const auto& [time, hash] : byTime) {
      const auto entry = stacks_.find(hash);
      size += entry->second.size;
      if (size <= kLongestText) continue;
      rest += entry->second.microseconds();
      stacks_.erase(entry);
    }
    return rest;
  }

  struct Open {
    const Node* node;
    std::map<Node::Key, Node*>::const_iterator next;
    std::size_t framesAround;
  };

  // What a frame adds to the text of a stack.
  struct Frame {
    std::string text;
    std::size_t hash = 0;
  };

  // Calls `visit` with each frame in which time was spent, while frames_ holds its stack.
  template <class Visit>
  void walk(const Visit& visit) {
    enter(around_, visit);
    while (!open_.empty()) {
      Open& innermost = open_.back();
      if (innermost.next == innermost.node->children.end()) {
        frames_.resize(innermost.framesAround);
        open_.pop_back();
      } else if (const Node* child = (innermost.next++)->second; child != nullptr) {
        enter(*child, visit);
      }
    }
  }

  template <class Visit>
  void enter(const Node& node, const Visit& visit) {
    open_.push_back({&node, node.children.begin(), frames_.size()});
    const Frame& frame = frameAt(node);
    if (!frame.text.empty()) frames_.push_back(&frame);
    if (node.time > Clock::duration::zero()) visit(node);
  }

  // Many nodes, one for each way there, have one frame.
  const Frame& frameAt(const Node& node) {
    const char* const name = node.name.isAbsent() ? nullptr : node.name.view().data();
    const auto [entry, isNew] = knownFrames_.try_emplace({name, node.source.get(), node.statement.get()});
    if (isNew) {
      entry->second.text = frameOf(node);
      entry->second.hash = std::hash<std::string>()(entry->second.text);
    }
    return entry->second;
  }

  std::string frameOf(const Node& node) {
    const KorTemplateSource* const source = node.source.get();
    const KorTemplateStatement* const statement = node.statement.get();
    std::string frame = node.name.isAbsent() ? std::string() : frameName(node.name.view());
    if (source == nullptr) return frame;
    if (!frame.empty()) frame += ' ';
    frame += source->name().empty() ? "template" : frameName(source->name());
    if (statement == nullptr || !statement->sourceRange().isKnown()) return frame;
    return frame + ':' + std::to_string(lines_.of(*source, statement->sourceRange().offset));
  }

  // Calls `show` with each frame that is shown, and with none where some are left out.
  template <class Show>
  void forEachShown(const Show& show) const {
    for (std::size_t index = 0; index < frames_.size(); ++index) {
      if (index == kFramesAtEnds && frames_.size() > 2 * kFramesAtEnds) {
        show(nullptr);
        index = frames_.size() - kFramesAtEnds;
      }
      show(frames_[index]);
    }
  }

  std::string stack() const {
    if (frames_.empty()) return "engine";
    std::string text;
    forEachShown([&](const Frame* frame) {
      if (!text.empty()) text += ';';
      text += frame == nullptr ? kLeftOut : std::string_view(frame->text);
    });
    return text;
  }

  std::size_t stackSize() const {
    std::size_t size = 0;
    forEachShown([&](const Frame* frame) { size += 1 + (frame == nullptr ? kLeftOut : frame->text).size(); });
    return size;
  }

  std::uint64_t stackHash() const {
    constexpr std::uint64_t kScatter = 0x9E3779B97F4A7C15;  // 2^64 divided by the golden ratio
    std::uint64_t hash = 0;
    forEachShown(
        [&](const Frame* frame) { hash = std::rotl((hash ^ (frame == nullptr ? 1 : frame->hash)) * kScatter, 29); });
    return hash;
  }

  const Node& around_;
  const Clock::duration rest_;
  LineNumbers lines_;
  std::vector<Open> open_;            // from the outermost to the innermost
  std::vector<const Frame*> frames_;  // of those that have a text
  std::map<std::tuple<const char*, const KorTemplateSource*, const KorTemplateStatement*>, Frame> knownFrames_;
  std::unordered_map<std::uint64_t, Stack> stacks_;  // by hashes of their texts
};

std::string KorTemplateProfile::foldedStacks() const {
  return Folding(nodes_.front(), nodes_[1].time).text();
}

}  // namespace tavlo
