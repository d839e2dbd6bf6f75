#include <gtest/gtest.h>

#include <array>
#include <deque>
#include <functional>
#include <iterator>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <sstream>
#include <string>
#include <unordered_map>
#include <vector>

#include "Foundation/LazyCollections.h"
#include "Foundation/NSArray.h"
#include "Foundation/NSDictionary.h"
#include "Foundation/NSKeyValueCoding.h"
#include "Foundation/NSSet.h"
#include "Tests/Foundation/HostShop.h"
#include "Tests/Foundation/Raised.h"
#include "Tests/Foundation/SmallStack.h"
#include "Tests/Memory/WorkBound.h"

namespace tavlo::test {

namespace {

// Everything that a walk over the value meets.
std::string walked(const Value& value) {
  const Ref<NSEnumerator> walk = value.object()->objectEnumerator();
  std::string texts;
  for (Value each = walk->nextObject(); !each.isAbsent(); each = walk->nextObject()) texts += each.description() + " ";
  return texts;
}

std::vector<Product> products() {
  return {Product{.name = "Lamp", .price = 9.5, .stock = 3, .tags = {"new"}},
          Product{.name = "Chair", .price = 20, .stock = 0, .tags = {}},
          Product{.name = "Desk", .price = 70.5, .stock = 1, .tags = {"new", "old"}}};
}

TEST(LazyList, ReadsEveryContainerThatHasAnIndex) {
  std::vector<int> numbers{1, 2, 3};
  const std::deque<double> doubles{1.5, 2};
  std::array<std::string, 2> texts{"a", "b"};
  std::span<int> span(numbers.data(), 2);
  std::vector<bool> truths{true, false};
  const std::vector<bool> constantTruths{true, false};
  std::vector<std::vector<int>> nested{{1}, {}, {2, 3}};
  std::vector<std::optional<int>> optional{1, {}};
  std::vector<Value> values{1, "a", NSNull::null(), Value()};
  struct Row {
    const char* what;
    Value list;
    const char* elements;
    Value equal;
  };
  const Row rows[] = {
      {"a vector", lazyList(numbers), "1 2 3 ", NSArray::arrayWithObjects({1, 2, 3})},
      {"std::ref", valueOf(std::ref(numbers)), "1 2 3 ", NSArray::arrayWithObjects({1, 2, 3})},
      {"a deque", lazyList(doubles), "1.5 2 ", NSArray::arrayWithObjects({1.5, 2})},
      {"an array", valueOf(std::cref(texts)), "a b ", NSArray::arrayWithObjects({"a", "b"})},
      {"a span", lazyList(span), "1 2 ", NSArray::arrayWithObjects({1, 2})},
      {"truths", lazyList(truths), "1 0 ", NSArray::arrayWithObjects({true, false})},
      {"constant truths", lazyList(constantTruths), "1 0 ", NSArray::arrayWithObjects({true, false})},
      {"optional numbers", lazyList(optional), "1 <null> ", NSArray::arrayWithObjects({1, NSNull::null()})},
      {"values", lazyList(values), "1 a <null> <null> ",
       NSArray::arrayWithObjects({1, "a", NSNull::null(), NSNull::null()})},
      {"a temporary", lazyList(std::vector<int>{4, 5}), "4 5 ", NSArray::arrayWithObjects({4, 5})},
      {"an owned one", lazyList(std::make_shared<std::vector<int>>(2, 6)), "6 6 ", NSArray::arrayWithObjects({6, 6})},
      {"functions", lazyList([] { return 3; }, [](std::size_t index) { return index * index; }), "0 1 4 ",
       NSArray::arrayWithObjects({0, 1, 4})},
      {"nothing", lazyList(std::vector<int>{}), "", NSArray::array()},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(walked(row.list), row.elements) << row.what;
    EXPECT_TRUE(row.list.isEqual(row.equal)) << row.what;
    EXPECT_TRUE(row.equal.isEqual(row.list)) << row.what;
    EXPECT_TRUE(row.list.isEqual(row.list)) << row.what;
    EXPECT_EQ(row.list.hash(), row.equal.hash()) << row.what;
    EXPECT_EQ(row.list.description(), row.equal.description()) << row.what;
    EXPECT_STREQ(row.list.className(), "NSArray") << row.what;
    EXPECT_EQ(read(row.list, "@count").isEqual(read(row.equal, "@count")), true) << row.what;
    EXPECT_EQ(NSSet::setWithObjects({row.list, row.equal})->count(), 1U) << row.what;
  }
  EXPECT_EQ(walked(read(lazyList(nested), "@unionOfArrays")), "1 2 3 ");
  const Value equal =
      NSArray::arrayWithObjects({NSArray::arrayWithObjects({1}), NSArray::array(), NSArray::arrayWithObjects({2, 3})});
  EXPECT_TRUE(lazyList(nested).isEqual(equal));
  EXPECT_EQ(lazyList(nested).hash(), equal.hash());
  EXPECT_EQ(Value(NSArray::arrayWithObjects({lazyList(nested)})).hash(),
            Value(NSArray::arrayWithObjects({equal})).hash());
  EXPECT_EQ(lazyList(nested).description(), equal.description());
}

TEST(LazyList, DiffersFromOtherLists) {
  std::vector<int> numbers{1, 2, 3};
  const Value list = lazyList(numbers);
  const Value others[] = {NSArray::arrayWithObjects({1, 2}),
                          NSArray::arrayWithObjects({1, 2, 3, 4}),
                          NSArray::arrayWithObjects({1, 2, 4}),
                          NSSet::setWithObjects({1, 2, 3}),
                          "(1, 2, 3)",
                          3};
  for (const Value& other : others) {
    EXPECT_FALSE(list.isEqual(other)) << other.description();
    EXPECT_FALSE(other.isEqual(list)) << other.description();
  }
}

TEST(LazyList, FollowsPathsLikeAnArray) {
  std::vector<Product> all = products();
  const Value list = lazyList(all);
  struct Row {
    const char* path;
    Value expected;
  };
  const Row rows[] = {
      {"@count", 3},
      {"@sum.price", 100},
      {"@avg.price", 100.0 / 3},
      {"@min.price", 9.5},
      {"@max.name", "Lamp"},
      {"@sum.stock", 4},
      {"name", NSArray::arrayWithObjects({"Lamp", "Chair", "Desk"})},
      {"name.length", NSArray::arrayWithObjects({4, 5, 4})},
      {"maker", NSArray::arrayWithObjects({NSNull::null(), NSNull::null(), NSNull::null()})},
      {"@unionOfArrays.tags", NSArray::arrayWithObjects({"new", "new", "old"})},
      {"@distinctUnionOfArrays.tags", NSArray::arrayWithObjects({"new", "old"})},
      {"@unionOfObjects.isCheap", NSArray::arrayWithObjects({true, false, false})},
      {"tags.@count", 3},
      {"@sum.tags.@count", 3},
      {"@count.anything", 3},
  };
  for (const Row& row : rows) EXPECT_TRUE(read(list, row.path).isEqual(row.expected)) << row.path;
  for (const char* path : {"color", "@sum.name.color", "@median.price", "@unionOfArrays.name"}) {
    Value result;
    EXPECT_FALSE(NSKeyPath(path).find(list, result)) << path;
  }
}

TEST(LazyList, HandsOutAnElementAgainThatNobodyKept) {
  std::vector<Product> all = products();
  const Value list = lazyList(all);
  const Ref<NSEnumerator> walk = list.object()->objectEnumerator();
  const NSObject* first = walk->nextObject().object();
  (void)walk->nextObject();
  const Value kept = walk->nextObject();
  EXPECT_EQ(kept.object(), first);
  EXPECT_EQ(read(kept, "name").description(), "Desk");
  std::vector<Value> allKept;
  const Ref<NSEnumerator> again = list.object()->objectEnumerator();
  for (Value each = again->nextObject(); !each.isAbsent(); each = again->nextObject()) allKept.push_back(each);
  ASSERT_EQ(allKept.size(), 3U);
  EXPECT_EQ(read(allKept[0], "name").description() + read(allKept[2], "name").description(), "LampDesk");
}

TEST(LazyList, OfPointersHandsOutWhatTheyLeadTo) {
  Maker acme("Acme");
  YoungMaker nova("Nova");
  std::vector<Maker*> makers{&acme, nullptr, &nova};
  std::vector<std::shared_ptr<Maker>> shared{std::make_shared<Maker>("A"), nullptr, std::make_shared<YoungMaker>("B")};
  std::vector<std::unique_ptr<Maker>> unique;
  unique.push_back(std::make_unique<Maker>("U"));
  unique.push_back(nullptr);
  EXPECT_EQ(read(lazyList(makers), "@unionOfObjects.name").description(), "(\n    Acme,\n    Nova\n)");
  EXPECT_EQ(read(lazyList(shared), "name").description(), "(\n    A,\n    <null>,\n    B\n)");
  EXPECT_EQ(read(lazyList(unique), "name").description(), "(\n    U,\n    <null>\n)");
  const Value first = lazyList(shared).object()->objectEnumerator()->nextObject();
  shared.clear();
  EXPECT_EQ(read(first, "name").description(), "A");
}

TEST(LazyList, IsReadAsItIsAtEachStep) {
  std::vector<int> numbers{1, 2, 3};
  const Value list = lazyList(numbers);
  const Ref<NSEnumerator> walk = list.object()->objectEnumerator();
  EXPECT_EQ(walk->nextObject().intValue(), 1);
  numbers.assign(100, 5);
  EXPECT_EQ(walk->nextObject().intValue(), 5);
  numbers.clear();
  EXPECT_TRUE(walk->nextObject().isAbsent());
  EXPECT_TRUE(walk->nextObject().isAbsent());
  EXPECT_EQ(read(list, "@count").intValue(), 0);
}

TEST(LazyList, MayBeSharedWhereItsElementsMay) {
  std::vector<Product> all = products();
  std::vector<Maker> makers{Maker("Acme")};
  std::vector<int> numbers{1};
  std::vector<Value> values{1};
  const auto refused = [](const Value& value) { return raised([&] { value.share(); }); };
  EXPECT_EQ(refused(lazyList(all)), "");
  EXPECT_EQ(refused(lazyList(numbers)), "");
  EXPECT_EQ(refused(lazyList(std::vector<std::string>{"a"})), "");
  EXPECT_EQ(refused(lazyList(makers)),
            "NSInvalidArgumentException: NSArray cannot be shared between threads: it, or what it holds, is of a class "
            "that does not answer canBeShared() with true");
  EXPECT_NE(refused(lazyList(values)), "");
  EXPECT_NE(refused(lazyList([] { return 0; }, [](std::size_t index) { return index; })), "");
}

// One that answers copies of its own, and views of them.
struct Branch {
  explicit Branch(std::shared_ptr<int> alive) : count(std::move(alive)) { ++*count; }
  Branch(const Branch& other) : count(other.count) { ++*count; }
  Branch& operator=(const Branch&) = delete;
  ~Branch() { --*count; }

