#include <gtest/gtest.h>
#include <unistd.h>

#include <sstream>
#include <string_view>

#include "Foundation/Description.h"
#include "Foundation/NSArray.h"
#include "Foundation/NSInvocation.h"
#include "Foundation/NSMethodSignature.h"
#include "Source/KorTemplateBlockStatement.h"
#include "Source/KorTemplateCallbackStream.h"
#include "Source/KorTemplateCancellation.h"
#include "Source/KorTemplateClosure.h"
#include "Source/KorTemplateConditionalStatement.h"
#include "Source/KorTemplateConsoleStream.h"
#include "Source/KorTemplateEnumerationStatement.h"
#include "Source/KorTemplateFileDescriptorStream.h"
#include "Source/KorTemplateFunctionDefinitionStatement.h"
#include "Source/KorTemplateLayer.h"
#include "Source/KorTemplateNullStream.h"
#include "Source/KorTemplateOStreamStream.h"
#include "Source/KorTemplateObserver.h"
#include "Source/KorTemplateParser.h"
#include "Source/KorTemplateProfile.h"
#include "Source/KorTemplateRegexExpression.h"
#include "Source/KorTemplateReturnStatement.h"
#include "Source/KorTemplateSource.h"
#include "Source/KorTemplateStringStream.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

namespace {

TEST(Descriptions, OfLiteralsShowTextsInQuotes) {
  struct Row {
    Value literal;
    const char* text;
  };
  const Row rows[] = {
      {"a", "\"a\""},
      {"", "\"\""},
      {"a \"b\"", "\"a \"b\"\""},
      {42, "42"},
      {2.5, "2.5"},
      {true, "1"},
      {NSNull::null(), "<null>"},
      {NSArray::arrayWithObjects({"a b"}), "(\n    \"a b\"\n)"},
  };
  for (const Row& row : rows) {
    const Ref<KorTemplateExpression> expression = literal(row.literal);
    EXPECT_EQ(expression->description(), "{ " + baseOf(expression) + " literal: " + row.text + " }");
  }
}

TEST(Descriptions, OfVariablesShowTheWholeText) {
  for (const char* text : {"x", "item.name", "a.", "@@index", ""}) {
    const Ref<KorTemplateExpression> expression = variable(text);
    EXPECT_EQ(expression->description(), "{ " + baseOf(expression) + " variable: \"" + text + "\" }");
  }
}

TEST(Descriptions, OfOutputsAndReturnsShowTheirExpressions) {
  const Ref<KorTemplateExpression> expression = literal(1);
  const Ref<KorTemplateStatement> writing = output(expression);
  EXPECT_EQ(writing->description(), "{ " + baseOf(writing) + ", expression: " + expression->description() + " }");
  const Ref<KorTemplateStatement> returning = KorTemplateReturnStatement::statementWithExpression(expression);
  EXPECT_EQ(returning->description(), "{ " + baseOf(returning) + ", expression: " + expression->description() + " }");
  const Ref<KorTemplateStatement> bare = KorTemplateReturnStatement::statement();
  EXPECT_EQ(bare->description(), "{ " + baseOf(bare) + ", expression: (null) }");
}

TEST(Descriptions, OfConditionalsShowBothLists) {
  const Ref<KorTemplateConditionalStatement> node = makeRef<KorTemplateConditionalStatement>();
  EXPECT_EQ(node->description(), "{ " + baseOf(node) + ", expression: " + node->expression()->description() +
                                     ", trueStatements: (\n), falseStatements: (\n) }");
  const Ref<KorTemplateStatement> first = output(1);
  const Ref<KorTemplateStatement> second = output(2);
  node->setTrueStatements({first, second});
  EXPECT_EQ(node->description(), "{ " + baseOf(node) + ", expression: " + node->expression()->description() +
                                     ", trueStatements: (\n    " + first->description() + ",\n    " +
                                     second->description() + "\n), falseStatements: (\n) }");
}

TEST(Descriptions, OfLoopsShowTheVariableInQuotes) {
  const Ref<KorTemplateEnumerationStatement> node = makeRef<KorTemplateEnumerationStatement>();
  const Ref<KorTemplateStatement> body = evaluation(literal(1));
  node->addLoopStatement(body);
  EXPECT_EQ(node->description(), "{ " + baseOf(node) +
                                     ", loopVariable: \"object\", expression: " + node->expression()->description() +
                                     ", loopStatements: (\n    " + baseOf(body) + "\n) }");
}

TEST(Descriptions, OfCallsShowNameAndArguments) {
  const auto empty = call("f");
  EXPECT_EQ(empty->description(), "{ " + baseOf(empty) + " functionName: \"f\", argumentExpressions: (\n) }");
  const auto nameless = makeRef<KorTemplateFunctionCallExpression>();
  EXPECT_EQ(nameless->description(), "{ " + baseOf(nameless) + " functionName: \"\", argumentExpressions: (\n) }");
  const Ref<KorTemplateExpression> argument = variable("x");
  const auto one = call("g", {argument});
  EXPECT_EQ(one->description(), "{ " + baseOf(one) + " functionName: \"g\", argumentExpressions: (\n    " +
                                    argument->description() + "\n) }");
}

TEST(Descriptions, OfOperatorsShowTheirNamesAndOperands) {
  const char* const names[] = {
      "KorTemplateOperatorAssignment",
      "KorTemplateOperatorEquals",
      "KorTemplateOperatorNotEquals",
      "KorTemplateOperatorMatches",
      "KorTemplateOperatorLessThan",
      "KorTemplateOperatorGreaterThan",
      "KorTemplateOperatorLessThanOrEqualTo",
      "KorTemplateOperatorGreaterThanOrEqualTo",
      "KorTemplateOperatorAdd",
      "KorTemplateOperatorSubtract",
      "KorTemplateOperatorMultiply",
      "KorTemplateOperatorDivide",
      "KorTemplateOperatorModulo",
      "KorTemplateOperatorAnd",
      "KorTemplateOperatorOr",
      "Unknown",
  };
  std::int32_t op = 0;
  for (const char* name : names) {
    const auto node = binary(static_cast<KorTemplateOperator>(op++), literal(1), variable("x"));
    EXPECT_EQ(node->description(), "{ " + baseOf(node) + " operator: " + name +
                                       ", leftOperand: " + node->leftOperand()->description() +
                                       ", rightOperand: " + node->rightOperand()->description() + " }");
  }
  const auto negative = binary(static_cast<KorTemplateOperator>(-1), literal(1), literal(2));
  EXPECT_NE(negative->description().find(" operator: Unknown, "), std::string::npos);
}

TEST(Descriptions, OfOperatorsNest) {
  const auto inner = binary(KorTemplateOperatorAdd, literal(1), literal(2));
  const auto outer = binary(KorTemplateOperatorMultiply, inner, literal(3));
  EXPECT_EQ(outer->description(), "{ " + baseOf(outer) +
                                      " operator: KorTemplateOperatorMultiply, leftOperand: " + inner->description() +
                                      ", rightOperand: " + outer->rightOperand()->description() + " }");
}

TEST(Descriptions, OfAllOthersAreTheInheritedOne) {
  const Ref<NSObject> objects[] = {
      makeRef<KorTemplate>(),
      evaluation(literal(1)),
      makeRef<KorTemplateFunctionDefinitionStatement>(KorTemplateInternalFunction::function(), Name("f")),
      makeRef<KorTemplateBlockStatement>("else"),
      KorTemplateRegexExpression::expressionWithRegexString("a"),
      KorTemplateInternalFunction::function(),
      KorTemplateEnvironment::environment(),
      KorTemplateStack::stack(),
      KorTemplateStackFrame::stackFrame(),
      KorTemplateStringStream::stringStream(),
      KorTemplateConsoleStream::consoleStream(),
      KorTemplateNullStream::nullStream(),
      makeRef<HostObject>(),
      makeRef<HostStatement>([](KorTemplateEnvironment*) {}),
  };
  for (const Ref<NSObject>& object : objects) EXPECT_EQ(object->description(), baseOf(object));
  EXPECT_EQ(std::string(objects[0]->className()), "KorTemplate");
  EXPECT_EQ(std::string(objects[2]->className()), "KorTemplateFunctionDefinitionStatement");
}

// The class and the address, as of every object that has nothing more to say.
TEST(Descriptions, OfWhatGoesWithTheEngineNameTheClass) {
  std::ostringstream stream;
  struct Row {
    const char* className;
    Ref<NSObject> object;
  };
  const Row rows[] = {
      {"KorTemplateCallbackStream", KorTemplateCallbackStream::streamWithCallback([](std::string_view) {})},
      {"KorTemplateFileDescriptorStream", KorTemplateFileDescriptorStream::streamWithDescriptor(STDERR_FILENO)},
      {"KorTemplateOStreamStream", KorTemplateOStreamStream::streamWithOStream(stream)},
      {"KorTemplateLayer", KorTemplateLayer::layer()},
      {"KorTemplateObserver", KorTemplateObserver::observer()},
      {"KorTemplateProfile", KorTemplateProfile::profile()},
      {"KorTemplateCancellation", KorTemplateCancellation::cancellation()},
      {"KorTemplateParser", KorTemplateParser::parserForString("a")},
      {"KorTemplateClosure", makeRef<KorTemplateClosure>()},
      {"KorTemplateSource", makeRef<KorTemplateSource>("name", "text")},
      {"NSInvocation", NSInvocation::invocationWithMethodSignature(NSMethodSignature::signatureOf<int, int>())},
  };
  for (const Row& row : rows) {
    EXPECT_STREQ(row.object->className(), row.className);
    EXPECT_EQ(row.object->description(), baseOf(row.object));
  }
}

// A host's class that says nothing of its own name goes by that of the protocol.
TEST(Descriptions, OfHostNodesNameTheProtocolUnlessTheySayMore) {
  class PlainExpression final : public KorTemplateExpression {
   public:
    PlainExpression() = default;
    Value evaluateWithEnvironment(KorTemplateEnvironment*) override { return 1; }
    Ref<KorTemplateExpression> copyWithZone(NSZone*) const override { return makeRef<PlainExpression>(); }
  };
  class PlainStatement final : public KorTemplateStatement {
   public:
    PlainStatement() = default;
    void executeWithEnvironment(KorTemplateEnvironment*) override {}
    Ref<KorTemplateStatement> copyWithZone(NSZone*) const override { return makeRef<PlainStatement>(); }
  };
  class PlainFunction final : public KorTemplateFunction {
   public:
    PlainFunction() = default;
    Value invokeWithEnvironment(KorTemplateEnvironment*, ListArgument<Value>) override { return 1; }
  };
  class PlainStream final : public KorTemplateStream {
   public:
    PlainStream() = default;
    void write(const Text&) override {}
  };
  EXPECT_STREQ(makeRef<PlainExpression>()->className(), "KorTemplateExpression");
  EXPECT_STREQ(makeRef<PlainStatement>()->className(), "KorTemplateStatement");
  EXPECT_STREQ(makeRef<PlainFunction>()->className(), "KorTemplateFunction");
  EXPECT_STREQ(makeRef<PlainStream>()->className(), "KorTemplateStream");
}

TEST(Descriptions, OfHostNodesStandInsideThoseOfTheEngine) {
  class DescribedExpression final : public KorTemplateExpression {
   public:
    DescribedExpression() = default;
    Value evaluateWithEnvironment(KorTemplateEnvironment*) override { return 1; }
    Ref<KorTemplateExpression> copyWithZone(NSZone*) const override { return makeRef<DescribedExpression>(); }
    void describe(Description& out) const override {
      out.part(Value(1));
      out.part("");
      out.format("[%@%@]", Value("two"), std::string());
    }
  };
  const Ref<KorTemplateStatement> writing = output(makeRef<DescribedExpression>());
  EXPECT_EQ(writing->description(), "{ " + baseOf(writing) + ", expression: 1[two] }");
}

}  // namespace

}  // namespace tavlo::test
