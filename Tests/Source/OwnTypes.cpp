#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "Foundation/HostObject.h"
#include "Foundation/LazyCollections.h"
#include "Foundation/NSArray.h"
#include "Foundation/NSDictionary.h"
#include "Foundation/ValueConversion.h"
#include "Source/KorTemplateCallableFunction.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo {

namespace test {

namespace {

// A word that refers to the text of the value that it was made of.
struct Word {
  std::string_view text;
};

// The same in a template, of a host that knows no better.
template <class Letter>
struct LetterRange {
  const Letter* first = nullptr;
  std::size_t size = 0;
};

// A view of a text as hosts have their own.
struct TextView {
  TextView() = default;
  explicit TextView(std::string_view viewed) : text(viewed) {}
  operator std::string_view() const { return text; }  // NOLINT(google-explicit-constructor): it is one
  bool operator<(const TextView& other) const { return text < other.text; }
  std::string_view text;
};

struct Item {
  std::string name;
};

void describeHostClass(HostClass<Item>& item) {
  item.name("Item").property("name", &Item::name);
}

// Handles of what somebody else owns.
struct ItemsByPointer {
  auto begin() const { return items->begin(); }
  auto end() const { return items->end(); }
  std::vector<Item>* items;
};

struct SharedItems {
  auto begin() const { return items->begin(); }
  auto end() const { return items->end(); }
  std::shared_ptr<std::vector<Item>> items;
};

struct ItemsByName {
  using key_type = std::string;  // NOLINT(readability-identifier-naming): the standard's
  using mapped_type = Item;      // NOLINT(readability-identifier-naming)
  auto begin() const { return items->begin(); }
  auto end() const { return items->end(); }
  std::map<std::string, Item>* items;
};

}  // namespace

}  // namespace test

template <>
struct ValueConversion<test::Word> {
  [[maybe_unused]] static constexpr const char* kTypeName = "word";
  static constexpr const char* kExpected = "NSString";
  static std::optional<test::Word> fromValue(const Value& value) {
    const auto text = objectIn<std::string_view>(value);
    return text.has_value() ? std::optional(test::Word{*text}) : std::nullopt;
  }
};

template <class Letter>
struct ValueConversion<test::LetterRange<Letter>> {
  [[maybe_unused]] static constexpr const char* kTypeName = "letters";
  static constexpr const char* kExpected = "NSString";
  static std::optional<test::LetterRange<Letter>> fromValue(const Value& value) {
    const auto text = objectIn<std::string_view>(value);
    if (!text.has_value()) return {};
    return test::LetterRange<Letter>{text->data(), text->size()};
  }
};

