#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "Foundation/NSDictionary.h"
#include "Foundation/NSException.h"
#include "Foundation/NSObject.h"
#include "Foundation/Name.h"
#include "Foundation/Ref.h"
#include "Foundation/Value.h"
#include "Source/NameMap.h"

namespace tavlo {

struct NSZone;

// One scope of a running template. Reading searches this frame, then every frame below; writing stays in this frame,
// so an assignment in an inner scope hides an outer variable and never changes it.
class KorTemplateStackFrame final : public NSObject {
 public:
  KorTemplateStackFrame() = default;
  // A frame with the entries of a dictionary as its variables; a later change of the dictionary does not change it. The
  // dictionary may not be absent.
  explicit KorTemplateStackFrame(const Ref<NSDictionary>& variables);

  static Ref<KorTemplateStackFrame> stackFrame() { return makeRef<KorTemplateStackFrame>(); }
  static Ref<KorTemplateStackFrame> stackFrameWithLocalVariables(const Ref<NSDictionary>& variables);

  // The frame below on the stack; absent for the first frame and off the stack.
  KorTemplateStackFrame* parentFrame() const noexcept { return parentFrame_; }
  void setParentFrame(KorTemplateStackFrame* parentFrame);

  // The names of this frame's own variables, in no particular order.
  std::vector<Name> localVariableNames() const;

  // The value in the nearest frame that has `name`; absent when none has it. The null object counts as a value.
  Value valueForVariableWithName(const Name& name) const;
  // This frame's own value or absent.
  Value valueForLocalVariableWithName(const Name& name) const;
  // Stores `variable` in this frame, replacing its own value of that name. Neither argument may be absent.
  void setValueForVariableWithName(const Value& variable, const Name& name);
  // Whether this frame or one below has the name.
  bool isVariableDefinedWithName(const Name& name) const;
  bool isLocalVariableDefinedWithName(const Name& name) const;

  // A frame of its own with the same names and the very same values, and no parent.
  Ref<KorTemplateStackFrame> copyWithZone(NSZone* zone = nullptr) const;

  const char* className() const override { return "KorTemplateStackFrame"; }

  // What the engine uses in place of the above; the names are never absent.

  // The value where it lives, good until a variable changes; null where there is none.
  const Value* find(const Name& name) const noexcept {
    const Value* value = nullptr;
    return findQuickly(name, value) ? value : findInLongChain(name);
  }
  // The same for a variable of a frame that is so near that no look-up from here counts, nor one from the next frame
  // above; null for every other one. For who was not answered by findQuickly().
  const Value* findNear(const Name& name) const noexcept;
  // The same as find() where the look-up does not count yet, but leaves in `steps` what it is to count if it was the
  // last one.
  const Value* find(const Name& name, std::size_t& steps) const noexcept {
    const Value* value = nullptr;
    return findQuickly(name, value) ? value : findInLongChain(name, steps);
  }
  static void countLookup(std::size_t steps) noexcept {
    if (steps > 0) [[unlikely]]
      countSteps(steps);
  }
  // The same without any call; false where that does not suffice, or is work that counts.
  [[gnu::always_inline]] bool findQuickly(const Name& name, const Value*& value) const noexcept {
    if (!localVariables_.findQuickly(name, value)) return false;
    if (value != nullptr) return true;
    const std::uint64_t bit = NameMap<Value>::bitOf(name);
    const std::uint64_t changes = linkChanges();
    const KorTemplateStackFrame* frame = this;
    for (int count = 0; count < kFewFrames; ++count) {
      if (frame->nearAt_ != changes) return false;
      frame = frame->cachedNext_;
      if (frame == nullptr) return true;
      if (!frame->localVariables_.mayHold(bit)) continue;
      if (!frame->localVariables_.findQuickly(name, value)) return false;
      if (value != nullptr) return true;
    }
    return false;
  }
  void set(const Name& name, Value value) {
    const std::uint64_t bits = beginChange();
    // It ends last: that may run a host's code, which may take the frame from whoever owns it.
    const Value old = localVariables_.set(name, std::move(value));
    endChange(bits);
  }
  // The same for a name that the frame does not have yet.
  void append(const Name& name, Value value) {
    const std::uint64_t bits = beginChange();
    localVariables_.append(name, std::move(value));
    endChange(bits);
  }