  std::shared_ptr<int> count;
};

void describeHostClass(HostClass<Branch>& branch) {
  branch.name("Branch")
      .property("copies", [](const Branch& it) { return std::vector<Branch>(1, it); })
      .property("view", [](const Branch& it) { return std::span<const Branch>(&it, 1); });
}

TEST(LazyList, KeepsNothingElseWhereItIsACopy) {
  const auto alive = std::make_shared<int>();
  Value value = hostCopy(Branch(alive));
  for (int level = 0; level < 100; ++level) {
    const Value list = read(value, "copies");
    value = list.object()->objectEnumerator()->nextObject();
  }
  EXPECT_EQ(*alive, 1);
}

TEST(LazyList, KeepsAsManyOthersAsItReadsWithoutALongEnd) {
  const auto alive = std::make_shared<int>();
  Value value = hostCopy(Branch(alive));
  for (int level = 0; level < 200'000; ++level) {
    const Value list = read(value, "view");
    value = list.object()->objectEnumerator()->nextObject();
  }
  EXPECT_EQ(*alive, 1);
  runOnStackOf(kSmallStack, [&value] { value.clear(); });
  EXPECT_EQ(*alive, 0);
}

// Containers inside an object that changes them as it likes.
struct Rows {
  std::vector<double> numbers = {1, 2};
  std::vector<std::vector<int>> lists = {{1}};
  std::map<std::string, std::vector<int>> named = {{"key", {1}}};
  std::list<std::vector<int>> sequence = {{1}};
  std::shared_ptr<std::vector<int>> owned = std::make_shared<std::vector<int>>(3, 1);
};

// A range of the host's own that reads them.
class RowsColumn {
 public:
  explicit RowsColumn(const Rows& rows) : rows_(&rows) {}
  std::size_t size() const { return rows_->numbers.size(); }
  double operator[](std::size_t index) const { return rows_->numbers[index]; }
  auto begin() const { return rows_->numbers.begin(); }
  auto end() const { return rows_->numbers.end(); }

