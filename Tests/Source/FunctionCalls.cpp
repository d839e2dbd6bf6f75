#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <new>
#include <stdexcept>

#include "Source/KorTemplateFunctionDefinitionStatement.h"
#include "Source/KorTemplateReturnIndication.h"
#include "Source/KorTemplateReturnStatement.h"
#include "Tests/Foundation/SmallStack.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

Ref<KorTemplateStatement> returning(const Ref<KorTemplateExpression>& expression) {
  return KorTemplateReturnStatement::statementWithExpression(expression);
}

TEST(KorTemplateFunctionCallExpression, KeepsAnyName) {
  EXPECT_EQ(makeRef<KorTemplateFunctionCallExpression>()->functionName(), Name(""));
  EXPECT_EQ(makeRef<KorTemplateFunctionCallExpression>(Name("f"))->functionName(), Name("f"));
  const auto node = KorTemplateFunctionCallExpression::expressionWithFunctionName("f");
  node->setFunctionName("not a name");
  EXPECT_EQ(node->functionName(), Name("not a name"));
  const Stage stage;
  stage.define("not a name", [](auto&&...) -> Value { return 1; });
  EXPECT_EQ(node->evaluateWithEnvironment(stage.get()).description(), "1");
}

TEST(KorTemplateFunctionCallExpression, IsNullForAnUnknownFunctionAndEvaluatesNoArgument) {
  const Stage stage;
  EXPECT_TRUE(call("f", {assignment("x", 1)})->evaluateWithEnvironment(stage.get()).isNull());
  EXPECT_TRUE(call("f", {assignment("x", 1)})->evaluateWithEnvironment(nullptr).isNull());
  EXPECT_FALSE(stage.environment->isGlobalVariableDefinedWithName("x"));
  EXPECT_THAT(stage.errors->writes, IsEmpty());
}

TEST(KorTemplateFunctionCallExpression, EvaluatesItsArgumentsInOrderAndPassesThemAsTheyAre) {
  const Stage stage;
  const Value object = makeRef<HostObject>();
  std::vector<Value> passed;
  KorTemplateEnvironment* seen = nullptr;
  stage.define("f", [&](KorTemplateEnvironment* environment, ListArgument<Value> arguments) -> Value {
    seen = environment;
    passed.assign(arguments.begin(), arguments.end());
    return object;
  });
  const Value result = call("f", {assignment("x", 1), variable("x"), literal(NSNull::null()), literal(object)})
                           ->evaluateWithEnvironment(stage.get());
  EXPECT_TRUE(result.isIdenticalTo(object));
  EXPECT_EQ(seen, stage.get());
  ASSERT_EQ(passed.size(), 4u);
  EXPECT_EQ(passed[1].description(), "1");
  EXPECT_TRUE(passed[2].isNull());
  EXPECT_TRUE(passed[3].isIdenticalTo(object));
}

TEST(KorTemplateFunctionCallExpression, RefusesAnAbsentArgumentAndPassesArgumentErrorsOn) {
  const Stage stage;
  int calls = 0;
  stage.define("f", [&](auto&&...) -> Value { return ++calls; });
  EXPECT_THAT(raisedBy([&] { (void)call("f", {nothing()})->evaluateWithEnvironment(stage.get()); }),
              testing::StartsWith("NSInvalidArgumentException: "));
  const auto fail =
      makeRef<HostExpression>([](KorTemplateEnvironment*) -> Value { throw NSException("Boom", "bang"); });
  EXPECT_EQ(raisedBy([&] { (void)call("f", {literal(1), fail})->evaluateWithEnvironment(stage.get()); }), "Boom: bang");
  EXPECT_EQ(calls, 0);
  EXPECT_THAT(stage.errors->writes, IsEmpty());
  EXPECT_EQ(call("f", {literal(1)})->evaluateWithEnvironment(stage.get()).description(), "1");
}

TEST(KorTemplateFunctionCallExpression, LetsTheOuterCallReportTheErrorOfAnInnerArgument) {
  const Stage stage;
  stage.run("<? function f($p) ?>in<? endfunction ?><? function g() ?>a<?= f(1 / 0) ?>b<? endfunction ?><?= g() ?>c");
  EXPECT_EQ(stage.text(), "ac");
  EXPECT_EQ(stage.diagnostics(), "Divide by zero");
}

TEST(KorTemplateFunctionCallExpression, KeepsAnAbsentResultAbsent) {
  const Stage stage;
  stage.define("f", [](auto&&...) { return Value(); });
  EXPECT_TRUE(call("f")->evaluateWithEnvironment(stage.get()).isAbsent());
  stage.run("<?= f() ?>");
  EXPECT_THAT(stage.output->writes, ElementsAre(std::nullopt));
}

