#include <gmock/gmock.h>
#include <gtest/gtest.h>

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

}  // namespace

}  // namespace tavlo::test
