#pragma once

#include <vector>

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
  static Ref<KorTemplateStack> stack() { return makeRef<KorTemplateStack>(); }

  // Absent while there are no frames.
  Ref<KorTemplateStackFrame> firstFrame() const { return frames_.empty() ? nullptr : frames_[0]; }
  Ref<KorTemplateStackFrame> currentFrame() const { return frames_.empty() ? nullptr : frames_[frames_.count() - 1]; }
  // The list itself, from the first frame to the current one.
  KorTemplateChildList<Ref<KorTemplateStackFrame>>& frames() noexcept { return frames_; }

  // Puts the frame, which may not be absent, on top of the current one.
  void push(const Ref<KorTemplateStackFrame>& frame);
  // Takes the current frame off; without one fails with "Stack frame is empty".
  void pop();

  // An empty stack. A copy of each frame is pushed onto this stack itself, from the first frame on: nothing in the engine
  // copies a stack, and whoever does gets exactly this.
  Ref<KorTemplateStack> copyWithZone(NSZone* zone = nullptr);

  const char* className() const override { return "KorTemplateStack"; }

  // What the engine uses in place of the above.

  // The current frame, lent; null while there is none.
  KorTemplateStackFrame* current() const noexcept {
    return frames_.empty() ? nullptr : frames_[frames_.count() - 1].get();
  }
  // An empty frame for push(): one that was popped and that nobody kept, where there is one.
  Ref<KorTemplateStackFrame> takeFrame() {
    if (spareFrames_.empty()) return makeFrame();
    Ref<KorTemplateStackFrame> frame = std::move(spareFrames_.back());
    spareFrames_.pop_back();
    return frame;
  }
  // The same as push(), for a frame that is not absent.
  void pushFrame(Ref<KorTemplateStackFrame> frame) {
    KorTemplateStackFrame& pushed = *frame;
    KorTemplateStackFrame* const parent = current();
    frames_.append(std::move(frame));
    pushed.link(parent);
  }
  // The same as pop(), but false instead of an exception.
  bool popIfAny() noexcept {
    if (frames_.empty()) return false;
    Ref<KorTemplateStackFrame> frame = frames_.takeLast();
    frame->unlink();
    if (frame->hasOneReference() && spareFrames_.size() < spareFrames_.capacity()) {
      frame->reset();
      spareFrames_.push_back(std::move(frame));
    }
    return true;
  }

 private:
  static constexpr std::size_t kMostSpare = 1024;

  Ref<KorTemplateStackFrame> makeFrame();

  KorTemplateChildList<Ref<KorTemplateStackFrame>> frames_{"frames", "frame"};
  std::vector<Ref<KorTemplateStackFrame>> spareFrames_;  // empty, for the next push; never grown by a pop
};

}  // namespace tavlo