 private:
  const Rows* rows_;
};

template <bool CanBeShared>
struct DescribedRows : Rows {};

template <bool CanBeShared>
void describeHostClass(HostClass<DescribedRows<CanBeShared>>& rows) {
  rows.name("Rows")
      .property("numbers", &Rows::numbers)
      .property("lists", &Rows::lists)
      .property("named", &Rows::named)
      .property("sequence", [](const Rows& it) { return std::pair(std::cref(it.sequence), 1); })
      .property("owned", &Rows::owned)
      .property("column", [](const Rows& it) { return RowsColumn(it); })
      .property("copied", [](const Rows& it) { return it.numbers; })
      .property("view", [](const Rows& it) { return std::span<const double>(it.numbers); })
      .canBeShared(CanBeShared);
}

TEST(LazyList, MayNotBeSharedWhereItIsAPartOfAnObjectThatMayNot) {
  const auto refused = [](const Value& value) { return !raised([&] { value.share(); }).empty(); };
  const auto first = [](const Value& list) { return list.object()->objectEnumerator()->nextObject(); };
  const auto parts = [&](const Value& rows) {
    return std::vector<Value>{read(rows, "numbers"),
                              first(read(rows, "lists")),
                              read(rows, "named.key"),
                              first(read(rows, "named")),
                              read(rows, "view"),
                              read(rows, "column"),
                              first(first(read(rows, "sequence")))};
  };
  DescribedRows<true> shared;
  DescribedRows<false> own;
  for (const Value& part : parts(hostReference(shared))) EXPECT_FALSE(refused(part));
  for (const Value& part : parts(hostReference(own))) EXPECT_TRUE(refused(part));
  for (const Value& part : parts(hostCopy(own))) EXPECT_TRUE(refused(part));
  for (const char* key : {"owned", "copied"}) EXPECT_FALSE(refused(read(hostReference(own), key))) << key;  // no parts
}

TEST(LazyDictionary, ReadsEveryContainerThatHasTexts) {
  std::map<std::string, int> sorted{{"b", 2}, {"a", 1}};
  const std::map<std::string, int, std::less<>> transparent{{"b", 2}, {"a", 1}};
  std::map<std::string_view, int> views{{"b", 2}, {"a", 1}};
  std::unordered_map<std::string, int> hashed{{"b", 2}, {"a", 1}};
  const auto numberOf = [](std::string_view key) {
    return key == "a" ? std::optional<int>(1) : key == "b" ? std::optional<int>(2) : std::nullopt;
  };
  const auto valueFor = [](std::string_view key) { return key == "a" ? Value(1) : key == "b" ? Value(2) : Value(); };
  const auto keys = [] { return std::vector<std::string>{"a", "b", "gone"}; };
  const Value equal = NSDictionary::dictionaryWithEntries({{"a", 1}, {"b", 2}});
  struct Row {
    const char* what;
    Value dictionary;
  };
  const Row rows[] = {
      {"a map", lazyDictionary(sorted)},
      {"std::ref", valueOf(std::ref(sorted))},
      {"a constant one", lazyDictionary(transparent)},
      {"keys that are views", lazyDictionary(views)},
      {"a hashed one", valueOf(std::cref(hashed))},
      {"a temporary", lazyDictionary(std::map<std::string, int>{{"b", 2}, {"a", 1}})},
      {"an owned one", lazyDictionary(std::make_shared<std::map<std::string, int>>(sorted))},
      {"functions", lazyDictionary(numberOf, keys)},
      {"functions of values", lazyDictionary(valueFor, keys)},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(read(row.dictionary, "a").intValue(), 1) << row.what;
    EXPECT_TRUE(read(row.dictionary, "c").isAbsent()) << row.what;
    EXPECT_TRUE(row.dictionary.isEqual(equal)) << row.what;
    EXPECT_TRUE(equal.isEqual(row.dictionary)) << row.what;
    EXPECT_TRUE(rows[0].dictionary.isEqual(row.dictionary)) << row.what;
    EXPECT_EQ(row.dictionary.hash(), equal.hash()) << row.what;
    EXPECT_EQ(row.dictionary.description(), equal.description()) << row.what;
    EXPECT_STREQ(row.dictionary.className(), "NSDictionary") << row.what;
    EXPECT_EQ(walked(row.dictionary).size(), 4U) << row.what;
  }
  EXPECT_EQ(read(rows[0].dictionary, "@count").intValue(), 2);
  EXPECT_FALSE(rows[0].dictionary.isEqual(NSDictionary::dictionaryWithEntries({{"a", 1}})));
  EXPECT_EQ(static_cast<const LazyDictionary*>(rows[0].dictionary.object())->keys().size(), 2U);
}

// A table of a host's own whose iterator holds the entry, which is made when it is looked for.
struct MadeRows {
  // NOLINTBEGIN(readability-identifier-naming): what containers have
  using key_type = std::string;
  using mapped_type = Product;
  struct Iterator {
    using value_type = std::pair<std::string, Product>;
    using difference_type = std::ptrdiff_t;
    // NOLINTEND(readability-identifier-naming)
    const value_type& operator*() const { return entry; }
    const value_type* operator->() const { return &entry; }
    Iterator& operator++() {
      *this = Iterator(number + 1);
      return *this;
    }
    bool operator==(const Iterator& other) const { return number == other.number; }

