#pragma once

#include <cstdint>

#include "Foundation/Name.h"
#include "Source/KorTemplateChildList.h"
#include "Source/KorTemplateExpression.h"

namespace tavlo {

class KorTemplateFunction;

// A call of a function by name. An unknown function is the null object, and its arguments are not evaluated. What the
// function raises becomes a message on the error stream, and the null object.
class KorTemplateFunctionCallExpression final : public KorTemplateExpression {
 public:
  // Named by the empty text.
  KorTemplateFunctionCallExpression() : KorTemplateFunctionCallExpression("") {}
  explicit KorTemplateFunctionCallExpression(const Name& functionName)
      : KorTemplateExpression(kNodeKind), functionName_(functionName) {}
  static Ref<KorTemplateFunctionCallExpression> expressionWithFunctionName(const Name& functionName) {
    return makeRef<KorTemplateFunctionCallExpression>(functionName);
  }

  const Name& functionName() const noexcept { return functionName_; }
  void setFunctionName(const Name& value) { functionName_ = value; }

  // The list itself.
  KorTemplateChildList<Ref<KorTemplateExpression>>& argumentExpressions() noexcept { return argumentExpressions_; }
  void setArgumentExpressions(const ListArgument<Ref<KorTemplateExpression>>& value) {
    argumentExpressions_.set(value);
  }
  void insertObjectInArgumentExpressionsAtIndex(const Ref<KorTemplateExpression>& expression, std::int32_t index) {
    argumentExpressions_.insert(expression, index);
  }
  void removeObjectFromArgumentExpressionsAtIndex(std::int32_t index) { argumentExpressions_.removeAt(index); }
  void addArgumentExpression(const Ref<KorTemplateExpression>& expression) { argumentExpressions_.add(expression); }
  void removeArgumentExpression(const Ref<KorTemplateExpression>& expression) {
    argumentExpressions_.remove(expression);
  }
  void removeAllArgumentExpressions() { argumentExpressions_.removeAll(); }

  // Without an environment there is no function: the null object.
  Value evaluateWithEnvironment(KorTemplateEnvironment* environment) override;
  RawValue evaluate(KorTemplateEnvironment& environment) override;
  // A call of the same name without any arguments: the copies of the argument expressions do not get into the copy.
  Ref<KorTemplateExpression> copyWithZone(NSZone* zone = nullptr) const override;

  const char* className() const override { return "KorTemplateFunctionCallExpression"; }
  void describe(Description& out) const override;

 private:
  RawValue callWithArguments(KorTemplateFunction& function, KorTemplateEnvironment& environment);

  Name functionName_;  // may be empty
  KorTemplateChildList<Ref<KorTemplateExpression>> argumentExpressions_{KorTemplateChildListRole::ArgumentExpressions};
};

}  // namespace tavlo
