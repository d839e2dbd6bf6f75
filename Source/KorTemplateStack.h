#pragma once

#include <utility>

#include "Foundation/NSObject.h"
#include "Foundation/Ref.h"
#include "Source/KorTemplateChildList.h"
#include "Source/KorTemplateStackFrame.h"

namespace tavlo {

// The scopes of a running template, the first one at the bottom.
class KorTemplateStack final : public NSObject {
 public:
  // A stack without frames.
  KorTemplateStack() = default;
  // Frames that somebody keeps lose their links.
  ~KorTemplateStack() override;
  static Ref<KorTemplateStack> stack() { return makeRef<KorTemplateStack>(); }

  // Absent while there are no frames.
  Ref<KorTemplateStackFrame> firstFrame() const { return frames_.empty() ? nullptr : frames_[0]; }
  Ref<KorTemplateStackFrame> currentFrame() const { return frames_.empty() ? nullptr : frames_[frames_.count() - 1]; }
  // The list itself, from the first frame to the current one.
  KorTemplateChildList<Ref<KorTemplateStackFrame>>& frames() noexcept;

  // Puts the frame, which may not be absent, on top of the current one.
  void push(const Ref<KorTemplateStackFrame>& frame);
  // Takes the current frame off; without one fails with "Stack frame is empty".
  void pop();

  // An empty stack. A copy of each frame is pushed onto this stack itself, from the first frame on: nothing in the
  // engine copies a stack, and whoever does gets exactly this.
  Ref<KorTemplateStack> copyWithZone(NSZone* zone = nullptr);

  const char* className() const override { return "KorTemplateStack"; }

  // What the engine uses in place of the above.

  // The current frame, lent; null while there is none.
  KorTemplateStackFrame* current() const noexcept { return current_ != nullptr ? current_ : last(); }
  // Opens a scope with an empty frame, one that was popped and that nobody kept where there is one. It is lent until it
  // is popped.
  KorTemplateStackFrame* pushNew() {
    Ref<KorTemplateStackFrame>* const spare = frames_.spare();
    if (current_ == nullptr || spare == nullptr || *spare == nullptr) [[unlikely]]
      return pushMade();
    frames_.takeSpare();
    KorTemplateStackFrame* const frame = spare->get();
    frame->linkNew(*current_);
    current_ = frame;
    return frame;
  }
  // Whether there is a frame, and nobody else holds one or the list.
  bool canResetToFirstFrame() const noexcept;
  // Leaves the first frame alone then, without variables.
  void resetToFirstFrame() noexcept;
  // The same as pop(), but false instead of an exception.
  [[gnu::always_inline]] bool popIfAny() noexcept {
    KorTemplateStackFrame* const frame = current_;
    if (frame == nullptr || !frame->hasOneReference()) [[unlikely]]
      return popKept();
    frames_.leaveLast();
    current_ = last();
    frame->leaveParent(current_);
    if (!frame->resetQuietly()) [[unlikely]]
      resetPopped();
    return true;
  }

  // Lets go of most of the frames that wait to be pushed again, where a deep recursion has left very many.
  void trimSpareFrames() noexcept { frames_.trimSpare(); }

 private:
  KorTemplateStackFrame* pushMade();
  void append(const Ref<KorTemplateStackFrame>& frame);
  // Pops a frame that somebody else holds, or may hold.
  bool popKept() noexcept;
  // Empties the frame that was popped last, whose variables' ends may run a host's code, which may use this stack
  // meanwhile.
  void resetPopped() noexcept;

  KorTemplateStackFrame* last() const noexcept { return frames_.empty() ? nullptr : frames_.last().get(); }

  KorTemplateChildList<Ref<KorTemplateStackFrame>> frames_{KorTemplateChildListRole::Frames};
  KorTemplateStackFrame* current_ = nullptr;  // the last of frames_; null once somebody else can change the list
  bool isListLent_ = false;
};

}  // namespace tavlo