    explicit Iterator(int at) : number(at), entry(std::to_string(at), Product{.name = "row " + std::to_string(at)}) {}
    int number;
    value_type entry;
  };
  static Iterator begin() { return Iterator(0); }
  static Iterator end() { return Iterator(3); }
  static Iterator find(const std::string& key) { return key < "3" ? Iterator(std::stoi(key)) : end(); }
  static Product at(const std::string& key) { return find(key)->second; }
  static std::size_t size() { return 3; }
};

// Whether values stay that a look-up or a walk has answered, whatever it answers next.
void expectKeptRows(const Value& dictionary) {
  const Value one = read(dictionary, "1");
  const Value two = read(dictionary, "2");
  EXPECT_EQ(read(one, "name").description(), "row 1");
  EXPECT_EQ(read(two, "name").description(), "row 2");
  const Ref<NSEnumerator> walk = dictionary.object()->objectEnumerator();
  const Value first = walk->nextObject();
  const Value second = walk->nextObject();
  EXPECT_EQ(read(first, "name").description(), "row 0");
  EXPECT_EQ(read(second, "name").description(), "row 1");
}

TEST(LazyDictionary, KeepsTheEntriesThatAContainerMakes) {
  MadeRows rows;
  expectKeptRows(valueOf(std::ref(rows)));
}

// The same where only the iterator's arrow leads to the entry, and at() answers a reference.
struct ArrowRows {
  // NOLINTBEGIN(readability-identifier-naming): what containers have
  using key_type = std::string;
  using mapped_type = Product;
  struct Iterator {
    using value_type = std::pair<std::string, Product>;
    using difference_type = std::ptrdiff_t;
    // NOLINTEND(readability-identifier-naming)
    value_type operator*() const { return {std::to_string(number), Product{.name = "row " + std::to_string(number)}}; }
    std::unique_ptr<value_type> operator->() const { return std::make_unique<value_type>(**this); }
    Iterator& operator++() {
      ++number;
      return *this;
    }
    bool operator==(const Iterator& other) const { return number == other.number; }
    int number = 0;
  };
  static Iterator begin() { return {0}; }
  static Iterator end() { return {3}; }
  static Iterator find(const std::string& key) { return {key < "3" ? std::stoi(key) : 3}; }
  const Product& at(const std::string& /*key*/) const { return latest; }
  static std::size_t size() { return 3; }

