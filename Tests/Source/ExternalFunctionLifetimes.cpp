#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "Foundation/HostMethodTable.h"
#include "Foundation/HostObject.h"
#include "Foundation/LazyCollections.h"
#include "Source/KorTemplateCallableFunction.h"
#include "Source/KorTemplateExternalFunction.h"
#include "Tests/Foundation/HostObjects.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

// An object that counts how many of its kind are alive, and does what it is told to.
struct Worker {
  explicit Worker(int& count) : alive(count) { ++alive; }
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;
  ~Worker() { --alive; }

  Value work(const Value& value, int number) { return onWork(value, number); }

  int& alive;
  std::function<Value(const Value&, int)> onWork = [](const Value& value, int) { return value; };
};

void describeHostClass(HostClass<Worker>& worker) {
  worker.name("Worker").method("work:number:", &Worker::work);
}

// An object whose method takes what a host's code makes while it is read.
struct Joiner {
  std::string join(const std::vector<int>& numbers, int more, const std::string& label) {
    return std::to_string(numbers.size()) + "+" + std::to_string(more) + label;
  }
};

void describeHostClass(HostClass<Joiner>& joiner) {
  joiner.name("Joiner").method("join:more:label:", &Joiner::join);
}

// The same as one of the system's own objects.
class CountedWorker final : public NSObject {
 public:
  explicit CountedWorker(int& alive) : worker_(alive) {}
  const char* className() const override { return "CountedWorker"; }
  BoundMethod methodForSelector(const Selector& selector) const override {
    static const HostMethodTable methods = HostMethodTable().add<CountedWorker>("work:number:", &CountedWorker::work);
    return methods.find(selector, *this);
  }
  Value work(const Value& value, int number) { return worker_.work(value, number); }

 private:
  Worker worker_;
};

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Function = KorTemplateExternalFunction;

constexpr const char* kWork = "work:number:";

std::string resultOf(const Ref<Function>& function, const Stage& stage) {
  return function->invokeWithEnvironment(stage.get(), {"value", 1}).description();
}

TEST(ExternalFunctions, LeaveTheirTargetToTheHost) {
  const Stage stage;
  int alive = 0;
  auto worker = std::make_shared<Worker>(alive);
  Ref<CountedWorker> counted = makeRef<CountedWorker>(alive);
  stage.environment->setFunctionForName(Function::functionWithSelectorTarget(kWork, *worker), "f");
  stage.environment->setFunctionForName(Function::functionWithSelectorTarget(kWork, counted), "g");
  stage.environment->setFunctionForName(Function::functionWithSelectorTarget(kWork, *counted), "h");
  stage.run("<?= f(\"a\", 1) ?><?= g(\"b\", 1) ?><?= h(\"c\", 1) ?>");
  EXPECT_EQ(stage.text(), "abc");
  EXPECT_EQ(worker.use_count(), 1);
  worker.reset();
  counted = nullptr;
  EXPECT_EQ(alive, 0);
  stage.run("the functions are not called");
  stage.environment->removeFunctionForName("f");
}

TEST(ExternalFunctions, OwnTheirTargetWhenAsked) {
  const Stage stage;
  int alive = 0;
  const auto owning = [&] {
    auto shared = std::make_shared<Worker>(alive);
    return std::vector<Ref<Function>>{
        Function::functionWithSelectorOwning(kWork, shared),
        Function::functionWithSelectorOwning(kWork, std::make_unique<Worker>(alive)),
        Function::functionWithSelectorOwning(kWork, makeRef<CountedWorker>(alive)),
    };
  };
  std::vector<Ref<Function>> functions = owning();
  EXPECT_EQ(alive, 3);
  for (const Ref<Function>& function : functions) EXPECT_EQ(resultOf(function, stage), "value");
  functions.clear();
  EXPECT_EQ(alive, 0);
}

TEST(ExternalFunctions, KeepASharedTargetBeyondTheHostsVariableAndTheEnvironment) {
  int alive = 0;
  auto shared = std::make_shared<Worker>(alive);
  const std::weak_ptr<Worker> watched = shared;
  Ref<Function> function = Function::functionWithSelectorOwning(kWork, shared);
  {
    const Stage stage;
    stage.environment->setFunctionForName(function, "f");
    shared.reset();
    stage.run("<?= f(\"kept\", 1) ?>");
    EXPECT_EQ(stage.text(), "kept");
  }
  EXPECT_FALSE(watched.expired());
  EXPECT_EQ(resultOf(function, Stage()), "value");
  function = nullptr;
  EXPECT_TRUE(watched.expired());
}

