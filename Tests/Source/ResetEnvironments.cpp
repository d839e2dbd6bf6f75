#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "Foundation/NSArray.h"
#include "Foundation/NSMutableString.h"
#include "Source/KorTemplateCallableFunction.h"
#include "Tests/Memory/FailingMemory.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

TEST(AnEnvironmentThatIsReset, IsAsItWasRemembered) {
  const Stage stage;
  const auto object = makeRef<HostObject>();
  stage.set("kept", object);
  stage.set("changed", 1);
  stage.define("f", [](auto&&...) -> Value { return "host"; });
  stage.environment->remember();
  stage.run(
      "<? $changed = 2 ?><? $new = 3 ?><? $kept = null ?><? function f() ?>!<? endfunction ?>"
      "<? function g() ?><? endfunction ?>");
  stage.environment->setOutputStream(nullptr);
  stage.environment->setErrorStream(nullptr);
  stage.environment->stack()->push(KorTemplateStackFrame::stackFrame());
  stage.environment->reset();
  EXPECT_THAT(stage.environment->globalVariableNames(), UnorderedElementsAre(Name("kept"), Name("changed")));
  EXPECT_EQ(stage.global("kept").object(), object.get());
  EXPECT_EQ(stage.depth(), 1);
  stage.run("<?= $changed ?><?= f() ?><?= g() ?>");
  EXPECT_EQ(stage.text(), "1host");
  EXPECT_THAT(stage.environment->functionNames(), ElementsAre(Name("f")));
}

TEST(AnEnvironmentThatIsReset, IsAsNewWhereNothingWasRemembered) {
  const Stage stage;
  stage.run("<? $a = 1 ?><? function f() ?><? endfunction ?>x");
  stage.environment->reset();
  EXPECT_THAT(stage.environment->globalVariableNames(), IsEmpty());
  EXPECT_THAT(stage.environment->functionNames(), IsEmpty());
  stage.run("y");
  EXPECT_EQ(stage.text(), "x");
  EXPECT_NE(stage.environment->outputStream(), nullptr);
  EXPECT_NE(stage.environment->errorStream(), nullptr);
}

TEST(AnEnvironmentThatIsReset, MayHaveFailedBefore) {
  const Stage stage;
  stage.environment->remember();
  EXPECT_NE(raisedBy([&] { stage.run("<? $a = 1 ?><? if (true) ?><? 1 / 0 ?><? endif ?>"); }), "nothing");
  EXPECT_NE(stage.environment->lastFailure(), nullptr);
  stage.environment->reset();
  EXPECT_EQ(stage.environment->lastFailure(), nullptr);
  EXPECT_FALSE(stage.environment->failedStatement().isKnown());
  stage.run("[<?= $a ?>]");
  EXPECT_EQ(stage.text(), "[]");
}

TEST(AnEnvironmentThatIsReset, GetsAStackOfOneFrameWhateverHasBecomeOfItsOwn) {
  struct Row {
    const char* what;
    void (*spoil)(const Stage& stage, Ref<NSObject>& held);
  };
  const Row rows[] = {
      {"nothing", [](const Stage&, Ref<NSObject>&) {}},
      {"no stack", [](const Stage& stage, Ref<NSObject>&) { stage.environment->setStack(nullptr); }},
      {"no frame", [](const Stage& stage, Ref<NSObject>&) { stage.environment->stack()->pop(); }},
      {"a frame that is held",
       [](const Stage& stage, Ref<NSObject>& held) { held = stage.environment->stack()->firstFrame(); }},
      {"a stack that is held", [](const Stage& stage, Ref<NSObject>& held) { held = stage.environment->stack(); }},
      {"frames that are lent", [](const Stage& stage, Ref<NSObject>&) { (void)stage.environment->stack()->frames(); }},
      {"many frames",
       [](const Stage& stage, Ref<NSObject>&) {
         for (int count = 0; count < 3; ++count) {
           stage.environment->stack()->push(KorTemplateStackFrame::stackFrame());
           stage.environment->stack()->currentFrame()->setValueForVariableWithName(9, "a");
         }
       }},
  };
  for (const Row& row : rows) {
    const Stage stage;
    stage.set("a", 1);
    stage.environment->remember();
    stage.run("<? $a = 2 ?><? $b = 3 ?>");
    Ref<NSObject> held;
    row.spoil(stage, held);
    stage.environment->reset();
    stage.run("<?= $a ?>[<?= $b ?>]");
    EXPECT_EQ(stage.text(), "1[]") << row.what;
    EXPECT_EQ(stage.depth(), 1) << row.what;
  }
}

