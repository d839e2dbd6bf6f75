#pragma once

#include <utility>

#include "Foundation/NSObject.h"
#include "Foundation/Name.h"
#include "Foundation/Ref.h"
#include "Foundation/Value.h"
#include "Foundation/ValueConversion+Scalars.h"
#include "Source/KorTemplateFunction.h"
#include "Source/NameMap.h"

namespace tavlo {

// Globals and functions that many environments have in common, below their own: built once, frozen by share(), and from
// then on read by any number of threads at once. An environment's own variables and functions hide those of its layer,
// and nothing that a template does changes the layer.
class KorTemplateLayer final : public NSObject {
 public:
  // An empty one.
  KorTemplateLayer() : NSObject(ObjectKind::Other, Counting::Atomic) {}
  static Ref<KorTemplateLayer> layer() { return makeRef<KorTemplateLayer>(); }

  // Each stores in place of an old one of that name. No argument may be absent. Raises
  // `NSInternalInconsistencyException` once the layer is shared.
  void setValueForGlobalVariableWithName(const Value& variable, const Name& name);
  void setFunctionForName(const Ref<KorTemplateFunction>& function, const Name& name);
  // A global of anything that becomes a value, as an environment's.
  template <ConvertibleToValue T>
  void setGlobal(const Name& name, T&& object) {
    setValueForGlobalVariableWithName(valueOf(std::forward<T>(object)), name);
  }

  // A function of anything that can be called, as an environment's; Source/KorTemplateCallableFunction.h has it.
  // Several threads may call it at once, and it must bear that: nothing that it captures may change unguarded.
  template <class... Callables>
  void setFunction(const Name& name, Callables&&... callables);

  // Freezes the layer and all that it holds; no more than that where it is frozen already. Raises
  // `NSInvalidArgumentException`, and freezes nothing of the layer, where it holds an object or a function of the
  // host's that several threads may not use at once: the class must answer canBeShared() with true.
  void share();
  bool isFrozen() const noexcept { return state_ == State::Frozen; }

  // Absent where there is none of that name, which may not be absent.
  Value valueForGlobalVariableWithName(const Name& name) const;
  Ref<KorTemplateFunction> functionForName(const Name& name) const;

  bool canBeShared() const override { return state_ != State::Open; }  // it may hold itself
  const char* className() const override { return "KorTemplateLayer"; }

  // What the engine uses: lent, null where there is none.
  const Value* findVariable(const Name& name) const noexcept { return globals_.find(name); }
  KorTemplateFunction* findFunction(const Name& name) const noexcept {
    const Ref<KorTemplateFunction>* function = functions_.find(name);
    return function == nullptr ? nullptr : function->get();
  }

 private:
  // While it is being shared it does not change, but may still be refused: no environment uses it.
  enum class State : unsigned char { Open, BeingShared, Frozen };

  void requireOpen() const;
  void shareAll() const;

  NameMap<Value> globals_;
  NameMap<Ref<KorTemplateFunction>> functions_;
  State state_ = State::Open;
};

}  // namespace tavlo