  Product latest;
};

TEST(LazyDictionary, KeepsTheEntriesThatAnIteratorMakes) {
  ArrowRows rows;
  const Value dictionary = valueOf(std::ref(rows));
  EXPECT_EQ(read(read(dictionary, "1"), "name").description(), "row 1");
  EXPECT_EQ(read(dictionary.object()->objectEnumerator()->nextObject(), "name").description(), "row 0");
}

// The same where only going on makes the entry, as that of an iterator that can be read only once.
struct ReadOnceRows : MadeRows {
  // NOLINTBEGIN(readability-identifier-naming): what containers have
  struct Iterator : MadeRows::Iterator {
    using iterator_concept = std::input_iterator_tag;
    // NOLINTEND(readability-identifier-naming)
    using MadeRows::Iterator::Iterator;
    Iterator& operator++() {
      MadeRows::Iterator::operator++();
      return *this;
    }
  };
  static Iterator begin() { return Iterator(0); }
  static Iterator end() { return Iterator(3); }
  static Iterator find(const std::string& key) { return key < "3" ? Iterator(std::stoi(key)) : end(); }
  const Product& at(const std::string& /*key*/) const { return latest; }

  Product latest;
};

TEST(LazyDictionary, KeepsTheEntriesThatAnIteratorHolds) {
  ReadOnceRows rows;
  expectKeptRows(valueOf(std::ref(rows)));
}

TEST(LazyDictionary, RefusesKeysThatAreNullPointers) {
  const std::string fault = "NSInvalidArgumentException: A dictionary's key cannot be absent";
  const std::map<const char*, int> map{{nullptr, 1}};
  EXPECT_EQ(raised([&] { (void)valueOf(map); }), fault);
  constexpr auto kValue = [](std::string_view /*key*/) { return 1; };
  constexpr auto kKeys = [] { return std::vector<const char*>{nullptr}; };
  EXPECT_EQ(raised([&] { (void)lazyDictionary(kValue, kKeys).description(); }), fault);
}

TEST(LazyDictionary, MayChangeWhileItIsWalked) {
  std::map<std::string, int> sorted{{"a", 1}, {"b", 2}, {"c", 3}};
  std::unordered_map<std::string, int> hashed{{"a", 1}, {"b", 2}, {"c", 3}};
  const Value sortedValue = lazyDictionary(sorted);
  const Value hashedValue = lazyDictionary(hashed);
  const Ref<NSEnumerator> sortedWalk = sortedValue.object()->objectEnumerator();
  const Ref<NSEnumerator> hashedWalk = hashedValue.object()->objectEnumerator();
  EXPECT_EQ(sortedWalk->nextObject().intValue(), 1);
  EXPECT_FALSE(hashedWalk->nextObject().isAbsent());
  sorted.erase("a");
  sorted.erase("b");
  sorted["bb"] = 4;
  hashed.clear();
  EXPECT_EQ(sortedWalk->nextObject().intValue(), 4);
  EXPECT_EQ(sortedWalk->nextObject().intValue(), 3);
  sorted.clear();
  EXPECT_TRUE(sortedWalk->nextObject().isAbsent());
  EXPECT_TRUE(hashedWalk->nextObject().isAbsent());
}

TEST(LazyDictionary, RefersToItsObjects) {
  std::map<std::string, Product> all{{"lamp", Product{.name = "Lamp", .stock = 3}}};
  std::map<std::string, int> invalid{{"a\xff", 1}};
  const Value value = lazyDictionary(all);
  all["lamp"].stock = 4;
  EXPECT_EQ(read(value, "lamp.stock").intValue(), 4);
  EXPECT_EQ(hostObject<Product>(read(value, "lamp")), &all["lamp"]);
  EXPECT_TRUE(raised([&] { (void)walked(lazyDictionary(invalid)); }).starts_with("NSInvalidArgumentException"));
}

// What can be read once.
struct Readings {
  std::istream_iterator<int> begin() const { return first; }
  std::istream_iterator<int> end() const { return last; }

