#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Source/KorTemplateBlockStatement.h"
#include "Source/KorTemplateFunctionDefinitionStatement.h"
#include "Source/KorTemplateReturnIndication.h"
#include "Source/KorTemplateReturnStatement.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// The value that the statement returns; absent where it returns none.
Value returnedBy(KorTemplateStatement& statement, KorTemplateEnvironment* environment) {
  try {
    statement.executeWithEnvironment(environment);
  } catch (const KorTemplateReturnIndication& indication) {
    return indication.returnValue();
  }
  return {};
}

TEST(KorTemplateExpressionStatement, EvaluatesForTheEffectAndWritesNothing) {
  const Stage stage;
  evaluation(assignment("x", 5))->executeWithEnvironment(stage.get());
  EXPECT_EQ(stage.global("x").description(), "5");
  EXPECT_THAT(stage.output->writes, IsEmpty());
}

TEST(KorTemplateExpressionStatement, DoesNothingWithoutAnExpression) {
  const Stage stage;
  makeRef<KorTemplateExpressionStatement>()->executeWithEnvironment(stage.get());
  makeRef<KorTemplateExpressionStatement>()->executeWithEnvironment(nullptr);
  EXPECT_THAT(stage.output->writes, IsEmpty());
}

TEST(KorTemplateExpressionStatement, LeavesTheCheckOfTheEnvironmentToItsExpression) {
  EXPECT_EQ(raisedBy([] { evaluation(literal(1))->executeWithEnvironment(nullptr); }), "nothing");
  EXPECT_EQ(raisedBy([] { evaluation(call("f"))->executeWithEnvironment(nullptr); }), "nothing");
  EXPECT_EQ(raisedBy([] { evaluation(variable("x"))->executeWithEnvironment(nullptr); }),
            failedCheck("environment != nil"));
  bool wasAbsent = false;
  const auto look = makeRef<HostExpression>([&](KorTemplateEnvironment* environment) {
    wasAbsent = environment == nullptr;
    return Value();
  });
  evaluation(look)->executeWithEnvironment(nullptr);
  EXPECT_TRUE(wasAbsent);
}

TEST(KorTemplateExpressionStatement, AcceptsAnAbsentValueAndPassesExceptionsOn) {
  const Stage stage;
  EXPECT_EQ(raisedBy([&] { evaluation(nothing())->executeWithEnvironment(stage.get()); }), "nothing");
  const auto fail =
      makeRef<HostExpression>([](KorTemplateEnvironment*) -> Value { throw NSException("Boom", "bang"); });
  EXPECT_EQ(raisedBy([&] { evaluation(fail)->executeWithEnvironment(stage.get()); }), "Boom: bang");
}

TEST(KorTemplateExpressionStatement, CopiesItsExpression) {
  const Ref<KorTemplateStatement> original = evaluation(variable("x"));
  const Ref<KorTemplateStatement> copied = original->copyWithZone();
  auto& copy = as<KorTemplateExpressionStatement>(copied);
  EXPECT_NE(copy.expression(), as<KorTemplateExpressionStatement>(original).expression());
  EXPECT_EQ(as<KorTemplateVariableExpression>(copy.expression()).variable(), Name("x"));
  const Ref<KorTemplateStatement> empty = makeRef<KorTemplateExpressionStatement>()->copyWithZone();
  EXPECT_EQ(as<KorTemplateExpressionStatement>(empty).expression(), nullptr);
}

TEST(KorTemplateReturnIndication, IsNamedAfterItselfAndHasNoReason) {
  KorTemplateReturnIndication indication = KorTemplateReturnIndication::indicationWithReturnValue(5);
  EXPECT_EQ(indication.name(), "KorTemplateReturnIndication");
  EXPECT_FALSE(indication.hasReason());
  EXPECT_EQ(indication.description(), "KorTemplateReturnIndication");
  EXPECT_EQ(indication.returnValue().description(), "5");
  indication.setReturnValue("six");
  EXPECT_EQ(indication.returnValue().description(), "six");
  EXPECT_THROW(throw KorTemplateReturnIndication(Value(1)), NSException);
}

