#include <gtest/gtest.h>

#include <functional>

#include "Source/KorTemplateBlockStatement.h"
#include "Source/KorTemplateConditionalStatement.h"
#include "Source/KorTemplateEnumerationStatement.h"
#include "Source/KorTemplateFunctionDefinitionStatement.h"
#include "Source/KorTemplateRegexExpression.h"
#include "Source/KorTemplateReturnIndication.h"
#include "Source/KorTemplateReturnStatement.h"
#include "Source/KorTemplateStringStream.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

namespace {

struct CheckRow {
  const char* what;
  std::function<void()> action;
  const char* condition;
};

template <std::size_t count>
void expectFailures(const CheckRow (&rows)[count]) {
  for (const CheckRow& row : rows) EXPECT_EQ(raisedBy(row.action), failedCheck(row.condition)) << row.what;
}

Ref<KorTemplateFunction> someFunction() {
  return KorTemplateInternalFunction::function();
}

TEST(Preconditions, OfTheEnvironment) {
  const Ref<KorTemplateEnvironment> it = KorTemplateEnvironment::environment();
  const CheckRow rows[] = {
      {"function of an absent name", [&] { (void)it->functionForName(nullptr); }, "name != nil"},
      {"names of an absent function", [&] { (void)it->namesForFunction(nullptr); }, "function != nil"},
      {"setting an absent function", [&] { it->setFunctionForName(nullptr, "f"); }, "function != nil"},
      {"setting under an absent name", [&] { it->setFunctionForName(someFunction(), nullptr); }, "name != nil"},
      {"setting nothing: the function first", [&] { it->setFunctionForName(nullptr, nullptr); }, "function != nil"},
      {"removing an absent function", [&] { it->removeFunction(nullptr); }, "function != nil"},
      {"removing an absent name", [&] { it->removeFunctionForName(nullptr); }, "name != nil"},
      {"global of an absent name", [&] { (void)it->valueForGlobalVariableWithName(nullptr); }, "name != nil"},
      {"absent global", [&] { it->setValueForGlobalVariableWithName({}, "x"); }, "variable != nil"},
      {"global under an absent name", [&] { it->setValueForGlobalVariableWithName(1, nullptr); }, "name != nil"},
      {"no global: the value first", [&] { it->setValueForGlobalVariableWithName({}, nullptr); }, "variable != nil"},
      {"is an absent name a global", [&] { (void)it->isGlobalVariableDefinedWithName(nullptr); }, "name != nil"},
  };
  expectFailures(rows);
  EXPECT_TRUE(it->functionNames().empty());
  EXPECT_TRUE(it->globalVariableNames().empty());
}

TEST(Preconditions, OfTheEnvironmentHoldWithoutAFirstFrame) {
  const Ref<KorTemplateEnvironment> it = KorTemplateEnvironment::environment();
  for (const Ref<KorTemplateStack>& stack : {KorTemplateStack::stack(), Ref<KorTemplateStack>()}) {
    it->setStack(stack);
    const CheckRow rows[] = {
        {"read", [&] { (void)it->valueForGlobalVariableWithName(nullptr); }, "name != nil"},
        {"value", [&] { it->setValueForGlobalVariableWithName({}, nullptr); }, "variable != nil"},
        {"name", [&] { it->setValueForGlobalVariableWithName(1, nullptr); }, "name != nil"},
        {"defined", [&] { (void)it->isGlobalVariableDefinedWithName(nullptr); }, "name != nil"},
    };
    expectFailures(rows);
  }
}

TEST(Preconditions, OfStackAndFrames) {
  const Ref<KorTemplateStack> stack = KorTemplateStack::stack();
  const Ref<KorTemplateStackFrame> frame = KorTemplateStackFrame::stackFrame();
  const Ref<NSDictionary> noVariables;
  const CheckRow rows[] = {
      {"push of nothing", [&] { stack->push(nullptr); }, "frame != nil"},
      {"frame of no variables", [&] { (void)makeRef<KorTemplateStackFrame>(noVariables); }, "variables != nil"},
      {"class-level frame of no variables",
       [&] { (void)KorTemplateStackFrame::stackFrameWithLocalVariables(noVariables); }, "variables != nil"},
      {"value of an absent name", [&] { (void)frame->valueForVariableWithName(nullptr); }, "name != nil"},
      {"own value of an absent name", [&] { (void)frame->valueForLocalVariableWithName(nullptr); }, "name != nil"},
      {"absent value", [&] { frame->setValueForVariableWithName({}, "x"); }, "variable != nil"},
      {"value under an absent name", [&] { frame->setValueForVariableWithName(1, nullptr); }, "name != nil"},
      {"nothing at all: the value first", [&] { frame->setValueForVariableWithName({}, nullptr); }, "variable != nil"},
      {"is an absent name defined", [&] { (void)frame->isVariableDefinedWithName(nullptr); }, "name != nil"},
      {"is it defined here", [&] { (void)frame->isLocalVariableDefinedWithName(nullptr); }, "name != nil"},
  };
  expectFailures(rows);
  EXPECT_EQ(stack->frames().count(), 0);
  EXPECT_TRUE(frame->localVariableNames().empty());
}

TEST(Preconditions, OfStreamsOutputsAndLiterals) {
  const Ref<KorTemplateStringStream> stream = KorTemplateStringStream::stringStream();
  const Ref<KorTemplateExpression> none;
  const CheckRow rows[] = {
      {"absent buffer", [&] { stream->setBuffer(nullptr); }, "value != nil"},
      {"output of nothing", [&] { (void)makeRef<KorTemplateOutputStatement>(none); }, "theExpression != nil"},
      {"class-level output of nothing", [&] { (void)KorTemplateOutputStatement::statementWithExpression(none); },
       "theExpression != nil"},
      {"absent literal", [&] { (void)makeRef<KorTemplateLiteralExpression>(Value()); }, "value != nil"},
      {"absent literal, class-level", [&] { (void)KorTemplateLiteralExpression::expressionWithLiteral({}); },
       "value != nil"},
      {"template without environment", [&] { makeRef<KorTemplate>()->executeWithEnvironment(nullptr); },
       "environment != nil"},
      {"output without environment", [&] { makeRef<KorTemplateOutputStatement>()->executeWithEnvironment(nullptr); },
       "environment != nil"},
  };
  expectFailures(rows);
  EXPECT_NE(stream->buffer(), nullptr);
}

TEST(Preconditions, OfSimpleStatements) {
  const Ref<KorTemplateReturnStatement> returning = KorTemplateReturnStatement::statementWithExpression(literal(1));
  const auto defining = makeRef<KorTemplateFunctionDefinitionStatement>(someFunction(), Name("f"));
  const CheckRow rows[] = {
      {"evaluation of nothing", [&] { (void)KorTemplateExpressionStatement::statementWithExpression(nullptr); },
       "expression != nil"},
      {"absent return value", [&] { (void)KorTemplateReturnIndication::indicationWithReturnValue({}); },
       "returnValue != nil"},
      {"absent function",
       [&] { (void)KorTemplateFunctionDefinitionStatement::statementForFunctionWithName(nullptr, "f"); },
       "function != nil"},
      {"absent name",
       [&] { (void)KorTemplateFunctionDefinitionStatement::statementForFunctionWithName(someFunction(), nullptr); },
       "name != nil"},
      {"neither: the function first",
       [&] { (void)KorTemplateFunctionDefinitionStatement::statementForFunctionWithName(nullptr, nullptr); },
       "function != nil"},
      {"return without environment", [&] { returning->executeWithEnvironment(nullptr); }, "environment != nil"},
      {"definition without environment", [&] { defining->executeWithEnvironment(nullptr); }, "environment != nil"},
  };
  expectFailures(rows);
}

TEST(Preconditions, OfControlStatements) {
  const Ref<KorTemplateEnumerationStatement> loop = makeRef<KorTemplateEnumerationStatement>();
  const Ref<KorTemplateExpression> none;
  const CheckRow rows[] = {
      {"absent condition", [&] { (void)makeRef<KorTemplateConditionalStatement>(none); }, "theExpression != nil"},
      {"absent condition, class-level", [&] { (void)KorTemplateConditionalStatement::statementWithExpression(none); },
       "expression != nil"},
      {"conditional without environment",
       [&] { makeRef<KorTemplateConditionalStatement>()->executeWithEnvironment(nullptr); }, "environment != nil"},
      {"absent collection", [&] { loop->setExpression(nullptr); }, "value != nil"},
      {"absent loop variable", [&] { loop->setLoopVariable(nullptr); }, "value != nil"},
      {"loop without environment", [&] { loop->executeWithEnvironment(nullptr); }, "environment != nil"},
  };
  expectFailures(rows);
  EXPECT_EQ(loop->loopVariable(), Name("object"));
  EXPECT_NE(loop->expression(), nullptr);
}

TEST(Preconditions, OfVariablesAndRegularExpressions) {
  const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  KorTemplateEnvironment* const here = environment.get();
  const auto it = KorTemplateVariableExpression::expressionWithVariable("a.b");
  const CheckRow rows[] = {
      {"three absent texts", [] { (void)makeRef<KorTemplateVariableExpression>(Name(), Name(), Name()); },
       "theVariable != nil"},
      {"absent variable", [] { (void)makeRef<KorTemplateVariableExpression>(Name()); }, "name != nil"},
      {"absent root", [] { (void)makeRef<KorTemplateVariableExpression>(Name(), "key"); }, "rootName != nil"},
      {"absent variable, class-level", [] { (void)KorTemplateVariableExpression::expressionWithVariable(nullptr); },
       "name != nil"},
      {"set to an absent variable", [&] { it->setVariable(nullptr); }, "value != nil"},
      {"look-up of an absent name", [&] { (void)it->variableWithName(nullptr, nullptr); }, "name != nil"},
      {"look-up nowhere", [&] { (void)it->variableWithName("a", nullptr); }, "environment != nil"},
      {"absent path", [&] { (void)it->variableWithKeyPathInObjectWithName(nullptr, nullptr, nullptr); }, "path != nil"},
      {"absent root", [&] { (void)it->variableWithKeyPathInObjectWithName("b", nullptr, nullptr); }, "name != nil"},
      {"path nowhere", [&] { (void)it->variableWithKeyPathInObjectWithName("b", "a", nullptr); }, "environment != nil"},
      {"path of an absent root", [&] { (void)it->variableWithKeyPathInObjectWithName("b", nullptr, here); },
       "name != nil"},
      {"evaluated nowhere", [&] { (void)it->evaluateWithEnvironment(nullptr); }, "environment != nil"},
      {"absent regex", [] { (void)makeRef<KorTemplateRegexExpression>(Ref<KorRegex>()); }, "theRegex != nil"},
      {"absent regex, class-level", [] { (void)KorTemplateRegexExpression::expressionWithRegex(nullptr); },
       "regex != nil"},
      {"absent pattern", [] { (void)KorTemplateRegexExpression::expressionWithRegexString(nullptr); },
       "regexString != nil"},
  };
  expectFailures(rows);
  EXPECT_EQ(it->variable(), Name("a.b"));
}

TEST(Preconditions, OfOperatorsAndFunctions) {
  const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  const auto node = KorTemplateBinaryExpression::expressionWithOperator(KorTemplateOperatorAdd);
  const auto function = KorTemplateInternalFunction::function();
  const CheckRow rows[] = {
      {"absent left operand", [&] { node->setLeftOperand(nullptr); }, "value != nil"},
      {"absent right operand", [&] { node->setRightOperand(nullptr); }, "value != nil"},
      {"operator without environment", [&] { (void)node->evaluateWithEnvironment(nullptr); }, "environment != nil"},
      {"function without environment", [&] { (void)function->invokeWithEnvironment(nullptr, {}); },
       "environment != nil"},
      {"function without both", [&] { (void)function->invokeWithEnvironment(nullptr, nullptr); }, "environment != nil"},
      {"function without values", [&] { (void)function->invokeWithEnvironment(environment.get(), nullptr); },
       "args != nil"},
  };
  expectFailures(rows);
  EXPECT_NE(node->leftOperand(), nullptr);
  EXPECT_NE(node->rightOperand(), nullptr);
  EXPECT_EQ(environment->stack()->frames().count(), 1);
}

TEST(Preconditions, OfAVariableThatHasNoName) {
  EXPECT_EQ(raisedBy([] { (void)makeRef<KorTemplateVariableExpression>(); }),
            failedAssertion("[KorTemplateVariableExpression init] should not be used"));
}

TEST(Preconditions, LetAbsenceThroughWhereNothingIsChecked) {
  const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  const Ref<KorTemplateExpression> none;
  environment->setStack(nullptr);
  environment->setOutputStream(nullptr);
  environment->setErrorStream(nullptr);
  EXPECT_EQ(environment->stack(), nullptr);
  EXPECT_EQ(environment->outputStream(), nullptr);
  EXPECT_EQ(environment->errorStream(), nullptr);
  EXPECT_EQ(makeRef<KorTemplateStringStream>(Ref<NSMutableString>())->buffer(), nullptr);
  EXPECT_EQ(KorTemplateStringStream::stringStreamWithBuffer(nullptr)->buffer(), nullptr);
  EXPECT_EQ(makeRef<KorTemplateExpressionStatement>(none)->expression(), nullptr);
  EXPECT_EQ(makeRef<KorTemplateExpressionStatement>()->expression(), nullptr);
  EXPECT_EQ(makeRef<KorTemplateReturnStatement>(none)->expression(), nullptr);
  EXPECT_EQ(makeRef<KorTemplateReturnStatement>()->expression(), nullptr);
  EXPECT_EQ(KorTemplateReturnStatement::statement()->expression(), nullptr);
  EXPECT_EQ(KorTemplateReturnStatement::statementWithExpression(nullptr)->expression(), nullptr);
  EXPECT_TRUE(KorTemplateReturnIndication(Value()).returnValue().isAbsent());
  const auto definition = makeRef<KorTemplateFunctionDefinitionStatement>(Ref<KorTemplateFunction>(), Name());
  EXPECT_EQ(definition->function(), nullptr);
  EXPECT_TRUE(definition->name().isAbsent());
  EXPECT_TRUE(makeRef<KorTemplateBlockStatement>(nullptr)->keyword().isAbsent());
  EXPECT_TRUE(KorTemplateBlockStatement::statementWithKeyword(nullptr)->keyword().isAbsent());
  EXPECT_EQ(makeRef<KorTemplateEnumerationStatement>(none, Name())->expression(), nullptr);
  const auto loop = KorTemplateEnumerationStatement::statementWithExpressionLoopVariable(nullptr, nullptr);
  EXPECT_TRUE(loop->loopVariable().isAbsent());
  EXPECT_TRUE(KorTemplateFunctionCallExpression::expressionWithFunctionName(nullptr)->functionName().isAbsent());
}

TEST(Preconditions, LetSettersMakeAbsentWhatTheyDoNotCheck) {
  const Ref<KorTemplateExpressionStatement> evaluating = makeRef<KorTemplateExpressionStatement>(literal(1));
  evaluating->setExpression(nullptr);
  EXPECT_EQ(evaluating->expression(), nullptr);
  const Ref<KorTemplateOutputStatement> writing = makeRef<KorTemplateOutputStatement>(literal(1));
  writing->setExpression(nullptr);
  EXPECT_EQ(writing->expression(), nullptr);
  const Ref<KorTemplateReturnStatement> returning = makeRef<KorTemplateReturnStatement>(literal(1));
  returning->setExpression(nullptr);
  EXPECT_EQ(returning->expression(), nullptr);
  const Ref<KorTemplateConditionalStatement> conditional = makeRef<KorTemplateConditionalStatement>(literal(1));
  conditional->setExpression(nullptr);
  EXPECT_EQ(conditional->expression(), nullptr);
  const auto definition = makeRef<KorTemplateFunctionDefinitionStatement>(someFunction(), Name("f"));
  definition->setFunction(nullptr);
  definition->setName(nullptr);
  EXPECT_EQ(definition->function(), nullptr);
  EXPECT_TRUE(definition->name().isAbsent());
  const auto block = KorTemplateBlockStatement::statementWithKeyword("else");
  block->setExpression(literal(1));
  block->setKeyword(nullptr);
  block->setExpression(nullptr);
  EXPECT_TRUE(block->keyword().isAbsent());
  EXPECT_EQ(block->expression(), nullptr);
  const Ref<KorTemplateLiteralExpression> fixed = makeRef<KorTemplateLiteralExpression>(1);
  fixed->setLiteral({});
  EXPECT_TRUE(fixed->literal().isAbsent());
  const auto regex = KorTemplateRegexExpression::expressionWithRegexString("a");
  regex->setRegex(nullptr);
  EXPECT_EQ(regex->regex(), nullptr);
  KorTemplateReturnIndication indication = KorTemplateReturnIndication::indicationWithReturnValue(1);
  indication.setReturnValue({});
  EXPECT_TRUE(indication.returnValue().isAbsent());
  const auto calling = call("f");
  calling->setFunctionName(nullptr);
  EXPECT_TRUE(calling->functionName().isAbsent());
}

// The new object is held before the old one is let go of, also where they are the same and nobody else holds it.
TEST(Preconditions, LetSettersTakeWhatIsThereAlready) {
  const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  environment->setStack(environment->stack());
  environment->setOutputStream(environment->outputStream());
  environment->setErrorStream(environment->errorStream());
  environment->setFunctionForName(someFunction(), "f");
  environment->setFunctionForName(environment->functionForName("f"), "f");
  const Ref<KorTemplateStringStream> stream = KorTemplateStringStream::stringStream();
  stream->setBuffer(stream->buffer());
  stream->write("a");
  EXPECT_EQ(stream->buffer()->string(), "a");
  environment->setOutputStream(stream);
  const auto writing = makeRef<KorTemplateOutputStatement>(literal("b"));
  writing->setExpression(writing->expression());
  const auto sum = binary(KorTemplateOperatorAdd, literal("c"), literal("d"));
  sum->setLeftOperand(sum->leftOperand());
  sum->setRightOperand(sum->rightOperand());
  const auto evaluating = makeRef<KorTemplateExpressionStatement>(assignment("x", 1));
  evaluating->setExpression(evaluating->expression());
  const Ref<KorTemplateExpression> text = literal(std::string(100, 'e'));
  as<KorTemplateLiteralExpression>(text).setLiteral(as<KorTemplateLiteralExpression>(text).literal());
  const Ref<KorTemplateConditionalStatement> branch = makeRef<KorTemplateConditionalStatement>(literal(true));
  branch->setExpression(branch->expression());
  branch->addTrueStatement(output(text));
  const auto loop = KorTemplateEnumerationStatement::statementWithExpressionLoopVariable(call("f"), "e");
  loop->setExpression(loop->expression());
  loop->setLoopVariable(loop->loopVariable());
  const auto regex = KorTemplateRegexExpression::expressionWithRegexString("f");
  regex->setRegex(regex->regex());
  templateOf({writing, output(sum), evaluating, branch, loop, output(regex)})
      ->executeWithEnvironment(environment.get());
  EXPECT_EQ(stream->buffer()->string(), "abcd" + std::string(100, 'e') + "/f/");
  EXPECT_EQ(environment->valueForGlobalVariableWithName("x").intValue(), 1);
}

}  // namespace

}  // namespace tavlo::test
