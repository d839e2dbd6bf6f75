#include "Source/KorTemplateEnvironment.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "Foundation/NSDictionary.h"
#include "Source/KorTemplate.h"
#include "Source/KorTemplateCallableFunction.h"
#include "Source/KorTemplateCancellation.h"
#include "Source/KorTemplateConsoleStream.h"
#include "Source/KorTemplateNullStream.h"
#include "Source/KorTemplateProfile.h"
#include "Tests/Memory/WorkBound.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

// A function that is equal to every other one of its family.
class FamilyFunction final : public KorTemplateFunction {
 public:
  explicit FamilyFunction(int family) : family_(family) {}
  Value invokeWithEnvironment(KorTemplateEnvironment*, ListArgument<Value>) override { return family_; }
  bool isEqual(const NSObject& other, std::int32_t /*depth*/) const override {
    const auto* function = dynamic_cast<const FamilyFunction*>(&other);
    return function != nullptr && function->family_ == family_;
  }
  std::size_t hash() const override { return static_cast<std::size_t>(family_); }

 private:
  int family_;
};

TEST(KorTemplateEnvironment, IsFreshWithOneFrameAndNothingInIt) {
  for (const Ref<KorTemplateEnvironment>& environment :
       {KorTemplateEnvironment::environment(), makeRef<KorTemplateEnvironment>()}) {
    EXPECT_EQ(environment->stack()->frames().count(), 1);
    EXPECT_EQ(environment->stack()->firstFrame(), environment->stack()->currentFrame());
    EXPECT_EQ(environment->stack()->firstFrame()->parentFrame(), nullptr);
    EXPECT_THAT(environment->functions(), IsEmpty());
    EXPECT_THAT(environment->functionNames(), IsEmpty());
    EXPECT_THAT(environment->globalVariableNames(), IsEmpty());
    EXPECT_NE(dynamic_cast<KorTemplateNullStream*>(environment->outputStream().get()), nullptr);
    EXPECT_NE(dynamic_cast<KorTemplateConsoleStream*>(environment->errorStream().get()), nullptr);
  }
  EXPECT_NE(KorTemplateEnvironment::environment(), KorTemplateEnvironment::environment());
}

TEST(KorTemplateEnvironment, HoldsWhatItIsSetTo) {
  const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  const Ref<KorTemplateStack> stack = KorTemplateStack::stack();
  const Ref<KorTemplateStream> first = makeRef<RecordingStream>();
  const Ref<KorTemplateStream> second = makeRef<RecordingStream>();
  const Ref<KorTemplateCancellation> cancellation = KorTemplateCancellation::cancellation();
  const Ref<KorTemplateProfile> profile = KorTemplateProfile::profile();
  for (int time = 0; time < 2; ++time) {  // setting the same object again is safe
    environment->setStack(stack);
    environment->setOutputStream(first);
    environment->setErrorStream(second);
    environment->setCancellation(cancellation);
    environment->setProfile(profile);
    EXPECT_EQ(environment->cancellation(), cancellation);
    EXPECT_EQ(environment->profile(), profile);
    EXPECT_EQ(environment->stack(), stack);
    EXPECT_EQ(environment->outputStream(), first);
    EXPECT_EQ(environment->errorStream(), second);
  }
}

TEST(KorTemplateEnvironment, FindsFunctionsUnderExactlyTheirNames) {
  const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  const Ref<KorTemplateFunction> function = makeRef<FamilyFunction>(1);
  environment->setFunctionForName(function, "f");
  environment->setFunctionForName(function, "");
  EXPECT_EQ(environment->functionForName("f"), function);
  EXPECT_EQ(environment->functionForName(""), function);
  EXPECT_EQ(environment->functionForName("F"), nullptr);
  EXPECT_EQ(environment->functionForName("f "), nullptr);
}

TEST(KorTemplateEnvironment, ListsAFunctionOnceForEachOfItsNames) {
  const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  const Ref<KorTemplateFunction> function = makeRef<FamilyFunction>(1);
  const Ref<KorTemplateFunction> other = makeRef<FamilyFunction>(2);
  environment->setFunctionForName(function, "a");
  environment->setFunctionForName(function, "b");
  environment->setFunctionForName(other, "c");
  EXPECT_THAT(environment->functions(), UnorderedElementsAre(function, function, other));
  EXPECT_THAT(environment->functionNames(), UnorderedElementsAre(Name("a"), Name("b"), Name("c")));
}

TEST(KorTemplateEnvironment, ReplacesAFunctionOfTheSameName) {
  const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  const Ref<KorTemplateFunction> second = makeRef<FamilyFunction>(2);
  environment->setFunctionForName(makeRef<FamilyFunction>(1), "f");
  environment->setFunctionForName(second, "f");
  EXPECT_THAT(environment->functions(), ElementsAre(second));
}