  std::istream_iterator<int> first;
  std::istream_iterator<int> last;
};

std::function<std::optional<int>()> countingTo(int last) {
  return [last, next = 1]() mutable { return next <= last ? std::optional<int>(next++) : std::nullopt; };
}

TEST(LazySequence, IsReadOnceOrAgain) {
  std::istringstream text("1 2 3");
  Readings readings{{text}, {}};
  std::list<int> listed{1, 2, 3};
  const std::set<int> ordered{1, 2, 3};
  struct Row {
    const char* what;
    Value sequence;
    bool isRestartable;
  };
  const Row rows[] = {
      {"a generator", lazySequence(countingTo(3)), false},
      {"a maker of generators", lazySequence([] { return countingTo(3); }), true},
      {"a stream", lazySequence(readings), false},
      {"a list", lazySequence(listed), true},
      {"std::cref of a set", valueOf(std::cref(ordered)), true},
      {"a list that is moved in", lazySequence(std::list<int>{1, 2, 3}), true},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(walked(row.sequence), "1 2 3 ") << row.what;
    EXPECT_EQ(walked(row.sequence), row.isRestartable ? "1 2 3 " : "") << row.what;
    EXPECT_EQ(read(row.sequence, "@count").intValue(), row.isRestartable ? 3 : 0) << row.what;
    EXPECT_EQ(read(row.sequence, "@sum").intValue(), row.isRestartable ? 6 : 0) << row.what;
    EXPECT_EQ(walked(read(row.sequence, "stringValue")), row.isRestartable ? "1 2 3 " : "") << row.what;
    EXPECT_TRUE(row.sequence.isEqual(row.sequence)) << row.what;
    EXPECT_FALSE(row.sequence.isEqual(NSArray::arrayWithObjects({1, 2, 3}))) << row.what;
    EXPECT_TRUE(row.sequence.description().starts_with("<LazySequence: 0x")) << row.what;
    EXPECT_NE(raised([&] { row.sequence.share(); }), "") << row.what;
  }
}

TEST(LazyCollections, RefuseFunctionsThatAreNullPointers) {
  using Next = std::optional<int> (*)();
  constexpr auto kCount = [] { return std::size_t{0}; };
  constexpr auto kElement = [](std::size_t index) { return index; };
  constexpr auto kValue = [](std::string_view /*key*/) { return 1; };
  constexpr auto kKeys = [] { return std::vector<std::string>(); };
  const auto fault = [](const char* name) {
    return std::string("NSInternalInconsistencyException: Invalid parameter not satisfying: ") + name + " != nil";
  };
  EXPECT_EQ(raised([&] { (void)lazyList(static_cast<std::size_t (*)()>(nullptr), kElement); }), fault("count"));
  EXPECT_EQ(raised([&] { (void)lazyList(kCount, static_cast<int (*)(std::size_t)>(nullptr)); }), fault("elementAt"));
  EXPECT_EQ(raised([&] { (void)lazyDictionary(static_cast<int (*)(std::string_view)>(nullptr), kKeys); }),
            fault("valueForKey"));
  EXPECT_EQ(raised([&] { (void)lazyDictionary(kValue, static_cast<std::vector<std::string> (*)()>(nullptr)); }),
            fault("keys"));
  EXPECT_EQ(raised([] { (void)lazySequence(static_cast<Next>(nullptr)); }), fault("next"));
  EXPECT_EQ(raised([] { (void)lazySequence(static_cast<Next (*)()>(nullptr)); }), fault("make"));
  EXPECT_EQ(raised([] { (void)NSKeyPath(Ref<NSString>()); }), fault("path"));
}

// Collections of a host's own that cannot be walked over.
class UnwalkedList final : public LazyList {
 public:
  std::size_t count() const override { return 1; }
  Value elementAt(std::size_t /*index*/, ReusableInstances& /*reused*/) const override { return 1; }
  Ref<NSEnumerator> objectEnumerator() const override { return nullptr; }
};
class UnwalkedDictionary final : public LazyDictionary {
 public:
  std::size_t count() const override { return 1; }
  Value objectForKey(std::string_view /*key*/) const override { return {}; }
  std::unique_ptr<Walk> walk() const override { return nullptr; }
};

TEST(LazyCollections, MustHaveAWalk) {
  const Value list = makeRef<UnwalkedList>();
  EXPECT_EQ(raised([&] { (void)read(list, "key"); }),
            "NSGenericException: NSArray cannot be enumerated because it does not respond to objectEnumerator");
  const Value dictionary = makeRef<UnwalkedDictionary>();
  const std::string fault = "NSInternalInconsistencyException: Invalid parameter not satisfying: walk != nil";
  EXPECT_EQ(raised([&] { (void)dictionary.description(); }), fault);
  EXPECT_EQ(raised([&] { (void)dictionary.object()->objectEnumerator(); }), fault);
}

TEST(LazySequence, IsNotAskedAgainAfterItsEnd) {
  int asked = 0;
  const Value sequence = lazySequence([&asked] { return ++asked == 1 ? std::optional<int>(1) : std::nullopt; });
  EXPECT_EQ(walked(sequence), "1 ");
  EXPECT_EQ(walked(sequence), "");
  EXPECT_EQ(asked, 2);
}

TEST(LazySequence, IsMadeWhileItIsRead) {
  int made = 0;
  const Value endless = lazySequence([&made] { return std::optional<int>(++made); });
  const Ref<NSEnumerator> walk = endless.object()->objectEnumerator();
  EXPECT_EQ(walk->nextObject().intValue(), 1);
  EXPECT_EQ(walk->nextObject().intValue(), 2);
  EXPECT_EQ(made, 2);
}

TEST(LazySequence, OwnsTheObjectsThatAreMadeForIt) {
  int left = 2;
  const Value made = lazySequence([&left]() -> std::optional<Product> {
    if (left-- == 0) return {};
    return Product{.name = "Lamp " + std::to_string(left)};
  });
  EXPECT_EQ(read(made, "name").description(), "(\n    \"Lamp 1\",\n    \"Lamp 0\"\n)");
}

// A word of a stream.
struct ReadWord {
  std::string text;
  friend std::istream& operator>>(std::istream& in, ReadWord& word) { return in >> word.text; }
};

void describeHostClass(HostClass<ReadWord>& word) {
  word.name("ReadWord").property("text", &ReadWord::text);
}

// What can be read once, by an iterator that holds its element.
struct WordsIn {
  std::istream_iterator<ReadWord> begin() const { return std::istream_iterator<ReadWord>(*stream); }
  static std::istream_iterator<ReadWord> end() { return {}; }

