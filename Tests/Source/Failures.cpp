#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <exception>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "Source/KorTemplateCallableFunction.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// A template with a name, kept for as long as the stage may run what it defines.
Ref<KorTemplate> named(const std::string& name, const std::string& text) {
  return KorTemplate::compile(text, {.name = name});
}

// "function@template:line:column" of each call, the innermost first.
std::vector<std::string> callsOf(const KorTemplateFailure& failure) {
  std::vector<std::string> calls;
  for (const KorTemplateCall& call : failure.calls()) {
    calls.push_back(std::string(call.functionName()) + "@" + call.place().description());
  }
  return calls;
}

// Runs a template that must fail, whatever it raises, and answers with what the environment knows of it.
KorTemplateFailure failureOf(const Stage& stage, const Ref<KorTemplate>& whole) {
  EXPECT_ANY_THROW(whole->executeWithEnvironment(stage.get()));
  const KorTemplateFailure* const failure = stage.environment->lastFailure();
  EXPECT_NE(failure, nullptr);
  return failure == nullptr ? KorTemplateFailure() : *failure;
}

TEST(AFailure, HasItsPlaceInTheTemplate) {
  struct Row {
    const char* text;
    std::size_t line;
    std::size_t column;
    std::size_t offset;
    std::size_t length;
    const char* excerpt;
  };
  const Row rows[] = {
      {"<? 1 / 0 ?>", 1, 1, 0, 11, "<? 1 / 0 ?>\n^\n"},
      {"a\n<? 1 / 0 ?>", 2, 1, 2, 11, "<? 1 / 0 ?>\n^\n"},
      {"a\r\nb\r c<? 1 / 0 ?>d", 3, 3, 7, 11, " c<? 1 / 0 ?>d\n  ^\n"},
      {"\xC3\xA4\xE2\x82\xAC<? 1 / 0 ?>", 1, 3, 5, 11, "\xC3\xA4\xE2\x82\xAC<? 1 / 0 ?>\n  ^\n"},
      {"<? if (true) ?>\n\t<?= 1 / 0 ?><? endif ?>", 2, 2, 17, 12, "\t<?= 1 / 0 ?><? endif ?>\n\t^\n"},
  };
  for (const Row& row : rows) {
    const Stage stage;
    const KorTemplateFailure failure = failureOf(stage, named("page.txt", row.text));
    EXPECT_EQ(failure.name(), NSGenericException) << row.text;
    EXPECT_EQ(failure.reason(), "Divide by zero") << row.text;
    EXPECT_EQ(failure.place().templateName(), "page.txt") << row.text;
    EXPECT_EQ(failure.place().line(), row.line) << row.text;
    EXPECT_EQ(failure.place().column(), row.column) << row.text;
    EXPECT_EQ(failure.place().offset(), row.offset) << row.text;
    EXPECT_EQ(failure.place().length(), row.length) << row.text;
    EXPECT_EQ(failure.text(), "page.txt:" + std::to_string(row.line) + ":" + std::to_string(row.column) +
                                  ": NSGenericException: Divide by zero\n" + row.excerpt);
    EXPECT_THAT(failure.calls(), IsEmpty()) << row.text;
    EXPECT_EQ(failure.exception(), nullptr) << row.text;
  }
}

TEST(AFailure, IsShownWithoutWhatIsNotKnown) {
  const Stage stage;
  EXPECT_EQ(failureOf(stage, KorTemplate::compile("<? 1 / 0 ?>")).text(),
            "template:1:1: NSGenericException: Divide by zero\n<? 1 / 0 ?>\n^\n");
  const KorTemplateFailure byHand =
      failureOf(stage, templateOf({evaluation(binary(KorTemplateOperatorDivide, literal(1), literal(0)))}));
  EXPECT_FALSE(byHand.place().isKnown());
  EXPECT_EQ(byHand.place().line(), 0U);
  EXPECT_EQ(byHand.text(), "template: NSGenericException: Divide by zero\n");
  EXPECT_EQ(KorTemplateFailure().name(), "");
  EXPECT_EQ(KorTemplateFailure().reason(), "");
  EXPECT_FALSE(KorTemplateFailure().place().isKnown());
}

TEST(AFailure, IsThatOfTheLastExecution) {
  const Stage stage;
  EXPECT_EQ(stage.environment->lastFailure(), nullptr);
  (void)failureOf(stage, named("a", "<? 1 / 0 ?>"));
  stage.run("<? return ?>");
  EXPECT_EQ(stage.environment->lastFailure(), nullptr);
}

