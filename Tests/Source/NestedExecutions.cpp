#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Foundation/Description.h"
#include "Foundation/HostObject.h"
#include "Foundation/NSArray.h"
#include "Foundation/NSEnumerator.h"
#include "Foundation/NSSet.h"
#include "Source/KorTemplateCallableFunction.h"
#include "Source/KorTemplateObserver.h"
#include "Tests/Foundation/Repeated.h"
#include "Tests/Memory/WorkBound.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

namespace {

// Runs a template that fails behind two statements of its own and is gone afterwards, and keeps its failure to itself.
void runAFailingTemplate(KorTemplateEnvironment* environment) {
  EXPECT_EQ(raisedBy([&] { KorTemplate::compile("in<?= 1 ?><? 1 / 0 ?>")->executeWithEnvironment(environment); }),
            "NSGenericException: Divide by zero");
}

// A value of a host whose every answer takes the run of a failing template.
class RunningObject final : public NSObject {
 public:
  explicit RunningObject(KorTemplateEnvironment* environment) : environment_(environment) {}
  const char* className() const override { return "RunningObject"; }
  void describe(Description& out) const override {
    runAFailingTemplate(environment_);
    out.part("running");
  }
  bool isEqual(const NSObject& other, std::int32_t /*depth*/) const override {
    runAFailingTemplate(environment_);
    return this == &other;
  }
  std::optional<bool> isLessThan(const Value& /*other*/) const override {
    runAFailingTemplate(environment_);
    return {};
  }
  Value valueForKey(const NSString& /*key*/) const override {
    runAFailingTemplate(environment_);
    throw NSException("Boom", "bang");
  }
  Ref<NSEnumerator> objectEnumerator() const override {
    runAFailingTemplate(environment_);
    throw NSException("Boom", "bang");
  }

 private:
  KorTemplateEnvironment* environment_;
};

std::string textAt(std::string_view text, SourceRange range) {
  return std::string(text.substr(range.offset, range.length));
}

TEST(NestedExecutions, LeaveTheOuterStatementToItsOwnFailure) {
  struct Row {
    const char* failing;  // the block that fails behind the nested run
    const char* raised;
  };
  const Row rows[] = {
      {"<?= $o + 1 - 2 ?>", "NSGenericException: Can't subtract operands of type NSString and NSNumber"},
      {"<? ($o == $other) - \"x\" ?>", "NSGenericException: Can't subtract operands of type NSNumber and NSString"},
      {"<?= $o < 1 ?>", "NSGenericException: running does not implement isLessThan:"},
      {"<?= $o.key ?>", "Boom: bang"},
      {"<? foreach ($e in $o) ?>", "Boom: bang"},
      {"<?= h() - 1 ?>", "NSGenericException: Can't subtract operands of type NSNull and NSNumber"},
      {"<?= boom() - 1 ?>", "NSGenericException: Can't subtract operands of type NSNull and NSNumber"},
  };
  for (const Row& row : rows) {
    const Stage stage;
    stage.set("o", makeRef<RunningObject>(stage.get()));
    stage.set("other", makeRef<HostObject>());
    stage.define("h", [](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
      runAFailingTemplate(environment);
      return NSNull::null();
    });
    stage.define("boom", [](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
      KorTemplate::compile("in<? 1 / 0 ?>")->executeWithEnvironment(environment);
      return 1;
    });
    const bool isLoop = std::string_view(row.failing).find("foreach") != std::string_view::npos;
    const std::string text = std::string("a\n") + row.failing + (isLoop ? "<? endforeach ?>" : "") + "b";
    EXPECT_EQ(raisedBy([&] { stage.run(text); }), row.raised) << row.failing;
    EXPECT_EQ(textAt(text, stage.environment->failedStatement()), row.failing);
    EXPECT_EQ(stage.depth(), 1) << row.failing;
  }
}

TEST(NestedExecutions, LeaveAHostsStatementToItsOwnFailure) {
  const Stage stage;
  const auto failing = makeRef<HostStatement>([](KorTemplateEnvironment* environment) {
    runAFailingTemplate(environment);
    throw NSException("Boom", "bang");
  });
  failing->setSourceRange({7, 11});
  EXPECT_EQ(raisedBy([&] { templateOf({output("a"), failing})->executeWithEnvironment(stage.get()); }), "Boom: bang");
  EXPECT_EQ(stage.environment->failedStatement().offset, 7U);
  EXPECT_EQ(stage.environment->failedStatement().length, 11U);
  EXPECT_EQ(stage.text(), "ain1");
}

TEST(NestedExecutions, FailAtTheOuterStatementThatRanThem) {
  const Stage stage;
  const auto running = makeRef<HostStatement>([](KorTemplateEnvironment* environment) {
    KorTemplate::compile("a longer text than the other one has<? 1 / 0 ?>")->executeWithEnvironment(environment);
  });
  running->setSourceRange({3, 4});
  EXPECT_EQ(raisedBy([&] {
              templateOf({running, output("b")})->executeWithEnvironment(stage.get());
            }),
            "NSGenericException: Divide by zero");
  EXPECT_EQ(stage.environment->failedStatement().offset, 3U);
  EXPECT_EQ(stage.environment->failedStatement().length, 4U);
}

TEST(NestedExecutions, ThatEndWellLeaveTheOuterStatementToo) {
  const Stage stage;
  stage.define("include", [](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
    KorTemplate::compile("in<? return ?>")->executeWithEnvironment(environment);
    return NSNull::null();
  });
  const std::string text = "<? if (true) ?>a<?= include() - 1 ?><? endif ?>";
  EXPECT_NE(raisedBy([&] { stage.run(text); }), "nothing");
  EXPECT_EQ(textAt(text, stage.environment->failedStatement()), "<?= include() - 1 ?>");
  stage.run("fine");
  EXPECT_EQ(stage.environment->failedStatement().length, 0U);
}

// Yields numbers until it fails.
class FailingEnumerator final : public NSEnumerator {
 public:
  explicit FailingEnumerator(int left) : left_(left) {}
  Value nextObject() override {
    if (left_-- == 0) throw NSException("Boom", "bang");
    return left_;
  }