TEST(KorTemplateFunctionCallExpression, LooksItsFunctionUpBeforeItsArguments) {
  const Stage stage;
  int calls = 0;
  stage.define("g", [&](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
    ++calls;
    environment->setFunctionForName(makeRef<HostFunction>([](auto&&...) -> Value { return "f"; }), "f");
    return 1;
  });
  EXPECT_TRUE(call("f", {call("g")})->evaluateWithEnvironment(stage.get()).isNull());
  EXPECT_EQ(calls, 0);
}

TEST(KorTemplateFunctionCallExpression, RunsAFunctionThatItsOwnArgumentRemovesOrReplaces) {
  for (const bool replaces : {false, true}) {
    const Stage stage;
    stage.define("f", [](auto&&...) -> Value { return "first"; });
    stage.define("g", [replaces](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
      environment->removeFunctionForName("f");
      if (!replaces) return 1;
      environment->setFunctionForName(makeRef<HostFunction>([](auto&&...) -> Value { return "second"; }), "f");
      return 1;
    });
    stage.run("<?= f(g()) ?>,<?= f() ?>");
    EXPECT_EQ(stage.text(), replaces ? "first,second" : "first,");
  }
}

TEST(KorTemplateFunctionCallExpression, TurnsAnExceptionIntoOneWriteAndNull) {
  struct Row {
    const char* what;
    std::function<void()> raise;
    const char* diagnostic;
  };
  const Row rows[] = {
      {"with a reason", [] { throw NSException("Boom", "boom"); }, "boom"},
      {"with an empty reason", [] { throw NSException("Boom", ""); }, ""},
      {"without a reason", [] { throw NSException("Boom"); }, "Boom"},
      {"a failed check", [] { requireParameter(false, "x != nil"); }, "Invalid parameter not satisfying: x != nil"},
      {"a return", [] { throw KorTemplateReturnIndication::indicationWithReturnValue(5); },
       "KorTemplateReturnIndication"},
      {"of the standard library", [] { throw std::runtime_error("what it is"); }, "what it is"},
      {"of its base", [] { throw std::out_of_range("too far"); }, "too far"},
  };
  for (const Row& row : rows) {
    const Stage stage;
    stage.define("f", [&](auto&&...) -> Value {
      row.raise();
      return 1;
    });
    stage.run("a<?= f() ?>b");
    EXPECT_THAT(stage.errors->writes, ElementsAre(row.diagnostic)) << row.what;
    EXPECT_THAT(stage.output->writes, ElementsAre("a", "b")) << row.what;
    EXPECT_TRUE(call("f")->evaluateWithEnvironment(stage.get()).isNull()) << row.what;
  }
}

template <class Exception>
void expectToPass(const char* what, const Exception& exception) {
  const Stage stage;
  stage.define("f", [&](auto&&...) -> Value { throw exception; });
  EXPECT_THROW(stage.run("a<? function g() ?><?= f() ?><? endfunction ?><? if (true) ?><?= g() ?><? endif ?>b"),
               Exception)
      << what;
  EXPECT_THAT(stage.errors->writes, IsEmpty()) << what;
  EXPECT_EQ(stage.text(), "a") << what;
  EXPECT_EQ(stage.depth(), 1) << what;
  stage.run("c");
  EXPECT_EQ(stage.text(), "ac") << what;
}

TEST(KorTemplateFunctionCallExpression, PassesOnWhatIsNotOfTheFamily) {
  expectToPass("an int", 42);
  expectToPass("a text", std::string("text"));
  expectToPass("no memory", std::bad_alloc());
  expectToPass("too long", std::length_error("too long"));
}

TEST(KorTemplateFunctionCallExpression, WritesToTheErrorStreamThatIsCurrentAfterTheFailure) {
  const Stage stage;
  const Ref<RecordingStream> next = makeRef<RecordingStream>();
  stage.define("f", [&](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
    environment->setErrorStream(next);
    throw NSException("Boom", "bang");
  });
  stage.run("<? f() ?>");
  EXPECT_THAT(stage.errors->writes, IsEmpty());
  EXPECT_THAT(next->writes, ElementsAre("bang"));
}

TEST(KorTemplateFunctionCallExpression, PassesAnErrorOfItsDiagnosticOn) {
  const Stage stage;
  stage.define("f", [](auto&&...) -> Value { throw NSException("Boom", "bang"); });
  stage.errors->onWrite = [](const Text& text) {
    throw NSException("Full", "no room for " + std::string(text.view()));
  };
  EXPECT_EQ(raisedBy([&] { stage.run("a<? f() ?>b"); }), "Full: no room for bang");
  EXPECT_EQ(stage.text(), "a");
}

