#pragma once

#include <cstdint>

#include "Foundation/NSNumber.h"
#include "Foundation/NSString.h"
#include "Source/KorTemplateChildList.h"
#include "Source/KorTemplateExpression.h"
#include "Source/KorTemplateStatement.h"

namespace tavlo {

class FrameGuard;

// The truth of a value: of a number whether it is other than zero, of a string whether it has a length; the null object
// and an absent value are false, everything else is true.
inline bool convertToBool(RawValue value) noexcept {
  switch (value.kind()) {
    case ValueKind::Boolean:
      return value.payload.unsignedInteger != 0;
    case ValueKind::Absent:
    case ValueKind::Null:
      return false;
    case ValueKind::Object:
      return value.payload.object->kind() != ObjectKind::String ||
             static_cast<const NSString*>(value.payload.object)->byteLength() != 0;
    default:
      return numberAsBool(value);
  }
}
inline bool convertToBool(const Value& value) noexcept {
  return convertToBool(value.peek());
}

// Runs one list of statements or the other, in a scope of its own; an empty list opens no scope. What follows an
// "elseif" is a conditional of its own among the false statements, so it runs two scopes deep.
class KorTemplateConditionalStatement final : public KorTemplateStatement {
 public:
  // Over a literal of false.
  KorTemplateConditionalStatement();
  // The condition may not be absent.
  explicit KorTemplateConditionalStatement(Ref<KorTemplateExpression> expression);
  static Ref<KorTemplateConditionalStatement> statementWithExpression(Ref<KorTemplateExpression> expression);

  const Ref<KorTemplateExpression>& expression() const noexcept { return expression_; }
  void setExpression(const Ref<KorTemplateExpression>& value) { expression_ = value; }

  // The lists themselves.
  KorTemplateChildList<Ref<KorTemplateStatement>>& trueStatements() noexcept { return trueStatements_; }
  void setTrueStatements(const ListArgument<Ref<KorTemplateStatement>>& value) { trueStatements_.set(value); }
  void insertObjectInTrueStatementsAtIndex(const Ref<KorTemplateStatement>& statement, std::int32_t index) {
    trueStatements_.insert(statement, index);
  }
  void removeObjectFromTrueStatementsAtIndex(std::int32_t index) { trueStatements_.removeAt(index); }
  void addTrueStatement(const Ref<KorTemplateStatement>& statement) { trueStatements_.add(statement); }
  void removeTrueStatement(const Ref<KorTemplateStatement>& statement) { trueStatements_.remove(statement); }
  void removeAllTrueStatements() { trueStatements_.removeAll(); }

  KorTemplateChildList<Ref<KorTemplateStatement>>& falseStatements() noexcept { return falseStatements_; }
  void setFalseStatements(const ListArgument<Ref<KorTemplateStatement>>& value) { falseStatements_.set(value); }
  void insertObjectInFalseStatementsAtIndex(const Ref<KorTemplateStatement>& statement, std::int32_t index) {
    falseStatements_.insert(statement, index);
  }
  void removeObjectFromFalseStatementsAtIndex(std::int32_t index) { falseStatements_.removeAt(index); }
  void addFalseStatement(const Ref<KorTemplateStatement>& statement) { falseStatements_.add(statement); }
  void removeFalseStatement(const Ref<KorTemplateStatement>& statement) { falseStatements_.remove(statement); }
  void removeAllFalseStatements() { falseStatements_.removeAll(); }

  void executeWithEnvironment(KorTemplateEnvironment* environment) override;
  Completion execute(KorTemplateEnvironment& environment) override;
  Ref<KorTemplateStatement> copyWithZone(NSZone* zone = nullptr) const override;

  const char* className() const override { return "KorTemplateConditionalStatement"; }
  void describe(Description& out) const override;

 private:
  const KorTemplateChildList<Ref<KorTemplateStatement>>& chosenStatements(KorTemplateEnvironment& environment) const;
  static Completion executeBranch(const KorTemplateChildList<Ref<KorTemplateStatement>>& branch, std::int32_t index,
                                  KorTemplateEnvironment& environment);
  Ref<KorTemplateConditionalStatement> copyWithoutLastFalse(const KorTemplateConditionalStatement*& lastFalse) const;

  Ref<KorTemplateExpression> expression_;
  KorTemplateChildList<Ref<KorTemplateStatement>> trueStatements_{KorTemplateChildListRole::TrueStatements};
  KorTemplateChildList<Ref<KorTemplateStatement>> falseStatements_{KorTemplateChildListRole::FalseStatements};
};

}  // namespace tavlo
