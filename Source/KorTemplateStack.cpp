#include "Source/KorTemplateStack.h"

#include <algorithm>

namespace tavlo {

KorTemplateStack::~KorTemplateStack() {
  while (popKept()) {
  }
}

KorTemplateChildList<Ref<KorTemplateStackFrame>>& KorTemplateStack::frames() noexcept {
  if (!isListLent_) {
    for (const Ref<KorTemplateStackFrame>& frame : frames_) frame->holdParent();
  }
  isListLent_ = true;
  current_ = nullptr;
  return frames_;
}

void KorTemplateStack::append(const Ref<KorTemplateStackFrame>& frame) {
  KorTemplateStackFrame* const parent = current();
  frames_.append(frame);
  frame->link(parent);
  if (isListLent_) {
    frame->holdParent();
  } else {
    current_ = frame.get();
  }
}

KorTemplateStackFrame* KorTemplateStack::pushMade() {
  const Ref<KorTemplateStackFrame> frame = KorTemplateStackFrame::stackFrame();
  append(frame);
  return frame.get();
}

bool KorTemplateStack::popKept() noexcept {
  if (frames_.empty()) return false;
  // What is let go of here may run a host's code, which finds the stack popped.
  const Ref<KorTemplateStackFrame> frame = frames_.takeLast();
  if (!isListLent_) current_ = last();
  frame->unlink(last());
  const Ref<KorTemplateStackFrame> parent = frame->takeHeldParent();
  return true;
}

void KorTemplateStack::resetPopped() noexcept {
  const auto kept = Ref<KorTemplateStack>::retaining(this);  // what ends may let go of it
  Ref<KorTemplateStackFrame> frame = std::exchange(*frames_.spare(), nullptr);
  frame->reset();
  Ref<KorTemplateStackFrame>* const spare = frames_.spare();
  if (spare != nullptr && *spare == nullptr && frame->hasOneReference()) *spare = std::move(frame);
}

bool KorTemplateStack::canResetToFirstFrame() const noexcept {
  const auto isOwn = [](const Ref<KorTemplateStackFrame>& frame) { return frame->hasOneReference(); };
  return !isListLent_ && !frames_.empty() && std::ranges::all_of(frames_, isOwn);
}

void KorTemplateStack::resetToFirstFrame() noexcept {
  while (frames_.count() > 1) (void)popIfAny();
  frames_[0]->reset();
}

void KorTemplateStack::push(const Ref<KorTemplateStackFrame>& frame) {
  requireParameter(frame != nullptr, "frame != nil");
  const Ref<KorTemplateStackFrame> kept = frame;  // which may be an element of the list
  append(kept);
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
