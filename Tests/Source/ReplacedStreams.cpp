#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "Source/KorTemplateCallableFunction.h"
#include "Tests/Memory/FailingMemory.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

namespace {

// Gathers what is written and delivers it on flush, as a stream to a file does.
class GatheringStream final : public KorTemplateStream {
 public:
  void write(const Text& text) override { gathered_ += text.view(); }
  void flush() override { delivered += std::exchange(gathered_, {}); }

  std::string delivered;

 private:
  std::string gathered_;
};

TEST(AStreamThatIsReplaced, DeliversWhatItHasGatheredByTheEndOfTheRun) {
  const Stage stage;
  const Ref<GatheringStream> first = makeRef<GatheringStream>();
  const Ref<GatheringStream> second = makeRef<GatheringStream>();
  stage.environment->setOutputStream(first);
  stage.define("swap", [&](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
    environment->setOutputStream(second);
    return NSNull::null();
  });
  stage.run("a<? swap() ?>b");
  EXPECT_EQ(second->delivered, "b");
  EXPECT_EQ(first->delivered, "a");
}

TEST(AStreamThatIsReplaced, DeliversAlsoWhereTheRunFails) {
  const Stage stage;
  const Ref<GatheringStream> first = makeRef<GatheringStream>();
  stage.environment->setOutputStream(first);
  stage.define("swap", [&](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
    environment->setOutputStream(nullptr);
    return NSNull::null();
  });
  EXPECT_NE(raisedBy([&] { stage.run("a<? swap() ?>b<? 1 / 0 ?>"); }), "nothing");
  EXPECT_EQ(first->delivered, "a");
}

TEST(AStreamThatIsReplaced, DeliversAlsoWhereMemoryRanOutAtFirst) {
  for (int count = 0; count < 8; ++count) {
    const Stage stage;
    const Ref<GatheringStream> first = makeRef<GatheringStream>();
    const Ref<GatheringStream> second = makeRef<GatheringStream>();
    stage.environment->setOutputStream(first);
    stage.environment->setFunction("swap", [&] {
      const FailingMemory failing(count, Failing::Once);
      try {
        stage.environment->setOutputStream(second);
      } catch (const std::bad_alloc&) {
        stage.environment->setOutputStream(second);
      }
    });
    stage.run("a<? swap() ?>b");
    EXPECT_EQ(first->delivered, "a") << count;
    EXPECT_EQ(second->delivered, "b") << count;
  }
}

TEST(AnEnvironment, MayBeGivenWhatItAnswers) {
  const Stage stage;
  const Ref<KorTemplateEnvironment>& environment = stage.environment;
  environment->setOutputStream(environment->outputStream());
  environment->setErrorStream(environment->errorStream());
  environment->setStack(environment->stack());
  environment->setLayer(environment->layer());
  environment->setLimits(environment->limits());
  EXPECT_EQ(environment->outputStream(), stage.output);
  EXPECT_EQ(environment->errorStream(), stage.errors);
  stage.set("x", 1);
  stage.run("text<?= $x ?>");
  EXPECT_EQ(stage.text(), "text1");
}

// Runs a host's code whenever it is asked to deliver.
class ActingStream final : public KorTemplateStream {
 public:
  explicit ActingStream(std::function<void()> action) : action_(std::move(action)) {}
  void write(const Text& /*text*/) override {}
  void flush() override {
    ++flushes;
    action_();
  }

  int flushes = 0;

