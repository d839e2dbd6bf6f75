#include <gtest/gtest.h>

#include <cstddef>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "Foundation/NSArray.h"
#include "Foundation/NSDictionary.h"
#include "Foundation/NSSet.h"
#include "Foundation/Value.h"
#include "Tests/Foundation/HostObjects.h"
#include "Tests/Memory/WorkBound.h"

namespace tavlo::test {

namespace {

Value inLists(Value value, int levels) {
  for (int level = 0; level < levels; ++level) value = NSArray::arrayWithObjects({value});
  return value;
}
Value inPairs(Value value, int levels) {
  for (int level = 0; level < levels; ++level) value = NSArray::arrayWithObjects({value, 0});
  return value;
}
Value inDictionaries(Value value, int levels) {
  for (int level = 0; level < levels; ++level) {
    value = NSDictionary::dictionaryWithEntries({{"a", value}, {"b", 0}});
  }
  return value;
}
Value behind(int zeros, Value value) {
  std::vector<Value> elements(static_cast<std::size_t>(zeros), Value(0));
  elements.push_back(std::move(value));
  return makeRef<NSArray>(std::move(elements));
}

// Values that differ in one number.
struct FamilyRow {
  const char* what;
  Value (*make)(int number);
};

const FamilyRow kFamilies[] = {
    {"integers", [](int number) -> Value { return number; }},
    {"integers in the upper bits", [](int number) -> Value { return std::int64_t{number} << 48; }},
    {"multiples of a table's size", [](int number) -> Value { return number * 1056323; }},
    {"fractions", [](int number) -> Value { return number + 0.5; }},
    {"one list", [](int number) { return inLists(number, 1); }},
    {"12 lists", [](int number) { return inLists(number, 12); }},
    {"900 lists", [](int number) { return inLists(number, 900); }},
    {"30 pairs", [](int number) { return inPairs(number, 30); }},
    {"30 dictionaries", [](int number) { return inDictionaries(number, 30); }},
    {"pairs of one weighted sum",
     [](int number) -> Value {
       return NSArray::arrayWithObjects({number, 1'000'000'000 - 31 * number});
     }},
    {"pairs of one product",
     [](int number) -> Value {
       return NSArray::arrayWithObjects({std::int64_t{1} << (number % 60), number});
     }},
    {"the end of a long list", [](int number) { return behind(2000, number); }},
    {"sets",
     [](int number) -> Value {
       return NSSet::setWithObjects({number, 5000 - number});
     }},
    {"sets in lists", [](int number) { return inLists(NSSet::setWithObjects({inLists(number, 20)}), 20); }},
    {"values of a dictionary",
     [](int number) -> Value {
       return NSDictionary::dictionaryWithEntries({{"a", number}, {"b", 5000 - number}});
     }},
};

TEST(HashesOfValues, Differ) {
  constexpr int kCount = 1000;
  for (const FamilyRow& row : kFamilies) {
    std::set<std::size_t> hashes;
    std::set<std::size_t> places;  // in tables of two sizes
    for (int number = 0; number < kCount; ++number) {
      const std::size_t hash = row.make(number).hash();
      hashes.insert(hash);
      places.insert(hash % 1024);
      places.insert(1024 + hash % 1056323 % 1024);
    }
    EXPECT_EQ(hashes.size(), std::size_t{kCount}) << row.what;
    EXPECT_GT(places.size(), 1000U) << row.what;
  }
}

// An object without an equality of its own is told by its place in memory, of which the last bits are always the same.
TEST(HashesOfValues, OfObjectsThatAreToldByTheirPlaceAreSpread) {
  int alive = 0;
  std::vector<Ref<Tracked>> objects;
  std::set<std::size_t> hashes;
  std::set<std::size_t> places;
  for (int number = 0; number < 1000; ++number) {
    objects.push_back(makeRef<Tracked>(alive));
    hashes.insert(objects.back()->hash());
    places.insert(objects.back()->hash() % 1024);
  }
  EXPECT_EQ(hashes.size(), objects.size());
  EXPECT_GT(places.size(), 100U);
}

TEST(HashesOfValues, DifferAlsoBehindManyValues) {
  constexpr int kCount = 20;
  std::set<std::size_t> hashes;
  for (int number = 0; number < kCount; ++number) {
    hashes.insert(behind(40'000, number).hash());
    hashes.insert(inLists(behind(40'000, number), 3).hash());
    EXPECT_EQ(inPairs(behind(40'000, number), 3).hash(), inPairs(behind(40'000, number), 3).hash());
  }
  EXPECT_EQ(hashes.size(), std::size_t{2 * kCount});
}

TEST(HashesOfValues, ThatAreEqualAreTheSame) {
  for (const FamilyRow& row : kFamilies) EXPECT_EQ(row.make(77).hash(), row.make(77).hash()) << row.what;
}

TEST(HashesOfValues, CountTheOrderOfListsOnly) {
  const Value list = NSArray::arrayWithObjects({1, 2});
  EXPECT_NE(list.hash(), Value(NSArray::arrayWithObjects({2, 1})).hash());
  std::vector<Value> members;
  Ref<NSMutableDictionary> forwards = NSMutableDictionary::dictionary();
  Ref<NSMutableDictionary> backwards = NSMutableDictionary::dictionary();
  for (int number = 0; number < 100; ++number) {
    members.push_back(inDictionaries(number, 3));
    forwards->setObjectForKey(number, std::to_string(number));
    backwards->setObjectForKey(99 - number, std::to_string(99 - number));
  }
  EXPECT_EQ(forwards->hash(), backwards->hash());
  const NSSet one(members);
  const NSSet other(std::vector<Value>(members.rbegin(), members.rend()));
  EXPECT_EQ(one.hash(), other.hash());
}

TEST(HashesOfValues, TellKindsOfCollectionsApart) {
  const std::set<std::size_t> hashes = {Value(NSArray::array()).hash(), Value(NSDictionary::dictionary()).hash(),
                                        Value(NSSet::setWithObjects({})).hash(), Value::null().hash(), Value(0).hash()};
  EXPECT_EQ(hashes.size(), 5U);
}

// Beyond a number of values a collection is walked otherwise, and hashes the same in whatever order it was made.
TEST(HashesOfValues, ThatAreEqualAreTheSameHoweverLargeTheyAre) {
  Ref<NSMutableDictionary> forwards = NSMutableDictionary::dictionary();
  Ref<NSMutableDictionary> backwards = NSMutableDictionary::dictionary();
  for (int number = 0; number < 2000; ++number) {
    forwards->setObjectForKey(behind(number, 1), std::to_string(number));
    backwards->setObjectForKey(behind(1999 - number, 1.0), std::to_string(1999 - number));
  }
  EXPECT_TRUE(forwards->isEqual(*backwards));
  EXPECT_EQ(forwards->hash(), backwards->hash());
}

TEST(HashesOfValues, WalkWhatIsSharedOnce) {
  Value value = 1;
  for (int level = 0; level < 60; ++level) value = NSArray::arrayWithObjects({value, value});  // 2^60 paths
  const WorkBound bound("a hash");
  EXPECT_EQ(value.hash(), value.hash());
}

}  // namespace

}  // namespace tavlo::test