 private:
  int left_;
};

class FailingList final : public NSObject {
 public:
  explicit FailingList(int count) : count_(count) {}
  Ref<NSEnumerator> objectEnumerator() const override { return makeRef<FailingEnumerator>(count_); }

 private:
  int count_;
};

TEST(NestedExecutions, OfAHostsEnumeratorFailAtTheLoopWhateverItsBodyDid) {
  for (int count = 0; count < 3; ++count) {
    const Stage stage;
    stage.set("list", makeRef<FailingList>(count));
    const std::string text = "a<? foreach ($e in $list) ?>b<?= $e ?><? endforeach ?>";
    EXPECT_EQ(raisedBy([&] { stage.run(text); }), "Boom: bang");
    EXPECT_EQ(textAt(text, stage.environment->failedStatement()), "<? foreach ($e in $list) ?>") << count;
    EXPECT_EQ(stage.depth(), 1);
  }
}

// What an expression runs at once, without a statement around it, has no place.
TEST(NestedExecutions, LeaveNoPlaceToAnExpressionThatRunsAlone) {
  const Stage stage;
  const auto running = makeRef<HostExpression>([](KorTemplateEnvironment* environment) -> Value {
    runAFailingTemplate(environment);
    return "x";
  });
  EXPECT_EQ(raisedBy([&] {
              (void)binary(KorTemplateOperatorSubtract, running, literal(1))->evaluateWithEnvironment(stage.get());
            }),
            "NSGenericException: Can't subtract operands of type NSString and NSNumber");
  EXPECT_EQ(stage.environment->failedStatement().offset, 0U);
  EXPECT_EQ(stage.environment->failedStatement().length, 0U);
}

// A property that runs a template of the same environment.
struct Part {
  int run() const {
    (*act)();
    return 1;
  }
  const std::function<void()>* act;
};

void describeHostClass(HostClass<Part>& part) {
  part.name("Part").property("run", &Part::run);
}

// The way out of thousands of executions inside one another takes no longer than the way in.
TEST(NestedExecutions, AreLeftInProportionToTheirDepth) {
  const Stage stage;
  const Ref<KorTemplate> page = KorTemplate::compile("<?= $part.run ?>");
  const std::function<void()> act = [&] { page->executeWithEnvironment(stage.environment.get()); };
  stage.set("part", hostCopy(Part{&act}));
  const WorkBound bound("a part of itself");
  EXPECT_THROW(act(), KorTemplateLimitException);
}

// What an observer is told of takes a step for each few levels, and for each part of a long name.
TEST(NestedExecutions, CountWhatIsToldOfThem) {
  constexpr std::uint64_t kNames = 10;
  std::uint64_t steps[2] = {};
  for (const bool isObserved : {false, true}) {
    const Stage stage;
    const Ref<KorTemplateObserver> observer = KorTemplateObserver::observer();
    observer->setCallback([](const KorTemplateObservation&) {});
    if (isObserved) stage.environment->setObserver(observer);
    stage.run(repeated("<?= $" + std::string(256'000, 'a') + " ?>", kNames));
    steps[isObserved ? 1 : 0] = stage.environment->stepsTaken();
  }
  EXPECT_GE(steps[1], steps[0] + kNames * 1'000);
}

std::string told(const KorTemplateFailure& failure) {
  std::string text = failure.reason() + " at " + failure.place().description();
  for (const KorTemplateCall& call : failure.calls()) {
    text += ", " + std::string(call.functionName()) + " from " + call.place().description();
  }
  return text;
}

// What runs where an earlier exception ends has a place of its own, and leaves that of the next one.
TEST(NestedExecutions, ThatAnExceptionsEndRunsLeaveTheNextOneItsPlace) {
  const Stage stage;
  const Ref<KorTemplate> other = KorTemplate::compile("\n\n\n<?= 1 / 0 ?>", {.name = "other"});
  std::string inner;
  const Ref<KorTemplate> raising = templateOf({makeRef<HostStatement>([&](KorTemplateEnvironment*) {
    throw EndingFailure([&] { inner = told(other->tryExecuteWithEnvironment(stage.get()).failure()); });
  })});
  stage.environment->setFunction("nest", [&](KorTemplateEnvironment& environment) {
    EXPECT_FALSE(raising->tryExecuteWithEnvironment(&environment));
  });
  std::string diagnostic;
  stage.environment->setDiagnosticCallback([&](const KorTemplateFailure& failure) { diagnostic = told(failure); });
  const char* const text =
      "<? nest() ?>\n<? function f() ?><? return 1 < \"x\" ?><? endfunction ?><? f() ?><? nest() ?>\n<?= 1 < \"x\" ?>";
  const KorTemplateResult<void> result =
      KorTemplate::compile(text, {.name = "page"})->tryExecuteWithEnvironment(stage.get());
  EXPECT_EQ(inner, "Divide by zero at other:4:1");
  EXPECT_EQ(diagnostic, "1 does not implement isLessThan: at page:2:19, f from page:2:56");
  EXPECT_EQ(told(result.failure()), "1 does not implement isLessThan: at page:3:1");
}

// So has what the end of a variable runs that an exception leaves behind.
TEST(NestedExecutions, ThatAVariablesEndRunsLeaveTheExceptionItsPlace) {
  const Stage stage;
  const Ref<KorTemplate> other = KorTemplate::compile("\n\n\n<?= 1 / 0 ?>", {.name = "other"});
  std::string inner;
  stage.define("guarded", [&](auto&&...) -> Value {
    return makeRef<EndingObject>([&] { inner = told(other->tryExecuteWithEnvironment(stage.get()).failure()); });
  });
  stage.environment->setFunction("boom", [] { throw std::bad_alloc(); });
  const char* const text =
      "<? function g() ?>\n<? boom() ?><? endfunction ?><? function f() ?>\n\n<? $v = guarded() ?><? g() ?>"
      "<? endfunction ?>\n\n\n\n<? f() ?>";
  const KorTemplateResult<void> result =
      KorTemplate::compile(text, {.name = "page"})->tryExecuteWithEnvironment(stage.get());
  EXPECT_EQ(inner, "Divide by zero at other:4:1, f from page:8:1");
  EXPECT_EQ(told(result.failure()),
            "There is not enough memory at page:2:1, boom from page:2:1, g from page:4:21, f from page:8:1");
}

// A scope that could not be popped is missing from the execution that opened it.
TEST(NestedExecutions, ThatAnEndRunsLeaveAnEmptyStackToTheExecutionAroundThem) {
  const Stage stage;
  const Ref<KorTemplate> other =
      KorTemplate::compile("<? function z() ?><? return 1 / 0 ?><? endfunction ?><? z() ?>", {.name = "other"});
  stage.define("guarded", [&](auto&&...) -> Value {
    return makeRef<EndingObject>([&] { (void)other->tryExecuteWithEnvironment(stage.get()); });
  });
  std::vector<std::string> diagnostics;
  stage.environment->setDiagnosticCallback(
      [&](const KorTemplateFailure& failure) { diagnostics.push_back(told(failure)); });
  stage.environment->setFunction("pops", [](KorTemplateEnvironment& environment) {
    while (environment.stack()->currentFrame() != nullptr) environment.stack()->pop();
    throw std::bad_alloc();
  });
  stage.environment->setFunction("h", [](const Value&, const Value&) {});
  const KorTemplateResult<void> result =
      KorTemplate::compile("<? function g() ?><? pops() ?><? endfunction ?><? h(guarded(), g()) ?>")
          ->tryExecuteWithEnvironment(stage.get());
  EXPECT_EQ(diagnostics, std::vector<std::string>{"Divide by zero at other:1:19, z from other:1:54"});
  EXPECT_EQ(result.failure().reason(), "Stack frame is empty");
}

// A statement of a host's that keeps the failures of the one inside it to itself.
class TryingStatement final : public KorTemplateStatement {
 public:
  explicit TryingStatement(Ref<KorTemplateStatement> inner) : inner_(std::move(inner)) {}

  void executeWithEnvironment(KorTemplateEnvironment* environment) override { executePublicly(*environment); }
  Completion execute(KorTemplateEnvironment& environment) override {
    try {
      return inner_->execute(environment);
    } catch (const NSException&) {
      return Completion::wentOn();
    }
  }
  Ref<KorTemplateStatement> copyWithZone(NSZone* /*zone*/) const override { return makeRef<TryingStatement>(inner_); }
  const char* className() const override { return "TryingStatement"; }

 private:
  Ref<KorTemplateStatement> inner_;
};

TEST(NestedExecutions, WhoseFailureAHostsStatementKeepsLeaveTheNextOneItsPlace) {
  for (const char* const text :
       {"a\n<?= 2 < \"y\" ?>", "<? function f() ?><? 2 < \"y\" ?><? endfunction ?>\n<? f() ?>"}) {
    const Stage stage;
    std::string diagnostic;
    stage.environment->setDiagnosticCallback([&](const KorTemplateFailure& failure) { diagnostic = failure.text(); });
    const Ref<KorTemplate> outer = KorTemplate::compile(text, KorTemplateCompileOptions{.name = "outer"});
    const Ref<KorTemplate> inner =
        KorTemplate::compile("\n\n\n\n<?= 1 < \"x\" ?>", KorTemplateCompileOptions{.name = "inner"});
    outer->insertObjectInStatementsAtIndex(makeRef<TryingStatement>(inner), 0);
    const KorTemplateResult<void> result = outer->tryExecuteWithEnvironment(stage.get());
    const std::string told = result ? diagnostic : result.failure().text();
    EXPECT_EQ(told.substr(0, 6), "outer:") << told;
  }
}

// An object that is equal to every other and runs something to find out.
class AskingEqual final : public NSObject {
 public:
  explicit AskingEqual(std::function<void()> body) : body_(std::move(body)) {}

  bool isEqual(const NSObject& /*other*/, std::int32_t /*depth*/) const override {
    body_();
    return true;
  }
  std::size_t hash() const override { return 1; }

 private:
  std::function<void()> body_;
};

TEST(NestedExecutions, CompareValuesAsDeepAsTheyLieThemselves) {
  const Stage inner;
  KorTemplateLimits limits;
  limits.valueDepth = 3;
  inner.environment->setLimits(limits);
  const auto twoDeep = [](const Value& value) {
    return NSArray::arrayWithObjects({NSArray::arrayWithObjects({value})});
  };
  inner.set("list", NSArray::arrayWithObjects({twoDeep(1), twoDeep(1)}));
  const Stage outer;
  const auto deepSet = [&] {
    return twoDeep(twoDeep(NSSet::setWithObjects({Value(
        makeRef<AskingEqual>([&] { inner.run("<? $x = $list.@distinctUnionOfObjects ?><?= $x.@count ?>"); }))})));
  };
  outer.set("left", deepSet());
  outer.set("right", deepSet());
  outer.run("<?= $left == $right ?>");
  EXPECT_EQ(outer.text(), "1");
  EXPECT_EQ(inner.text(), "1");
}

TEST(ADescription, OutlivesTheExecutionThatMadeIt) {
  std::optional<Description> kept;
  {
    const Stage stage;
    stage.environment->setFunction("make", [&] { kept.emplace(std::uint64_t{1'000}); });
    stage.run("<? make() ?>");
  }
  EXPECT_NO_THROW(kept->part(Value(NSArray::arrayWithObjects({1, "two"})))) << "it counts no steps of what is gone";
}

}  // namespace

}  // namespace tavlo::test
