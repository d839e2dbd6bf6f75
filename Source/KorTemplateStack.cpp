#include "Source/KorTemplateStack.h"

#include <algorithm>

namespace tavlo {

void KorTemplateStack::push(const Ref<KorTemplateStackFrame>& frame) {
  requireParameter(frame != nullptr, "frame != nil");
  pushFrame(frame);
}

void KorTemplateStack::pop() {
  if (!popIfAny()) failAssertion("Stack frame is empty");
}

Ref<KorTemplateStackFrame> KorTemplateStack::makeFrame() {
  // Room for its return, so that a pop never allocates.
  const auto depth = static_cast<std::size_t>(frames_.count()) + 1;
  if (spareFrames_.capacity() < depth && spareFrames_.capacity() < kMostSpare) {
    spareFrames_.reserve(std::min(std::max(depth * 2, std::size_t{16}), kMostSpare));
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
