#include "Source/KorTemplateEnumerationStatement.h"

#include <utility>

#include "Foundation/Description.h"
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
inline bool mayServeAgain(const KorTemplateEnvironment& environment, KorTemplateStackFrame* frame, std::uint64_t scope,
                          const KorTemplateStackFrame::LoopEntries& kept) {
  const KorTemplateStack* stack = environment.stack().get();
  if (frame == nullptr || stack == nullptr || stack->current() != frame) return false;
  return frame->scope() == scope && frame->hasOneReference() && frame->leaveIteration(kept);
}

// Takes the next element of a list; absent at the end. Either the list may change while it is walked, or it lends the
// elements, which then belong to it for as long as it lives.
template <class List, class ElementOf>
auto walkerOver(const List& list, bool isLending, const ElementOf& elementOf) {
  return [&list, isLending, elementOf, index = std::size_t{0}]() mutable {
    if (index >= list.size()) return Value();
    const Value& element = elementOf(list[index++]);
    return isLending ? Value::adopt(element.peek()) : element;
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
  // What is shared between threads does not change and holds its elements: to count them again would make the threads
  // wait for one another.
  const bool isLending = object != nullptr && object->isShared();
  const Value nobody;
  const Value& lender = isLending ? collection : nobody;
  const auto itself = [](const Value& element) -> const Value& { return element; };
  if (kind == ObjectKind::Array) {
    const auto& elements = static_cast<const NSArray*>(object)->elements();
    return executeLoop(environment, true, lender, walkerOver(elements, isLending, itself));
  }
  if (kind == ObjectKind::Set) {
    const auto& members = static_cast<const NSSet*>(object)->members();
    return executeLoop(environment, true, lender, walkerOver(members, isLending, itself));
  }
  if (kind == ObjectKind::Dictionary) {
    const auto valueOf = [](const NSDictionary::Entry& entry) -> const Value& { return entry.value; };
    const auto& entries = static_cast<const NSDictionary*>(object)->entries();
    return executeLoop(environment, true, lender, walkerOver(entries, isLending, valueOf));
  }
  const Ref<NSEnumerator> enumerator = object == nullptr ? nullptr : object->objectEnumerator();
  if (enumerator == nullptr) {
    NSException::raise(NSGenericException, "%@ cannot be enumerated because it does not respond to objectEnumerator",
                       collection.className());
  }
  const bool isQuiet = kind == ObjectKind::LazyList && static_cast<const LazyList*>(object)->isQuiet();
  return executeLoop(environment, isQuiet, nobody, [&enumerator] { return enumerator->nextObject(); });
}

// `mayKeepFrame`: the next element is found without anybody else's code, so that the frame of one iteration can stay
// for the next one, as long as nobody else holds it. `lender` holds the elements; absent where each comes with a
// reference of its own.
template <class Next>
// NOLINTNEXTLINE(readability-function-cognitive-complexity): one loop, and its shortcut inside
Completion KorTemplateEnumerationStatement::executeLoop(KorTemplateEnvironment& environment, bool mayKeepFrame,
                                                        const Value& lender, const Next& takeNext) {
  Next next = takeNext;
  const Name& nameOfIndex = indexName();
  std::uint32_t index = 0;
  for (Value element = next(); !element.isAbsent(); element = next()) {
    requireParameter(!loopVariable_.isAbsent(), "name != nil");
    FrameGuard guard(environment);
    KorTemplateStackFrame* const frame = guard.push();
    const std::uint64_t scope = frame == nullptr ? 0 : frame->scope();
    KorTemplateStackFrame::LoopEntries kept;
    if (frame != nullptr) {
      kept = frame->bindLoop(loopVariable_, std::move(element), nameOfIndex, static_cast<std::int32_t>(index), lender);
    }
    for (;;) {
      environment.step();
      const Completion completion = executeStatements(loopStatements_, environment);
      if (completion.isReturn()) return guard.pop(completion);
      ++index;
      if (!mayKeepFrame || !mayServeAgain(environment, frame, scope, kept)) break;
      environment.leaveTo(this);
      element = next();
      if (element.isAbsent()) {
        guard.pop();
        return Completion::wentOn();
      }
      frame->rebindLoop(kept, std::move(element), static_cast<std::int32_t>(index));
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
