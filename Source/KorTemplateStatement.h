#pragma once

#include <cstddef>

#include "Foundation/NSObject.h"
#include "Foundation/ObjectArena.h"
#include "Foundation/Ref.h"
#include "Source/Completion.h"
#include "Source/NodeKind.h"
#include "Source/SourceRange.h"

namespace tavlo {

class KorTemplateEnvironment;
// Where a copy is made; accepted everywhere and ignored.
struct NSZone;

// What a template is made of: literal text, blocks and control structures, each run against an environment.
class KorTemplateStatement : public NSObject {
 public:
  // Runs the statement. A return inside it leaves as a raised `KorTemplateReturnIndication`.
  virtual void executeWithEnvironment(KorTemplateEnvironment* environment) = 0;

  // A copy with copies of all nodes inside it.
  virtual Ref<KorTemplateStatement> copyWithZone(NSZone* zone = nullptr) const = 0;

  // What the engine calls in place of executeWithEnvironment(): a return is an answer, not an exception. The default
  // calls the public one. Who calls it for a node inside its own keeps that node until its own has ended: failures are
  // told of by the statement that was entered last. A template, whose end goes back to the one before, asks nothing of
  // the kind, and neither does executeWithEnvironment().
  virtual Completion execute(KorTemplateEnvironment& environment);

  // Where the statement, or its opening block, stands in the template's text; nowhere for one made by hand.
  SourceRange sourceRange() const noexcept { return sourceRange_; }
  void setSourceRange(SourceRange range) noexcept { sourceRange_ = range; }

  const char* className() const override { return "KorTemplateStatement"; }

  static void* operator new(std::size_t size) { return ObjectArena::allocate(size); }
  static void operator delete(void* memory, std::size_t size) noexcept { ObjectArena::free(memory, size); }
  static void* operator new(std::size_t size, std::align_val_t alignment) {
    return ObjectArena::allocate(size, alignment);
  }
  static void operator delete(void* memory, std::align_val_t alignment) noexcept {
    ObjectArena::free(memory, alignment);
  }

 protected:
  explicit KorTemplateStatement(ObjectKind kind = ObjectKind::Other) : NSObject(kind, Counting::Atomic) {}

  // What the public executeWithEnvironment() of a statement does that implements execute().
  void executePublicly(KorTemplateEnvironment& environment);

 private:
  SourceRange sourceRange_;
};

}  // namespace tavlo
