#pragma once

#include <cstddef>
#include <span>

#include "Foundation/ListArgument.h"
#include "Foundation/NSObject.h"
#include "Foundation/ObjectArena.h"
#include "Foundation/Ref.h"
#include "Foundation/Value.h"
#include "Source/NodeKind.h"

namespace tavlo {

class KorTemplateEnvironment;
struct NSZone;

// What a template can call by name.
class KorTemplateFunction : public NSObject {
 public:
  // The function's result for the values of a call's arguments, which are good for the call only; may be absent.
  virtual Value invokeWithEnvironment(KorTemplateEnvironment* environment, ListArgument<Value> arguments) = 0;

  // What the engine calls in place of invokeWithEnvironment(). The default calls the public one.
  virtual RawValue invoke(KorTemplateEnvironment& environment, std::span<const Value> arguments);

  // A copy, for functions that have one; the function itself for all others.
  virtual Ref<KorTemplateFunction> copyWithZone(NSZone* zone = nullptr) const;

  const char* className() const override { return "KorTemplateFunction"; }

  static void* operator new(std::size_t size) { return ObjectArena::allocate(size); }
  static void operator delete(void* memory) noexcept { ObjectArena::free(memory); }
  static void* operator new(std::size_t size, std::align_val_t alignment) {
    return ObjectArena::allocate(size, alignment);
  }
  static void operator delete(void* memory, std::align_val_t alignment) noexcept {
    ObjectArena::free(memory, alignment);
  }

 protected:
  explicit KorTemplateFunction(ObjectKind kind = ObjectKind::Other) : NSObject(kind, Counting::Atomic) {}
};

}  // namespace tavlo
