#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "Foundation/NSArray.h"
#include "Foundation/NSDictionary.h"
#include "Foundation/NSMutableString.h"
#include "Source/KorTemplateCallableFunction.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

namespace {

using testing::IsEmpty;

// A function that several threads may use at once.
class SharedFunction final : public KorTemplateFunction {
 public:
  Value invokeWithEnvironment(KorTemplateEnvironment* /*environment*/, ListArgument<Value> arguments) override {
    return "<" + arguments[0].description() + ">";
  }
  bool canBeShared() const override { return true; }
  const char* className() const override { return "SharedFunction"; }
};

// A layer with a text, a list, a dictionary, a function of the host's and one that a template defines.
Ref<KorTemplateLayer> siteLayer() {
  const Ref<KorTemplateLayer> layer = KorTemplateLayer::layer();
  layer->setGlobal("site", "Shop");
  layer->setGlobal("list", Value(NSArray::arrayWithObjects({1, 2, 3})));
  layer->setGlobal("d", Value(NSDictionary::dictionaryWithEntries({{"k", "v"}})));
  layer->setFunctionForName(makeRef<SharedFunction>(), "wrap");
  const Stage stage;
  stage.run("<? function twice($t) ?><? return $t + $t ?><? endfunction ?>");
  layer->setFunctionForName(stage.environment->functionForName("twice"), "twice");
  layer->share();
  return layer;
}

constexpr const char* kPage =
    "<?= $site ?>:<? foreach ($e in $list) ?><?= wrap($e) ?><? endforeach ?><?= $d.k ?><?= twice(\"ab\") ?>";
constexpr const char* kRendered = "Shop:<1><2><3>vabab";

TEST(ALayer, IsFoundBelowTheEnvironmentsOwn) {
  const Stage stage;
  stage.environment->setLayer(siteLayer());
  stage.run(kPage);
  EXPECT_EQ(stage.text(), kRendered);
  EXPECT_EQ(stage.global("site").description(), "Shop");
  EXPECT_TRUE(stage.environment->isGlobalVariableDefinedWithName("site"));
  EXPECT_FALSE(stage.environment->isGlobalVariableDefinedWithName("other"));
  EXPECT_NE(stage.environment->functionForName("wrap"), nullptr);
  EXPECT_EQ(stage.environment->functionForName("other"), nullptr);
  EXPECT_THAT(stage.environment->globalVariableNames(), IsEmpty());
  EXPECT_THAT(stage.environment->functionNames(), IsEmpty());
}

TEST(ALayer, IsHiddenByTheEnvironmentsOwn) {
  const Ref<KorTemplateLayer> layer = siteLayer();
  const Stage stage;
  stage.environment->setLayer(layer);
  stage.run("<? $site = \"Mine\" ?><?= $site ?><? function wrap($x) ?>!<? endfunction ?><? wrap(1) ?>");
  EXPECT_EQ(stage.text(), "Mine!");
  EXPECT_EQ(layer->valueForGlobalVariableWithName("site").description(), "Shop");
  const Stage other;
  other.environment->setLayer(layer);
  other.run(kPage);
  EXPECT_EQ(other.text(), kRendered);
  stage.environment->removeFunctionForName("wrap");
  stage.run("<?= wrap(1) ?>");
  EXPECT_EQ(stage.text(), "Mine!<1>");
}

TEST(ALayer, IsReadFromEveryScope) {
  const Stage stage;
  stage.environment->setLayer(siteLayer());
  stage.run(
      "<? function f($x) ?><? if ($x) ?><? $site = ($site + \"!\") ?><?= $site ?><? endif ?><?= $site ?>"
      "<? endfunction ?><? f(true) ?><?= $site ?>");
  EXPECT_EQ(stage.text(), "Shop!ShopShop");
}

TEST(ALayer, IsUsedOnceItIsFrozen) {
  const Stage stage;
  const Ref<KorTemplateLayer> layer = KorTemplateLayer::layer();
  layer->setGlobal("a", 1);
  layer->setGlobal("a", 2);
  EXPECT_EQ(raisedBy([&] { stage.environment->setLayer(layer); }),
            "NSInvalidArgumentException: The layer is not frozen: call share() when it is complete");
  EXPECT_EQ(stage.environment->layer(), nullptr);
  layer->share();
  layer->share();
  EXPECT_TRUE(layer->isFrozen());
  stage.environment->setLayer(layer);
  EXPECT_EQ(stage.global("a").intValue(), 2);
  const std::string refused = failedAssertion("A layer that is shared cannot change");
  EXPECT_EQ(raisedBy([&] { layer->setGlobal("b", 1); }), refused);
  EXPECT_EQ(raisedBy([&] { layer->setFunctionForName(makeRef<SharedFunction>(), "f"); }), refused);
  stage.environment->setLayer(nullptr);
  EXPECT_TRUE(stage.global("a").isAbsent());
}

TEST(ALayer, TakesAnythingThatCanBeCalled) {
  const Stage stage;
  const Ref<KorTemplateLayer> layer = KorTemplateLayer::layer();
  layer->setFunction("twice", [](double number) { return number * 2; });
  layer->share();
  stage.environment->setLayer(layer);
  stage.run("<?= twice(21) ?>");
  EXPECT_EQ(stage.text(), "42");
}

TEST(ALayer, RefusesWhatThreadsCannotShare) {
  const Ref<KorTemplateLayer> functions = KorTemplateLayer::layer();
  functions->setFunctionForName(makeRef<HostFunction>([](auto&&...) -> Value { return 1; }), "f");
  EXPECT_EQ(raisedBy([&] { functions->share(); }),
            "NSInvalidArgumentException: The function \"f\" cannot be shared between threads: its class HostFunction "
            "must answer canBeShared()");
  EXPECT_FALSE(functions->isFrozen());
  const Ref<KorTemplateLayer> values = KorTemplateLayer::layer();
  values->setGlobal("o", Value(makeRef<HostObject>()));
  EXPECT_NE(raisedBy([&] { values->share(); }), "nothing");
  EXPECT_FALSE(values->isFrozen());
  values->setGlobal("o", 1);
  values->share();
  EXPECT_TRUE(values->isFrozen());
}

// What is asked whether it can be shared is a host's, and may do anything.
class Asked final : public KorTemplateFunction {
 public:
  explicit Asked(std::function<void()> body) : body_(std::move(body)) {}
  Value invokeWithEnvironment(KorTemplateEnvironment* /*environment*/, ListArgument<Value> /*arguments*/) override {
    return 1;
  }
  bool canBeShared() const override {
    body_();
    return true;
  }

