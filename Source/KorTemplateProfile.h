#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "Foundation/NSObject.h"
#include "Foundation/Ref.h"
#include "Source/FailureWatch.h"

namespace tavlo {

// Gathers where the time of executions goes: the time from each step to the next one is that of the statement at which
// the first one was taken. An environment has none unless it is given one; it gathers the executions of one environment
// at a time, one after another.
class [[gnu::visibility("default")]] KorTemplateProfile final : public NSObject {
 public:
  KorTemplateProfile();
  static Ref<KorTemplateProfile> profile() {
    return makeRef<KorTemplateProfile>();
  }
  ~KorTemplateProfile() override;

  // The time in whole microseconds, in the form that programs for flame graphs read: "frame;frame;frame 123", a line
  // for each stack that took time, in the order of the text. A frame is "page.html:3" for a template at a line of its,
  // "name page.html:12" for a function of a template's, "name" for one of the host's; a semicolon in a name is shown as
  // a comma. Of a stack with more than 64 frames the 32 outermost and the 32 innermost ones are shown, with the frame
  // "…" between them; of a name with more than 256 bytes that many, and "…". What was met after some 400,000 ways to
  // statements is one stack "…", as is what took the least time where the text would be longer than 16 MiB.
  std::string foldedStacks() const;

  const char* className() const override {
    return "KorTemplateProfile";
  }

  // What the engine calls: an outermost execution begins, takes a step, ends.
  void begin() noexcept;
  void noteStep(const FailureWatch::Position& at);
  void end() noexcept;

 private:
  using Clock = std::chrono::steady_clock;
  struct Node;
  struct Level;
  class Folding;

  // Ascribes the time since the last step to the place where that was taken.
  void settle() noexcept;
  void enterLevel(const KorTemplateActivation& activation);
  void leaveLevelsFrom(std::size_t index);
  // The place among levels_; absent for a level that has begun since the last step.
  std::optional<std::size_t> knownLevel(const KorTemplateActivation& activation) const;
  // The frame of a level that is at the statement.
  Node* nodeAt(const Level& level, const KorTemplateStatement* statement);

  std::deque<Node> nodes_;     // the first one stands around all others, the second for those that there is no room for
  std::vector<Level> levels_;  // those that ran at the last step, the outermost one first
  std::unordered_map<const KorTemplateActivation*, std::size_t> places_;  // among levels_
  Node* current_ = nullptr;  // to which time goes; one of nodes_; null while nothing runs
  Clock::time_point since_;
};

}  // namespace tavlo