 private:
  std::function<void()> action_;
};

TEST(AStream, DeliversAlsoWhereItIsSetWhileTheOneBeforeDoes) {
  for (const char* const end : {"", "<? 1 / 0 ?>"}) {
    for (const bool isSetBack : {false, true}) {
      const Stage stage;
      const Ref<GatheringStream> second = makeRef<GatheringStream>();
      const Ref<KorTemplate> inner = KorTemplate::compile("inner");
      Ref<ActingStream> first;
      first = makeRef<ActingStream>([&] {
        if (first->flushes > 1) return;
        stage.environment->setOutputStream(second);
        inner->executeWithEnvironment(stage.get());
        if (isSetBack) stage.environment->setOutputStream(first);
      });
      stage.environment->setOutputStream(first);
      (void)KorTemplate::compile(std::string("outer") + end)->tryExecuteWithEnvironment(stage.get());
      EXPECT_EQ(second->delivered, "inner") << end;
      EXPECT_EQ(first->flushes, isSetBack ? 2 : 1) << end;
    }
  }
}

TEST(Streams, ThatReplaceOneAnotherEndTheExecution) {
  const Stage stage;
  Ref<ActingStream> first;
  Ref<ActingStream> second;
  first = makeRef<ActingStream>([&] { stage.environment->setOutputStream(second); });
  second = makeRef<ActingStream>([&] { stage.environment->setOutputStream(first); });
  stage.environment->setOutputStream(first);
  EXPECT_EQ(raisedBy([&] { stage.run("text"); }),
            "NSInternalInconsistencyException: An output stream is replaced whenever one is flushed");
  EXPECT_LT(first->flushes, 1'000);
  EXPECT_EQ(raisedBy([&] { stage.run("text<? 1 / 0 ?>"); }), "NSGenericException: Divide by zero");
  EXPECT_LT(first->flushes, 2'000);
}

TEST(Streams, ThatReplaceOneAnotherAndFailEndTheExecution) {
  const Stage stage;
  Ref<ActingStream> first;
  Ref<ActingStream> second;
  const auto replaceBy = [&stage](const Ref<ActingStream>& next) {
    stage.environment->setOutputStream(next);
    NSException::raise(NSGenericException, "No room");
  };
  first = makeRef<ActingStream>([&] { replaceBy(second); });
  second = makeRef<ActingStream>([&] { replaceBy(first); });
  stage.environment->setOutputStream(first);
  EXPECT_EQ(raisedBy([&] { stage.run("text"); }), "NSGenericException: No room");
  EXPECT_EQ(raisedBy([&] { stage.run("text<? 1 / 0 ?>"); }), "NSGenericException: Divide by zero");
  EXPECT_LT(first->flushes, 3'000);
}

TEST(AnErrorStream, DeliversEachDiagnosticAtOnce) {
  const Stage stage;
  const Ref<GatheringStream> errors = makeRef<GatheringStream>();
  stage.environment->setErrorStream(errors);
  stage.environment->setFunction("f", [](int /*number*/) { throw std::runtime_error("no"); });
  stage.run("<? f(1) ?>");
  const std::string one = errors->delivered;
  EXPECT_NE(one, "");
  EXPECT_NE(raisedBy([&] { stage.run("<? f(1) ?><? 1 / 0 ?>"); }), "nothing");
  EXPECT_EQ(errors->delivered, one + one);
}

TEST(AStream, DeliversWhatATemplateWritesThatAnExceptionsEndRuns) {
  const Stage stage;
  const Ref<GatheringStream> stream = makeRef<GatheringStream>();
  stage.environment->setOutputStream(stream);
  const Ref<KorTemplate> late = KorTemplate::compile("late");
  const Ref<KorTemplate> inner = templateOf({makeRef<HostStatement>(
      [&](KorTemplateEnvironment*) { throw EndingFailure([&] { late->executeWithEnvironment(stage.get()); }); })});
  stage.define("nest", [&](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
    EXPECT_THROW(inner->executeWithEnvironment(environment), EndingFailure);
    return NSNull::null();
  });
  stage.run("a<? nest() ?>b");
  EXPECT_EQ(stream->delivered, "ablate");
}

// Raises what it is asked to deliver.
class FailingStream final : public KorTemplateStream {
 public:
  void write(const Text& /*text*/) override {}
  void flush() override { NSException::raise(NSGenericException, "No room"); }
};

TEST(AStreamThatIsReplaced, DeliversAlsoWhereOthersFailToDoSo) {
  for (const char* const end : {"", "<? 1 / 0 ?>"}) {
    for (int failing = 0; failing < 4; ++failing) {
      const Stage stage;
      const Ref<GatheringStream> good = makeRef<GatheringStream>();
      const Ref<GatheringStream> last = makeRef<GatheringStream>();
      std::vector<Ref<KorTemplateStream>> next{last, good};
      for (int count = 0; count < failing; ++count) next.push_back(makeRef<FailingStream>());
      stage.environment->setFunction("swap", [&] {
        stage.environment->setOutputStream(next.back());
        next.pop_back();
      });
      std::string text;
      for (int count = 0; count < failing + 2; ++count) text += "<? swap() ?>" + std::to_string(count);
      const std::string raised = raisedBy([&] { stage.run(text + end); });
      EXPECT_EQ(raised == "nothing", failing == 0 && *end == '\0') << raised;
      EXPECT_EQ(good->delivered, std::to_string(failing)) << failing << end;
      EXPECT_EQ(last->delivered, std::to_string(failing + 1)) << failing << end;
    }
  }
}

}  // namespace

}  // namespace tavlo::test