TEST(KorTemplateFunctionCallExpression, IsSafeWhenAnArgumentCallsTheSameFunctionFromTheSamePlace) {
  const Stage stage;
  stage.run(
      "<? function f($n, $m) ?><? if ($n < 1) ?><? return $m ?><? endif ?>"
      "<? return f($n - 1, f($n - 1, $m + $n)) ?><? endfunction ?><?= f(3, \"\") ?>");
  EXPECT_EQ(stage.text(), "3211211");
}

TEST(KorTemplateFunctionCallExpression, CopiedCallsWithoutArguments) {
  const auto original = call("f", {literal(1), literal(2)});
  const Ref<KorTemplateExpression> copied = original->copyWithZone();
  auto& copy = as<KorTemplateFunctionCallExpression>(copied);
  EXPECT_EQ(copy.functionName(), Name("f"));
  EXPECT_TRUE(copy.argumentExpressions().empty());
  EXPECT_EQ(original->argumentExpressions().count(), 2);
}

TEST(KorTemplateFunctionCallExpression, CopiesItsArgumentsAllTheSame) {
  class CountedExpression final : public KorTemplateExpression {
   public:
    explicit CountedExpression(int& copies) : copies_(copies) {}
    Value evaluateWithEnvironment(KorTemplateEnvironment*) override { return 1; }
    Ref<KorTemplateExpression> copyWithZone(NSZone*) const override {
      ++copies_;
      return makeRef<CountedExpression>(copies_);
    }

   private:
    int& copies_;
  };
  int copies = 0;
  (void)call("f", {makeRef<CountedExpression>(copies), makeRef<CountedExpression>(copies)})->copyWithZone();
  EXPECT_EQ(copies, 2);
}

TEST(KorTemplateInternalFunction, YieldsItsReturnOrNull) {
  const Stage stage;
  const Ref<KorTemplateInternalFunction> function = KorTemplateInternalFunction::function();
  EXPECT_TRUE(function->invokeWithEnvironment(stage.get(), {}).isNull());
  function->setStatements({output("a"), returning(literal(5)), output("b")});
  EXPECT_EQ(function->invokeWithEnvironment(stage.get(), {}).description(), "5");
  EXPECT_EQ(stage.text(), "a");
  function->setStatements({KorTemplateReturnStatement::statement()});
  EXPECT_TRUE(function->invokeWithEnvironment(stage.get(), {}).isNull());
  EXPECT_EQ(stage.depth(), 1);
}

TEST(KorTemplateInternalFunction, ChecksTheCountBeforeThePush) {
  const Stage stage;
  const Ref<KorTemplateInternalFunction> function = KorTemplateInternalFunction::function();
  function->setArguments({"a", "b"});
  function->addStatement(output("ran"));
  EXPECT_EQ(raisedBy([&] { (void)function->invokeWithEnvironment(stage.get(), {Value(1)}); }),
            "NSInvalidArgumentException: Incorrect number of arguments for function. 1 supplied, 2 expected");
  stage.environment->setStack(KorTemplateStack::stack());  // without a frame a pop too many would fail
  EXPECT_EQ(raisedBy([&] {
              (void)function->invokeWithEnvironment(stage.get(), {1, 2, 3});
            }),
            "NSInvalidArgumentException: Incorrect number of arguments for function. 3 supplied, 2 expected");
  EXPECT_EQ(stage.depth(), 0);
  stage.environment->setFunctionForName(function, "f");
  stage.run("<?= f(1) ?>");
  EXPECT_EQ(stage.diagnostics(), "Incorrect number of arguments for function. 1 supplied, 2 expected");
  EXPECT_EQ(stage.text(), "");
}

TEST(KorTemplateInternalFunction, BindsItsParametersAfterThePushInsideTheGuard) {
  const Stage stage;
  const Ref<KorTemplateInternalFunction> function = KorTemplateInternalFunction::function();
  function->setArguments({"a", "b"});
  EXPECT_EQ(raisedBy([&] {
              (void)function->invokeWithEnvironment(stage.get(), {Value(1), Value()});
            }),
            failedCheck("variable != nil"));
  EXPECT_EQ(stage.depth(), 1);
  EXPECT_FALSE(stage.environment->isGlobalVariableDefinedWithName("a"));
}

TEST(KorTemplateInternalFunction, TakesTheLastValueOfADuplicateParameter) {
  const Stage stage;
  stage.run("<? function f($a, $b, $a) ?><? return $a + $b ?><? endfunction ?><?= f(\"1\", \"2\", \"3\") ?>");
  EXPECT_EQ(stage.text(), "32");
}

TEST(KorTemplateInternalFunction, KeepsParametersAndAssignmentsToItself) {
  const Stage stage;
  stage.set("p", "outer p");
  stage.set("g", "outer g");
  stage.run(
      "<? function f($p) ?><?= $p + $g ?><? $g = 1 ?><? $p = 2 ?><? endfunction ?><? f(\"in \") ?>|<?= $p + $g ?>");
  EXPECT_EQ(stage.text(), "in outer g|outer pouter g");
}