TEST(AnEnvironmentThatIsReset, HasAStackWhateverTheEndsOfItsValuesSet) {
  const Stage stage;
  stage.set("kept", 1);
  stage.environment->remember();
  int ends = 0;
  const auto setsNoStack = [&] {
    ++ends;
    stage.environment->setStack(nullptr);
  };
  const auto setsAnother = [&] {
    ++ends;
    const Ref<KorTemplateStack> other = KorTemplateStack::stack();
    other->push(KorTemplateStackFrame::stackFrame());
    other->currentFrame()->setValueForVariableWithName(makeRef<EndingObject>(setsNoStack), "x");
    stage.environment->setStack(other);
  };
  stage.set("x", makeRef<EndingObject>(setsNoStack));
  stage.environment->reset();
  EXPECT_EQ(ends, 1);
  EXPECT_EQ(stage.global("kept").intValue(), 1);
  stage.set("x", makeRef<EndingObject>(setsAnother));
  stage.environment->reset();
  EXPECT_EQ(ends, 3);
  EXPECT_EQ(stage.depth(), 1);
  EXPECT_EQ(stage.global("kept").intValue(), 1);
  const auto pops = [&] {
    ++ends;
    const Ref<KorTemplateStack> found = stage.environment->stack();
    if (found != nullptr) found->pop();
  };
  const auto setsOneThatPops = [&] {
    const Ref<KorTemplateStack> other = KorTemplateStack::stack();
    other->push(KorTemplateStackFrame::stackFrame());
    other->currentFrame()->setValueForVariableWithName(makeRef<EndingObject>(pops), "x");
    stage.environment->setStack(other);
  };
  stage.set("x", makeRef<EndingObject>(setsOneThatPops));
  stage.environment->reset();
  EXPECT_EQ(ends, 4);
  EXPECT_EQ(stage.depth(), 1);
  EXPECT_EQ(stage.global("kept").intValue(), 1);
}

TEST(AnEnvironmentThatIsReset, IsAsItWasRememberedWhateverTheEndsOfItsValuesChange) {
  const Stage stage;
  stage.environment->remember();
  const Ref<KorTemplateStream> errors = stage.environment->errorStream();
  int ends = 0;
  const auto changesAll = [&] {
    ++ends;
    stage.environment->setErrorStream(nullptr);
    EXPECT_NE(raisedBy([&] { stage.run("<? function late() ?>late<? endfunction ?><? $late = 7 ?><? 1 / 0 ?>"); }),
              "nothing");
    stage.environment->setOutputStream(nullptr);
  };
  stage.set("x", makeRef<EndingObject>(changesAll));
  stage.environment->reset();
  EXPECT_EQ(ends, 1);
  stage.environment->setFunction("held", [held = Value(makeRef<EndingObject>(changesAll))] { return held; });
  stage.environment->reset();
  EXPECT_EQ(ends, 2);
  EXPECT_THAT(stage.environment->functionNames(), testing::IsEmpty());
  EXPECT_THAT(stage.environment->globalVariableNames(), testing::IsEmpty());
  EXPECT_EQ(stage.environment->lastFailure(), nullptr);
  EXPECT_EQ(stage.environment->errorStream(), errors);
  stage.run("text");
  EXPECT_EQ(stage.output->joined(""), "text");
}

TEST(AnEnvironmentThatIsReset, LeavesAHeldFrameToItsHolder) {
  const Stage stage;
  stage.set("a", 1);
  stage.environment->remember();
  const Ref<KorTemplateStackFrame> held = stage.environment->stack()->firstFrame();
  stage.run("<? $a = 2 ?>");
  stage.environment->reset();
  EXPECT_EQ(held->valueForVariableWithName("a").intValue(), 2);
}

