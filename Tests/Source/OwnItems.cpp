#include <gtest/gtest.h>

#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

namespace {

class Clearing final : public KorTemplateStatement {
 public:
  explicit Clearing(std::function<void()> compared) : compared_(std::move(compared)) {}
  void executeWithEnvironment(KorTemplateEnvironment*) override {}
  Ref<KorTemplateStatement> copyWithZone(NSZone*) const override { return nullptr; }
  bool isEqual(const NSObject& other, std::int32_t) const override {
    compared_();
    return other.kind() == kind() && this == &other;
  }

 private:
  std::function<void()> compared_;
};

// The item that is removed is the list's own.
TEST(ChildListsThatChange, HoldTheirOwnItemThatTheyAreToRemove) {
  const Ref<KorTemplate> owner = makeRef<KorTemplate>();
  owner->addStatement(makeRef<Clearing>([&] {
    owner->removeAllStatements();
    for (int n = 0; n < 3; ++n) owner->addStatement(makeRef<Clearing>([] {}));
  }));
  owner->addStatement(makeRef<Clearing>([] {}));
  const std::string raised = raisedBy([&] { owner->removeStatement(owner->statements()[1]); });
  EXPECT_NE(raised, "nothing");  // none of the new items equals it
  EXPECT_EQ(owner->statements().count(), 3);
}

}  // namespace

}  // namespace tavlo::test