 private:
  std::function<void()> body_;
};

TEST(ALayer, CannotChangeWhileItIsBeingShared) {
  const Ref<KorTemplateLayer> layer = KorTemplateLayer::layer();
  int count = 0;
  bool isChanging = true;
  const auto change = [&] {
    if (isChanging) layer->setFunction("g" + std::to_string(++count), [](int) { return 1; });
  };
  for (const char* name : {"a", "b", "c"}) layer->setFunctionForName(makeRef<Asked>(change), name);
  EXPECT_EQ(raisedBy([&] { layer->share(); }), failedAssertion("A layer that is shared cannot change"));
  EXPECT_FALSE(layer->isFrozen());
  EXPECT_EQ(layer->functionForName("g1"), nullptr);
  isChanging = false;
  layer->share();
  EXPECT_TRUE(layer->isFrozen());
}

TEST(ALayer, IsNotUsedWhileItMayStillBeRefused) {
  const Stage stage;
  const Ref<KorTemplateLayer> layer = KorTemplateLayer::layer();
  std::string answer;
  const auto use = [&] { answer = raisedBy([&] { stage.environment->setLayer(layer); }); };
  layer->setFunctionForName(makeRef<Asked>(use), "a");
  layer->setFunctionForName(makeRef<HostFunction>([](auto&&...) -> Value { return 1; }), "b");
  EXPECT_NE(raisedBy([&] { layer->share(); }), "nothing");
  EXPECT_EQ(answer, "NSInvalidArgumentException: The layer is not frozen: call share() when it is complete");
  EXPECT_EQ(stage.environment->layer(), nullptr);
}

// What templates consist of counts atomically from birth, also where a host has made it.
TEST(ALayer, RefusesAsAGlobalWhatItRefusesAsAFunction) {
  const Ref<KorTemplateLayer> layer = KorTemplateLayer::layer();
  layer->setGlobal("f", Value(makeRef<HostFunction>([](auto&&...) -> Value { return 1; })));
  EXPECT_NE(raisedBy([&] { layer->share(); }), "nothing");
  layer->setGlobal("f", Value(makeRef<SharedFunction>()));
  layer->setGlobal("page", Value(KorTemplate::compile("<?= \"a\" =~ /b/ ?>")));
  layer->setGlobal("source", Value(makeRef<KorTemplateSource>("name", "text")));
  layer->setGlobal("other", Value(siteLayer()));
  layer->share();
  EXPECT_TRUE(layer->isFrozen());
}

TEST(ALayer, TakesNeitherAbsentNamesNorAbsentValues) {
  const Ref<KorTemplateLayer> layer = KorTemplateLayer::layer();
  EXPECT_EQ(raisedBy([&] { layer->setValueForGlobalVariableWithName(Value(), "a"); }), failedCheck("variable != nil"));
  EXPECT_EQ(raisedBy([&] { layer->setValueForGlobalVariableWithName(1, nullptr); }), failedCheck("name != nil"));
  EXPECT_EQ(raisedBy([&] { layer->setFunctionForName(nullptr, "a"); }), failedCheck("function != nil"));
  EXPECT_EQ(raisedBy([&] { layer->setFunctionForName(makeRef<SharedFunction>(), nullptr); }),
            failedCheck("name != nil"));
  EXPECT_EQ(raisedBy([&] { (void)layer->valueForGlobalVariableWithName(nullptr); }), failedCheck("name != nil"));
  EXPECT_EQ(raisedBy([&] { (void)layer->functionForName(nullptr); }), failedCheck("name != nil"));
}

TEST(ALayer, MayBeReplacedWhileItsFunctionRuns) {
  class ReplacingFunction final : public KorTemplateFunction {
   public:
    Value invokeWithEnvironment(KorTemplateEnvironment* environment, ListArgument<Value>) override {
      environment->setLayer(nullptr);
      return std::string(className());
    }
    bool canBeShared() const override { return true; }
    const char* className() const override { return "ReplacingFunction"; }
  };
  const Stage stage;
  Ref<KorTemplateLayer> layer = KorTemplateLayer::layer();
  layer->setFunctionForName(makeRef<ReplacingFunction>(), "replace");
  layer->setGlobal("text", "before");
  layer->share();
  stage.environment->setLayer(layer);
  layer = nullptr;
  stage.run("<?= $text + replace() + $text ?>");
  EXPECT_EQ(stage.text(), "beforeReplacingFunction<null>");
}

TEST(ALayer, ServesManyThreadsAtOnce) {
  constexpr int kThreads = 4;
  constexpr int kRuns = 200;
  const Ref<KorTemplateLayer> layer = siteLayer();
  const Ref<KorTemplate> page = KorTemplate::compile(std::string(kPage) + "<? $site = \"x\" ?><?= $site ?>");
  std::vector<int> wrong(kThreads, 0);
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] {
      const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
      environment->setLayer(layer);
      environment->remember();
      const Ref<KorTemplateStringStream> stream = KorTemplateStringStream::stringStream();
      for (int run = 0; run < kRuns; ++run) {
        environment->setOutputStream(stream);
        page->executeWithEnvironment(environment.get());
        if (stream->buffer()->string() != std::string(kRendered) + "x") ++wrong[static_cast<std::size_t>(thread)];
        stream->buffer()->clear();
        environment->reset();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, std::vector<int>(kThreads, 0));
}

}  // namespace

}  // namespace tavlo::test
