#include "Source/KorTemplateStack.h"

namespace tavlo {

KorTemplateStack::~KorTemplateStack() {
  for (const Ref<KorTemplateStackFrame>& frame : frames_) frame->unlink();
}

void KorTemplateStack::resetApart(Ref<KorTemplateStackFrame> frame) noexcept {
  frame->reset();
  Ref<KorTemplateStackFrame>* const spare = frames_.spare();
  if (spare != nullptr && *spare == nullptr && frame->hasOneReference()) *spare = std::move(frame);
}

void KorTemplateStack::push(const Ref<KorTemplateStackFrame>& frame) {
  requireParameter(frame != nullptr, "frame != nil");
  KorTemplateStackFrame* const parent = current();
  frames_.append(frame);
  frame->link(parent);
  current_ = frame.get();
}

void KorTemplateStack::pop() {
  if (!popIfAny()) failAssertion("Stack frame is empty");
}

Ref<KorTemplateStack> KorTemplateStack::copyWithZone(NSZone* zone) {
  Ref<KorTemplateStack> copy = stack();
  const std::int32_t count = frames_.count();  // of the frames that are there now
  for (std::int32_t index = 0; index < count; ++index) push(frames_[index]->copyWithZone(zone));
  return copy;
}

}  // namespace tavlo