  // Binds a loop's element and its index in a frame that holds nothing yet; a loop variable of the index's own name
  // reads the index. What lends the elements, if `IsLent`, is held before them under no name, and goes last.
  template <bool IsLent>
  void bindLoop(const Name& variable, Value element, const Name& indexName, std::int32_t index, const Value& lender) {
    if constexpr (IsLent) append(Name(), lender);
    append(variable, std::move(element));
    set(indexName, index);
  }
  // Lets go of all that the body has stored behind those, for the next iteration to use the same frame. False where
  // that or the next iteration would end an object that may run a host's code, and then the frame must be popped.
  // `hasVariable`: beside the index.
  template <bool IsLent>
  bool leaveIteration(bool hasVariable) noexcept {
    constexpr std::size_t kElement = IsLent ? 1 : 0;
    const std::size_t index = hasVariable ? kElement + 1 : kElement;
    if (localVariables_.size() <= index || !localVariables_.truncateWhile(index + 1, endsQuietly)) return false;
    return !localVariables_.at(index).isObject() && endsQuietly(localVariables_.at(kElement));
  }
  // Stores the next ones in their place.
  template <bool IsLent>
  void rebindLoop(bool hasVariable, Value element, std::int32_t index) {
    constexpr std::size_t kElement = IsLent ? 1 : 0;
    if (hasVariable) localVariables_.at(kElement) = std::move(element);
    localVariables_.at(hasVariable ? kElement + 1 : kElement) = index;
  }

  // The same for the first variable of a frame that nobody has pushed upon yet.
  [[gnu::always_inline]] void setFirst(const Name& name, const Value& value) { localVariables_.append(name, value); }

  // Makes the frame as good as new, but for variables whose end may run a host's code: false when it has such, and then
  // reset() must follow.
  bool resetQuietly() noexcept {
    children_ = 0;
    return localVariables_.truncateWhile(0, endsQuietly);
  }
  // Differs between the scopes that one frame serves, and between frames.
  std::uint64_t scope() const noexcept { return scope_; }

  // Links the frame to the one below, or to none, when it is pushed.
  void link(KorTemplateStackFrame* parent) noexcept {
    if (hasChildren()) noteLinkChange();
    if (parent != nullptr) return linkNew(*parent);
    ++scope_;
    parentFrame_ = nullptr;
    depth_ = 0;
    cachedNext_ = nullptr;
    cachedAt_ = nearAt_ = linkChanges();
  }
  // The same for a frame on which no other stands.
  void linkNew(KorTemplateStackFrame& parent) noexcept {
    ++scope_;
    ++parent.children_;
    parentFrame_ = &parent;
    depth_ = parent.depth_ + 1;
    cachedAt_ = nearAt_ = linkChanges();
    cachedNext_ = &parent;
    if (parent.localVariables_.empty()) {
      cachedNext_ = parent.nextWithVariables();
      noteHowNear();
    }
  }
  // Unlinks the frame when it is popped. Of the frames it only looks at `below`, on which the stack still stands: its
  // parent may be gone, if a host has taken that out of the stack.
  void unlink(KorTemplateStackFrame* below) noexcept {
    leaveParent(below);
    if (hasChildren()) [[unlikely]]
      noteLinkChange();
    parentFrame_ = nullptr;
    cachedNext_ = nullptr;
    jump_ = {};
  }
  // The same for a frame that nobody else holds and that is linked anew before it is used again.
  void leaveParent(KorTemplateStackFrame* below) noexcept {
    if (below != nullptr && below == parentFrame_ && below->children_ > 0) --below->children_;
  }
  // Keeps the parent alive for as long as the frame is linked to it, where a host may take it out of the stack.
  void holdParent() { heldParent_ = Ref<KorTemplateStackFrame>::retaining(parentFrame_); }
  // The parent that was held, for the caller to let go of.
  Ref<KorTemplateStackFrame> takeHeldParent() noexcept { return std::exchange(heldParent_, nullptr); }
  // Makes the frame as good as new.
  void reset() noexcept {
    localVariables_.clear();
    children_ = 0;
  }

 private:
  // How often, in this process, a frame with frames above it has gained its first variable or a new name, or a link was
  // set by hand: what frames remember of the frames below holds for as long as that has not happened.
  static std::uint64_t linkChanges() noexcept { return linkChanges_.load(std::memory_order_relaxed); }
  static void noteLinkChange() noexcept { linkChanges_.fetch_add(1, std::memory_order_relaxed); }

