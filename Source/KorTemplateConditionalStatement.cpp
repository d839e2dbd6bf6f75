#include "Source/KorTemplateConditionalStatement.h"

#include <utility>

#include "Foundation/CycleWatch.h"
#include "Foundation/Description.h"
#include "Foundation/NSException.h"
#include "Foundation/StackGuard.h"
#include "Source/FrameGuard.h"
#include "Source/Operand.h"

namespace tavlo {

namespace {

// The conditional that the statement is; null for every other statement.
const KorTemplateConditionalStatement* conditionalIn(const KorTemplateStatement& statement) {
  return statement.kind() == kConditionalKind ? static_cast<const KorTemplateConditionalStatement*>(&statement)
                                              : nullptr;
}

// Runs statements from `index` on, but for the last one where that is a conditional: it is handed back in `last`.
Completion executeUpToConditional(const KorTemplateChildList<Ref<KorTemplateStatement>>& statements, std::int32_t index,
                                  KorTemplateEnvironment& environment, const KorTemplateConditionalStatement*& last) {
  Completion completion = Completion::wentOn();
  while (!completion.isReturn() && index < statements.count()) {
    KorTemplateStatement& statement = *statements[index];
    if (++index == statements.count()) last = conditionalIn(statement);
    if (last != nullptr) break;
    completion = statement.execute(environment);
    if (!completion.isReturn()) completion = runQuietly(statements, index, environment);
  }
  return completion;
}

}  // namespace

KorTemplateConditionalStatement::KorTemplateConditionalStatement()
    : KorTemplateConditionalStatement(KorTemplateLiteralExpression::expressionWithLiteral(false)) {}

KorTemplateConditionalStatement::KorTemplateConditionalStatement(Ref<KorTemplateExpression> expression)
    : KorTemplateStatement(kConditionalKind), expression_(std::move(expression)) {
  requireParameter(expression_ != nullptr, "theExpression != nil");
}

Ref<KorTemplateConditionalStatement> KorTemplateConditionalStatement::statementWithExpression(
    Ref<KorTemplateExpression> expression) {
  requireParameter(expression != nullptr, "expression != nil");
  return makeRef<KorTemplateConditionalStatement>(std::move(expression));
}

inline const KorTemplateChildList<Ref<KorTemplateStatement>>& KorTemplateConditionalStatement::chosenStatements(
    KorTemplateEnvironment& environment) const {
  const RawValue condition = expression_ == nullptr ? RawValue::absent() : lentOrEvaluated(*expression_, environment);
  if (condition.kind() == ValueKind::Boolean) [[likely]]
    return condition.payload.unsignedInteger != 0 ? trueStatements_ : falseStatements_;
  const Value held = Value::adopt(condition);
  return convertToBool(held) ? trueStatements_ : falseStatements_;
}

void KorTemplateConditionalStatement::executeWithEnvironment(KorTemplateEnvironment* environment) {
  requireParameter(environment != nullptr, "environment != nil");
  executePublicly(*environment);
}

Completion KorTemplateConditionalStatement::execute(KorTemplateEnvironment& environment) {
  environment.checkStack();
  const KorTemplateChildList<Ref<KorTemplateStatement>>& statements = chosenStatements(environment);
  std::int32_t index = 0;
  const Completion completion = runQuietly(statements, index, environment);
  if (completion.isReturn() || index >= statements.count()) return completion;
  return executeBranch(statements, index, environment);
}

// Runs the branch that was chosen, from the first statement on that needs its scope. Where the last one is a
// conditional itself, it goes on with the branch of that: a chain of "elseif" is as deep as it is long.
Completion KorTemplateConditionalStatement::executeBranch(const KorTemplateChildList<Ref<KorTemplateStatement>>& branch,
                                                          std::int32_t index, KorTemplateEnvironment& environment) {
  FrameGuard frames(environment);
  const KorTemplateChildList<Ref<KorTemplateStatement>>* statements = &branch;
  for (;;) {
    frames.push();
    const KorTemplateConditionalStatement* last = nullptr;
    Completion completion = executeUpToConditional(*statements, index, environment, last);
    if (last == nullptr) return frames.pop(completion);
    statements = &last->chosenStatements(environment);
    index = 0;
    completion = runQuietly(*statements, index, environment);
    if (completion.isReturn() || index >= statements->count()) return frames.pop(completion);
  }
}

// A copy, but for the last false statement where that is a conditional: it is handed back, for the caller's loop.
Ref<KorTemplateConditionalStatement> KorTemplateConditionalStatement::copyWithoutLastFalse(
    const KorTemplateConditionalStatement*& lastFalse) const {
  Ref<KorTemplateConditionalStatement> copy = makeRef<KorTemplateConditionalStatement>();
  copy->setSourceRange(sourceRange());
  copy->setExpression(copyOf(expression_));
  trueStatements_.forEach(
      [&](const Ref<KorTemplateStatement>& statement) { copy->addTrueStatement(copyOf(statement)); });
  lastFalse = nullptr;
  for (std::int32_t index = 0; index < falseStatements_.count(); ++index) {
    const Ref<KorTemplateStatement> statement = falseStatements_[index];  // a host's copy may change the list
    lastFalse = index + 1 == falseStatements_.count() ? conditionalIn(*statement) : nullptr;
    if (lastFalse == nullptr) copy->addFalseStatement(copyOf(statement));
  }
  return copy;
}

Ref<KorTemplateStatement> KorTemplateConditionalStatement::copyWithZone(NSZone* /*zone*/) const {
  checkStack();
  const KorTemplateConditionalStatement* next = nullptr;
  const Ref<KorTemplateConditionalStatement> first = copyWithoutLastFalse(next);
  Ref<KorTemplateConditionalStatement> last = first;
  CycleWatch watch;
  while (next != nullptr) {
    if (watch.isBackAt(next)) {
      NSException::raise(NSInvalidArgumentException, "The last false statements of a conditional lead back to it");
    }
    const Ref<KorTemplateConditionalStatement> copy = next->copyWithoutLastFalse(next);
    last->addFalseStatement(copy);
    last = copy;
  }
  return first;
}

void KorTemplateConditionalStatement::describe(Description& out) const {
  out.format("{ %@, expression: %@, trueStatements: %@, falseStatements: %@ }", Description::base(*this), expression_,
             trueStatements_.items(), falseStatements_.items());
}

}  // namespace tavlo