TEST(ExternalFunctions, OutliveTheTemplateThatCalledThem) {
  int alive = 0;
  const Stage stage;
  stage.environment->setFunctionForName(Function::functionWithSelectorOwning(kWork, std::make_unique<Worker>(alive)),
                                        "f");
  {
    const Ref<KorTemplate> compiled = KorTemplate::compile("<? $kept = f(\"from a template\", 1) ?>");
    compiled->executeWithEnvironment(stage.get());
  }
  EXPECT_EQ(stage.global("kept").description(), "from a template");
  EXPECT_EQ(alive, 1);
}

TEST(ExternalFunctions, LetGoOfTheObjectsOfACallWhenItHasEnded) {
  const Stage stage;
  int workers = 0;
  int alive = 0;
  Worker worker(workers);
  const auto function = Function::functionWithSelectorTarget(kWork, worker);
  Value result = function->invokeWithEnvironment(stage.get(), {makeRef<Tracked>(alive), 1});
  EXPECT_EQ(alive, 1);
  result.clear();
  EXPECT_EQ(alive, 0);
  worker.onWork = [](const Value&, int) -> Value { throw NSException("Boom", "bang"); };
  EXPECT_EQ(raisedBy([&] {
              (void)function->invokeWithEnvironment(stage.get(), {makeRef<Tracked>(alive), 1});
            }),
            "Boom: bang");
  EXPECT_EQ(alive, 0);
  EXPECT_NE(raisedBy([&] {
              (void)function->invokeWithEnvironment(stage.get(), {makeRef<Tracked>(alive), "no number"});
            }),
            "nothing");
  EXPECT_EQ(alive, 0);
}

TEST(ExternalFunctions, MayBeCalledByTheirOwnMethod) {
  const Stage stage;
  int alive = 0;
  Worker worker(alive);
  const auto function = Function::functionWithSelectorTarget(kWork, worker);
  worker.onWork = [&](const Value& value, int number) -> Value {
    if (number == 0) return "end";
    const Value inner = function->invokeWithEnvironment(stage.get(), {value.description() + "+", number - 1});
    return std::to_string(number) + value.description() + inner.description();
  };
  stage.environment->setFunctionForName(function, "f");
  stage.run("<?= f(\"x\", 3) ?>");
  EXPECT_EQ(stage.text(), "3x2x+1x++end");
}

TEST(ExternalFunctions, MayBeCalledWhileTheirArgumentsAreReadAndWhileTheyEnd) {
  const Stage stage;
  Joiner joiner;
  const auto function = Function::functionWithSelectorTarget("join:more:label:", joiner);
  stage.environment->setFunctionForName(function, "join");
  const auto callAgain = [&] {
    const Value inner = function->invokeWithEnvironment(stage.get(), {valueOf(std::vector<int>{1}), 7, "inner"});
    EXPECT_EQ(inner.description(), "1+7inner");
  };
  stage.environment->setFunction("made", [&] {
    const std::shared_ptr<int> end(new int(3), [&](int* number) {
      delete number;
      callAgain();
    });
    return lazyList(
        [&callAgain, end] {
          callAgain();
          return static_cast<std::size_t>(*end);
        },
        [](std::size_t index) { return index; });
  });
  stage.run("<?= join(made(), 5, \"outer\") ?>");
  EXPECT_EQ(stage.text(), "3+5outer");
}

