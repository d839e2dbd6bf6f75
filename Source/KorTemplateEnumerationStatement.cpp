#include "Source/KorTemplateEnumerationStatement.h"

#include <utility>

#include "Foundation/Description.h"
#include "Foundation/HostCalls.h"
#include "Foundation/Lasting.h"
#include "Foundation/LazyList.h"
#include "Foundation/NSArray.h"
#include "Foundation/NSDictionary.h"
#include "Foundation/NSException.h"
#include "Foundation/NSSet.h"
#include "Foundation/StackGuard.h"
#include "Source/FrameGuard.h"
#include "Source/Operand.h"

namespace tavlo {

namespace {

const Name& indexName() {
  static const Lasting<Name> name("@@index");
  return name.object;
}

// Whether the frame may serve the next iteration, and is ready for it: it is the current one still, in the scope it was
// pushed for, nobody else holds it, and no host's code runs when it lets go of its variables.
template <bool IsLent>
bool mayServeAgain(const KorTemplateEnvironment& environment, KorTemplateStackFrame* frame, std::uint64_t scope,
                   bool hasVariable) {
  const KorTemplateStack* stack = environment.stack().get();
  if (frame == nullptr || stack == nullptr || stack->current() != frame) return false;
  return frame->scope() == scope && frame->hasOneReference() && frame->leaveIteration<IsLent>(hasVariable);
}

// Takes the next element of a list that may change while it is walked; absent at the end.
template <class List, class ElementOf>
auto walkerOver(const List& list, const ElementOf& elementOf) {
  return [&list, elementOf, index = std::size_t{0}]() mutable {
    return index < list.size() ? Value(elementOf(list[index++])) : Value();
  };
}

// The same of a list that does not change, without a look at the list, whose references other threads count: each
// element is lent.
template <class List, class ElementOf>
auto lendingWalkerOver(const List& list, const ElementOf& elementOf) {
  return [next = list.data(), end = list.data() + list.size(), elementOf]() mutable {
    return next != end ? Value::adopt(elementOf(*next++).peek()) : Value();
  };
}

}  // namespace

KorTemplateEnumerationStatement::KorTemplateEnumerationStatement()
    : KorTemplateEnumerationStatement(KorTemplateLiteralExpression::expressionWithLiteral(NSNull::null()), "object") {}

void KorTemplateEnumerationStatement::setExpression(const Ref<KorTemplateExpression>& value) {
  requireParameter(value != nullptr, "value != nil");
  expression_ = value;
}

void KorTemplateEnumerationStatement::setLoopVariable(const Name& value) {
  requireParameter(!value.isAbsent(), "value != nil");
  loopVariable_ = value;
}

void KorTemplateEnumerationStatement::executeWithEnvironment(KorTemplateEnvironment* environment) {
  requireParameter(environment != nullptr, "environment != nil");
  executePublicly(*environment);
}

Completion KorTemplateEnumerationStatement::execute(KorTemplateEnvironment& environment) {
  environment.checkStack();
  const Value collection = expression_ == nullptr ? Value() : Value::adopt(expression_->evaluate(environment));
  if (collection.isNull()) return Completion::wentOn();
  const NSObject* object = collection.object();
  const ObjectKind kind = object == nullptr ? ObjectKind::Other : object->kind();
  const auto itself = [](const Value& element) -> const Value& { return element; };
  const auto valueOf = [](const NSDictionary::Entry& entry) -> const Value& { return entry.value; };
  if (kind == ObjectKind::Array) {
    return executeOver(environment, collection, static_cast<const NSArray*>(object)->elements(), itself);
  }
  if (kind == ObjectKind::Set) {
    return executeOver(environment, collection, static_cast<const NSSet*>(object)->members(), itself);
  }
  if (kind == ObjectKind::Dictionary) {
    return executeOver(environment, collection, static_cast<const NSDictionary*>(object)->entries(), valueOf);
  }
  const Ref<NSEnumerator> enumerator = requireEnumerator(collection);
  const bool isQuiet = kind == ObjectKind::LazyList && static_cast<const LazyList*>(object)->isQuiet();
  return executeLoop<false>(environment, isQuiet, Value(), [&enumerator] { return nextElement(*enumerator); });
}

// What is shared between threads does not change and holds its elements: to count them again would make the threads
// wait for one another.
template <class List, class ElementOf>
Completion KorTemplateEnumerationStatement::executeOver(KorTemplateEnvironment& environment, const Value& collection,
                                                        const List& list, const ElementOf& elementOf) {
  if (collection.object()->isShared()) {
    return executeLoop<true>(environment, true, collection, lendingWalkerOver(list, elementOf));
  }
  return executeLoop<false>(environment, true, collection, walkerOver(list, elementOf));
}

// `mayKeepFrame`: the next element is found without anybody else's code, so that the frame of one iteration can stay
// for the next one, as long as nobody else holds it. `IsLent`: the collection holds the elements, which come without a
// reference of their own.
template <bool IsLent, class Next>
// NOLINTNEXTLINE(readability-function-cognitive-complexity): one loop, and its shortcut inside
Completion KorTemplateEnumerationStatement::executeLoop(KorTemplateEnvironment& environment, bool mayKeepFrame,
                                                        const Value& collection, const Next& takeNext) {
  Next next = takeNext;
  const Name& nameOfIndex = indexName();
  const bool hasVariable = loopVariable_ != nameOfIndex;  // beside the index
  std::uint32_t index = 0;
  for (Value element = next(); !element.isAbsent(); element = next()) {
    requireParameter(!loopVariable_.isAbsent(), "name != nil");
    FrameGuard guard(environment);
    KorTemplateStackFrame* const frame = guard.push();
    const std::uint64_t scope = frame == nullptr ? 0 : frame->scope();
    if (frame != nullptr) {
      frame->bindLoop<IsLent>(loopVariable_, std::move(element), nameOfIndex, static_cast<std::int32_t>(index),
                              collection);
    }
    for (;;) {
      environment.step();
      const Completion completion = executeStatements(loopStatements_, environment);
      if (completion.isReturn()) return guard.pop(completion);
      ++index;
      if (!mayKeepFrame || !mayServeAgain<IsLent>(environment, frame, scope, hasVariable)) break;
      environment.leaveTo(this);
      element = next();
      if (element.isAbsent()) {
        guard.pop();
        return Completion::wentOn();
      }
      frame->rebindLoop<IsLent>(hasVariable, std::move(element), static_cast<std::int32_t>(index));
    }
    guard.pop();
    environment.leaveTo(this);
  }
  return Completion::wentOn();
}

Ref<KorTemplateStatement> KorTemplateEnumerationStatement::copyWithZone(NSZone* /*zone*/) const {
  checkStack();
  Ref<KorTemplateEnumerationStatement> copy =
      makeRef<KorTemplateEnumerationStatement>(copyOf(expression_), loopVariable_);
  copy->setSourceRange(sourceRange());
  loopStatements_.forEach(
      [&](const Ref<KorTemplateStatement>& statement) { copy->addLoopStatement(copyOf(statement)); });
  return copy;
}

void KorTemplateEnumerationStatement::describe(Description& out) const {
  out.format("{ %@, loopVariable: \"%@\", expression: %@, loopStatements: %@ }", Description::base(*this),
             loopVariable_, expression_, loopStatements_.items());
}

}  // namespace tavlo
