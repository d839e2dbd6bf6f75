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
    // A loop: recursive templates make chains as long as the stack is deep.
    for (const KorTemplateStackFrame* frame = this; frame != nullptr; frame = frame->nextWithVariables()) {
      if (const Value* value = frame->localVariables_.find(name)) return value;
    }
    return nullptr;
  }
  void set(const Name& name, Value value) {
    if (localVariables_.empty()) gainFirstVariable();
    (void)localVariables_.set(name, std::move(value));
  }
  // The same for a name that the frame does not have yet.
  void append(const Name& name, Value value) {
    if (localVariables_.empty()) gainFirstVariable();
    localVariables_.append(name, std::move(value));
  }

  // A loop's element and its index, in a frame that holds nothing yet; a loop variable of the index's own name reads
  // the index.
  void bindLoop(const Name& variable, Value element, const Name& indexName, std::int32_t index) {
    append(variable, std::move(element));
    set(indexName, index);
  }
  // The same for the next iteration in the same frame: all that the body has stored goes.
  void rebindLoop(const Name& variable, Value element, const Name& indexName, std::int32_t index) {
    if (variable == indexName) {
      localVariables_.truncate(1);
      localVariables_.at(0) = index;
      return;
    }
    localVariables_.truncate(2);
    localVariables_.at(0) = std::move(element);
    localVariables_.at(1) = index;
  }

  // The same for the first variable of a frame that nobody has pushed upon yet.
  void setFirst(const Name& name, const Value& value) { localVariables_.append(name, value); }

  // Whether letting go of the variables may run a host's code.
  bool holdsForeignObjects() const noexcept {
    for (const auto& entry : localVariables_) {
      if (entry.value.isObject() && !entry.value.isString()) return true;
    }
    return false;
  }

  // Differs between the scopes that one frame serves, and between frames.
  std::uint64_t scope() const noexcept { return scope_; }

  // Links the frame to the one below when it is pushed, and unlinks it when it is popped.
  void link(KorTemplateStackFrame* parent) noexcept {
    ++scope_;
    parentFrame_ = parent;
    if (parent == nullptr) return;
    parent->isParent_ = true;
    cachedNext_ = parent->localVariables_.empty() ? parent->nextWithVariables() : parent;
    cachedAt_ = linkChanges();
  }
  void unlink() noexcept {
    if (parentFrame_ != nullptr) parentFrame_->isParent_ = false;
    parentFrame_ = nullptr;
    cachedNext_ = nullptr;
  }
  // Makes the frame as good as new.
  void reset() noexcept {
    localVariables_.clear();
    isParent_ = false;
    isParentByHand_ = false;
  }

 private:
  // How often, in this process, a frame with frames above it has gained its first variable, or a link was set by hand:
  // what frames remember of the frames below holds for as long as that has not happened.
  static std::uint64_t linkChanges() noexcept { return linkChanges_.load(std::memory_order_relaxed); }
  static void noteLinkChange() noexcept { linkChanges_.fetch_add(1, std::memory_order_relaxed); }

  // The nearest frame below that holds variables, so that empty ones cost a lookup nothing.
  KorTemplateStackFrame* nextWithVariables() const noexcept {
    return cachedAt_ == linkChanges() ? cachedNext_ : findNextWithVariables();
  }
  KorTemplateStackFrame* findNextWithVariables() const noexcept;
  void gainFirstVariable() noexcept {
    if (isParent_ || isParentByHand_) noteLinkChange();
  }

  static std::uint64_t firstScopeOfFrame() noexcept {
    constexpr std::uint64_t kScopesOfAFrame = std::uint64_t{1} << 32;
    static std::atomic<std::uint64_t> frames{0};
    return frames.fetch_add(kScopesOfAFrame, std::memory_order_relaxed);
  }

  static inline std::atomic<std::uint64_t> linkChanges_{0};

  NameMap<Value> localVariables_;                 // by name, without the "$"; never an absent value
  KorTemplateStackFrame* parentFrame_ = nullptr;  // owned by the stack, which links in push() and unlinks in pop()
  mutable KorTemplateStackFrame* cachedNext_ = nullptr;  // not owned, like the parent
  mutable std::uint64_t cachedAt_ = 0;                   // the number of changes for which cachedNext_ holds
  std::uint64_t scope_ = firstScopeOfFrame();
  bool isParentByHand_ = false;  // some frame's link was set to this one by hand
  bool isParent_ = false;        // some frame's parent is, or was, this one
};

}  // namespace tavlo
