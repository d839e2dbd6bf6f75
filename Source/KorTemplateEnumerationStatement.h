#pragma once

#include <cstdint>
#include <utility>

#include "Foundation/Name.h"
#include "Source/KorTemplateChildList.h"
#include "Source/KorTemplateExpression.h"
#include "Source/KorTemplateStatement.h"

namespace tavlo {

// Runs its body once for each element of a collection, every time in a scope of its own that holds the element and,
// as "@@index", its number from 0.
class KorTemplateEnumerationStatement final : public KorTemplateStatement {
 public:
  // Over a literal of the null object, with the loop variable "object".
  KorTemplateEnumerationStatement();
  // Both may be absent.
  KorTemplateEnumerationStatement(Ref<KorTemplateExpression> expression, const Name& loopVariable)
      : KorTemplateStatement(kNodeKind), expression_(std::move(expression)), loopVariable_(loopVariable) {}
  static Ref<KorTemplateEnumerationStatement> statementWithExpressionLoopVariable(Ref<KorTemplateExpression> expression,
                                                                                  const Name& loopVariable) {
    return makeRef<KorTemplateEnumerationStatement>(std::move(expression), loopVariable);
  }

  const Ref<KorTemplateExpression>& expression() const noexcept { return expression_; }
  // The expression may not be absent.
  void setExpression(const Ref<KorTemplateExpression>& value);
  // Without its "$".
  const Name& loopVariable() const noexcept { return loopVariable_; }
  // The name may not be absent.
  void setLoopVariable(const Name& value);

  // The list itself.
  KorTemplateChildList<Ref<KorTemplateStatement>>& loopStatements() noexcept { return loopStatements_; }
  void setLoopStatements(const ListArgument<Ref<KorTemplateStatement>>& value) { loopStatements_.set(value); }
  void insertObjectInLoopStatementsAtIndex(const Ref<KorTemplateStatement>& statement, std::int32_t index) {
    loopStatements_.insert(statement, index);
  }
  void removeObjectFromLoopStatementsAtIndex(std::int32_t index) { loopStatements_.removeAt(index); }
  void addLoopStatement(const Ref<KorTemplateStatement>& statement) { loopStatements_.add(statement); }
  void removeLoopStatement(const Ref<KorTemplateStatement>& statement) { loopStatements_.remove(statement); }
  void removeAllLoopStatements() { loopStatements_.removeAll(); }

  // Raises `NSGenericException` for a value that cannot be enumerated.
  void executeWithEnvironment(KorTemplateEnvironment* environment) override;
  Completion execute(KorTemplateEnvironment& environment) override;
  Ref<KorTemplateStatement> copyWithZone(NSZone* zone = nullptr) const override;

  const char* className() const override { return "KorTemplateEnumerationStatement"; }
  void describe(Description& out) const override;

 private:
  template <class List, class ElementOf>
  Completion executeOver(KorTemplateEnvironment& environment, const Value& collection, const List& list,
                         const ElementOf& elementOf);
  template <bool IsLent, class Next>
  Completion executeLoop(KorTemplateEnvironment& environment, bool mayKeepFrame, const Value& collection,
                         const Next& next);

  Ref<KorTemplateExpression> expression_;
  Name loopVariable_;
  KorTemplateChildList<Ref<KorTemplateStatement>> loopStatements_{KorTemplateChildListRole::LoopStatements};
};

}  // namespace tavlo