  std::istream* stream;
};

TEST(LazySequence, KeepsTheElementsOfAnIteratorThatHoldsThem) {
  std::istringstream words("one two");
  Ref<NSEnumerator> walk = lazySequence(WordsIn{&words}).object()->objectEnumerator();
  const Value one = walk->nextObject();
  const Value two = walk->nextObject();
  walk = nullptr;
  EXPECT_EQ(read(one, "text").description(), "one");
  EXPECT_EQ(read(two, "text").description(), "two");
}

// An element whose end reads two more, once.
struct LastReader {
  explicit LastReader(int value, std::function<void()>& atEnd) : number(value), end(&atEnd) {}
  LastReader(LastReader&& other) noexcept : number(other.number), end(std::exchange(other.end, nullptr)) {}
  LastReader& operator=(LastReader&&) = delete;
  ~LastReader() {
    if (end == nullptr || *end == nullptr) return;
    const std::function<void()> read = std::exchange(*end, nullptr);
    read();
  }
  int number;
  std::function<void()>* end;
};

void describeHostClass(HostClass<LastReader>& reader) {
  reader.name("LastReader").property("number", &LastReader::number);
}

// What can be read once, and makes each element anew.
struct LastReaders {
  struct Iterator {
    using value_type = LastReader;           // NOLINT(readability-identifier-naming): what ranges ask for, as the next
    using difference_type = std::ptrdiff_t;  // NOLINT(readability-identifier-naming)
    LastReader operator*() const { return LastReader(*numbers, *end); }
    Iterator& operator++() {
      ++numbers;
      return *this;
    }
    void operator++(int) { ++numbers; }
    bool operator==(const Iterator& other) const { return numbers == other.numbers; }