TEST(KorTemplateEnvironment, NamesAFunctionByEquality) {
  const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  environment->setFunctionForName(makeRef<FamilyFunction>(1), "a");
  environment->setFunctionForName(makeRef<FamilyFunction>(1), "b");
  environment->setFunctionForName(makeRef<FamilyFunction>(2), "c");
  EXPECT_THAT(environment->namesForFunction(makeRef<FamilyFunction>(1)), UnorderedElementsAre(Name("a"), Name("b")));
  EXPECT_THAT(environment->namesForFunction(makeRef<FamilyFunction>(3)), IsEmpty());
}

TEST(KorTemplateEnvironment, RemovesAllNamesOfEqualFunctions) {
  const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  environment->setFunctionForName(makeRef<FamilyFunction>(1), "a");
  environment->setFunctionForName(makeRef<FamilyFunction>(1), "b");
  environment->setFunctionForName(makeRef<FamilyFunction>(2), "c");
  environment->removeFunction(makeRef<FamilyFunction>(3));
  EXPECT_EQ(environment->functionNames().size(), 3u);
  environment->removeFunction(makeRef<FamilyFunction>(1));
  EXPECT_THAT(environment->functionNames(), ElementsAre(Name("c")));
}

TEST(KorTemplateEnvironment, RemovesOneNameAndNoneThatIsNotThere) {
  const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  const Ref<KorTemplateFunction> function = makeRef<FamilyFunction>(1);
  environment->setFunctionForName(function, "a");
  environment->setFunctionForName(function, "b");
  environment->removeFunctionForName("a");
  EXPECT_THAT(environment->namesForFunction(function), ElementsAre(Name("b")));
  environment->removeFunctionForName("a");
  EXPECT_THAT(environment->functionNames(), ElementsAre(Name("b")));
}

TEST(KorTemplateEnvironment, KeepsManyFunctions) {
  const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  for (int number = 0; number < 100; ++number) {
    environment->setFunctionForName(makeRef<FamilyFunction>(number), std::to_string(number));
  }
  for (int number = 0; number < 100; number += 2) environment->removeFunctionForName(std::to_string(number));
  EXPECT_EQ(environment->functionNames().size(), 50u);
  for (int number = 0; number < 100; ++number) {
    EXPECT_EQ(environment->functionForName(std::to_string(number)) != nullptr, number % 2 == 1) << number;
  }
}

TEST(KorTemplateEnvironment, KeepsTheOrderOfFunctionsWhereSomeAreRemovedAtRandom) {
  std::minstd_rand random(7);
  const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  std::vector<Name> expected;
  for (int number = 0; number < 1500; ++number) {
    const Name name(std::to_string(number));
    environment->setFunctionForName(makeRef<FamilyFunction>(number % 10), name);
    expected.push_back(name);
    if (number % 500 == 499) {
      environment->removeFunction(makeRef<FamilyFunction>(number / 500));
      std::erase_if(expected, [&](const Name& each) { return each.view().back() == '0' + number / 500; });
    }
    for (int times = number % 500 < 250 ? 0 : 3; times > 0 && !expected.empty(); --times) {
      const std::size_t place = random() % expected.size();
      environment->removeFunctionForName(expected[place]);
      ASSERT_EQ(environment->functionForName(expected[place]), nullptr);
      expected.erase(expected.begin() + static_cast<std::ptrdiff_t>(place));
    }
    if (number % 61 != 0) continue;
    ASSERT_EQ(environment->functionNames(), expected);
    for (const Name& name : expected) ASSERT_NE(environment->functionForName(name), nullptr);
  }
}

TEST(KorTemplateEnvironment, RemovesAFunctionOfManyNamesInLittleTime) {
  constexpr int kMany = 100'000;
  const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  for (int number = 0; number < kMany; ++number) {
    environment->setFunctionForName(makeRef<FamilyFunction>(number % 2), std::to_string(number));
  }
  const WorkBound bound("every second function removed");
  environment->removeFunction(makeRef<FamilyFunction>(0));
  EXPECT_EQ(environment->functionNames().size(), std::size_t{kMany / 2});
}

TEST(KorTemplateEnvironment, ForgetsACancellationWithTheExecution) {
  const Stage stage;
  Ref<KorTemplateCancellation> cancellation = KorTemplateCancellation::cancellation();
  stage.environment->setCancellation(cancellation);
  stage.run("first, ");
  cancellation->cancel();
  stage.environment->setCancellation(nullptr);
  cancellation = nullptr;
  stage.environment->writeDiagnostic("told");
  stage.run("second");
  EXPECT_EQ(stage.text(), "first, second");
  EXPECT_EQ(stage.diagnostics(), "told");
}