TEST(AFailure, OutlivesItsTemplateAndItsEnvironment) {
  KorTemplateFailure failure;
  {
    const Stage stage;
    failure = failureOf(stage, named("gone", "x<? 1 / 0 ?>"));
  }
  EXPECT_EQ(failure.text(), "gone:1:2: NSGenericException: Divide by zero\nx<? 1 / 0 ?>\n ^\n");
}

TEST(AFailure, OfADefinedFunctionKnowsTheTemplateThatDefinesIt) {
  const Stage stage;
  std::vector<KorTemplateFailure> told;
  stage.environment->setDiagnosticCallback([&](const KorTemplateFailure& failure) { told.push_back(failure); });
  const Ref<KorTemplate> library = named("library",
                                         "<? function inner($n) ?>\n<?= 1 / $n ?><? endfunction ?>"
                                         "<? function outer($n) ?>\n <? inner($n) ?><? endfunction ?>");
  library->executeWithEnvironment(stage.get());
  const Ref<KorTemplate> page = named("page", "ab<? outer(0) ?>");
  page->executeWithEnvironment(stage.get());
  ASSERT_EQ(told.size(), 1U);
  EXPECT_EQ(told[0].place().description(), "library:2:1");
  EXPECT_THAT(callsOf(told[0]), ElementsAre("inner@library:3:2", "outer@page:1:3"));
  EXPECT_EQ(told[0].callCount(), 2U);
  EXPECT_EQ(stage.diagnostics(), "Divide by zero");
}

TEST(AFailure, IsWhereTheCallStandsForAFunctionThatHasNotBegun) {
  const Stage stage;
  std::vector<std::string> told;
  stage.environment->setDiagnosticCallback([&](const KorTemplateFailure& failure) {
    told.push_back(failure.place().description() + " " + failure.reason());
    for (const std::string& call : callsOf(failure)) told.push_back(call);
  });
  named("library", "\n\n<? function f($n) ?><? endfunction ?>")->executeWithEnvironment(stage.get());
  stage.define("host", [](auto&&...) -> Value { throw std::runtime_error("no"); });
  named("page", "<? f() ?>\n<? host(1) ?>")->executeWithEnvironment(stage.get());
  EXPECT_THAT(told, ElementsAre("page:1:1 Incorrect number of arguments for function. 0 supplied, 1 expected",
                                "f@page:1:1", "page:2:1 no", "host@page:2:1"));
}

TEST(AFailure, OfCopiesIsPlacedLikeThatOfWhatWasCopied) {
  const Stage stage;
  const Ref<KorTemplate> whole = named("page", "<? function f() ?>\n<? 1 / 0 ?><? endfunction ?><? f() ?><? 1 / 0 ?>");
  std::vector<std::string> told;
  stage.environment->setDiagnosticCallback(
      [&](const KorTemplateFailure& failure) { told.push_back(failure.place().description()); });
  const Ref<KorTemplateStatement> copy = whole->copyWithZone();
  EXPECT_ANY_THROW(copy->executeWithEnvironment(stage.get()));
  EXPECT_EQ(stage.environment->lastFailure()->place().description(), "page:2:38");
  EXPECT_THAT(told, ElementsAre("page:2:1"));
}

// A stage whose function "include" runs another template in the same environment.
struct IncludingStage : Stage {
  explicit IncludingStage(const std::string& text) : included(named("included", text)) {
    define("include", [this](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
      included->executeWithEnvironment(environment);
      return 1;
    });
    environment->setDiagnosticCallback([this](const KorTemplateFailure& failure) {
      told.push_back(failure.place().description());
      for (const std::string& call : callsOf(failure)) told.push_back(call);
    });
  }

  Ref<KorTemplate> included;
  std::vector<std::string> told;
};

TEST(AFailure, OfATemplateThatAFunctionRunsIsPlacedInThatTemplate) {
  const IncludingStage stage("in\n<? 1 / 0 ?>");
  named("page", "a<? include() ?>")->executeWithEnvironment(stage.get());
  EXPECT_THAT(stage.told, ElementsAre("included:2:1", "include@page:1:2"));
}

TEST(AFailure, ThatAFunctionKeptToItselfLeavesNothingBehind) {
  const Stage stage;
  const Ref<KorTemplate> included = named("included", "in\n<? 1 / 0 ?>");
  stage.define("attempt", [&](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
    EXPECT_ANY_THROW(included->executeWithEnvironment(environment));
    return 1;
  });
  const KorTemplateFailure failure = failureOf(stage, named("page", "<? attempt() ?>\n<?= attempt() - \"x\" ?>"));
  EXPECT_EQ(failure.place().description(), "page:2:1");
  EXPECT_THAT(failure.calls(), IsEmpty());
}

