#pragma once

#include <cstddef>

#include "Foundation/NSObject.h"
#include "Foundation/ObjectArena.h"
#include "Foundation/Ref.h"
#include "Foundation/Value.h"
#include "Source/NodeKind.h"

namespace tavlo {

class KorTemplateEnvironment;
struct NSZone;

// What has a value: literals, variables, operators, calls.
class KorTemplateExpression : public NSObject {
 public:
  // The value; may be absent.
  virtual Value evaluateWithEnvironment(KorTemplateEnvironment* environment) = 0;

  // A copy with copies of all nodes inside it.
  virtual Ref<KorTemplateExpression> copyWithZone(NSZone* zone = nullptr) const = 0;

  // What the engine calls in place of evaluateWithEnvironment(). The default calls the public one.
  virtual RawValue evaluate(KorTemplateEnvironment& environment);

  const char* className() const override { return "KorTemplateExpression"; }

  static void* operator new(std::size_t size) { return ObjectArena::allocate(size); }
  static void operator delete(void* memory, std::size_t size) noexcept { ObjectArena::free(memory, size); }
  static void* operator new(std::size_t size, std::align_val_t alignment) {
    return ObjectArena::allocate(size, alignment);
  }
  static void operator delete(void* memory, std::align_val_t alignment) noexcept {
    ObjectArena::free(memory, alignment);
  }

 protected:
  explicit KorTemplateExpression(ObjectKind kind = ObjectKind::Other) : NSObject(kind, Counting::Atomic) {}
};

// A copy of the node, of the protocol's type; absent for an absent node.
template <class Node>
Ref<Node> copyOf(const Ref<Node>& node) {
  return node == nullptr ? Ref<Node>() : node->copyWithZone();
}

}  // namespace tavlo
