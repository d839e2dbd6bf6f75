#include "Source/KorTemplate.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Source/KorTemplateReturnIndication.h"
#include "Source/KorTemplateReturnStatement.h"
#include "Source/KorTemplateStringStream.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

namespace {

Ref<KorTemplateStatement> bareReturn() {
  return KorTemplateReturnStatement::statement();
}

TEST(KorTemplate, WithoutStatementsWritesNothing) {
  const Stage stage;
  makeRef<KorTemplate>()->executeWithEnvironment(stage.get());
  EXPECT_TRUE(stage.output->writes.empty());
  EXPECT_EQ(stage.depth(), 1);
}

TEST(KorTemplate, WritesItsLiteralsBackToBackAndNothingForNull) {
  const Stage stage;
  const Ref<KorTemplateStringStream> stream = KorTemplateStringStream::stringStream();
  stage.environment->setOutputStream(stream);
  templateOf({output("a"), output(42), output(NSNull::null())})->executeWithEnvironment(stage.get());
  EXPECT_EQ(stream->buffer()->string(), "a42");
}

TEST(KorTemplate, RunsInTheCurrentFrame) {
  const Stage stage;
  const Ref<KorTemplateStackFrame> frame = KorTemplateStackFrame::stackFrame();
  stage.environment->stack()->push(frame);
  std::int32_t depth = 0;
  const auto look = makeRef<HostStatement>([&](KorTemplateEnvironment*) { depth = stage.depth(); });
  templateOf({evaluation(assignment("x", 1)), look})->executeWithEnvironment(stage.get());
  EXPECT_EQ(depth, 2);
  EXPECT_TRUE(frame->isLocalVariableDefinedWithName("x"));
  EXPECT_FALSE(stage.environment->isGlobalVariableDefinedWithName("x"));
}

TEST(KorTemplate, EndsInSilenceAtAReturnAndDropsItsValue) {
  const Stage stage;
  for (const Ref<KorTemplateStatement>& returning :
       {bareReturn(), Ref<KorTemplateStatement>(KorTemplateReturnStatement::statementWithExpression(literal(7)))}) {
    stage.output->writes.clear();
    templateOf({output("a"), returning, output("b")})->executeWithEnvironment(stage.get());
    EXPECT_EQ(stage.text(), "a");
  }
}

TEST(KorTemplate, NestedAsAStatementTakesAReturnItself) {
  const Stage stage;
  const Ref<KorTemplate> inner = templateOf({output("b"), bareReturn(), output("c")});
  templateOf({output("a"), inner, output("d")})->executeWithEnvironment(stage.get());
  EXPECT_EQ(stage.text(), "abd");
}

TEST(KorTemplate, NestedInAFunctionTakesAReturnItself) {
  const Stage stage;
  const Ref<KorTemplateInternalFunction> function = KorTemplateInternalFunction::function();
  function->addStatement(templateOf({KorTemplateReturnStatement::statementWithExpression(literal(1))}));
  function->addStatement(KorTemplateReturnStatement::statementWithExpression(literal(2)));
  EXPECT_EQ(function->invokeWithEnvironment(stage.get(), {}).description(), "2");
}

TEST(KorTemplate, TakesAReturnIndicationThatAHostRaises) {
  const auto raise = [](auto&&...) -> Value { throw KorTemplateReturnIndication::indicationWithReturnValue(3); };
  const Ref<RecordingStream> raising = makeRef<RecordingStream>();
  raising->onWrite = [&](const Text&) { raise(); };
  struct Row {
    const char* what;
    Ref<KorTemplateStatement> statement;
  };
  const Row rows[] = {
      {"a statement", makeRef<HostStatement>([&](KorTemplateEnvironment*) { raise(); })},
      {"an expression", output(makeRef<HostExpression>(raise))},
      {"a stream", makeRef<HostStatement>([&](KorTemplateEnvironment* environment) {
         environment->setOutputStream(raising);
         output("x")->executeWithEnvironment(environment);
       })},
  };
  for (const Row& row : rows) {
    const Stage stage;
    templateOf({output("a"), row.statement, output("b")})->executeWithEnvironment(stage.get());
    EXPECT_EQ(stage.text(), "a") << row.what;
    EXPECT_TRUE(raising->writes.empty()) << row.what;
    EXPECT_EQ(stage.depth(), 1) << row.what;
  }
}

TEST(KorTemplate, LetsOtherExceptionsPassAndKeepsWhatWasDone) {
  const Stage stage;
  const auto fail = makeRef<HostStatement>([](KorTemplateEnvironment*) { throw NSException("Boom", "bang"); });
  const Ref<KorTemplate> failing = templateOf({output("a"), evaluation(assignment("x", 1)), fail, output("b")});
  EXPECT_EQ(raisedBy([&] { failing->executeWithEnvironment(stage.get()); }), "Boom: bang");
  EXPECT_EQ(stage.text(), "a");
  EXPECT_EQ(stage.global("x").description(), "1");
}

TEST(KorTemplate, CopiesItsStatementsButSharesLiteralValues) {
  const Value text = "a";
  const Ref<KorTemplate> original = templateOf({output(text), output("b")});
  const Ref<KorTemplateStatement> copied = original->copyWithZone();
  auto& copy = as<KorTemplate>(copied);
  ASSERT_EQ(copy.statements().count(), 2);
  EXPECT_NE(copy.statements()[0], original->statements()[0]);
  auto& expression =
      as<KorTemplateLiteralExpression>(as<KorTemplateOutputStatement>(copy.statements()[0]).expression());
  EXPECT_TRUE(expression.literal().isIdenticalTo(text));
  expression.setLiteral("c");
  const Stage stage;
  original->executeWithEnvironment(stage.get());
  copy.executeWithEnvironment(stage.get());
  EXPECT_EQ(stage.text(), "abcb");
}

TEST(KorTemplate, RunsAgainAgainstTheSameAndOtherEnvironments) {
  const Ref<KorTemplate> counter = KorTemplate::compile("<? $n = ($n + 1) ?><?= $n ?>;");
  const Stage first;
  const Stage second;
  first.set("n", 0);
  second.set("n", 10);
  for (const Stage* stage : {&first, &first, &second}) counter->executeWithEnvironment(stage->get());
  EXPECT_EQ(first.text(), "1;2;");
  EXPECT_EQ(second.text(), "11;");
}

TEST(KorTemplate, RunsWithAnAbsentStackAndAbsentStreams) {
  const Stage stage;
  stage.environment->setStack(nullptr);
  stage.environment->setOutputStream(nullptr);
  stage.environment->setErrorStream(nullptr);
  stage.define("boom", [](auto&&...) -> Value { throw NSException("Boom", "bang"); });
  stage.run(
      "a<? $x = 1 ?><?= $x ?><?= $x.y ?><? if (true) ?>b<? endif ?><? foreach ($e in $list) ?>c<? endforeach ?>"
      "<? function f($p) ?><? return $p ?><? endfunction ?><?= f(1) ?><?= boom() ?>");
  EXPECT_TRUE(stage.output->writes.empty());
  EXPECT_TRUE(stage.errors->writes.empty());
}

TEST(KorTemplate, ReadsNothingBackFromAnAbsentStack) {
  const Stage stage;
  stage.environment->setStack(nullptr);
  stage.run("<? $x = 1 ?>[<?= $x ?>]<? if (true) ?><? $y = 2 ?>(<?= $y ?>)<? endif ?>");
  EXPECT_EQ(stage.text(), "[]()");
}

TEST(KorTemplate, RunsWithAStackWithoutFramesUntilAScopeIsPopped) {
  const Stage stage;
  stage.environment->setStack(KorTemplateStack::stack());
  stage.run("<? $x = 1 ?>[<?= $x ?>]<? if (true) ?><? $y = 2 ?>(<?= $y ?>)<? endif ?>");
  EXPECT_EQ(stage.text(), "[](2)");
  EXPECT_EQ(stage.depth(), 0);
}

}  // namespace

}  // namespace tavlo::test
