#include "Source/KorTemplateStackFrame.h"

#include <algorithm>

#include "Foundation/CycleWatch.h"
#include "Foundation/WorkMeter.h"

namespace tavlo {

KorTemplateStackFrame::KorTemplateStackFrame(const Ref<NSDictionary>& variables) {
  requireParameter(variables != nullptr, "variables != nil");
  for (const NSDictionary::Entry& entry : variables->entries()) {
    (void)localVariables_.set(entry.key->view(), entry.value);
  }
}

Ref<KorTemplateStackFrame> KorTemplateStackFrame::stackFrameWithLocalVariables(const Ref<NSDictionary>& variables) {
  return makeRef<KorTemplateStackFrame>(variables);
}

void KorTemplateStackFrame::setParentFrame(KorTemplateStackFrame* parentFrame) {
  parentFrame_ = parentFrame;
  depth_ = parentFrame == nullptr ? 0 : parentFrame->depth_ + 1;
  if (parentFrame != nullptr) parentFrame->children_ |= kParentForGood;
  noteLinkChange();
}

std::vector<Name> KorTemplateStackFrame::localVariableNames() const {
  std::vector<Name> names;
  for (const auto& entry : localVariables_) {
    if (!entry.name.isAbsent()) names.push_back(entry.name);
  }
  return names;
}

Value KorTemplateStackFrame::valueForVariableWithName(const Name& name) const {
  requireParameter(!name.isAbsent(), "name != nil");
  const Value* value = find(name);
  return value == nullptr ? Value() : *value;
}

Value KorTemplateStackFrame::valueForLocalVariableWithName(const Name& name) const {
  requireParameter(!name.isAbsent(), "name != nil");
  const Value* value = localVariables_.find(name);
  return value == nullptr ? Value() : *value;
}

void KorTemplateStackFrame::setValueForVariableWithName(const Value& variable, const Name& name) {
  requireParameter(!variable.isAbsent(), "variable != nil");
  requireParameter(!name.isAbsent(), "name != nil");
  set(name, variable);
}

bool KorTemplateStackFrame::isVariableDefinedWithName(const Name& name) const {
  requireParameter(!name.isAbsent(), "name != nil");
  return find(name) != nullptr;
}

bool KorTemplateStackFrame::isLocalVariableDefinedWithName(const Name& name) const {
  requireParameter(!name.isAbsent(), "name != nil");
  return localVariables_.find(name) != nullptr;
}

Ref<KorTemplateStackFrame> KorTemplateStackFrame::copyWithZone(NSZone* /*zone*/) const {
  Ref<KorTemplateStackFrame> copy = stackFrame();
  for (const auto& entry : localVariables_) {
    if (!entry.name.isAbsent()) copy->append(entry.name, entry.value);
  }
  return copy;
}

KorTemplateStackFrame* KorTemplateStackFrame::findNextWithVariables() const noexcept {
  KorTemplateStackFrame* next = parentFrame_;
  CycleWatch watch;
  while (next != nullptr && next->localVariables_.empty()) {
    if (watch.isBackAt(next)) {
      next = nullptr;
    } else {
      next = next->cachedAt_ == linkChanges() ? next->cachedNext_ : next->parentFrame_;
    }
  }
  cachedNext_ = next;
  cachedAt_ = linkChanges();
  noteHowNear();
  return next;
}

const Value* KorTemplateStackFrame::findNear(const Name& name) const noexcept {
  const std::uint64_t bit = NameMap<Value>::bitOf(name);
  const KorTemplateStackFrame* frame = this;
  for (int count = 0; count <= kFewFrames && frame != nullptr; ++count) {
    const Value* const value = frame->localVariables_.mayHold(bit) ? frame->localVariables_.find(name) : nullptr;
    if (value != nullptr) return value;
    const KorTemplateStackFrame* const next = frame->nextWithVariables();
    if (frame->nearAt_ != linkChanges()) return nullptr;
    frame = next;
  }
  return nullptr;
}

// NOLINTNEXTLINE(readability-function-cognitive-complexity): one walk, and what it leaves behind for later ones
const Value* KorTemplateStackFrame::findInLongChain(const Name& name, std::size_t& steps) const noexcept {
  const std::uint64_t bit = NameMap<Value>::bitOf(name);
  CycleWatch watch;
  const Value* value = nullptr;
  std::size_t frames = 0;
  const KorTemplateStackFrame* landmark = nullptr;  // whose jump is being found
  std::uint64_t bits = 0;                           // of the names between it and here
  const KorTemplateStackFrame* frame = this;
  while (frame != nullptr && !watch.isBackAt(frame)) {
    ++frames;
    if (frame->localVariables_.mayHold(bit)) value = frame->localVariables_.find(name);
    if (value != nullptr) break;
    if (frame->isLandmark()) {
      if (landmark != nullptr) landmark->jump_ = {frame, bits, landmark->scope_, linkChanges()};
      const bool hasJump = frame->hasJump();
      landmark = hasJump ? nullptr : frame;
      bits = 0;
      if (hasJump && (frame->jump_.bits & bit) == 0) {
        frame = frame->jump_.target;
        continue;
      }
    } else if (landmark != nullptr) {
      bits |= frame->localVariables_.bits();
    }
    frame = frame->nextWithVariables();
  }
  if (frame == nullptr && landmark != nullptr) landmark->jump_ = {nullptr, bits, landmark->scope_, linkChanges()};
  steps = stepsOfLookup(frame, frames - 1);
  return value;
}

const Value* KorTemplateStackFrame::findInLongChain(const Name& name) const noexcept {
  std::size_t steps = 0;
  const Value* const value = findInLongChain(name, steps);
  countLookup(steps);
  return value;
}

// A lookup that ended at the frame, or behind the last one, counts by the frames that lie between: how many of them it
// visits depends on what earlier ones have left behind, and no two runs are alike in that. Links that are set by hand
// may tell of fewer frames than there are.
std::size_t KorTemplateStackFrame::stepsOfLookup(const KorTemplateStackFrame* end, std::size_t visited) const noexcept {
  const std::size_t below = end == nullptr ? 0 : std::min(end->depth_, depth_);
  return std::max<std::size_t>(visited, depth_ - below) / kFramesOfStep;
}

void KorTemplateStackFrame::countSteps(std::size_t steps) noexcept {
  if (WorkMeter* const meter = WorkMeter::ofThread()) meter->countLater(steps);
}

}  // namespace tavlo