TEST(AFailure, OfAStatementThatAHostRunsByItselfIsPlacedNowhereElse) {
  const Stage stage;
  const Ref<KorTemplate> other = named("other", "<? $a ?>\n<? 1 / 0 ?>");
  stage.define("single", [&](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
    other->statements()[2]->executeWithEnvironment(environment);
    return 1;
  });
  std::vector<KorTemplateFailure> told;
  stage.environment->setDiagnosticCallback([&](const KorTemplateFailure& failure) { told.push_back(failure); });
  named("page", "<? single() ?>")->executeWithEnvironment(stage.get());
  ASSERT_EQ(told.size(), 1U);
  EXPECT_EQ(told[0].place().templateName(), "");
  EXPECT_FALSE(told[0].place().isKnown());
  EXPECT_THAT(callsOf(told[0]), ElementsAre("single@page:1:1"));
}

TEST(AFailure, OfALimitKnowsTheCallsThatRanWhenItWasReached) {
  const Stage stage;
  KorTemplateLimits limits;
  limits.functionDepth = 3;
  stage.environment->setLimits(limits);
  const KorTemplateFailure failure =
      failureOf(stage, named("page", "<? function f() ?>\n<? f() ?><? endfunction ?>\n<? f() ?>"));
  EXPECT_EQ(failure.name(), "KorTemplateLimitException");
  EXPECT_EQ(failure.place().description(), "page:2:1");
  EXPECT_THAT(callsOf(failure), ElementsAre("f@page:2:1", "f@page:2:1", "f@page:3:1"));
}

TEST(AFailure, OfALimitThatAHostSwallowedStaysWhereItWasReached) {
  const Stage stage;
  KorTemplateLimits limits;
  limits.functionDepth = 2;
  stage.environment->setLimits(limits);
  const Ref<KorTemplate> deep = named("deep", "<? function f() ?><? f() ?><? endfunction ?>\n<? f() ?>");
  stage.define("swallow", [&](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
    EXPECT_THROW(deep->executeWithEnvironment(environment), KorTemplateLimitException);
    return 1;
  });
  const KorTemplateFailure failure = failureOf(stage, named("page", "<? swallow() ?>\nx"));
  EXPECT_EQ(failure.name(), "KorTemplateLimitException");
  EXPECT_EQ(failure.place().description(), "deep:1:19");
  EXPECT_THAT(callsOf(failure), ElementsAre("f@deep:2:1", "swallow@page:1:1"));
}

TEST(AFailure, WithoutAPlaceIsNowhereInAText) {
  const TextPlace place = KorTemplatePlace().inText();
  EXPECT_EQ(place.line, 0U);
  EXPECT_EQ(place.column, 0U);
  EXPECT_EQ(place.offset, 0U);
  EXPECT_EQ(place.length, 0U);
}

TEST(AFailure, KeepsTheInnerEndOfALongChainOfCalls) {
  const Stage stage;
  KorTemplateLimits limits;
  limits.functionDepth = 2500;
  stage.environment->setLimits(limits);
  const KorTemplateFailure failure =
      failureOf(stage, named("page", "<? function f() ?><? f() ?><? endfunction ?>\n<? f() ?>"));
  EXPECT_EQ(failure.callCount(), 2500U);
  EXPECT_EQ(failure.calls().size(), KorTemplateTrace::kMostCalls);
  EXPECT_EQ(failure.calls().front().place().description(), "page:1:19");
}

TEST(AFailure, IsPlacedWhateverAHostRaises) {
  struct Row {
    const char* what;
    void (*raise)();
    const char* name;
  };
  const Row rows[] = {
      {"a lack of memory", [] { throw std::bad_alloc(); }, "std::bad_alloc"},
      {"a length", [] { throw std::length_error("too long"); }, "std::exception"},
      {"what is no exception", [] { throw 42; }, "exception"},
  };
  for (const Row& row : rows) {
    const Stage stage;
    stage.define("raise", [&](auto&&...) -> Value {
      row.raise();
      return 1;
    });
    const KorTemplateFailure failure =
        failureOf(stage, named("page", "<? function f() ?>\n<? raise() ?><? endfunction ?>\n<? f() ?>"));
    EXPECT_EQ(failure.name(), row.name) << row.what;
    EXPECT_EQ(failure.place().description(), "page:2:1") << row.what;
    EXPECT_THAT(callsOf(failure), ElementsAre("raise@page:2:1", "f@page:3:1")) << row.what;
    EXPECT_THAT(stage.errors->writes, IsEmpty()) << row.what;
  }
}

