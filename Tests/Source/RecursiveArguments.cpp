#include <gtest/gtest.h>

#include <list>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "Foundation/NSArray.h"
#include "Foundation/NSDictionary.h"
#include "Source/KorTemplateCallableFunction.h"
#include "Tests/Foundation/SmallStack.h"
#include "Tests/Memory/WorkBound.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

// A host's types that hold themselves.
struct NestedLists {
  std::vector<NestedLists> lists;
};
struct NumberOrLists {
  std::variant<double, std::vector<NumberOrLists>, std::map<std::string, NumberOrLists>> held;
};
// No list of it can be made of anything but lists.
struct ListsInVain {
  std::variant<std::vector<ListsInVain>, std::list<ListsInVain>, bool> held;
};

}  // namespace tavlo::test

template <>
struct tavlo::ValueConversion<tavlo::test::NestedLists> {
  static constexpr const char* kTypeName = "lists";
  static constexpr const char* kExpected = "Lists";
  static std::optional<test::NestedLists> fromValue(const Value& value) {
    auto lists = objectIn<std::vector<test::NestedLists>>(value);
    if (!lists.has_value()) return {};
    return test::NestedLists{*std::move(lists)};
  }
};
template <>
struct tavlo::ValueConversion<tavlo::test::NumberOrLists> {
  static constexpr const char* kTypeName = "number or lists";
  static constexpr const char* kExpected = "Number or lists";
  static std::optional<test::NumberOrLists> fromValue(const Value& value) {
    auto held = objectIn<decltype(test::NumberOrLists::held)>(value);
    if (!held.has_value()) return {};
    return test::NumberOrLists{*std::move(held)};
  }
};
template <>
struct tavlo::ValueConversion<tavlo::test::ListsInVain> {
  static constexpr const char* kTypeName = "lists in vain";
  static constexpr const char* kExpected = "Lists";
  static std::optional<test::ListsInVain> fromValue(const Value& value) {
    auto held = objectIn<decltype(test::ListsInVain::held)>(value);
    if (!held.has_value()) return {};
    return test::ListsInVain{*std::move(held)};
  }
};

namespace tavlo::test {

namespace {

Value nested(Value innermost, int depth) {
  for (; depth > 0; --depth) innermost = NSArray::arrayWithObjects({innermost});
  return innermost;
}

TEST(ARecursiveArgument, IsConvertedInProportion) {
  const Stage stage;
  int calls = 0;
  stage.environment->setFunction("f", [&](const NumberOrLists&) { ++calls; });
  stage.set("deep", nested(1, 60));
  stage.set("deeper", nested(NSDictionary::dictionaryWithEntries({{"k", nested(1, 60)}}), 60));
  const WorkBound bound("variants");
  stage.run("<? f($deep) ?><? f($deeper) ?>");
  EXPECT_EQ(calls, 2);
  EXPECT_LT(stage.environment->stepsTaken(), 400U);
}

TEST(ARecursiveArgument, ReachesTheLimitsWhereItIsTriedInVain) {
  const Stage stage;
  KorTemplateLimits limits;
  limits.steps = 1'000'000;
  stage.environment->setLimits(limits);
  stage.environment->setFunction("f", [](const ListsInVain&) {});
  stage.set("deep", nested("text", 60));
  const WorkBound bound("alternatives");
  EXPECT_THROW(stage.run("<? f($deep) ?>"), KorTemplateLimitException);
}

TEST(ARecursiveArgument, EndsWithALimitWhereTheStackEnds) {
  const Value deep = nested(NSArray::array(), 100'000);
  runOnStackOf(kSmallStack, [&] {
    const Stage stage;
    stage.environment->setFunction("f", [](const NestedLists&) {});
    stage.set("deep", deep);
    EXPECT_THROW(stage.run("<? f($deep) ?>"), KorTemplateLimitException);
    EXPECT_EQ(stage.depth(), 1);
  });
}

}  // namespace

}  // namespace tavlo::test
