#include "Fuzzers/WorkEstimate.h"

#include <algorithm>
#include <typeinfo>
#include <vector>

#include "Source/KorTemplateBinaryExpression.h"
#include "Source/KorTemplateBlockStatement.h"
#include "Source/KorTemplateConditionalStatement.h"
#include "Source/KorTemplateEnumerationStatement.h"
#include "Source/KorTemplateExpressionStatement.h"
#include "Source/KorTemplateFunctionCallExpression.h"
#include "Source/KorTemplateFunctionDefinitionStatement.h"
#include "Source/KorTemplateInternalFunction.h"
#include "Source/KorTemplateOutputStatement.h"
#include "Source/KorTemplateReturnStatement.h"

namespace tavlo::fuzz {

namespace {

constexpr double kSearch = 20;  // beside a plain step

// The node as one of that class, which has no subclasses; null where it is none.
template <class T, class Node>
T* as(Node* node) {
  return node != nullptr && typeid(*node) == typeid(T) ? static_cast<T*>(node) : nullptr;
}

// Adds up a tree, in which each call costs so much, and gathers the functions that it defines.
class Estimate {
 public:
  Estimate(std::size_t elements, double call) : elements_(static_cast<double>(elements)), call_(call) {}

  template <class List>
  double ofList(List& statements) {
    double sum = 1;
    for (const Ref<KorTemplateStatement>& statement : statements) sum += of(statement.get());
    return sum;
  }

  std::vector<KorTemplateInternalFunction*> functions;

 private:
  double of(KorTemplateStatement* node) {
    if (auto* loop = as<KorTemplateEnumerationStatement>(node)) {
      return of(loop->expression().get()) + elements_ * ofList(loop->loopStatements());
    }
    if (auto* condition = as<KorTemplateConditionalStatement>(node)) {
      return of(condition->expression().get()) + ofList(condition->trueStatements()) +
             ofList(condition->falseStatements());
    }
    if (auto* definition = as<KorTemplateFunctionDefinitionStatement>(node)) {
      auto* const function = dynamic_cast<KorTemplateInternalFunction*>(definition->function().get());
      functions.push_back(function);
      (void)ofList(function->statements());  // for what it defines itself
      return 1;
    }
    return 1 + of(expressionOf(node));
  }

  static KorTemplateExpression* expressionOf(KorTemplateStatement* node) {
    if (auto* output = as<KorTemplateOutputStatement>(node)) return output->expression().get();
    if (auto* plain = as<KorTemplateExpressionStatement>(node)) return plain->expression().get();
    if (auto* result = as<KorTemplateReturnStatement>(node)) return result->expression().get();
    if (auto* block = as<KorTemplateBlockStatement>(node)) return block->expression().get();
    return nullptr;
  }

  double of(KorTemplateExpression* node) {
    if (auto* binary = as<KorTemplateBinaryExpression>(node)) {
      const double own = binary->op() == KorTemplateOperatorMatches ? kSearch : 1;
      return own + of(binary->leftOperand().get()) + of(binary->rightOperand().get());
    }
    if (auto* call = as<KorTemplateFunctionCallExpression>(node)) {
      double sum = call_;
      for (const Ref<KorTemplateExpression>& argument : call->argumentExpressions()) sum += of(argument.get());
      return sum;
    }
    return 1;
  }

  double elements_;
  double call_;
};

}  // namespace

double estimateWork(KorTemplate& compiled, std::size_t elements, int depth) {
  double call = 1;
  Estimate whole(elements, call);
  double work = whole.ofList(compiled.statements());
  for (int level = 0; level < depth && !whole.functions.empty(); ++level) {
    double longest = 1;
    Estimate inside(elements, call);
    for (KorTemplateInternalFunction* function : whole.functions) {
      longest = std::max(longest, inside.ofList(function->statements()));
    }
    call = 1 + longest;
  }
  if (!whole.functions.empty()) work = Estimate(elements, call).ofList(compiled.statements());
  return work;
}

}  // namespace tavlo::fuzz