TEST(KorTemplateReturnStatement, RaisesTheValueOrNull) {
  const Stage stage;
  const Value object = Ref<HostObject>(makeRef<HostObject>());
  EXPECT_TRUE(returnedBy(*KorTemplateReturnStatement::statement(), stage.get()).isNull());
  EXPECT_TRUE(returnedBy(*makeRef<KorTemplateReturnStatement>(), stage.get()).isNull());
  EXPECT_TRUE(returnedBy(*KorTemplateReturnStatement::statementWithExpression(literal(object)), stage.get())
                  .isIdenticalTo(object));
}

TEST(KorTemplateReturnStatement, FailsForAnAbsentValueAndReturnsNothing) {
  const Stage stage;
  const Ref<KorTemplateStatement> returning = KorTemplateReturnStatement::statementWithExpression(nothing());
  EXPECT_EQ(raisedBy([&] { returning->executeWithEnvironment(stage.get()); }), failedCheck("returnValue != nil"));
  const Ref<KorTemplate> failing = templateOf({output("a"), returning, output("b")});
  EXPECT_EQ(raisedBy([&] { failing->executeWithEnvironment(stage.get()); }), failedCheck("returnValue != nil"));
  EXPECT_EQ(stage.text(), "a");
  const Ref<KorTemplateInternalFunction> function = KorTemplateInternalFunction::function();
  function->addStatement(returning);
  EXPECT_EQ(raisedBy([&] { (void)function->invokeWithEnvironment(stage.get(), {}); }),
            failedCheck("returnValue != nil"));
  stage.environment->setFunctionForName(function, "f");
  EXPECT_TRUE(call("f")->evaluateWithEnvironment(stage.get()).isNull());
  EXPECT_EQ(stage.diagnostics(), "Invalid parameter not satisfying: returnValue != nil");
  EXPECT_EQ(stage.depth(), 1);
}

TEST(KorTemplateReturnStatement, CopiesItsExpressionOrItsAbsence) {
  const auto original = KorTemplateReturnStatement::statementWithExpression(literal(1));
  const Ref<KorTemplateStatement> copy = original->copyWithZone();
  EXPECT_NE(as<KorTemplateReturnStatement>(copy).expression(), original->expression());
  EXPECT_NE(as<KorTemplateReturnStatement>(copy).expression(), nullptr);
  const Ref<KorTemplateStatement> bare = KorTemplateReturnStatement::statement()->copyWithZone();
  EXPECT_EQ(as<KorTemplateReturnStatement>(bare).expression(), nullptr);
}

TEST(KorTemplateFunctionDefinitionStatement, RegistersTheVeryFunctionEachTime) {
  const Stage stage;
  const Ref<KorTemplateFunction> function = KorTemplateInternalFunction::function();
  const auto definition = KorTemplateFunctionDefinitionStatement::statementForFunctionWithName(function, "f");
  definition->executeWithEnvironment(stage.get());
  definition->executeWithEnvironment(stage.get());
  EXPECT_THAT(stage.environment->functions(), ElementsAre(function));
  EXPECT_THAT(stage.environment->functionNames(), ElementsAre(Name("f")));
}

TEST(KorTemplateFunctionDefinitionStatement, ReplacesAndIsReplacedByHostFunctions) {
  const Stage stage;
  stage.define("f", [](auto&&...) -> Value { return "host"; });
  stage.run("<?= f() ?>,<? function f() ?><? return \"template\" ?><? endfunction ?><?= f() ?>,");
  stage.define("f", [](auto&&...) -> Value { return "host"; });
  stage.run("<?= f() ?>");
  EXPECT_EQ(stage.text(), "host,template,host");
}

TEST(KorTemplateFunctionDefinitionStatement, IsNotScoped) {
  const Stage stage;
  stage.run("<? if (true) ?><? function f() ?><? function g() ?>g<? endfunction ?>f<? endfunction ?><? endif ?>");
  EXPECT_EQ(stage.environment->functionForName("g"), nullptr);
  stage.run("<? f() ?><? g() ?>");
  EXPECT_EQ(stage.text(), "fg");
}

TEST(KorTemplateFunctionDefinitionStatement, TakesEffectOnlyWhereItRuns) {
  const Stage stage;
  stage.run("<?= f() ?><? if (false) ?><? function f() ?><? return 1 ?><? endfunction ?><? endif ?><?= f() ?>");
  EXPECT_THAT(stage.environment->functionNames(), IsEmpty());
  EXPECT_EQ(stage.text(), "");
}