    std::istream_iterator<int> numbers;
    std::function<void()>* end = nullptr;
  };
  Iterator begin() const { return first; }
  Iterator end() const { return {}; }

  Iterator first;
};

TEST(LazySequence, MayBeReadWhereAnElementEnds) {
  std::function<void()> atEnd;
  std::istringstream numbers("1 2 3 4 5 6 7");
  LastReaders readers{{std::istream_iterator<int>(numbers), &atEnd}};
  const Value sequence = lazySequence(readers);
  std::string inside;
  const Ref<NSEnumerator> walk = sequence.object()->objectEnumerator();
  const auto next = [](NSEnumerator& from) {
    const Value element = from.nextObject();
    return element.isAbsent() ? std::string() : read(element, "number").description() + " ";
  };
  atEnd = [&] {
    const Ref<NSEnumerator> other = sequence.object()->objectEnumerator();
    inside = next(*other);
    inside += next(*other);
  };
  std::string outside;
  for (std::string one = next(*walk); !one.empty(); one = next(*walk)) outside += one;
  EXPECT_EQ(inside, "4 5 ");
  EXPECT_EQ(outside, "1 2 3 6 7 ");
}

Value endlessList() {
  return lazyList([] { return std::size_t{1}; }, [](std::size_t) { return endlessList(); });
}
// A list around lists of which every second one is plain.
Value endlessPlainList() {
  return lazyList([] { return std::size_t{1}; },
                  [](std::size_t) { return NSArray::arrayWithObjects({endlessPlainList()}); });
}
// Lists inside one another, so many, and a number.
Value lazyNested(int depth) {
  if (depth == 0) return 1;
  return lazyList([] { return std::size_t{1}; }, [depth](std::size_t) { return lazyNested(depth - 1); });
}

TEST(LazyList, IsHashedDownToTheBound) {
  EXPECT_EQ(lazyNested(1000).hash(), lazyNested(1000).hash());
  const Value deeper = lazyNested(1001);
  EXPECT_EQ(limitReached([&] { (void)deeper.hash(); }), KorTemplateLimit::ValueDepth);
  for (const Value& endless : {endlessList(), endlessPlainList()}) {
    const WorkBound bound("an endless list");
    EXPECT_EQ(limitReached([&] { (void)endless.hash(); }), KorTemplateLimit::ValueDepth);
    const Value list = NSArray::arrayWithObjects({endless});
    EXPECT_EQ(limitReached([&] { (void)valueForKeyPath(list, "@distinctUnionOfObjects"); }),
              KorTemplateLimit::ValueDepth);
  }
}

}  // namespace

}  // namespace tavlo::test
