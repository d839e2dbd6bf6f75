#include "Source/KorTemplateStack.h"

#include <utility>

namespace tavlo {

void KorTemplateStack::push(const Ref<KorTemplateStackFrame>& frame) {
  requireParameter(frame != nullptr, "frame != nil");
  KorTemplateStackFrame* parent = current();
  frames_.append(frame);
  frame->link(parent);
}

void KorTemplateStack::pop() {
  if (!popIfAny()) failAssertion("Stack frame is empty");
}

bool KorTemplateStack::popIfAny() noexcept {
  constexpr std::size_t kMostSpare = 1024;
  if (frames_.empty()) return false;
  Ref<KorTemplateStackFrame> frame = frames_.takeLast();
  frame->unlink();
  if (!frame->hasOneReference() || spareFrames_.size() == kMostSpare) return true;
  frame->reset();
  if (spareFrames_.size() < spareFrames_.capacity()) spareFrames_.push_back(std::move(frame));
  return true;
}

Ref<KorTemplateStackFrame> KorTemplateStack::takeFrame() {
  if (!spareFrames_.empty()) {
    Ref<KorTemplateStackFrame> frame = std::move(spareFrames_.back());
    spareFrames_.pop_back();
    return frame;
  }
  // Room for its return, so that a pop never allocates.
  if (spareFrames_.capacity() <= static_cast<std::size_t>(frames_.count())) {
    spareFrames_.reserve(static_cast<std::size_t>(frames_.count()) * 2 + 8);
  }
  return KorTemplateStackFrame::stackFrame();
}

Ref<KorTemplateStack> KorTemplateStack::copyWithZone(NSZone* zone) {
  Ref<KorTemplateStack> copy = stack();
  const std::int32_t count = frames_.count();  // of the frames that are there now
  for (std::int32_t index = 0; index < count; ++index) push(frames_[index]->copyWithZone(zone));
  return copy;
}

}  // namespace tavlo
