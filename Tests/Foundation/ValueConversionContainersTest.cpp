#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <deque>
#include <forward_list>
#include <limits>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <tuple>
#include <unordered_map>
#include <unordered_set>
#include <variant>
#include <vector>

#include "Foundation/HostObject.h"
#include "Foundation/LazyCollections.h"
#include "Foundation/NSArray.h"
#include "Foundation/NSDate.h"
#include "Foundation/NSDictionary.h"
#include "Foundation/NSSet.h"
#include "Foundation/ValueConversion.h"
#include "Tests/Foundation/Raised.h"

// A host's types, and what it says of them, in a namespace of its own.
namespace shop {

enum class Status : std::int8_t { Draft, Sent, Lost = 9 };
constexpr auto describeEnum(Status) {
  return tavlo::enumNames<Status>({{Status::Draft, "draft"}, {Status::Sent, "sent"}, {Status::Sent, "mailed"}});
}

enum Plain : short { kFirst, kSecond };
enum Unfixed { kOnly };
enum class Wide : std::uint64_t { Largest = UINT64_MAX };

struct Product {
  std::string title;
};
void describeHostClass(tavlo::HostClass<Product>& product) {
  product.name("Product").property("title", &Product::title);
}

struct Unique {
  explicit Unique(int start) : number(start) {}
  Unique(Unique&&) = default;
  Unique& operator=(Unique&&) = default;
  Unique(const Unique&) = delete;
  Unique& operator=(const Unique&) = delete;
  ~Unique() = default;
  int number;
};
void describeHostClass(tavlo::HostClass<Unique>& unique) {
  unique.name("Unique").property("number", &Unique::number);
}

}  // namespace shop