TEST(KorTemplateEnvironment, WritesDiagnosticsWithoutALimitWhileNothingRuns) {
  const Stage stage;
  KorTemplateLimits limits;
  limits.steps = 5;
  stage.environment->setLimits(limits);
  stage.run("text");
  for (int count = 0; count < 100; ++count) stage.environment->writeDiagnostic(std::string(300, 'x'));
  EXPECT_EQ(stage.errors->writes.size(), 100u);
}

TEST(KorTemplateEnvironment, CountsWhatMovesUpBehindWhatIsRemoved) {
  constexpr int kMany = 4'000;
  for (const bool isDictionary : {false, true}) {
    const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
    const Ref<NSMutableDictionary> dictionary = NSMutableDictionary::dictionary();
    for (int number = 0; number < kMany; ++number) {
      dictionary->setObjectForKey(number, std::to_string(number));
      environment->setFunctionForName(makeRef<FamilyFunction>(1), std::to_string(number));
    }
    environment->setFunction("clear", [&](KorTemplateEnvironment& running) {
      for (int number = 0; number < kMany / 2; ++number) {
        if (isDictionary) {
          dictionary->removeObjectForKey(std::to_string(number));
        } else {
          running.removeFunctionForName(std::to_string(number));
        }
      }
    });
    KorTemplateLimits limits;
    limits.steps = 100'000;
    environment->setLimits(limits);
    EXPECT_THROW(KorTemplate::compile("<? clear() ?><? clear() ?>")->executeWithEnvironment(environment.get()),
                 KorTemplateLimitException)
        << isDictionary;
  }
}

TEST(KorTemplateEnvironment, StoresGlobalsAsTheVeryObjects) {
  const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  const Value first = Ref<HostObject>(makeRef<HostObject>());
  environment->setValueForGlobalVariableWithName(first, "x");
  EXPECT_TRUE(environment->valueForGlobalVariableWithName("x").isIdenticalTo(first));
  EXPECT_TRUE(environment->isGlobalVariableDefinedWithName("x"));
  EXPECT_THAT(environment->globalVariableNames(), ElementsAre(Name("x")));
  environment->setValueForGlobalVariableWithName(NSNull::null(), "x");
  EXPECT_TRUE(environment->valueForGlobalVariableWithName("x").isNull());
  EXPECT_TRUE(environment->isGlobalVariableDefinedWithName("x"));
  EXPECT_THAT(environment->globalVariableNames(), ElementsAre(Name("x")));
}

TEST(KorTemplateEnvironment, HasNoGlobalThatWasNotSet) {
  const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  EXPECT_TRUE(environment->valueForGlobalVariableWithName("x").isAbsent());
  EXPECT_FALSE(environment->isGlobalVariableDefinedWithName("x"));
}

TEST(KorTemplateEnvironment, KeepsGlobalsInTheFirstFrameWhateverFrameIsCurrent) {
  const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  const Ref<KorTemplateStackFrame> first = environment->stack()->firstFrame();
  const Ref<KorTemplateStackFrame> current = KorTemplateStackFrame::stackFrame();
  environment->stack()->push(current);
  current->setValueForVariableWithName("local", "x");
  environment->setValueForGlobalVariableWithName("global", "x");
  EXPECT_EQ(environment->valueForGlobalVariableWithName("x").description(), "global");
  EXPECT_EQ(first->valueForLocalVariableWithName("x").description(), "global");
  EXPECT_EQ(current->valueForVariableWithName("x").description(), "local");
}

TEST(KorTemplateEnvironment, AnswersNothingAboutGlobalsWithoutAFirstFrame) {
  const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  for (const Ref<KorTemplateStack>& stack : {KorTemplateStack::stack(), Ref<KorTemplateStack>()}) {
    environment->setStack(stack);
    environment->setValueForGlobalVariableWithName(1, "x");
    EXPECT_THAT(environment->globalVariableNames(), IsEmpty());
    EXPECT_TRUE(environment->valueForGlobalVariableWithName("x").isAbsent());
    EXPECT_FALSE(environment->isGlobalVariableDefinedWithName("x"));
  }
}

TEST(KorTemplateEnvironment, KeepsGlobalsFunctionsAndStreamsBetweenExecutions) {
  const Stage stage;
  stage.run("<? $x = 1 ?><? function f() ?><? return $x ?><? endfunction ?>");
  stage.run("<?= f() ?>");
  EXPECT_EQ(stage.text(), "1");
  EXPECT_THAT(stage.environment->functionNames(), ElementsAre(Name("f")));
  EXPECT_THAT(stage.environment->globalVariableNames(), ElementsAre(Name("x")));
}

}  // namespace

}  // namespace tavlo::test