namespace test {

namespace {

// What a lazy collection answers is made for the call, and lives as long.
TEST(AHostsOwnType, MayReferToItsValueWithinAContainer) {
  const std::string first = "a rather long word";
  const std::string second = "another rather long word";
  const std::vector<std::string> words{first, second};
  const std::map<std::string, std::string> named{{first, second}};
  const Stage stage;
  const auto& environment = stage.environment;
  environment->setGlobal("words", std::ref(words));
  environment->setGlobal("named", std::ref(named));
  environment->setFunction("all", [](const std::vector<Word>& all) {
    return std::string(all.at(0).text) + "+" + std::string(all.at(1).text);
  });
  environment->setFunction("letters", [](const std::vector<LetterRange<char>>& all) {
    return std::string(all.at(0).first, all.at(0).size) + "+" + std::string(all.at(1).first, all.at(1).size);
  });
  environment->setFunction("pair", [](const std::pair<Word, Word>& both) {
    return std::string(both.first.text) + "+" + std::string(both.second.text);
  });
  environment->setFunction("nested", [](const std::tuple<std::optional<Word>, TextView>& both) {
    return std::string(std::get<0>(both)->text) + "+" + std::string(std::get<1>(both).text);
  });
  environment->setFunction("views", [](const std::array<TextView, 2>& both) {
    return std::string(both[0].text) + "+" + std::string(both[1].text);
  });
  environment->setFunction("values", [](const std::map<std::string, Word>& all) {
    return all.begin()->first + "+" + std::string(all.begin()->second.text);
  });
  environment->setFunction("keys", [](const std::map<TextView, std::string>& all) {
    return std::string(all.begin()->first.text) + "+" + all.begin()->second;
  });
  for (const char* const call : {"all($words)", "letters($words)", "pair($words)", "nested($words)", "views($words)",
                                 "values($named)", "keys($named)"}) {
    const std::string before = stage.text();
    stage.run("<?= " + std::string(call) + " ?>");
    EXPECT_EQ(stage.text(), before + first + "+" + second) << call;
  }
}

TEST(AHostsOwnType, KeepsNothingOfConversionsThatHaveEnded) {
  std::int64_t ended = 0;
  std::vector<std::int64_t> endedBefore;
  const Stage stage;
  const Ref<KorTemplate> inner = KorTemplate::compile("<? count($fresh) ?>");
  const Stage other;
  other.environment->setFunction("count", [](const Value& list) { return objectOf<std::vector<Word>>(list).size(); });
  const auto fresh = [&ended] {
    return Value(
        NSArray::arrayWithObjects({"word", NSArray::arrayWithObjects({makeRef<EndingObject>([&ended] { ++ended; })})}));
  };
  stage.environment->setGlobal("list", lazyList([] { return std::size_t{4}; },
                                                [&](std::size_t /*index*/) {
                                                  endedBefore.push_back(ended);
                                                  (void)objectIn<std::tuple<Word, std::vector<Value>>>(fresh());
                                                  other.set("fresh", fresh());
                                                  inner->executeWithEnvironment(other.get());
                                                  return std::string("word");
                                                }));
  stage.environment->setFunction("words", [](const std::vector<Word>& all) { return all.size(); });
  stage.run("<?= words($list) ?>");
  EXPECT_EQ(stage.text(), "4");
  EXPECT_EQ(endedBefore, (std::vector<std::int64_t>{0, 1, 3, 5}));
}

TEST(AHostsOwnRange, KeepsItsElementsWhereItOnlyRefersToThem) {
  std::vector<Item> items{{"a lamp of a rather long name"}};
  const SharedItems shared{std::make_shared<std::vector<Item>>(items)};
  std::map<std::string, Item> named{{"a", items.front()}};
  const Stage stage;
  stage.environment->setGlobal("pointed", ItemsByPointer{&items});
  stage.environment->setGlobal("named", ItemsByName{&named});
  stage.environment->setFunction("shared", [shared] { return shared; });
  stage.run("<? shared() ?>");
  EXPECT_EQ(items.front().name, "a lamp of a rather long name");
  EXPECT_EQ(named["a"].name, "a lamp of a rather long name");
  EXPECT_EQ(shared.items->front().name, "a lamp of a rather long name");
}

// A class that is a container too.
struct Rows : std::vector<int> {};

void describeHostClass(HostClass<Rows>& rows) {
  rows.name("Rows").property("first", [](const Rows& each) { return each.front(); });
}

TEST(AHostsConstant, IsCopiedWithAllThatItHolds) {
  const Stage stage;
  const Item lamp{"lamp"};
  stage.environment->setFunction("map", [lamp]() -> const std::map<std::string, Item> { return {{"a", lamp}}; });
  stage.environment->setFunction("optional", [lamp]() -> const std::optional<Item> { return lamp; });
  stage.environment->setFunction("pair", [lamp]() -> const std::pair<Item, int> { return {lamp, 1}; });
  Rows rows;
  rows.push_back(7);
  stage.environment->setGlobal("rows", std::ref(rows));
  stage.run(
      "<? $map = map() ?><?= $map.a.name ?> <? $item = optional() ?><?= $item.name ?> "
      "<? $pair = pair() ?><?= $pair.@count ?> <?= $rows.first ?>");
  EXPECT_EQ(stage.text(), "lamp lamp 2 7");
}

TEST(AHostsNullPointer, IsNullWhereverItIsAnswered) {
  const Stage stage;
  const char* const none = nullptr;
  stage.environment->setGlobal("list", lazyList([] { return std::size_t{1}; }, [](std::size_t) { return nullptr; }));
  stage.environment->setGlobal("texts", std::vector<const char*>{none});
  stage.environment->setGlobal("entries", NSDictionary::dictionaryWithEntries({{"a", none}}));
  stage.environment->setGlobal("nothing", nullptr);
  stage.environment->setFunction("f", [] { return nullptr; });
  stage.environment->setFunction("g", [none] { return none; });
  stage.run(
      "<?= $list == null ?><? foreach ($e in $list) ?><?= $e == null ?><? endforeach ?><?= $texts ?><?= $entries ?>"
      "<?= f() == null ?><?= g() == null ?><?= $nothing == null ?>");
  EXPECT_EQ(stage.text(), "01(\n    <null>\n){\n    a = <null>;\n}111");
}

TEST(AnEnvironment, KeepsADiagnosticCallbackThatIsReplacedUntilTheEnd) {
  const Stage stage;
  bool hasEnded = false;
  bool hadEnded = true;
  stage.environment->setDiagnosticCallback(
      [ending = Ref<NSObject>(makeRef<EndingObject>([&] { hasEnded = true; }))](const KorTemplateFailure&) {});
  stage.environment->setFunction("replace", [&](KorTemplateEnvironment& environment) {
    environment.setDiagnosticCallback(nullptr);
    hadEnded = hasEnded;
  });
  stage.run("<? replace() ?>");
  EXPECT_FALSE(hadEnded);
  EXPECT_TRUE(hasEnded);
}

}  // namespace

}  // namespace test

}  // namespace tavlo
