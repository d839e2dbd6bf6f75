#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "Foundation/HostObject.h"
#include "Foundation/NSArray.h"
#include "Foundation/NSDate.h"
#include "Foundation/NSDictionary.h"
#include "Source/KorTemplateCallableFunction.h"
#include "Tests/Source/HostClasses.h"

// A host's types, and what it says of them, in a namespace of its own.
namespace shop {

enum class Size { Small, Large };
constexpr auto describeEnum(Size) {
  return tavlo::enumNames<Size>({{Size::Small, "small"}, {Size::Large, "large"}});
}

struct Product {
  double priceFor(int count) const { return price * count; }
  void rename(std::string name) { title = std::move(name); }

  std::string title;
  double price = 0;
};
void describeHostClass(tavlo::HostClass<Product>& product) {
  product.name("Product").property("title", &Product::title).property("price", &Product::price);
}

}  // namespace shop

namespace tavlo::test {

namespace {

using shop::Product;

double twice(double number) noexcept {
  return number * 2;
}

// What the function answers for the values.
Value called(const Stage& stage, const Name& name, const ListArgument<Value>& arguments) {
  return stage.environment->functionForName(name)->invokeWithEnvironment(stage.get(), arguments);
}

// The text of the result, or what the call raises.
std::string outcomeOf(const Stage& stage, const Name& name, const std::vector<Value>& arguments) {
  std::string text;
  const std::string raised = raisedBy([&] { text = called(stage, name, arguments).description(); });
  return raised == "nothing" ? text : raised;
}

TEST(Callables, OfEveryFormAreFunctions) {
  struct Adder {
    int operator()(int number) { return total += number; }
    int total = 0;
  };
  const Stage stage;
  stage.environment->setFunction("pointer", twice);
  stage.environment->setFunction("address", &twice);
  stage.environment->setFunction("lambda", [](double number) { return number * 2; });
  stage.environment->setFunction("kept", std::function<double(double)>(twice));
  stage.environment->setFunction("mutable", [times = 1](double number) mutable { return number * ++times; });
  stage.environment->setFunction("moved", [two = std::make_unique<int>(2)](double number) { return number * *two; });
  for (const char* name : {"pointer", "address", "lambda", "kept", "mutable", "moved"}) {
    EXPECT_EQ(outcomeOf(stage, name, {2.25}), "4.5") << name;
  }
  EXPECT_EQ(outcomeOf(stage, "mutable", {2.25}), "6.75");
  stage.environment->setFunction("object", Adder());
  stage.run("<?= object(1) ?>,<?= object(2) ?>");
  EXPECT_EQ(stage.text(), "1,3");
}

TEST(Callables, AreMemberFunctionsWithTheirObject) {
  Product chair{"Chair", 10};
  auto owned = std::make_shared<Product>(Product{"Table", 20});
  const Stage stage;
  stage.environment->setFunction("byPointer", &Product::priceFor, &chair);
  stage.environment->setFunction("byReference", &Product::priceFor, std::ref(chair));
  stage.environment->setFunction("byCopy", &Product::priceFor, chair);
  stage.environment->setFunction("byOwner", &Product::priceFor, owned);
  stage.environment->setFunction("bySoleOwner", &Product::priceFor, std::make_unique<Product>(Product{"Lamp", 30}));
  stage.environment->setFunction("rename", &Product::rename, &chair);
  stage.environment->setFunction("free", &Product::priceFor);
  stage.environment->setGlobal("product", std::ref(chair));
  owned.reset();
  chair.price = 11;
  stage.run(
      "<?= byPointer(2) ?> <?= byReference(2) ?> <?= byCopy(2) ?> <?= byOwner(2) ?> <?= bySoleOwner(2) ?> "
      "<?= rename(\"Stool\") ?><?= $product.title ?> <?= free($product, 3) ?>");
  EXPECT_EQ(stage.text(), "22 22 20 40 60 Stool 33");
  EXPECT_EQ(outcomeOf(stage, "free", {1, 2}),
            "NSGenericException: Incorrect type for Product argument at index 2 of free. Product expected.");
}

TEST(Callables, TakeConstantObjectsWhereTheyOnlyRead) {
  const Stage stage;
  const Product chair{"Chair", 10};
  stage.environment->setFunction("read", [](const Product& product) { return product.title; });
  stage.environment->setFunction("point", [](const Product* product) { return product; });
  stage.environment->setFunction("copy", [](Product product) { return product.price; });
  stage.environment->setFunction("change", [](Product& product) { product.price = 0; });
  EXPECT_EQ(outcomeOf(stage, "read", {hostReference(chair)}), "Chair");
  EXPECT_EQ(hostObject<const Product>(called(stage, "point", {hostReference(chair)})), &chair);
  EXPECT_EQ(outcomeOf(stage, "copy", {hostReference(chair)}), "10");
  EXPECT_EQ(
      outcomeOf(stage, "change", {hostReference(chair)}),
      "NSGenericException: Incorrect type for Product argument at index 2 of change. Changeable Product expected.");
}

TEST(Callables, ThatAreEmptyAreRefused) {
  const Stage stage;
  double (*const none)(double) = nullptr;
  const std::string refused = failedCheck("callable != nil");
  EXPECT_EQ(raisedBy([&] { stage.environment->setFunction("f", none); }), refused);
  EXPECT_EQ(raisedBy([&] { stage.environment->setFunction("f", std::function<double()>()); }), refused);
  EXPECT_EQ(raisedBy([&] { stage.environment->setFunction("f", decltype (&Product::priceFor)()); }), refused);
  EXPECT_EQ(raisedBy([&] { stage.environment->setFunction("f", &Product::priceFor, static_cast<Product*>(nullptr)); }),
            failedCheck("object != nil"));
  EXPECT_EQ(raisedBy([&] { stage.environment->setFunction(nullptr, twice); }), failedCheck("name != nil"));
  EXPECT_EQ(stage.environment->functionForName("f"), nullptr);
}

TEST(Callables, CheckWhatTheyAreCalledWith) {
  const Stage stage;
  stage.environment->setFunction("f", twice);
  const Ref<KorTemplateFunction> function = stage.environment->functionForName("f");
  EXPECT_EQ(raisedBy([&] { (void)function->invokeWithEnvironment(nullptr, {1}); }), failedCheck("environment != nil"));
  EXPECT_EQ(raisedBy([&] { (void)function->invokeWithEnvironment(stage.get(), nullptr); }), failedCheck("args != nil"));
  EXPECT_STREQ(function->className(), "KorTemplateCallableFunction");
}

// Parameters

template <class T>
void define(const Stage& stage, const char* name) {
  stage.environment->setFunction(name, [](T value) { return value; });
}

TEST(NumberParameters, NarrowAsNumbersDo) {
  const Stage stage;
  define<bool>(stage, "bool");
  define<char>(stage, "char");
  define<unsigned char>(stage, "unsigned char");
  define<short>(stage, "short");
  define<unsigned short>(stage, "unsigned short");
  define<int>(stage, "int");
  define<unsigned>(stage, "unsigned int");
  define<long>(stage, "long");
  define<unsigned long>(stage, "unsigned long");
  define<long long>(stage, "long long");
  define<unsigned long long>(stage, "unsigned long long");
  define<float>(stage, "float");
  define<double>(stage, "double");
  constexpr std::int64_t kSmallest = std::numeric_limits<std::int64_t>::min();
  constexpr std::uint64_t kLargest = std::numeric_limits<std::uint64_t>::max();
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  struct Row {
    const char* type;
    const char* ofMinusOne;
    const char* ofSmallest;  // of the 64-bit integers; not asked of real numbers
    const char* ofLargest;   // the same
    const char* ofMinusInfinity;
    const char* ofInfinity;
    const char* ofAHalf;
  };
  const Row rows[] = {
      {"bool", "1", "1", "1", "1", "1", "1"},
      {"char", "-1", "0", "-1", "-128", "127", "0"},
      {"unsigned char", "255", "0", "255", "0", "255", "0"},
      {"short", "-1", "0", "-1", "-32768", "32767", "0"},
      {"unsigned short", "65535", "0", "65535", "0", "65535", "0"},
      {"int", "-1", "0", "-1", "-2147483648", "2147483647", "0"},
      {"unsigned int", "4294967295", "0", "4294967295", "0", "4294967295", "0"},
      {"long", "-1", "-9223372036854775808", "-1", "-9223372036854775808", "9223372036854775807", "0"},
      {"unsigned long", "18446744073709551615", "9223372036854775808", "18446744073709551615", "0",
       "18446744073709551615", "0"},
      {"long long", "-1", "-9223372036854775808", "-1", "-9223372036854775808", "9223372036854775807", "0"},
      {"unsigned long long", "18446744073709551615", "9223372036854775808", "18446744073709551615", "0",
       "18446744073709551615", "0"},
      {"float", "-1", "", "", "-inf", "inf", "0.5"},
      {"double", "-1", "", "", "-inf", "inf", "0.5"},
  };
  for (const Row& row : rows) {
    const bool isReal = std::string_view(row.ofAHalf) == "0.5";
    EXPECT_EQ(outcomeOf(stage, row.type, {-1}), row.ofMinusOne) << row.type;
    if (!isReal) {
      EXPECT_EQ(outcomeOf(stage, row.type, {kSmallest}), row.ofSmallest) << row.type;
      EXPECT_EQ(outcomeOf(stage, row.type, {kLargest}), row.ofLargest) << row.type;
      EXPECT_EQ(outcomeOf(stage, row.type, {std::numeric_limits<double>::quiet_NaN()}),
                std::string_view(row.type) == "bool" ? "1" : "0")
          << row.type;
    }
    EXPECT_EQ(outcomeOf(stage, row.type, {-kInfinity}), row.ofMinusInfinity) << row.type;
    EXPECT_EQ(outcomeOf(stage, row.type, {kInfinity}), row.ofInfinity) << row.type;
    EXPECT_EQ(outcomeOf(stage, row.type, {0.5}), row.ofAHalf) << row.type;
    EXPECT_EQ(outcomeOf(stage, row.type, {true}), "1") << row.type;
    EXPECT_EQ(outcomeOf(stage, row.type, {Value::null()}), "0") << row.type;
    const std::string refused = "NSGenericException: Incorrect type for " + std::string(row.type) +
                                " argument at index 2 of " + row.type + ". NSNumber expected.";
    EXPECT_EQ(outcomeOf(stage, row.type, {"1"}), refused);
    EXPECT_EQ(outcomeOf(stage, row.type, {NSArray::array()}), refused);
  }
}

TEST(TextParameters, TakeStringsOnly) {
  const Stage stage;
  define<std::string>(stage, "owned");
  define<std::string_view>(stage, "view");
  define<const char*>(stage, "pointer");
  stage.environment->setFunction("reference", [](const std::string& text) { return text; });
  stage.environment->setFunction("moved", [](std::string&& text) { return std::move(text); });
  for (const char* name : {"owned", "view", "pointer", "reference", "moved"}) {
    EXPECT_EQ(outcomeOf(stage, name, {"gr\u00fcn"}), "gr\u00fcn") << name;
    EXPECT_EQ(outcomeOf(stage, name, {""}), "") << name;
    for (const Value& value : {Value(1), Value(true), Value::null(), Value(NSArray::array())}) {
      EXPECT_THAT(outcomeOf(stage, name, {value}),
                  testing::StartsWith("NSGenericException: Incorrect type for string argument at index 2 of " +
                                      std::string(name) + ". NSString"))
          << value.description();
    }
  }
}

TEST(Parameters, OfEveryKindNameWhatTheyExpect) {
  const Stage stage;
  stage.environment->setFunction("list", [](int, const std::vector<double>& list) { return list.size(); });
  stage.environment->setFunction("map", [](const std::map<std::string, std::string>& map) { return map.size(); });
  stage.environment->setFunction("span", [](std::span<const int> list) { return list.size(); });
  stage.environment->setFunction("date", [](std::chrono::system_clock::time_point) { return true; });
  stage.environment->setFunction("size", [](shop::Size size) { return size == shop::Size::Large; });
  stage.environment->setFunction("product", [](const Product& product) { return product.price; });
  stage.environment->setFunction("pair", [](std::pair<int, std::string> pair) { return pair.second; });
  stage.environment->setFunction("shared", [](const std::shared_ptr<Product>& product) { return product->price; });
  stage.environment->setFunction("maybe", [](std::optional<int> number) { return number.value_or(-1); });
  stage.environment->setFunction("object", [](const Ref<NSArray>& array) { return array->count(); });
  stage.environment->setFunction("three", [](const std::array<int, 3>& list) { return list[2]; });
  stage.environment->setFunction("either", [](const std::variant<double, std::string>& one) { return one.index(); });
  struct Row {
    const char* name;
    std::vector<Value> arguments;
    const char* refusal;
  };
  const Row rows[] = {
      {"list", {1, 2}, "array argument at index 3 of list. NSArray of NSNumber expected."},
      {"list",
       {1, NSArray::arrayWithObjects({"a"})},
       "array argument at index 3 of list. NSArray of NSNumber expected."},
      {"map", {NSArray::array()}, "dictionary argument at index 2 of map. NSDictionary of NSString expected."},
      {"span", {Value::null()}, "array argument at index 2 of span. NSArray of NSNumber expected."},
      {"date", {1}, "date argument at index 2 of date. NSDate expected."},
      {"size", {"huge"}, "enumeration argument at index 2 of size. NSString (small, large) expected."},
      {"product", {Value::null()}, "Product argument at index 2 of product. Product expected."},
      {"pair", {1}, "tuple argument at index 2 of pair. NSArray (NSNumber, NSString) expected."},
      {"shared", {1}, "Product argument at index 2 of shared. Shared Product expected."},
      {"maybe", {"1"}, "int argument at index 2 of maybe. NSNumber or null expected."},
      {"object", {"1"}, "object argument at index 2 of object. NSArray expected."},
      {"three",
       {NSArray::arrayWithObjects({1, 2})},
       "array argument at index 2 of three. NSArray of 3 NSNumber expected."},
      {"either", {NSArray::array()}, "variant argument at index 2 of either. NSNumber or NSString expected."},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(outcomeOf(stage, row.name, row.arguments),
              "NSGenericException: Incorrect type for " + std::string(row.refusal));
  }
  const Value numbers = NSArray::arrayWithObjects({1, 2, 3});
  EXPECT_EQ(outcomeOf(stage, "list", {1, numbers}), "3");
  EXPECT_EQ(outcomeOf(stage, "map", {NSDictionary::dictionaryWithEntries({{"a", "b"}})}), "1");
  EXPECT_EQ(outcomeOf(stage, "span", {numbers}), "3");
  EXPECT_EQ(outcomeOf(stage, "date", {NSDate::dateWithTimeIntervalSince1970(0)}), "1");
  EXPECT_EQ(outcomeOf(stage, "size", {"large"}), "1");
  EXPECT_EQ(outcomeOf(stage, "maybe", {Value::null()}), "-1");
  EXPECT_EQ(outcomeOf(stage, "object", {numbers}), "3");
  EXPECT_EQ(outcomeOf(stage, "three", {numbers}), "3");
  EXPECT_EQ(outcomeOf(stage, "either", {"text"}), "1");
  EXPECT_EQ(outcomeOf(stage, "shared", {valueOf(std::make_shared<Product>(Product{"Chair", 5}))}), "5");
}

TEST(Parameters, ThatReferToObjectsChangeTheHostsOwn) {
  Product chair{"Chair", 10};
  const Stage stage;
  stage.environment->setFunction("reference", [](Product& product) { product.price += 1; });
  stage.environment->setFunction("pointer", [](Product* product) {
    if (product != nullptr) product->price += 1;
  });
  stage.environment->setFunction("copy", [](Product product) { return product.price += 1; });
  stage.environment->setGlobal("product", &chair);
  stage.run("<? reference($product) ?><? pointer($product) ?><? pointer(null) ?><?= copy($product) ?>");
  EXPECT_EQ(chair.price, 12);
  EXPECT_EQ(stage.text(), "13");
  EXPECT_EQ(stage.diagnostics(), "");
}

TEST(Parameters, OfAnyValueSeeItAsItIs) {
  const Stage stage;
  stage.environment->setFunction("f", [](const Value& value) { return value.className(); });
  for (const Value& value : {Value::null(), Value(1), Value("a"), Value(NSArray::array())}) {
    EXPECT_EQ(outcomeOf(stage, "f", {value}), value.className());
  }
}

// Counts

TEST(Counts, AreTheNumberOfParameters) {
  const Stage stage;
  stage.environment->setFunction("none", [] { return 0; });
  stage.environment->setFunction("two", [](int, int) { return 2; });
  stage.environment->setFunction("some", [](int, std::optional<int>, std::optional<int>) { return 3; });
  stage.environment->setFunction("rest", [](int, std::span<const Value> rest) { return rest.size(); });
  stage.environment->setFunction("both",
                                 [](int, std::optional<int>, std::span<const Value> rest) { return rest.size(); });
  stage.environment->setFunction("early",
                                 [](std::optional<int> first, int second) { return first.value_or(10) + second; });
  stage.environment->setFunction("environment", [](KorTemplateEnvironment&, int number) { return number; });
  struct Row {
    const char* name;
    int count;
    const char* expected;  // in the message; null where the call works
  };
  const Row rows[] = {
      {"none", 0, nullptr},      {"none", 1, "0"},          {"two", 2, nullptr},         {"two", 1, "2"},
      {"two", 3, "2"},           {"some", 0, "1 to 3"},     {"some", 1, nullptr},        {"some", 3, nullptr},
      {"some", 4, "1 to 3"},     {"rest", 0, "at least 1"}, {"rest", 1, nullptr},        {"rest", 9, nullptr},
      {"both", 0, "at least 1"}, {"both", 1, nullptr},      {"both", 5, nullptr},        {"early", 1, "2"},
      {"early", 2, nullptr},     {"environment", 0, "1"},   {"environment", 1, nullptr}, {"environment", 2, "1"},
  };
  for (const Row& row : rows) {
    const std::string outcome = outcomeOf(stage, row.name, std::vector<Value>(static_cast<std::size_t>(row.count), 1));
    const std::string refusal = row.expected == nullptr
                                    ? ""
                                    : "NSGenericException: " + std::string(row.name) +
                                          ". Incorrect number of arguments: " + std::to_string(row.count) +
                                          " supplied, " + row.expected + " expected.";
    EXPECT_EQ(outcome.starts_with("NSGenericException"), row.expected != nullptr) << row.name << row.count;
    if (row.expected != nullptr) {
      EXPECT_EQ(outcome, refusal);
    }
  }
}

TEST(Counts, LeaveTheRestToTheLastParameter) {
  const Stage stage;
  stage.environment->setFunction("join", [](std::string_view separator, std::span<const Value> rest) {
    std::string text;
    for (const Value& value : rest) text += (text.empty() ? "" : std::string(separator)) + value.description();
    return text;
  });
  stage.run("<?= join(\"-\") ?>,<?= join(\"-\", 1) ?>,<?= join(\"-\", 1, \"b\", 3, 4, 5) ?>");
  EXPECT_EQ(stage.text(), ",1,1-b-3-4-5");
}

TEST(Counts, ChooseAmongOverloads) {
  const Stage stage;
  stage.environment->setFunction(
      "f", [](std::string_view one) { return "one " + std::string(one); }, [](int, int) { return "two"; },
      [](int, int, int, int, std::span<const Value>) { return "four or more"; });
  stage.run("<?= f(\"x\") ?>,<?= f(1, 2) ?>,<?= f(1, 2, 3, 4) ?>,<?= f(1, 2, 3, 4, 5) ?>");
  EXPECT_EQ(stage.text(), "one x,two,four or more,four or more");
  const std::string prefix = "NSGenericException: f. Incorrect number of arguments: ";
  EXPECT_EQ(outcomeOf(stage, "f", {}), prefix + "0 supplied, 1 to 2 or at least 4 expected.");
  EXPECT_EQ(outcomeOf(stage, "f", {1, 2, 3}), prefix + "3 supplied, 1 to 2 or at least 4 expected.");
  EXPECT_EQ(outcomeOf(stage, "f", {"a", "b"}),
            "NSGenericException: Incorrect type for int argument at index 2 of f. NSNumber expected.");
}

TEST(Counts, AreReportedByAFailedCall) {
  const Stage stage;
  stage.environment->setFunction("f", twice);
  stage.run("a<?= f() ?>b<?= f(\"1\") ?>c<?= f(1) ?>");
  EXPECT_EQ(stage.text(), "abc2");
  EXPECT_EQ(stage.diagnostics(),
            "f. Incorrect number of arguments: 0 supplied, 1 expected.|"
            "Incorrect type for double argument at index 2 of f. NSNumber expected.");
}

TEST(Conversions, HappenFromTheFirstToTheLastBeforeTheCall) {
  const Stage stage;
  int calls = 0;
  stage.environment->setFunction("f", [&](int, std::string_view, double) { ++calls; });
  EXPECT_THAT(outcomeOf(stage, "f", {"a", 2, "c"}), testing::HasSubstr("at index 2"));
  EXPECT_THAT(outcomeOf(stage, "f", {1, 2, "c"}), testing::HasSubstr("at index 3"));
  EXPECT_THAT(outcomeOf(stage, "f", {1, "b", "c"}), testing::HasSubstr("at index 4"));
  EXPECT_EQ(calls, 0);
  EXPECT_EQ(outcomeOf(stage, "f", {1, "b", Value::null()}), "<null>");
  EXPECT_EQ(calls, 1);
}

// Results

TEST(Results, OfEveryTypeAreValues) {
  const Stage stage;
  const auto define = [&](const char* name, auto callable) { stage.environment->setFunction(name, callable); };
  define("void", [] {});
  define("null", [] { return nullptr; });
  define("absent", [] { return Value(); });
  define("absent object", [] { return Ref<NSArray>(); });
  define("empty", [] { return std::optional<int>(); });
  define("no text", [] { return static_cast<const char*>(nullptr); });
  define("no product", [] { return static_cast<Product*>(nullptr); });
  define("true", [] { return true; });
  define("smallest char", [] { return std::numeric_limits<signed char>::min(); });
  define("smallest", [] { return std::numeric_limits<long long>::min(); });
  define("largest", [] { return std::numeric_limits<unsigned long long>::max(); });
  define("largest unsigned", [] { return std::numeric_limits<unsigned>::max(); });
  define("not-a-number", [] { return std::numeric_limits<double>::quiet_NaN(); });
  define("infinity", [] { return -std::numeric_limits<float>::infinity(); });
  define("single", [] { return 0.1F; });
  define("text", [] { return std::string("text"); });
  define("literal", [] { return "literal"; });
  define("view", [] { return std::string_view("view!").substr(0, 4); });
  define("size", [] { return shop::Size::Large; });
  define("day", [] { return std::chrono::sys_days(); });
  define("not UTF-8", [] { return std::string("\xFF"); });
  struct Row {
    const char* name;
    const char* expected;
  };
  const Row rows[] = {
      {"void", "<null>"},
      {"null", "<null>"},
      {"absent", "<null>"},
      {"absent object", "<null>"},
      {"empty", "<null>"},
      {"no text", "<null>"},
      {"no product", "<null>"},
      {"true", "1"},
      {"smallest char", "-128"},
      {"smallest", "-9223372036854775808"},
      {"largest", "18446744073709551615"},
      {"largest unsigned", "4294967295"},
      {"not-a-number", "nan"},
      {"infinity", "-inf"},
      {"single", "0.1"},
      {"text", "text"},
      {"literal", "literal"},
      {"view", "view"},
      {"size", "large"},
      {"day", "1970-01-01 00:00:00 +0000"},
  };
  for (const Row& row : rows) EXPECT_EQ(outcomeOf(stage, row.name, {}), row.expected) << row.name;
  EXPECT_THAT(outcomeOf(stage, "not UTF-8", {}), testing::StartsWith("NSInvalidArgumentException: "));
}

TEST(Results, ThatReferToObjectsAreTheHostsOwn) {
  Product chair{"Chair", 10};
  const Stage stage;
  stage.environment->setFunction("reference", [&]() -> Product& { return chair; });
  stage.environment->setFunction("constant", [&]() -> const Product& { return chair; });
  stage.environment->setFunction("pointer", [&] { return &chair; });
  stage.environment->setFunction("copy", [&] { return chair; });
  stage.run("<? $reference = reference() ?><? $constant = constant() ?><? $pointer = pointer() ?><? $copy = copy() ?>");
  chair.title = "Stool";
  stage.run("<?= $reference.title ?> <?= $constant.title ?> <?= $pointer.title ?> <?= $copy.title ?>");
  EXPECT_EQ(stage.text(), "Stool Chair Stool Chair");
}

TEST(Results, AreNestedAtWill) {
  const Stage stage;
  stage.environment->setFunction("all", [] {
    return std::map<std::string, std::vector<Product>>{{"chairs", {Product{"Stool", 5}, Product{"Throne", 500}}}};
  });
  stage.run("<? $all = all() ?><? foreach ($p in $all.chairs) ?><?= $p.title ?>:<?= $p.price ?>;<? endforeach ?>");
  EXPECT_EQ(stage.text(), "Stool:5;Throne:500;");
}

}  // namespace

}  // namespace tavlo::test