TEST(AnEnvironmentThatIsReset, KeepsWhatBelongsToTheHost) {
  const Stage stage;
  const Ref<KorTemplateObserver> observer = KorTemplateObserver::observer();
  const Ref<KorTemplateLayer> layer = KorTemplateLayer::layer();
  layer->setGlobal("l", 7);
  layer->share();
  stage.environment->remember();
  stage.environment->setObserver(observer);
  stage.environment->setLayer(layer);
  KorTemplateLimits limits;
  limits.functionDepth = 9;
  stage.environment->setLimits(limits);
  stage.environment->reset();
  EXPECT_EQ(stage.environment->observer(), observer);
  EXPECT_EQ(stage.environment->layer(), layer);
  EXPECT_EQ(stage.environment->limits().functionDepth, 9);
}

TEST(AnEnvironmentThatIsReset, IsNotRunning) {
  const Stage stage;
  stage.define("remember", [](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
    environment->remember();
    return 1;
  });
  stage.define("reset", [](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
    environment->reset();
    return 1;
  });
  stage.run("a<? remember() ?><? reset() ?>b");
  EXPECT_EQ(stage.diagnostics(),
            "An environment cannot be remembered while a template runs in it|An environment cannot be reset while a "
            "template runs in it");
  EXPECT_EQ(stage.text(), "ab");
}

TEST(AnEnvironmentThatIsReset, ServesManyRequestsWithOneBuffer) {
  const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  const Ref<KorTemplateStringStream> stream = KorTemplateStringStream::stringStream();
  environment->setOutputStream(stream);
  environment->remember();
  const Ref<KorTemplate> page = KorTemplate::compile("<?= $n ?>:<?= $seen ?><? $seen = \"seen\" ?>.");
  const char* memory = nullptr;
  for (int request = 0; request < 3; ++request) {
    environment->setGlobal("n", request);
    page->executeWithEnvironment(environment.get());
    EXPECT_EQ(stream->buffer()->string(), std::to_string(request) + ":.");
    if (memory != nullptr) {
      EXPECT_EQ(stream->buffer()->string().data(), memory);
    }
    memory = stream->buffer()->string().data();
    stream->buffer()->clear();
    EXPECT_EQ(stream->buffer()->string(), "");
    environment->reset();
  }
}

#if !defined(TAVLO_MEMORY_IS_HIDDEN) && !defined(TAVLO_MEMORY_IS_WATCHED)
// Scopes are kept for the next execution, but not what they took for very many variables.
TEST(AnEnvironmentThatIsReset, KeepsNoMemoryOfVariables) {
  std::string assignments;
  for (int number = 0; number < 2'000; ++number) assignments += "<? $v" + std::to_string(number) + " = 1 ?>";
  const std::string bodies[] = {
      assignments,
      "<? foreach ($i in $two) ?>" + assignments + "<? endforeach ?>",
  };
  for (const std::string& body : bodies) {
    const Stage stage;
    stage.set("two", NSArray::arrayWithObjects({1, 2}));
    stage.environment->remember();
    const Ref<KorTemplate> page = KorTemplate::compile("<? function f($d) ?>" + body +
                                                       "<? if ($d > 0) ?><? f($d - 1) ?><? endif ?><? endfunction ?>"
                                                       "<? f(100) ?>");
    const std::int64_t before = bytesInUse();
    page->executeWithEnvironment(stage.get());
    stage.environment->reset();
    EXPECT_LT(bytesInUse() - before, 512 * 1024);  // of some megabytes
  }
}
#endif

TEST(AnEnvironment, LivesUntilItHasBeenReset) {
  Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  environment->setGlobal("last", Value(makeRef<EndingObject>([&] { environment = nullptr; })));
  KorTemplateEnvironment* const lent = environment.get();
  lent->reset();
  EXPECT_EQ(environment, nullptr);
}

}  // namespace

}  // namespace tavlo::test
