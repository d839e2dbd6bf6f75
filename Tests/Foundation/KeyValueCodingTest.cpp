#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <iterator>
#include <random>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "Foundation/NSArray.h"
#include "Foundation/NSDate.h"
#include "Foundation/NSDictionary.h"
#include "Foundation/NSException.h"
#include "Foundation/NSKeyValueCoding.h"
#include "Foundation/NSSet.h"
#include "Matchery/KorRegex.h"
#include "Tests/Foundation/HostObjects.h"
#include "Tests/Foundation/Raised.h"

namespace tavlo::test {

namespace {

using Entries = std::initializer_list<std::pair<std::string_view, Value>>;

Value list(std::initializer_list<Value> elements) {
  return NSArray::arrayWithObjects(elements);
}
Value set(std::initializer_list<Value> members) {
  return NSSet::setWithObjects(members);
}
Value dictionary(Entries entries) {
  return NSDictionary::dictionaryWithEntries(entries);
}
Value named(const char* name) {
  return makeRef<Named>(name);
}

const char* const kUndefinedKey = "NSUndefinedKeyException";

struct PathRow {
  const char* what;
  Value root;
  const char* path;
  Value value;
};

void expectValues(std::span<const PathRow> rows) {
  for (const PathRow& row : rows) {
    const Value found = valueForKeyPath(row.root, row.path);
    EXPECT_TRUE(found.isEqual(row.value)) << row.what << ": " << found.description();
    EXPECT_EQ(found.description(), row.value.description()) << row.what;
  }
}

TEST(KeyPath, LeadsToAValue) {
  const Value user = dictionary({{"name", "Ada"}, {"tags", list({"a", "bc"})}, {"none", Value::null()}, {"", 5}});
  const PathRow rows[] = {
      {"an entry", user, "name", "Ada"},
      {"a key of an entry", user, "name.length", 3},
      {"a path through dictionaries", dictionary({{"user", user}}), "user.name", "Ada"},
      {"no such entry", user, "age", {}},
      {"what follows an absent value", user, "age.anything.at.all", {}},
      {"the empty key", user, "", 5},
      {"the empty key of one that has none", dictionary({}), "", {}},
      {"the empty key at the end", dictionary({{"user", user}}), "user.", 5},
      {"the empty key at the front", dictionary({{"", user}}), ".name", "Ada"},
      {"two empty keys", dictionary({{"", user}}), ".", 5},
      {"the null object as an entry", user, "none", Value::null()},
      {"the number of entries", user, "@count", 4},
      {"the number of no entries", dictionary({}), "@count", 0},
      {"an entry that is called @count", dictionary({{"@count", "mine"}}), "@count", "mine"},
      {"an operator is a key to a dictionary", user, "@sum", {}},
      {"an entry that is called like an operator", dictionary({{"@sum", 7}}), "@sum", 7},
      {"nothing", {}, "name", {}},
      {"a list's elements", user, "tags.length", list({1, 2})},
      {"the empty list", list({}), "length", list({})},
      {"null among the elements", list({"a", Value::null()}), "length", list({1, Value::null()})},
      {"an element without a value", list({user, dictionary({})}), "name", list({"Ada", Value::null()})},
      {"an element whose value is null", list({user}), "none", list({Value::null()})},
      {"a path from each element", list({user}), "name.length", list({3})},
      {"lists inside a list", list({list({"a"}), list({"bc", "d"})}), "length", list({list({1}), list({2, 1})})},
      {"a set's members, in order and with equals", set({"a", "b", "cd"}), "length", list({1, 1, 2})},
      {"the keys of a host's object", named("x"), "name", "x"},
      {"a property without a value", named("x"), "nothing", {}},
      {"what follows a property without a value", named("x"), "nothing.more", {}},
      {"a property of elements without a value", list({named("x")}), "nothing", list({Value::null()})},
      {"a path through a date", NSDate::dateWithTimeIntervalSince1970(2), "timeIntervalSince1970.intValue", 2},
  };
  expectValues(rows);
}

struct UnknownRow {
  const char* what;
  Value root;
  const char* path;
};

void expectUndefinedKeys(std::span<const UnknownRow> rows) {
  for (const UnknownRow& row : rows) {
    EXPECT_EQ(raisedName([&] { (void)valueForKeyPath(row.root, row.path); }), kUndefinedKey) << row.what;
    Value value;
    EXPECT_FALSE(NSKeyPath(row.path).find(row.root, value)) << row.what;
  }
}

class WithoutKeys final : public NSObject {
 public:
  bool findValueForKey(const NSString& /*key*/, Value& /*value*/) const override { return false; }
};

TEST(KeyPath, RaisesWhereAKeyIsUnknown) {
  const UnknownRow rows[] = {
      {"null", Value::null(), "name"},
      {"null's count", Value::null(), "@count"},
      {"null's empty key", Value::null(), ""},
      {"null on the way", dictionary({{"a", Value::null()}}), "a.b"},
      {"a text", "abc", "name"},
      {"a number", 5, "length"},
      {"true", true, "length"},
      {"a host's object", makeRef<WithoutKeys>(), "name"},
      {"a property's text", named("x"), "name.size"},
      {"an element", list({"a", 5}), "length"},
      {"an element of an element", list({list({5})}), "length"},
      {"an element's null further on", list({dictionary({{"a", "b"}})}), "a.c"},
      {"an empty key of a list's elements", list({1}), ""},
  };
  expectUndefinedKeys(rows);
  EXPECT_EQ(raisedName([] { (void)valueForKeyPath(named("x"), "unknown"); }), kUndefinedKey);
  EXPECT_EQ(raisedName([] { (void)valueForKeyPath(list({named("x")}), "unknown"); }), kUndefinedKey);
  EXPECT_EQ(raisedName([] { (void)valueForKeyPath(KorRegex::compileExpression("a"), "pattern"); }), kUndefinedKey);
}

TEST(KeyPath, NamesTheClassAndTheKeyThatItDoesNotKnow) {
  EXPECT_EQ(raised([] { raiseUndefinedKey(5, "length"); }),
            "NSUndefinedKeyException: NSNumber has no value for the key \"length\"");
}

class FailingHost final : public NSObject {
 public:
  Value valueForKey(const NSString& /*key*/) const override { NSException::raise("HostException", "broken"); }
};

TEST(KeyPath, LetsAHostsExceptionThrough) {
  const Value failing = makeRef<FailingHost>();
  EXPECT_EQ(raised([&] { (void)valueForKeyPath(failing, "x"); }), "HostException: broken");
  EXPECT_EQ(raised([&] { (void)valueForKeyPath(list({failing}), "x"); }), "HostException: broken");
  EXPECT_EQ(raised([&] { (void)valueForKeyPath(list({failing}), "@sum.x"); }), "HostException: broken");
}

TEST(CollectionOperators, CountSumAndAverage) {
  const Value people = list({dictionary({{"age", 30}}), dictionary({{"age", "20.5kg"}}), dictionary({}), Value::null(),
                             dictionary({{"age", Value::null()}})});
  const PathRow rows[] = {
      {"count", list({1, Value::null(), "a"}), "@count", 3},
      {"count of nothing", list({}), "@count", 0},
      {"count of a set", set({1, 2, 2}), "@count", 2},
      {"what follows a count", list({1, 2}), "@count.anything.@sum", 2},
      {"a count that is an integer", people, "@count.age", 5},
      {"sum", list({1, 2, 3.5}), "@sum", 6.5},
      {"sum of nothing", list({}), "@sum", 0.0},
      {"sum of texts, booleans and numbers", list({"1.5", true, 2, "x", "3y"}), "@sum", 7.5},
      {"sum along a path", people, "@sum.age", 50.5},
      {"sum of a set", set({1, 2, 2}), "@sum", 3.0},
      {"sum along a longer path", list({dictionary({{"name", "abc"}}), dictionary({{"name", "d"}})}),
       "@sum.name.length", 4.0},
      {"sum of what is left out altogether", list({Value::null(), Value::null()}), "@sum", 0.0},
      {"null in the midst of the path", list({dictionary({{"a", Value::null()}}), dictionary({{"a", "xyz"}})}),
       "@sum.a.length", 3.0},
      {"from left to right", list({1e16, 1.0, 1.0, -1e16}), "@sum", 0.0},
      {"wide integers as doubles", list({INT64_MAX, INT64_MAX}), "@sum", 18446744073709551616.0},
      {"average", list({1, 2}), "@avg", 1.5},
      {"average of nothing", list({}), "@avg", 0.0},
      {"average over those that have a value", people, "@avg.age", 25.25},
      {"average of nulls", list({Value::null()}), "@avg", 0.0},
      {"an operator on a list inside", dictionary({{"l", list({1, 2})}}), "l.@sum", 3.0},
      {"a host's property", list({named("5"), named("6")}), "@sum.name", 11.0},
      {"a host's property without a value", list({named("5")}), "@sum.nothing", 0.0},
  };
  expectValues(rows);
  EXPECT_EQ(valueForKeyPath(list({1, 2}), "@sum").kind(), ValueKind::Double);
  EXPECT_EQ(valueForKeyPath(list({}), "@sum").kind(), ValueKind::Double);
  EXPECT_EQ(valueForKeyPath(list({2, 4}), "@avg").kind(), ValueKind::Double);
  EXPECT_EQ(valueForKeyPath(list({}), "@avg").kind(), ValueKind::Double);
  EXPECT_TRUE(std::isnan(valueForKeyPath(list({1, std::nan("")}), "@sum").doubleValue()));
}

TEST(CollectionOperators, SmallestAndLargest) {
  const Value early = NSDate::dateWithTimeIntervalSince1970(1);
  const Value late = NSDate::dateWithTimeIntervalSince1970(2);
  const PathRow rows[] = {
      {"smallest", list({3, 1, 2}), "@min", 1},
      {"largest", list({3, 1, 4.5}), "@max", 4.5},
      {"over nothing", list({}), "@min", {}},
      {"largest over nothing", list({}), "@max", {}},
      {"over nulls", list({Value::null()}), "@min", {}},
      {"what follows over nothing", dictionary({{"l", list({})}}), "l.@max.x", {}},
      {"of texts, by code point", list({"b", "a", "\U00010000", "\uffff"}), "@max", "\U00010000"},
      {"the smallest text", list({"b", "B", "a"}), "@min", "B"},
      {"of dates", list({late, early}), "@min", early},
      {"the latest", list({early, late}), "@max", late},
      {"of what a host orders", list({named("b"), named("a")}), "@min", named("a")},
      {"null left out", list({Value::null(), 2, 1}), "@min", 1},
      {"along a path", list({dictionary({{"n", 2}}), dictionary({{"n", 5}}), dictionary({})}), "@max.n", 5},
      {"of a set", set({2, 9, 4}), "@max", 9},
  };
  expectValues(rows);
  // The first of equals, told apart by its kind.
  EXPECT_TRUE(valueForKeyPath(list({2, 1.0, 1, true}), "@min").isIdenticalTo(1.0));
  EXPECT_TRUE(valueForKeyPath(list({0, 1U, 1.0, true}), "@max").isIdenticalTo(1U));
}

// What the definition says, one comparison after another.
Value firstThatNoOtherPrecedes(const std::vector<Value>& numbers, bool wantsLeast) {
  Value best = numbers.front();
  for (const Value& number : numbers) {
    if (wantsLeast ? number.isLessThan(best).value() : best.isLessThan(number).value()) best = number;
  }
  return best;
}

TEST(CollectionOperators, SmallestAndLargestOfAllKindsOfNumbersInAnyOrder) {
  const Value kinds[] = {1,          -1,
                         0,          0.0,
                         -0.0,       std::nan(""),
                         true,       INT64_MAX,
                         INT64_MIN,  1e300,
                         -1e300,     0.5,
                         UINT64_MAX, 9007199254740993,
                         1U,         false,
                         1.0F,       9007199254740992.0};
  std::mt19937 random(3);
  for (int round = 0; round < 2'000; ++round) {
    std::vector<Value> numbers;
    std::vector<Value> holders;
    for (std::size_t count = 1 + random() % 6; numbers.size() < count;) {
      numbers.push_back(kinds[random() % std::size(kinds)]);
      holders.push_back(dictionary({{"n", numbers.back()}}));
      if (random() % 8 == 0) holders.push_back(dictionary({{"n", Value::null()}}));
    }
    for (const bool wantsLeast : {true, false}) {
      const Value wanted = firstThatNoOtherPrecedes(numbers, wantsLeast);
      const char* const name = wantsLeast ? "@min" : "@max";
      const std::string path = std::string(name) + ".n";
      EXPECT_TRUE(valueForKeyPath(NSArray::arrayWithObjects(numbers), name).isIdenticalTo(wanted)) << round;
      EXPECT_TRUE(valueForKeyPath(NSArray::arrayWithObjects(holders), path).isIdenticalTo(wanted)) << round;
    }
  }
}

// What is no number, or does not live in a dictionary, is met behind numbers.
TEST(CollectionOperators, TakeWhatComesBehindNumbers) {
  const Value two = dictionary({{"n", 2}});
  const PathRow rows[] = {
      {"a text's number", list({1, 2, "3.5"}), "@sum", 6.5},
      {"along a path", list({two, dictionary({{"n", "0.5"}})}), "@avg.n", 1.25},
      {"a host's property", list({dictionary({{"name", 4}}), named("6")}), "@sum.name", 10.0},
      {"an element without the key", list({two, dictionary({})}), "@max.n", 2},
      {"an average over nulls", list({Value::null()}), "@avg", 0.0},
  };
  expectValues(rows);
  EXPECT_THROW((void)valueForKeyPath(list({1, 2, "a"}), "@min"), NSException);
  EXPECT_THROW((void)valueForKeyPath(list({two, named("b")}), "@min.n"), NSException);
}

TEST(CollectionOperators, Unions) {
  const Value groups = list({dictionary({{"m", list({1, Value::null(), 2})}}), dictionary({{"m", list({2.0, 3})}}),
                             dictionary({}), Value::null()});
  const PathRow rows[] = {
      {"of objects", list({"b", "a", Value::null(), "b"}), "@unionOfObjects", list({"b", "a", "b"})},
      {"of objects along a path", list({"bb", "a"}), "@unionOfObjects.length", list({2, 1})},
      {"of nothing", list({}), "@unionOfObjects", list({})},
      {"distinct, in order of first appearance", list({"b", "a", "b", 1, 1.0, true}), "@distinctUnionOfObjects",
       list({"b", "a", 1})},
      {"distinct along a path", list({"xx", "a", "yy"}), "@distinctUnionOfObjects.length", list({2, 1})},
      {"distinct of nothing", list({}), "@distinctUnionOfObjects", list({})},
      {"of a set", set({"a", "b"}), "@unionOfObjects", list({"a", "b"})},
      {"of arrays, with null inside", groups, "@unionOfArrays.m", list({1, Value::null(), 2, 2, 3})},
      {"distinct of arrays", groups, "@distinctUnionOfArrays.m", list({1, Value::null(), 2, 3})},
      {"distinct of arrays with null twice", list({list({Value::null()}), list({Value::null()})}),
       "@distinctUnionOfArrays", list({Value::null()})},
      {"of the elements themselves", list({list({1}), Value::null(), list({2})}), "@unionOfArrays", list({1, 2})},
      {"of no arrays", list({}), "@unionOfArrays", list({})},
      {"distinct of no arrays", list({}), "@distinctUnionOfArrays", list({})},
      {"of arrays that stay as they are", list({list({list({1})})}), "@unionOfArrays", list({list({1})})},
      {"a second operator works inside each element", list({list({1, 2}), list({5})}), "@max.@sum", 5.0},
      {"and over their results", list({list({1, 2}), list({5}), list({})}), "@unionOfObjects.@max", list({2, 5})},
      {"counts inside each element", list({list({1, 2}), list({5})}), "@sum.@count", 3.0},
      {"a key before a second operator", groups, "@sum.m.@count", 5.0},
      {"three operators", list({list({list({1, 2}), list({3})})}), "@sum.@avg.@count", 1.5},
      {"a list of values stays one value", list({list({"a", "bc"})}), "@unionOfObjects.length", list({list({1, 2})})},
  };
  expectValues(rows);
}

TEST(CollectionOperators, RaiseForWhatTheyCannotUse) {
  const Value date = NSDate::dateWithTimeIntervalSince1970(0);
  const UnknownRow rows[] = {
      {"a sum of lists", list({1, list({})}), "@sum"},
      {"a sum of dates", list({date}), "@sum"},
      {"an average of dictionaries", list({dictionary({})}), "@avg"},
      {"a sum of host's objects", list({named("1")}), "@sum"},
      {"an order between a number and a text", list({1, "2"}), "@min"},
      {"an order between a text and a number", list({"2", 1}), "@max"},
      {"an order between lists", list({list({1}), list({2})}), "@max"},
      {"an order between a date and a number", list({date, 1}), "@min"},
      {"a union of what is no array", list({list({1}), 2}), "@unionOfArrays"},
      {"a union of sets", list({set({1})}), "@unionOfArrays"},
      {"a distinct union of texts", list({"a"}), "@distinctUnionOfArrays"},
      {"an unknown operator", list({1}), "@median"},
      {"an unknown operator over nothing", list({}), "@median"},
      {"an operator in other letters", list({1}), "@Sum"},
      {"the at-sign alone", list({1}), "@"},
      {"two at-signs", list({1}), "@@sum"},
      {"an operator with more behind it", list({1}), "@sums"},
      {"a path that an element does not know", list({"a", 5}), "@sum.length"},
      {"an unknown operator of a set", set({1}), "@first"},
      {"an unknown operator inside", list({list({1})}), "@sum.@median"},
      {"an operator on a number", list({1}), "@sum.@sum"},
      {"an operator on a text", "abc", "@sum"},
      {"a list with null from an inner path", list({list({dictionary({})})}), "@sum.name"},
  };
  expectUndefinedKeys(rows);
}

TEST(NSKeyPath, KnowsItsText) {
  for (const char* path : {"", ".", "a", "a.b", "a..b.", "\u00e9.@count"}) EXPECT_EQ(NSKeyPath(path).text(), path);
}

TEST(NSKeyPath, PeeksThroughDictionariesAlone) {
  const Value inner = dictionary({{"b", "value"}});
  const Value root = dictionary({{"x", 0}, {"a", inner}, {"l", list({1})}});
  const NSKeyPath path("a.b");
  for (int round = 0; round < 2; ++round) {
    const Value* found = path.peek(root.peek());
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->description(), "value");
  }
  // The memory of the last place does not mislead in another dictionary.
  const Value other = dictionary({{"a", dictionary({{"z", 1}, {"b", "other"}})}});
  ASSERT_NE(path.peek(other.peek()), nullptr);
  EXPECT_EQ(path.peek(other.peek())->description(), "other");
  const Value without = dictionary({{"a", dictionary({{"c", 1}})}});
  EXPECT_EQ(path.peek(without.peek()), nullptr);
  EXPECT_EQ(path.peek(Value(5).peek()), nullptr);
  EXPECT_EQ(path.peek(Value().peek()), nullptr);
  EXPECT_EQ(NSKeyPath("l.@count").peek(root.peek()), nullptr);
  EXPECT_EQ(NSKeyPath("@count").peek(root.peek()), nullptr);
}

TEST(NSKeyPath, IsFollowedByThreadsAtOnce) {
  const Value one = dictionary({{"a", 1}, {"b", 2}});
  const Value other = dictionary({{"b", 3}, {"a", 4}});
  one.share();
  other.share();
  const NSKeyPath path("b");
  std::vector<std::thread> threads;
  std::vector<int> sums(4);
  for (int& sum : sums) {
    threads.emplace_back([&] {
      for (int round = 0; round < 10'000; ++round) {
        sum += path.peek(one.peek())->intValue();
        Value value;
        if (path.find(other, value)) sum += value.intValue();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(sums, std::vector<int>(4, 50'000));
}

}  // namespace

}  // namespace tavlo::test