  // The nearest frame below that holds variables, so that empty ones cost a lookup nothing.
  KorTemplateStackFrame* nextWithVariables() const noexcept {
    return cachedAt_ == linkChanges() ? cachedNext_ : findNextWithVariables();
  }
  KorTemplateStackFrame* findNextWithVariables() const noexcept;
  void noteHowNear() const noexcept {
    const std::uint32_t below = cachedNext_ == nullptr ? 0 : cachedNext_->depth_;
    nearAt_ = depth_ - below < kFramesOfStep / kFewFrames ? cachedAt_ : UINT64_MAX;
  }
  const Value* findInLongChain(const Name& name) const noexcept;
  const Value* findInLongChain(const Name& name, std::size_t& steps) const noexcept;
  std::size_t stepsOfLookup(const KorTemplateStackFrame* end, std::size_t visited) const noexcept;
  static void countSteps(std::size_t steps) noexcept;
  bool hasChildren() const noexcept { return children_ != 0; }
  // Another thread may let go of a shared object at any moment, and leave its end to this one.
  static bool endsQuietly(const Value& value) noexcept {
    return !value.ownsObject() || value.object()->kind() == ObjectKind::String || value.object()->isHeldElsewhere();
  }
  // Around what may give the frame a name that it did not have; the first answers with what the second takes.
  [[gnu::always_inline]] std::uint64_t beginChange() const noexcept {
    if (localVariables_.empty() && hasChildren()) noteLinkChange();
    return localVariables_.bits();
  }
  [[gnu::always_inline]] void endChange(std::uint64_t bits) const noexcept {
    if (localVariables_.bits() != bits && hasChildren()) [[unlikely]]
      noteLinkChange();
  }

  // Where a lookup goes on that passes a landmark, one of about sixteen frames, for a name that none of the frames up
  // to the next landmark holds. A lookup that walks from one to the other leaves that for the later ones.
  struct Jump {
    const KorTemplateStackFrame* target = nullptr;  // not owned; null for the end of the chain
    std::uint64_t bits = 0;                         // of the names in the frames between
    std::uint64_t scope = UINT64_MAX;               // of the landmark, while this holds
    std::uint64_t changes = 0;                      // of links, while this holds
  };
  bool isLandmark() const noexcept {
    constexpr std::uint64_t kScatter = 0x9E3779B97F4A7C15;  // 2^64 divided by the golden ratio
    return (reinterpret_cast<std::uintptr_t>(this) * kScatter) >> 60 == 0;
  }
  bool hasJump() const noexcept { return jump_.scope == scope_ && jump_.changes == linkChanges(); }

  static std::uint64_t firstScopeOfFrame() noexcept {
    constexpr std::uint64_t kScopesOfAFrame = std::uint64_t{1} << 32;
    static std::atomic<std::uint64_t> frames{0};
    return frames.fetch_add(kScopesOfAFrame, std::memory_order_relaxed);
  }

  // So many are walked through before anything is remembered of the chain, and before it is looked at for a cycle,
  // which a host makes that pushes a frame twice.
  static constexpr int kFewFrames = 16;

  // A lookup through so many is a step, and so none that is found quickly.
  static constexpr std::uint32_t kFramesOfStep = 64;

  static constexpr std::uint32_t kParentForGood = std::uint32_t{1} << 31;
  static inline std::atomic<std::uint64_t> linkChanges_{0};

  // First what a lookup from above asks, close together.
  mutable KorTemplateStackFrame* cachedNext_ = nullptr;  // not owned, like the parent
  mutable std::uint64_t nearAt_ = 0;                     // the number of changes for which that is a few frames below
  mutable std::uint64_t cachedAt_ = 0;                   // and for which it holds at all
  NameMap<Value> localVariables_;                        // by name, without the "$"; never an absent value
  KorTemplateStackFrame* parentFrame_ = nullptr;  // owned by the stack, which links in push() and unlinks in pop()
  std::uint64_t scope_ = firstScopeOfFrame();
  mutable Jump jump_;                      // of a landmark
  Ref<KorTemplateStackFrame> heldParent_;  // while the list of frames is in a host's hands
  std::uint32_t children_ = 0;  // the frames that are linked to this one, or more; for good once a link is set by hand
  std::uint32_t depth_ = 0;     // the frames below this one when it was linked
};

}  // namespace tavlo
