#include "Source/KorTemplateStackFrame.h"

namespace tavlo {

namespace {

// Tells when a walk along a chain comes back to where it has been: by the places it remembers, each twice as many steps
// behind the one before (R. P. Brent, "An improved Monte Carlo factorization algorithm", 1980).
class CycleWatch {
 public:
  bool isBackAt(const KorTemplateStackFrame* frame) noexcept {
    if (frame == mark_) return true;
    if (++steps_ == nextMark_) {
      mark_ = frame;
      nextMark_ *= 2;
    }
    return false;
  }

 private:
  const KorTemplateStackFrame* mark_ = nullptr;
  std::uint64_t steps_ = 0;
  std::uint64_t nextMark_ = 1;
};

}  // namespace

KorTemplateStackFrame::KorTemplateStackFrame(const Ref<NSDictionary>& variables) {
  requireParameter(variables != nullptr, "variables != nil");
  for (const NSDictionary::Entry& entry : variables->entries()) {
    (void)localVariables_.set(entry.key->view(), entry.value);
  }
}

Ref<KorTemplateStackFrame> KorTemplateStackFrame::stackFrameWithLocalVariables(const Ref<NSDictionary>& variables) {
  requireParameter(variables != nullptr, "variables != nil");
  return makeRef<KorTemplateStackFrame>(variables);
}

void KorTemplateStackFrame::setParentFrame(KorTemplateStackFrame* parentFrame) {
  parentFrame_ = parentFrame;
  if (parentFrame != nullptr) parentFrame->children_ |= kParentForGood;
  noteLinkChange();
}

std::vector<Name> KorTemplateStackFrame::localVariableNames() const {
  std::vector<Name> names;
  for (const auto& entry : localVariables_) names.push_back(entry.name);
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
  for (const auto& entry : localVariables_) copy->append(entry.name, entry.value);
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
  return next;
}

const Value* KorTemplateStackFrame::findInLongChain(const Name& name) const noexcept {
  CycleWatch watch;
  for (const KorTemplateStackFrame* frame = this; frame != nullptr && !watch.isBackAt(frame);
       frame = frame->nextWithVariables()) {
    if (const Value* value = frame->localVariables_.find(name)) return value;
  }
  return nullptr;
}

}  // namespace tavlo
