#include "Source/KorTemplateConditionalStatement.h"

#include <utility>

#include "Foundation/Description.h"
#include "Foundation/NSException.h"
#include "Foundation/StackGuard.h"
#include "Source/FrameGuard.h"
#include "Source/Operand.h"

namespace tavlo {

namespace {

// The conditional that the statement is; null for every other statement.
const KorTemplateConditionalStatement* conditionalIn(const Ref<KorTemplateStatement>& statement) {
  return statement->kind() == kConditionalKind ? static_cast<const KorTemplateConditionalStatement*>(statement.get())
                                               : nullptr;
}

// Runs statements in order. Where the last one is a conditional itself it is handed back in `last`, to be run by the
// caller's loop: a chain of "elseif" is as deep as it is long.
Completion executeAllButConditional(const KorTemplateChildList<Ref<KorTemplateStatement>>& statements,
                                    KorTemplateEnvironment& environment, const KorTemplateConditionalStatement*& last) {
  for (std::int32_t index = 0; index < statements.count(); ++index) {
    KorTemplateStatement& statement = *statements[index];
    environment.step();
    environment.enterStatement(statement);
    if (index + 1 == statements.count()) {
      last = conditionalIn(statements[index]);
      if (last != nullptr) break;
    }
    const Completion completion = statement.execute(environment);
    if (completion.isReturn()) return completion;
  }
  return Completion::wentOn();
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
  RawValue condition = expression_ == nullptr ? RawValue::absent() : peekExpression(*expression_, environment);
  if (condition.isNothing()) condition = expression_->evaluate(environment);
  const bool truth = convertToBool(condition);
  (void)Value::adopt(condition);
  return truth ? trueStatements_ : falseStatements_;
}

void KorTemplateConditionalStatement::executeWithEnvironment(KorTemplateEnvironment* environment) {
  requireParameter(environment != nullptr, "environment != nil");
  executePublicly(*environment);
}

Completion KorTemplateConditionalStatement::execute(KorTemplateEnvironment& environment) {
  environment.checkStack();
  FrameGuard frames(environment);
  Completion completion = Completion::wentOn();
  const KorTemplateConditionalStatement* conditional = this;
  while (conditional != nullptr) {
    const KorTemplateChildList<Ref<KorTemplateStatement>>& statements = conditional->chosenStatements(environment);
    conditional = nullptr;
    if (statements.empty()) break;
    frames.push();
    completion = executeAllButConditional(statements, environment, conditional);
  }
  return frames.pop(completion);
}

// A copy, but for the last false statement where that is a conditional: it is handed back, for the caller's loop.
Ref<KorTemplateConditionalStatement> KorTemplateConditionalStatement::copyWithoutLastFalse(
    const KorTemplateConditionalStatement*& lastFalse) const {
  Ref<KorTemplateConditionalStatement> copy = makeRef<KorTemplateConditionalStatement>();
  copy->setSourceRange(sourceRange());
  copy->setExpression(copyOf(expression_));
  for (const Ref<KorTemplateStatement>& statement : trueStatements_) copy->addTrueStatement(copyOf(statement));
  lastFalse = falseStatements_.empty() ? nullptr : conditionalIn(falseStatements_[falseStatements_.count() - 1]);
  const std::int32_t count = falseStatements_.count() - (lastFalse == nullptr ? 0 : 1);
  for (std::int32_t index = 0; index < count; ++index) copy->addFalseStatement(copyOf(falseStatements_[index]));
  return copy;
}

Ref<KorTemplateStatement> KorTemplateConditionalStatement::copyWithZone(NSZone* /*zone*/) const {
  checkStack();
  const KorTemplateConditionalStatement* next = nullptr;
  const Ref<KorTemplateConditionalStatement> first = copyWithoutLastFalse(next);
  Ref<KorTemplateConditionalStatement> last = first;
  while (next != nullptr) {
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
