#include "Source/KorTemplateLayer.h"

#include "Foundation/NSArray.h"
#include "Foundation/NSException.h"

namespace tavlo {

void KorTemplateLayer::requireOpen() const {
  if (state_ != State::Open) failAssertion("A layer that is shared cannot change");
}

void KorTemplateLayer::setValueForGlobalVariableWithName(const Value& variable, const Name& name) {
  requireParameter(!variable.isAbsent(), "variable != nil");
  requireParameter(!name.isAbsent(), "name != nil");
  requireOpen();
  (void)globals_.set(name, variable);
}

void KorTemplateLayer::setFunctionForName(const Ref<KorTemplateFunction>& function, const Name& name) {
  requireParameter(function != nullptr, "function != nil");
  requireParameter(!name.isAbsent(), "name != nil");
  requireOpen();
  (void)functions_.set(name, function);
}

void KorTemplateLayer::share() {
  if (state_ != State::Open) return;
  const Ref<KorTemplateLayer> itself = Ref<KorTemplateLayer>::retaining(this);  // who is asked may let go of it
  state_ = State::BeingShared;  // the classes that are asked are a host's, and may not change the layer
  try {
    shareAll();
  } catch (...) {
    state_ = State::Open;
    throw;
  }
  state_ = State::Frozen;
}

void KorTemplateLayer::shareAll() const {
  for (const auto& entry : functions_) {
    if (entry.value->canBeShared()) continue;
    NSException::raise(NSInvalidArgumentException,
                       "The function \"%@\" cannot be shared between threads: its class %s must answer canBeShared()",
                       entry.name, entry.value->className());
  }
  std::vector<Value> values;
  values.reserve(globals_.size());
  for (const auto& entry : globals_) values.push_back(entry.value);
  Value(makeRef<NSArray>(values)).share();  // as one, so that it refuses before it changes anything
}

Value KorTemplateLayer::valueForGlobalVariableWithName(const Name& name) const {
  requireParameter(!name.isAbsent(), "name != nil");
  const Value* const value = findVariable(name);
  return value == nullptr ? Value() : *value;
}

Ref<KorTemplateFunction> KorTemplateLayer::functionForName(const Name& name) const {
  requireParameter(!name.isAbsent(), "name != nil");
  return Ref<KorTemplateFunction>::retaining(findFunction(name));
}

}  // namespace tavlo