TEST(AFailure, OfAScopeThatIsGoneIsThatOfTheScope) {
  const Stage stage;
  stage.define("popAll", [](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
    while (environment->stack()->frames().count() > 0) environment->stack()->pop();
    throw 42;
  });
  const KorTemplateFailure failure = failureOf(stage, named("page", "<? if (true) ?><? popAll() ?><? endif ?>"));
  EXPECT_EQ(failure.name() + ": " + failure.reason(), failedAssertion("Stack frame is empty"));
}

TEST(AFailedCompilation, TellsWhyAndWhere) {
  struct Row {
    const char* text;
    const char* told;
  };
  const Row rows[] = {
      {"a\n<?= 1 + ?>",
       "t:2:7: KorTemplateSyntaxErrorException: Syntax error (line 2): Expression required to right of + operator\n"
       "<?= 1 + ?>\n      ^\n"},
      {"x\xFFy", "t:1:2: NSInvalidArgumentException: Text is not valid UTF-8 at byte offset 1\nx\xEF\xBF\xBDy\n ^\n"},
      {nullptr, "t: NSInternalInconsistencyException: Invalid parameter not satisfying: templateString != nil\n"},
  };
  for (const Row& row : rows) {
    KorTemplateFailure failure;
    EXPECT_ANY_THROW(KorTemplate::compile(row.text, {.name = "t"}, &failure));
    EXPECT_EQ(failure.text(), row.told);
    const KorTemplateResult<Ref<KorTemplate>> result = KorTemplate::tryCompile(row.text, {.name = "t"});
    ASSERT_FALSE(result.succeeded());
    EXPECT_EQ(result.failure().text(), row.told);
  }
}

TEST(AFailedCompilation, TellsOfALimit) {
  KorTemplateFailure failure;
  KorTemplateLimits limits;
  limits.nesting = 1;
  EXPECT_THROW(KorTemplate::compile("\n<?= ((1)) ?>", {.name = "deep", .limits = limits}, &failure),
               KorTemplateLimitException);
  EXPECT_EQ(failure.name(), "KorTemplateLimitException");
  EXPECT_EQ(failure.place().description(), "deep:2:6");
}

TEST(ANamedTemplate, KnowsItsNameAndItsText) {
  const Ref<KorTemplate> whole = named("page.txt", "a<?= 1 ?>");
  EXPECT_EQ(whole->name(), "page.txt");
  EXPECT_EQ(whole->source()->text(), "a<?= 1 ?>");
  EXPECT_EQ(KorTemplate::compile("a")->name(), "");
  EXPECT_EQ(makeRef<KorTemplate>()->name(), "");
  EXPECT_EQ(makeRef<KorTemplate>()->source(), nullptr);
}

TEST(ADiagnosticCallback, IsCalledBehindTheTextAndMayRaise) {
  const Stage stage;
  std::string order;
  stage.errors->onWrite = [&](const Text& text) { order += "write " + std::string(text.view()) + ","; };
  stage.environment->setDiagnosticCallback([&](const KorTemplateFailure& failure) {
    order += "told " + failure.reason() + ",";
    stage.environment->setDiagnosticCallback(nullptr);
    throw NSException("Enough", "no more of this");
  });
  stage.define("boom", [](auto&&...) -> Value { throw NSException("Boom", "bang"); });
  EXPECT_EQ(raisedBy([&] { stage.run("a<? boom() ?>b"); }), "Enough: no more of this");
  EXPECT_EQ(order, "write bang,told bang,");
  stage.run("<? boom() ?>c");
  EXPECT_EQ(order, "write bang,told bang,write bang,");
  EXPECT_EQ(stage.text(), "ac");
}

// As a failed future does for each who asks.
TEST(ADiagnosticCallback, HearsWhereAnExceptionIsRaisedOnceMore) {
  const Stage stage;
  const std::exception_ptr kept = std::make_exception_ptr(std::runtime_error("kept"));
  stage.environment->setFunction("raise", [&]() -> int { std::rethrow_exception(kept); });
  std::vector<std::string> places;
  stage.environment->setDiagnosticCallback(
      [&](const KorTemplateFailure& failure) { places.push_back(failure.place().description()); });
  named("page", "<? raise() ?>\n\n<? raise() ?><? function f() ?>\n<? raise() ?><? endfunction ?><? f() ?>")
      ->executeWithEnvironment(stage.get());
  EXPECT_THAT(places, ElementsAre("page:1:1", "page:3:1", "page:4:1"));
}

}  // namespace

}  // namespace tavlo::test