TEST(KorTemplateInternalFunction, SeesTheVariablesOfItsCaller) {
  const Stage stage;
  stage.run(
      "<? function f() ?><?= $local ?><? endfunction ?><? function g() ?><? $local = \"g's\" ?><? f() ?><? endfunction "
      "?>"
      "<? f() ?><? g() ?><? if (true) ?><? $local = \",if's\" ?><? f() ?><? endif ?>");
  EXPECT_EQ(stage.text(), "g's,if's");
}

TEST(KorTemplateInternalFunction, TakesAReturnIndicationThatAHostRaisesInItsBody) {
  const auto raise = [](auto&&...) -> Value { throw KorTemplateReturnIndication::indicationWithReturnValue(3); };
  const Ref<RecordingStream> raising = makeRef<RecordingStream>();
  raising->onWrite = [&](const Text&) { raise(); };
  const Ref<KorTemplateStatement> statements[] = {
      makeRef<HostStatement>([&](KorTemplateEnvironment*) { raise(); }),
      evaluation(makeRef<HostExpression>(raise)),
      makeRef<HostStatement>([](KorTemplateEnvironment* environment) {
        returning(literal(3))->executeWithEnvironment(environment);  // a host that passes an inner return on
      }),
      output("to the stream"),
  };
  for (const Ref<KorTemplateStatement>& statement : statements) {
    const Stage stage;
    stage.environment->setOutputStream(raising);
    const Ref<KorTemplateInternalFunction> function = KorTemplateInternalFunction::function();
    function->setStatements({statement, returning(literal("too late"))});
    EXPECT_EQ(function->invokeWithEnvironment(stage.get(), {}).description(), "3");
    stage.environment->setFunctionForName(function, "f");
    EXPECT_EQ(call("f")->evaluateWithEnvironment(stage.get()).description(), "3");
    EXPECT_THAT(stage.errors->writes, IsEmpty());
    EXPECT_EQ(stage.depth(), 1);
  }
}

TEST(KorTemplateInternalFunction, PassesErrorsOfItsBodyOnAndPopsItsFrame) {
  const Stage stage;
  const Ref<KorTemplateInternalFunction> function = KorTemplateInternalFunction::function();
  function->addStatement(makeRef<HostStatement>([](KorTemplateEnvironment*) { throw NSException("Boom", "bang"); }));
  EXPECT_EQ(raisedBy([&] { (void)function->invokeWithEnvironment(stage.get(), {}); }), "Boom: bang");
  EXPECT_EQ(stage.depth(), 1);
}

TEST(KorTemplateInternalFunction, RunsWithoutAStack) {
  const Stage stage;
  stage.environment->setStack(nullptr);
  const Ref<KorTemplateInternalFunction> function = KorTemplateInternalFunction::function();
  function->setArguments({"p"});
  function->setStatements({output("ran"), returning(variable("p"))});
  EXPECT_TRUE(function->invokeWithEnvironment(stage.get(), {Value(1)}).isNull());
  EXPECT_EQ(stage.text(), "ran");
}

TEST(KorTemplateInternalFunction, CopiesItsBodyAndItsNames) {
  const Ref<KorTemplateInternalFunction> original = KorTemplateInternalFunction::function();
  original->setArguments({"p", "q"});
  original->setStatements({output("a"), returning(variable("p"))});
  const Ref<KorTemplateFunction> copied = original->copyWithZone();
  auto& copy = as<KorTemplateInternalFunction>(copied);
  EXPECT_THAT(copy.arguments().items(), ElementsAre(Name("p"), Name("q")));
  ASSERT_EQ(copy.statements().count(), 2);
  EXPECT_NE(copy.statements()[0], original->statements()[0]);
  copy.removeAllStatements();
  copy.removeAllArguments();
  EXPECT_EQ(original->statements().count(), 2);
  EXPECT_EQ(original->arguments().count(), 2);
}

TEST(KorTemplateFunctionCallExpression, InsideOneAnotherAreCopiedAsFarAsTheStackGoes) {
  Ref<KorTemplateExpression> call = KorTemplateFunctionCallExpression::expressionWithFunctionName("f");
  for (int depth = 0; depth < 5000; ++depth) {
    const Ref<KorTemplateFunctionCallExpression> outer =
        KorTemplateFunctionCallExpression::expressionWithFunctionName("f");
    outer->addArgumentExpression(call);
    call = outer;
  }
  EXPECT_EQ(outcomeOnStackOf(256 * 1024, [&] { (void)call->copyWithZone(); }), "stack");
}

}  // namespace

}  // namespace tavlo::test