TEST(KorTemplateFunctionDefinitionStatement, ChecksFunctionAndNameWhenItRuns) {
  const Stage stage;
  const auto definition = makeRef<KorTemplateFunctionDefinitionStatement>(Ref<KorTemplateFunction>(), Name());
  EXPECT_EQ(raisedBy([&] { definition->executeWithEnvironment(stage.get()); }), failedCheck("function != nil"));
  definition->setFunction(KorTemplateInternalFunction::function());
  EXPECT_EQ(raisedBy([&] { definition->executeWithEnvironment(stage.get()); }), failedCheck("name != nil"));
  EXPECT_THAT(stage.environment->functionNames(), IsEmpty());
}

TEST(KorTemplateFunctionDefinitionStatement, CopiesTheFunctionOfATemplate) {
  const Ref<KorTemplateInternalFunction> function = KorTemplateInternalFunction::function();
  function->addArgument("p");
  function->addStatement(output("a"));
  const auto original = KorTemplateFunctionDefinitionStatement::statementForFunctionWithName(function, "f");
  const Ref<KorTemplateStatement> copied = original->copyWithZone();
  auto& copy = as<KorTemplateFunctionDefinitionStatement>(copied);
  EXPECT_EQ(copy.name(), Name("f"));
  EXPECT_EQ(original->function(), Ref<KorTemplateFunction>(function));
  ASSERT_NE(copy.function(), original->function());
  auto& copiedFunction = as<KorTemplateInternalFunction>(copy.function());
  EXPECT_THAT(copiedFunction.arguments().items(), ElementsAre(Name("p")));
  ASSERT_EQ(copiedFunction.statements().count(), 1);
  EXPECT_NE(copiedFunction.statements()[0], function->statements()[0]);
}

TEST(KorTemplateFunctionDefinitionStatement, SharesAFunctionThatHasNoCopy) {
  const Ref<KorTemplateFunction> function = makeRef<HostFunction>([](auto&&...) -> Value { return 1; });
  const auto original = KorTemplateFunctionDefinitionStatement::statementForFunctionWithName(function, "f");
  const Ref<KorTemplateStatement> copy = original->copyWithZone();
  EXPECT_EQ(as<KorTemplateFunctionDefinitionStatement>(copy).function(), function);
}

TEST(KorTemplateBlockStatement, KeepsItsKeywordAsWritten) {
  const auto block = KorTemplateBlockStatement::statementWithKeyword("ElseIf");
  EXPECT_EQ(block->keyword().view(), "ElseIf");
  EXPECT_EQ(block->expression(), nullptr);
  block->setKeyword("else");
  EXPECT_EQ(block->keyword().view(), "else");
  block->setKeyword("");
  EXPECT_FALSE(block->keyword().isAbsent());
}

TEST(KorTemplateBlockStatement, NeverRuns) {
  const Stage stage;
  const auto block = makeRef<KorTemplateBlockStatement>("endif");
  const std::string failure = failedAssertion("KorTemplateBlockStatement should never be executed");
  EXPECT_EQ(raisedBy([&] { block->executeWithEnvironment(stage.get()); }), failure);
  EXPECT_EQ(raisedBy([&] { block->executeWithEnvironment(nullptr); }), failure);
  for (const char* keyword : {"endif", "else", "endforeach"}) {
    EXPECT_EQ(raisedBy([&] { stage.run("a<? " + std::string(keyword) + " ?>b"); }), failure) << keyword;
  }
  EXPECT_EQ(stage.text(), "aaa");
}

TEST(KorTemplateBlockStatement, CopiesItsExpressionAndKeepsItsKeyword) {
  const auto original = KorTemplateBlockStatement::statementWithKeyword("elseif");
  original->setExpression(variable("x"));
  const Ref<KorTemplateStatement> copied = original->copyWithZone();
  auto& copy = as<KorTemplateBlockStatement>(copied);
  EXPECT_EQ(copy.keyword().view(), "elseif");
  EXPECT_NE(copy.expression(), nullptr);
  EXPECT_NE(copy.expression(), original->expression());
  const Ref<KorTemplateStatement> bare = KorTemplateBlockStatement::statementWithKeyword(nullptr)->copyWithZone();
  EXPECT_TRUE(as<KorTemplateBlockStatement>(bare).keyword().isAbsent());
  EXPECT_EQ(as<KorTemplateBlockStatement>(bare).expression(), nullptr);
}

}  // namespace

}  // namespace tavlo::test