namespace tavlo::test {

namespace {

using shop::Product;
using shop::Status;

// The text of a value in one line.
std::string lineOf(const Value& value) {
  std::string line;
  for (const char letter : value.description()) {
    if (letter == '\n') {
      line += ' ';
    } else if (letter != ' ' || line.empty() || line.back() != ' ') {
      line += letter;
    }
  }
  return line;
}

TEST(ConvertedLists, AreArraysInTheirOrder) {
  const std::vector<int> numbers = {3, 1, 2};
  const int plain[] = {3, 1, 2};
  const std::pair<const char*, Value> rows[] = {
      {"a vector", valueOf(numbers)},
      {"an array", valueOf(std::array<int, 3>{3, 1, 2})},
      {"a plain array", valueOf(plain)},
      {"a list", valueOf(std::list<int>{3, 1, 2})},
      {"a deque", valueOf(std::deque<int>{3, 1, 2})},
      {"a span", valueOf(std::span<const int>(numbers))},
      {"a forward list", valueOf(std::forward_list<int>{3, 1, 2})},
  };
  for (const auto& [what, value] : rows) {
    EXPECT_STREQ(value.className(), "NSArray") << what;
    EXPECT_EQ(lineOf(value), "( 3, 1, 2 )") << what;
  }
  EXPECT_EQ(lineOf(valueOf(std::vector<bool>{true, false})), "( 1, 0 )");
  EXPECT_EQ(lineOf(valueOf(std::vector<std::string>())), "( )");
}

TEST(ConvertedLists, AreSetsWhereEveryElementIsThereOnce) {
  EXPECT_STREQ(valueOf(std::set<int>{2, 1}).className(), "NSSet");
  EXPECT_EQ(lineOf(valueOf(std::set<std::string>{"b", "a"})), "{( a, b )}");
  EXPECT_EQ(lineOf(valueOf(std::unordered_set<int>{1})), "{( 1 )}");
  EXPECT_EQ(lineOf(valueOf(std::multiset<int>{1, 1})), "( 1, 1 )");
}

TEST(ConvertedLists, HoldNullWhereAnElementIsMissing) {
  const std::vector<std::optional<int>> numbers = {1, std::nullopt};
  EXPECT_EQ(lineOf(valueOf(numbers)), "( 1, <null> )");
  EXPECT_EQ(lineOf(valueOf(std::vector<Value>{1, Value()})), "( 1, <null> )");
}

// Rows of a host's that belong to somebody else, as nothing tells.
struct LentRows {
  std::vector<std::string>* rows;
  auto begin() { return rows->begin(); }
  auto end() { return rows->end(); }
  auto begin() const { return rows->cbegin(); }
  auto end() const { return rows->cend(); }
};

TEST(ValueConversion, TakesNothingOutOfRowsThatOthersOwn) {
  std::vector<std::string> rows = {std::string(100, 'a'), std::string(100, 'b')};
  for (int time = 0; time < 2; ++time) EXPECT_EQ(lineOf(valueOf(LentRows{&rows})), lineOf(valueOf(rows))) << time;
  EXPECT_EQ(rows.front().size(), 100U);
}

// Where the array that is made of a lazy list ends with the conversion.
TEST(ValueConversion, MakesNoViewsOfWhatIsGone) {
  const std::vector<std::string> texts = {std::string(100, 'a')};
  const Value list = lazyList([] { return 1; },
                              [&](std::size_t index) {
                                return lazyList(std::vector{texts[index], texts[index]});
                              });
  using Views = std::pair<std::string_view, std::string_view>;
  using ConstantViews = std::pair<const std::string_view, const std::string_view>;
  EXPECT_FALSE(objectIn<std::list<Views>>(list).has_value());
  EXPECT_FALSE(objectIn<std::list<ConstantViews>>(list).has_value());
}

// Tables that say how much room was made for them.
template <class Table>
struct RoomyTable : Table {
  void reserve(std::size_t count) {
    room = count;
    Table::reserve(count);
  }
  std::size_t room = 0;
};

// Where a table grows, it moves all that it holds at once.
TEST(ValueConversion, MakesTheRoomOfATableBeforeItFillsIt) {
  const Value list = NSArray::arrayWithObjects({"a", "b", "c"});
  EXPECT_EQ(objectOf<RoomyTable<std::unordered_set<std::string>>>(list).room, 3U);
  const Value dictionary = NSDictionary::dictionaryWithEntries({{"a", 1}, {"b", 2}});
  EXPECT_EQ((objectOf<RoomyTable<std::unordered_map<std::string, int>>>(dictionary).room), 2U);
}

TEST(ConvertedLists, AreReadFromArraysAndSets) {
  const Value array = NSArray::arrayWithObjects({3, 1.5, Value::null()});
  EXPECT_EQ(objectOf<std::vector<int>>(array), (std::vector<int>{3, 1, 0}));
  EXPECT_EQ(objectOf<std::list<double>>(array), (std::list<double>{3, 1.5, 0}));
  EXPECT_EQ(objectOf<std::deque<bool>>(array), (std::deque<bool>{true, true, false}));
  EXPECT_EQ(objectOf<std::vector<bool>>(array), (std::vector<bool>{true, true, false}));
  EXPECT_EQ((objectOf<std::array<int, 3>>(array)), (std::array<int, 3>{3, 1, 0}));
  EXPECT_EQ(objectOf<std::set<int>>(NSSet::setWithObjects({2, 1})), (std::set<int>{1, 2}));
  EXPECT_EQ(objectOf<std::vector<int>>(NSArray::array()), std::vector<int>());
}

TEST(ConvertedLists, RefuseWhatTheyCannotHold) {
  const Value mixed = NSArray::arrayWithObjects({1, "two"});
  EXPECT_FALSE(objectIn<std::vector<int>>(mixed).has_value());
  EXPECT_FALSE((objectIn<std::array<int, 3>>(NSArray::arrayWithObjects({1, 2})).has_value()));
  EXPECT_FALSE((objectIn<std::array<int, 1>>(NSArray::arrayWithObjects({1, 2})).has_value()));
  for (const Value& value : {Value(), Value::null(), Value(1), Value("text"), Value(NSDictionary::dictionary())}) {
    EXPECT_FALSE(objectIn<std::vector<int>>(value).has_value()) << value.description();
  }
}

TEST(ConvertedMaps, AreDictionariesInTheirOrder) {
  const std::map<std::string, int> map = {{"b", 2}, {"a", 1}};
  const Value value = valueOf(map);
  EXPECT_STREQ(value.className(), "NSDictionary");
  EXPECT_EQ(value.as<NSDictionary>()->entries()[0].key->view(), "a");
  EXPECT_EQ(lineOf(value), "{ a = 1; b = 2; }");
  EXPECT_EQ(lineOf(valueOf(std::unordered_map<std::string_view, double>{{"x", 0.5}})), "{ x = 0.5; }");
  EXPECT_EQ(lineOf(valueOf(std::map<std::string, std::optional<int>>{{"n", {}}})), "{ n = <null>; }");
  EXPECT_EQ((objectOf<std::map<std::string, int>>(value)), map);
  EXPECT_EQ((objectOf<std::unordered_map<std::string, int>>(value)),
            (std::unordered_map<std::string, int>{{"a", 1}, {"b", 2}}));
}

TEST(ConvertedMaps, RefuseWhatTheyCannotHold) {
  EXPECT_FALSE((objectIn<std::map<std::string, int>>(NSDictionary::dictionaryWithEntries({{"a", "one"}})).has_value()));
  EXPECT_FALSE((objectIn<std::map<std::string, int>>(NSArray::array()).has_value()));
  EXPECT_FALSE((objectIn<std::map<std::string, int>>(Value::null()).has_value()));
  EXPECT_FALSE((ConvertibleToValue<std::map<int, int>>));
  EXPECT_EQ(raisedName([] { (void)valueOf(std::map<std::string, int>{{"\xFF", 1}}); }), NSInvalidArgumentException);
}

TEST(ConvertedTuples, AreArraysOfAsManyElements) {
  EXPECT_EQ(lineOf(valueOf(std::pair(1, "one"))), "( 1, one )");
  EXPECT_EQ(lineOf(valueOf(std::tuple(1, std::string("one"), 0.5))), "( 1, one, 0.5 )");
  EXPECT_EQ(lineOf(valueOf(std::tuple())), "( )");
  const Value array = NSArray::arrayWithObjects({1, "one"});
  EXPECT_EQ((objectOf<std::pair<int, std::string>>(array)), (std::pair<int, std::string>(1, "one")));
  EXPECT_EQ((objectOf<std::tuple<double, std::string>>(array)), (std::tuple<double, std::string>(1, "one")));
  EXPECT_FALSE((objectIn<std::tuple<int>>(array).has_value()));
  EXPECT_FALSE((objectIn<std::pair<int, int>>(array).has_value()));
  EXPECT_EQ(raised([&] { (void)objectOf<std::pair<int, int>>(array); }),
            "NSInvalidArgumentException: Incorrect type for tuple: NSArray supplied, NSArray (NSNumber, NSNumber) "
            "expected.");
}

TEST(ConvertedOptionals, AreNullWhereTheyAreEmpty) {
  EXPECT_TRUE(valueOf(std::optional<int>()).isNull());
  EXPECT_TRUE(valueOf(std::optional<int>(5)).isEqual(5));
  EXPECT_EQ(objectOf<std::optional<int>>(Value::null()), std::nullopt);
  EXPECT_EQ(objectOf<std::optional<int>>(Value()), std::nullopt);
  EXPECT_EQ(objectOf<std::optional<int>>(0), 0);
  EXPECT_EQ(objectOf<std::optional<std::string>>("text"), "text");
  EXPECT_FALSE(objectIn<std::optional<int>>("5").has_value());
}

TEST(ConvertedVariants, AreTheAlternativeThatTheValueIs) {
  using Any =
      std::variant<std::monostate, bool, std::int8_t, double, unsigned long long, std::string, std::vector<int>>;
  struct Row {
    const char* what;
    Value value;
    std::size_t alternative;
  };
  const Row rows[] = {
      {"null", Value::null(), 0},
      {"absent", Value(), 0},
      {"a truth", false, 1},
      {"a small integer", -128, 2},
      {"a large integer", 128, 4},
      {"a fraction", 0.5, 3},
      {"a whole double", 1.0, 3},
      {"not-a-number", std::numeric_limits<double>::quiet_NaN(), 3},
      {"a large negative integer that only loses", -129, 1},
      {"a text", "true", 5},
      {"a list", NSArray::arrayWithObjects({1}), 6},
  };
  for (const Row& row : rows) {
    const std::optional<Any> variant = objectIn<Any>(row.value);
    ASSERT_TRUE(variant.has_value()) << row.what;
    EXPECT_EQ(variant->index(), row.alternative) << row.what;
  }
  EXPECT_FALSE(objectIn<Any>(NSDictionary::dictionary()).has_value());
  EXPECT_TRUE(valueOf(Any()).isNull());
  EXPECT_TRUE(valueOf(Any("text")).isEqual("text"));
  EXPECT_EQ((objectOf<std::variant<double, std::string>>(Value::null())), (std::variant<double, std::string>(0.0)));
}

TEST(ConvertedEnumerations, AreTheirNamesWhereTheyAreListed) {
  EXPECT_TRUE(valueOf(Status::Draft).isEqual("draft"));
  EXPECT_TRUE(valueOf(Status::Sent).isEqual("sent"));
  EXPECT_TRUE(valueOf(Status::Lost).isEqual(9));
  EXPECT_EQ(objectOf<Status>("sent"), Status::Sent);
  EXPECT_EQ(objectOf<Status>("mailed"), Status::Sent);
  for (const Value& value : {Value("lost"), Value("SENT"), Value(""), Value(1), Value::null()}) {
    EXPECT_FALSE(objectIn<Status>(value).has_value()) << value.description();
  }
  EXPECT_EQ(raised([] { (void)objectOf<Status>("lost"); }),
            "NSInvalidArgumentException: Incorrect type for enumeration: NSString supplied, NSString (draft, sent, "
            "mailed) expected.");
}

TEST(ConvertedEnumerations, AreTheirNumbersWhereTheyAreNot) {
  EXPECT_TRUE(valueOf(shop::kSecond).isEqual(1));
  EXPECT_TRUE(valueOf(shop::Wide::Largest).isEqual(std::numeric_limits<std::uint64_t>::max()));
  EXPECT_EQ(objectOf<shop::Plain>(1), shop::kSecond);
  EXPECT_EQ(objectOf<shop::Wide>(std::numeric_limits<std::uint64_t>::max()), shop::Wide::Largest);
  EXPECT_EQ(objectOf<shop::Plain>(Value::null()), shop::kFirst);
  EXPECT_FALSE(objectIn<shop::Plain>("1").has_value());
  EXPECT_TRUE(valueOf(shop::kOnly).isEqual(0));
}

TEST(ConvertedTimes, AreDatesAndSeconds) {
  using std::chrono::milliseconds;
  using std::chrono::sys_days;
  using std::chrono::sys_time;
  const sys_time<milliseconds> instant(milliseconds(1'700'000'000'123));
  EXPECT_EQ(valueOf(instant).description(), "2023-11-14 22:13:20 +0000");
  EXPECT_EQ(objectOf<sys_time<milliseconds>>(valueOf(instant)), instant);
  const sys_time<milliseconds> early(milliseconds(-1));
  EXPECT_EQ(objectOf<sys_time<milliseconds>>(valueOf(early)), early);
  EXPECT_EQ(valueOf(sys_days(std::chrono::days(1))).description(), "1970-01-02 00:00:00 +0000");
  EXPECT_TRUE(valueOf(milliseconds(1500)).isEqual(1.5));
  EXPECT_TRUE(valueOf(std::chrono::minutes(2)).isEqual(120));
  EXPECT_EQ(objectOf<milliseconds>(0.0015), milliseconds(2));
  EXPECT_EQ(objectOf<std::chrono::hours>(7200), std::chrono::hours(2));
  EXPECT_EQ(objectOf<std::chrono::duration<double>>(Value::null()).count(), 0);
  EXPECT_FALSE(objectIn<milliseconds>("1").has_value());
  EXPECT_FALSE(objectIn<sys_time<milliseconds>>(1).has_value());
  EXPECT_FALSE(objectIn<sys_time<milliseconds>>(Value::null()).has_value());
}

TEST(ConvertedTimes, EndAtTheirFarthest) {
  using Nanoseconds = std::chrono::nanoseconds;
  using Instant = std::chrono::sys_time<Nanoseconds>;
  const double infinity = std::numeric_limits<double>::infinity();
  const auto dateAt = [](double seconds) { return Value(NSDate::dateWithTimeIntervalSince1970(seconds)); };
  EXPECT_EQ(objectOf<Instant>(dateAt(1e300)), Instant::max());
  EXPECT_EQ(objectOf<Instant>(dateAt(-infinity)), Instant::min());
  EXPECT_EQ(objectOf<Instant>(dateAt(std::numeric_limits<double>::quiet_NaN())), Instant());
  EXPECT_EQ(objectOf<Nanoseconds>(infinity), Nanoseconds::max());
  EXPECT_EQ(objectOf<std::chrono::duration<float>>(1e300).count(), std::numeric_limits<float>::infinity());
  EXPECT_EQ(valueOf(Nanoseconds::max()).doubleValue(), 9223372036.854775807);
}

TEST(ConvertedObjectsOfAHost, AreCopiedByValueAndReferredToByReference) {
  Product product{"Chair"};
  const Value copied = valueOf(product);
  const Value referred = valueOf(std::ref(product));
  const Value pointed = valueOf(&product);
  product.title = "Table";
  const Ref<NSString> key = NSString::stringWithUTF8("title");
  Value title;
  EXPECT_TRUE(copied.object()->findValueForKey(*key, title));
  EXPECT_EQ(title.description(), "Chair");
  EXPECT_TRUE(referred.object()->findValueForKey(*key, title));
  EXPECT_EQ(title.description(), "Table");
  EXPECT_EQ(&objectIn<std::reference_wrapper<Product>>(pointed)->get(), &product);
  EXPECT_EQ(objectOf<Product*>(referred), &product);
  EXPECT_EQ(objectOf<Product>(copied).title, "Chair");
  EXPECT_TRUE(valueOf(static_cast<Product*>(nullptr)).isNull());
  EXPECT_EQ(objectOf<Product*>(Value::null()), nullptr);
}

TEST(ConvertedObjectsOfAHost, AreRefusedWhereTheyAreOfAnotherClass) {
  shop::Unique other(1);
  for (const Value& value : {valueOf(std::ref(other)), Value("text"), Value(1)}) {
    EXPECT_FALSE(objectIn<Product*>(value).has_value()) << value.description();
    EXPECT_FALSE(objectIn<Product>(value).has_value()) << value.description();
    EXPECT_FALSE(objectIn<std::shared_ptr<Product>>(value).has_value()) << value.description();
  }
  EXPECT_FALSE(objectIn<Product>(Value::null()).has_value());
  EXPECT_EQ(raised([] { (void)objectOf<Product>("text"); }),
            "NSInvalidArgumentException: Incorrect type for Product: NSString supplied, Product expected.");
}

TEST(ConvertedObjectsOfAHost, AreSharedWithTheirOwner) {
  auto product = std::make_shared<Product>(Product{"Chair"});
  Value value = valueOf(product);
  EXPECT_EQ(product.use_count(), 2);
  EXPECT_EQ(objectOf<std::shared_ptr<Product>>(value), product);
  value = Value();
  EXPECT_EQ(product.use_count(), 1);
  EXPECT_FALSE(objectIn<std::shared_ptr<Product>>(valueOf(std::ref(*product))).has_value());
  EXPECT_EQ(objectOf<std::shared_ptr<Product>>(Value::null()), nullptr);
  EXPECT_TRUE(valueOf(std::shared_ptr<Product>()).isNull());
}

TEST(ConvertedObjectsOfAHost, AreGivenAwayWhereTheyCanOnlyBeMoved) {
  const Value fromPointer = valueOf(std::make_unique<shop::Unique>(1));
  const Value fromObject = valueOf(shop::Unique(2));
  EXPECT_EQ(objectOf<shop::Unique*>(fromPointer)->number, 1);
  EXPECT_EQ(objectOf<shop::Unique*>(fromObject)->number, 2);
  std::vector<std::unique_ptr<shop::Unique>> several;
  several.push_back(std::make_unique<shop::Unique>(3));
  several.push_back(nullptr);
  const std::vector<shop::Unique*> read = objectOf<std::vector<shop::Unique*>>(valueOf(std::move(several)));
  ASSERT_EQ(read.size(), 2U);
  EXPECT_EQ(read[1], nullptr);
  EXPECT_FALSE((ConvertibleToValue<const shop::Unique&>));
  EXPECT_FALSE((ConvertibleToValue<const std::vector<std::unique_ptr<shop::Unique>>&>));
  EXPECT_TRUE(valueOf(std::unique_ptr<shop::Unique>()).isNull());
}

TEST(NestedConversions, GoAllTheWay) {
  using Inner = std::map<std::string, std::vector<std::optional<std::pair<Status, double>>>>;
  const std::vector<Inner> object = {{{"a", {std::pair(Status::Sent, 0.5), std::nullopt}}}, {}};
  const Value value = valueOf(object);
  EXPECT_EQ(lineOf(value), "( { a = ( ( sent, 0.5 ), <null> ); }, { } )");
  EXPECT_EQ(objectOf<std::vector<Inner>>(value), object);
  EXPECT_EQ(expectedClassName<std::vector<Inner>>(),
            "NSArray of NSDictionary of NSArray of NSArray (NSString (draft, sent, mailed), NSNumber) or null");
}

struct Unknown {};

TEST(Conversions, AreMissingForWhatIsNoValue) {
  EXPECT_FALSE(ConvertibleToValue<Unknown>);
  EXPECT_FALSE(ConvertibleToValue<std::vector<Unknown>>);
  EXPECT_FALSE(ConvertibleToValue<std::optional<Unknown>>);
  EXPECT_FALSE((ConvertibleToValue<std::pair<int, Unknown>>));
  EXPECT_FALSE((ConvertibleToValue<std::variant<int, Unknown>>));
  EXPECT_FALSE((ConvertibleToValue<std::map<std::string, Unknown>>));
  EXPECT_FALSE(ConvertibleToValue<void*>);
  EXPECT_FALSE(ConvertibleToValue<std::wstring>);
  EXPECT_FALSE(ConvertibleToValue<std::u32string>);
  EXPECT_FALSE(ConvertibleToValue<std::chrono::steady_clock::time_point>);
  EXPECT_FALSE(ConvertibleFromValue<std::vector<Unknown>>);
  EXPECT_FALSE(ConvertibleFromValue<std::optional<Unknown>>);
  EXPECT_FALSE(ConvertibleFromValue<std::span<int>>);
  EXPECT_FALSE(ConvertibleFromValue<std::vector<std::span<const int>>>);
  EXPECT_FALSE(ConvertibleFromValue<std::unique_ptr<Product>>);
}

// A lazy list with two numbers, whose host empties a collection when it is asked.
template <class Collection>
Value emptying(Collection* collection, void (Collection::*empty)()) {
  return lazyList(
      [collection, empty] {
        (collection->*empty)();
        return std::size_t{2};
      },
      [](std::size_t index) { return index; });
}

template <class T>
void readWhileItEmpties() {
  const Ref<NSMutableArray> list = NSMutableArray::array();
  const Ref<NSMutableDictionary> dictionary = NSMutableDictionary::dictionary();
  for (int count = 0; count < 2; ++count) {
    list->addObject(emptying(list.get(), &NSMutableArray::removeAllObjects));
    dictionary->setObjectForKey(emptying(dictionary.get(), &NSMutableDictionary::removeAllObjects),
                                "a key that is no short text " + std::to_string(count));
  }
  (void)objectIn<T>(list);
  (void)objectIn<T>(dictionary);
}

TEST(ContainersOfTheHost, AreReadWhileWhatIsReadEmptiesThem) {
  using Numbers = std::vector<int>;
  readWhileItEmpties<std::vector<Numbers>>();
  readWhileItEmpties<std::map<std::string, Numbers>>();
  readWhileItEmpties<std::array<Numbers, 2>>();
  readWhileItEmpties<std::pair<Numbers, Numbers>>();
  readWhileItEmpties<std::vector<std::optional<Numbers>>>();
  readWhileItEmpties<std::vector<std::variant<std::map<std::string, int>, Numbers>>>();
  const Ref<NSMutableArray> list = NSMutableArray::array();
  list->addObject(emptying(list.get(), &NSMutableArray::removeAllObjects));
  const std::optional<std::vector<Numbers>> read = objectIn<std::vector<Numbers>>(list);
  EXPECT_EQ(read, std::vector<Numbers>{(Numbers{0, 1})});
}

}  // namespace

}  // namespace tavlo::test
