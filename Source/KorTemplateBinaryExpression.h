#pragma once

#include <cstdint>

#include "Foundation/Name.h"
#include "Source/KorTemplateExpression.h"
#include "Source/KorTemplateOperator.h"

namespace tavlo {

class KorRegex;
class TextBuffer;

// An operator with its two operands. Both operands are always evaluated, the left one first, for every operator.
class KorTemplateBinaryExpression final : public KorTemplateExpression {
 public:
  // Both operands start as literals of the null object.
  explicit KorTemplateBinaryExpression(KorTemplateOperator op);
  static Ref<KorTemplateBinaryExpression> expressionWithOperator(KorTemplateOperator op) {
    return makeRef<KorTemplateBinaryExpression>(op);
  }
  // A node that is whole from the start; neither operand may be absent.
  KorTemplateBinaryExpression(KorTemplateOperator op, Ref<KorTemplateExpression> leftOperand,
                              Ref<KorTemplateExpression> rightOperand);

  KorTemplateOperator op() const noexcept { return op_; }
  void setOperator(KorTemplateOperator value) noexcept { op_ = value; }
  // Never absent.
  const Ref<KorTemplateExpression>& leftOperand() const noexcept { return leftOperand_; }
  void setLeftOperand(const Ref<KorTemplateExpression>& value);
  const Ref<KorTemplateExpression>& rightOperand() const noexcept { return rightOperand_; }
  void setRightOperand(const Ref<KorTemplateExpression>& value);

  // The operators, on values that are evaluated already. Each raises `NSGenericException` for values that it cannot
  // use. The assignment stores in the environment's current frame.
  Value operatorAssignment(const Value& left, const Value& right, KorTemplateEnvironment* environment) const;
  Value operatorEquals(const Value& left, const Value& right) const;
  Value operatorNotEquals(const Value& left, const Value& right) const;
  Value operatorMatches(const Value& left, const Value& right) const;
  Value operatorLessThan(const Value& left, const Value& right) const;
  Value operatorGreaterThan(const Value& left, const Value& right) const;
  Value operatorLessThanOrEqualTo(const Value& left, const Value& right) const;
  Value operatorGreaterThanOrEqualTo(const Value& left, const Value& right) const;
  Value operatorAdd(const Value& left, const Value& right) const;
  Value operatorSubtract(const Value& left, const Value& right) const;
  Value operatorMultiply(const Value& left, const Value& right) const;
  Value operatorDivide(const Value& left, const Value& right) const;
  Value operatorModulo(const Value& left, const Value& right) const;
  Value operatorAnd(const Value& left, const Value& right) const;
  Value operatorOr(const Value& left, const Value& right) const;

  // Never absent. The null object for an operator that is none of the list.
  Value evaluateWithEnvironment(KorTemplateEnvironment* environment) override;
  RawValue evaluate(KorTemplateEnvironment& environment) override;
  // Appends the value where it is the text of strings and numbers that live somewhere, one behind the other, without
  // making a string of it; false, and nothing done, for every other value. Runs nobody's code.
  bool appendQuietly(KorTemplateEnvironment& environment, TextBuffer& text) const;
  Ref<KorTemplateExpression> copyWithZone(NSZone* zone = nullptr) const override;

  const char* className() const override { return "KorTemplateBinaryExpression"; }
  void describe(Description& out) const override;

 private:
  class QuietParts;

  const KorTemplateBinaryExpression* leftChain() const noexcept;
  const Name* assignedName() const noexcept;
  bool isLongChain(const KorTemplateEnvironment& environment) const noexcept;
  bool isOfPlainNumbers(const KorTemplateEnvironment& environment) const noexcept;
  const KorRegex* literalRegex() const noexcept;
  RawValue joinQuietly(const KorTemplateEnvironment& environment) const;
  [[gnu::noinline]] RawValue evaluateAny(KorTemplateEnvironment& environment);
  RawValue evaluateChain(KorTemplateEnvironment& environment) const;
  Value leftValue(KorTemplateEnvironment& environment) const;
  RawValue assignTo(const Name& name, KorTemplateEnvironment& environment) const;
  Value assign(const Value& left, KorTemplateEnvironment& environment) const;
  static void requireOperands(const Value& left, const Value& right);
  RawValue combine(Value left, KorTemplateEnvironment& environment) const;
  RawValue combineNumber(RawValue left, RawValue right, KorTemplateEnvironment& environment) const;
  Value applyToValues(Value left, const Value& right, KorTemplateEnvironment& environment) const;

  KorTemplateOperator op_;
  Ref<KorTemplateExpression> leftOperand_;
  Ref<KorTemplateExpression> rightOperand_;
};

}  // namespace tavlo