TEST(ExternalFunctions, MayRunTheTemplateThatCallsThem) {
  const Stage stage;
  int alive = 0;
  Worker worker(alive);
  const Ref<KorTemplate> compiled = KorTemplate::compile("[<?= f($text, $n) ?><?= $text ?>]");
  worker.onWork = [&](const Value& value, int number) -> Value {
    if (number == 0) return "";
    stage.set("n", number - 1);
    compiled->executeWithEnvironment(stage.get());
    const Stage another;
    another.set("n", 0);
    another.set("text", "other");
    another.environment->setFunctionForName(stage.environment->functionForName("f"), "f");
    compiled->executeWithEnvironment(another.get());
    return value.description() + another.text();
  };
  stage.environment->setFunctionForName(Function::functionWithSelectorTarget(kWork, worker), "f");
  stage.set("text", "t");
  stage.set("n", 2);
  compiled->executeWithEnvironment(stage.get());
  EXPECT_EQ(stage.text(), "[[[t]t[other]t]t[other]t]");
  EXPECT_THAT(stage.errors->writes, IsEmpty());
  EXPECT_EQ(stage.depth(), 1);
}

TEST(ExternalFunctions, MayBeReplacedAndRemovedByTheirOwnMethod) {
  const Stage stage;
  int alive = 0;
  int tracked = 0;
  const auto bindOwned = [&](const std::function<Value(const Value&, int)>& body) {
    auto worker = std::make_unique<Worker>(alive);
    worker->onWork = body;
    stage.environment->setFunctionForName(Function::functionWithSelectorOwning(kWork, std::move(worker)), "f");
  };
  bindOwned([&](const Value& value, int) -> Value {
    const Value held = makeRef<Tracked>(tracked);  // the lambda's own memory is used below
    stage.define("f", [](auto&&...) -> Value { return "new"; });
    return value.description() + std::to_string(tracked);
  });
  stage.run("<?= f(\"old\", 1) ?> <?= f(\"old\", 1) ?> ");
  bindOwned([&](const Value& value, int) -> Value {
    stage.environment->removeFunctionForName("f");
    return value.description() + std::to_string(tracked);
  });
  stage.run("<?= f(\"removed\", 1) ?> <?= f(\"unknown\", 1) ?>");
  EXPECT_EQ(stage.text(), "old1 new removed0 ");
  EXPECT_EQ(alive, 0);
}

TEST(ExternalFunctions, MayGetAnotherInvocationAndAnotherTargetFromTheirOwnMethod) {
  const Stage stage;
  int alive = 0;
  auto first = std::make_unique<Worker>(alive);
  Worker* const firstWorker = first.get();
  const auto function = Function::functionWithSelectorOwning(kWork, std::move(first));
  const auto second = Function::functionWithSelectorOwning(kWork, std::make_unique<Worker>(alive));
  firstWorker->onWork = [&, firstWorker](const Value&, int) -> Value {
    const Ref<NSObject> other = Ref<NSObject>::retaining(second->invocation()->target());
    function->invocation()->setTarget(other);
    function->setInvocation(second->invocation());
    return "still alive: " + std::to_string(firstWorker->alive);
  };
  EXPECT_EQ(resultOf(function, stage), "still alive: 2");
  EXPECT_EQ(resultOf(function, stage), "value");
  EXPECT_EQ(alive, 1);
}

TEST(ExternalFunctions, TurnTheExceptionsOfTheFamilyIntoDiagnosticsAndPassOthersOn) {
  const Stage stage;
  int alive = 0;
  Worker worker(alive);
  stage.environment->setFunctionForName(Function::functionWithSelectorTarget(kWork, worker), "f");
  const Ref<KorTemplate> compiled = KorTemplate::compile("a<?= f(\"x\", 1) ?>b");
  const auto run = [&] { compiled->executeWithEnvironment(stage.get()); };

  worker.onWork = [](const Value&, int) -> Value { throw NSException("Boom", "bang"); };
  run();
  worker.onWork = [](const Value&, int) -> Value { throw std::runtime_error("standard"); };
  run();
  EXPECT_THAT(stage.errors->writes, ElementsAre("bang", "standard"));
  EXPECT_EQ(stage.text(), "abab");

  worker.onWork = [](const Value&, int) -> Value { throw 5; };
  EXPECT_THROW(run(), int);
  worker.onWork = [](const Value&, int) -> Value { throw std::bad_alloc(); };
  EXPECT_THROW(run(), std::bad_alloc);
  EXPECT_EQ(stage.depth(), 1);
  worker.onWork = [](const Value& value, int) { return value; };
  run();
  EXPECT_EQ(stage.text(), "ababaaaxb");
}

}  // namespace

}  // namespace tavlo::test
