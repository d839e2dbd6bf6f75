#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <string>
#include <vector>

#include "Foundation/NSArray.h"
#include "Foundation/NSDictionary.h"
#include "Foundation/NSSet.h"
#include "Foundation/NSString.h"
#include "Foundation/Value.h"
#include "Tests/Foundation/HostObjects.h"
#include "Tests/Foundation/Raised.h"
#include "Tests/Memory/WorkBound.h"

namespace tavlo::test {

namespace {

std::string keysOf(const NSDictionary& dictionary) {
  std::string keys;
  for (const NSDictionary::Entry& entry : dictionary.entries()) keys += std::string(entry.key->view()) + " ";
  return keys;
}

std::string walk(const Ref<NSEnumerator>& enumerator) {
  std::string seen;
  for (Value next = enumerator->nextObject(); !next.isAbsent(); next = enumerator->nextObject()) {
    seen += next.description() + " ";
  }
  return seen;
}

TEST(NSArray, KeepsItsElementsInOrder) {
  const Ref<NSArray> list = NSArray::arrayWithObjects({"a", 2, Value::null()});
  EXPECT_EQ(list->count(), 3U);
  EXPECT_EQ(list->objectAtIndex(1).intValue(), 2);
  EXPECT_TRUE((*list)[2].isNull());
  EXPECT_EQ(walk(list->objectEnumerator()), "a 2 <null> ");
  EXPECT_EQ(raisedName([&] { (void)list->objectAtIndex(3); }), "NSRangeException");
  EXPECT_EQ(raisedName([] { (void)NSArray::array()->objectAtIndex(0); }), "NSRangeException");
}

TEST(NSArray, RefusesAbsentElements) {
  EXPECT_EQ(raisedName([] { (void)NSArray::arrayWithObjects({1, Value()}); }), "NSInvalidArgumentException");
  const Ref<NSMutableArray> list = NSMutableArray::array();
  list->addObject(1);
  EXPECT_EQ(raisedName([&] { list->addObject({}); }), "NSInvalidArgumentException");
  EXPECT_EQ(raisedName([&] { list->insertObjectAtIndex({}, 0); }), "NSInvalidArgumentException");
  EXPECT_EQ(raisedName([&] { list->replaceObjectAtIndex(0, {}); }), "NSInvalidArgumentException");
  EXPECT_EQ(walk(list->objectEnumerator()), "1 ");
}

TEST(NSArray, ChangesWithinItsRange) {
  const Ref<NSMutableArray> list = NSMutableArray::array();
  list->addObject(1);
  list->insertObjectAtIndex(0, 0);
  list->insertObjectAtIndex(3, 2);
  list->replaceObjectAtIndex(1, "x");
  EXPECT_EQ(walk(list->objectEnumerator()), "0 x 3 ");
  list->removeObjectAtIndex(0);
  EXPECT_EQ(walk(list->objectEnumerator()), "x 3 ");
  EXPECT_EQ(raisedName([&] { list->insertObjectAtIndex(9, 3); }), "NSRangeException");
  EXPECT_EQ(raisedName([&] { list->replaceObjectAtIndex(2, 9); }), "NSRangeException");
  EXPECT_EQ(raisedName([&] { list->removeObjectAtIndex(2); }), "NSRangeException");
  EXPECT_EQ(walk(list->objectEnumerator()), "x 3 ");
  list->removeAllObjects();
  EXPECT_EQ(list->count(), 0U);
  EXPECT_EQ(raisedName([&] { list->removeObjectAtIndex(0); }), "NSRangeException");
}

TEST(NSArray, IsWalkedAsItIsAtEachStep) {
  const Ref<NSMutableArray> list = NSMutableArray::array();
  list->addObject(1);
  const Ref<NSEnumerator> enumerator = list->objectEnumerator();
  EXPECT_EQ(enumerator->nextObject().intValue(), 1);
  list->addObject(2);
  EXPECT_EQ(enumerator->nextObject().intValue(), 2);
  EXPECT_TRUE(enumerator->nextObject().isAbsent());
  EXPECT_TRUE(enumerator->nextObject().isAbsent());
  EXPECT_STREQ(enumerator->className(), "NSEnumerator");
}

TEST(NSArray, LivesAsLongAsItsWalk) {
  int alive = 0;
  Ref<NSEnumerator> enumerator = NSArray::arrayWithObjects({makeRef<Tracked>(alive)})->objectEnumerator();
  EXPECT_EQ(alive, 1);
  EXPECT_TRUE(enumerator->nextObject().isObject());
  enumerator = nullptr;
  EXPECT_EQ(alive, 0);
}

TEST(NSDictionary, KeepsTheOrderInWhichKeysWereFirstSet) {
  const Ref<NSMutableDictionary> dictionary = NSMutableDictionary::dictionary();
  dictionary->setObjectForKey(1, "b");
  dictionary->setObjectForKey(2, "a");
  dictionary->setObjectForKey(3, NSString::stringWithUTF8("c"));
  dictionary->setObjectForKey("new", "b");
  EXPECT_EQ(keysOf(*dictionary), "b a c ");
  EXPECT_EQ(walk(dictionary->objectEnumerator()), "new 2 3 ");
  dictionary->removeObjectForKey("b");
  dictionary->removeObjectForKey("none");
  dictionary->setObjectForKey(4, "b");
  EXPECT_EQ(keysOf(*dictionary), "a c b ");
  dictionary->removeAllObjects();
  EXPECT_EQ(dictionary->count(), 0U);
  EXPECT_TRUE(dictionary->objectForKey("a").isAbsent());
}

TEST(NSDictionary, TakesTheLaterOfTwoEntriesInThePlaceOfTheFirst) {
  const Ref<NSDictionary> dictionary = NSDictionary::dictionaryWithEntries({{"a", 1}, {"b", 2}, {"a", 3}});
  EXPECT_EQ(keysOf(*dictionary), "a b ");
  EXPECT_EQ(dictionary->objectForKey("a").intValue(), 3);
}

TEST(NSDictionary, HasAnyTextAsAKey) {
  const std::string_view withNUL("a\0b", 3);
  const Ref<NSDictionary> dictionary =
      NSDictionary::dictionaryWithEntries({{"", 1}, {withNUL, 2}, {"a", 3}, {"\U0001f600", 4}});
  EXPECT_EQ(dictionary->objectForKey("").intValue(), 1);
  EXPECT_EQ(dictionary->objectForKey(withNUL).intValue(), 2);
  EXPECT_EQ(dictionary->objectForKey("a").intValue(), 3);
  EXPECT_EQ(dictionary->objectForKey("\U0001f600").intValue(), 4);
  EXPECT_EQ(dictionary->find("b"), nullptr);
}

TEST(NSDictionary, RefusesAbsentAndInvalidParts) {
  const Ref<NSMutableDictionary> dictionary = NSMutableDictionary::dictionary();
  EXPECT_EQ(raisedName([&] { dictionary->setObjectForKey({}, "a"); }), "NSInvalidArgumentException");
  EXPECT_EQ(raisedName([&] { dictionary->setObjectForKey(1, Ref<NSString>()); }), "NSInvalidArgumentException");
  EXPECT_EQ(raisedName([&] { dictionary->setObjectForKey(1, "\xff"); }), "NSInvalidArgumentException");
  EXPECT_EQ(dictionary->count(), 0U);
}

TEST(NSDictionary, FindsEveryKeyWhileItGrowsAndShrinks) {
  const Ref<NSMutableDictionary> dictionary = NSMutableDictionary::dictionary();
  dictionary->reserve(100);
  for (int number = 0; number < 1000; ++number) {
    dictionary->setObjectForKey(number, "key" + std::to_string(number));
    if (number > 40 && number % 97 != 0) continue;
    for (int known = 0; known <= number; ++known) {
      ASSERT_EQ(dictionary->objectForKey("key" + std::to_string(known)).intValue(), known) << number;
    }
    ASSERT_EQ(dictionary->find("key" + std::to_string(number + 1)), nullptr);
  }
  for (int number = 0; number < 1000; number += 2) dictionary->removeObjectForKey("key" + std::to_string(number));
  ASSERT_EQ(dictionary->count(), 500U);
  for (int number = 0; number < 1000; ++number) {
    const Value* found = dictionary->find("key" + std::to_string(number));
    ASSERT_EQ(found != nullptr, number % 2 == 1) << number;
    if (found != nullptr) {
      ASSERT_EQ(found->intValue(), number);
    }
  }
  for (int number = 1; number < 1000; number += 2) dictionary->removeObjectForKey("key" + std::to_string(number));
  EXPECT_EQ(dictionary->count(), 0U);
  dictionary->setObjectForKey(7, "key7");
  EXPECT_EQ(dictionary->objectForKey("key7").intValue(), 7);
}

TEST(NSDictionary, KeepsOrderAndEntriesWhereSomeAreRemovedAtRandom) {
  std::minstd_rand random(7);
  const Ref<NSMutableDictionary> dictionary = NSMutableDictionary::dictionary();
  std::vector<int> expected;
  const auto keyFor = [](int number) { return "key" + std::to_string(number); };
  for (int number = 0; number < 3000; ++number) {
    dictionary->setObjectForKey(number, keyFor(number));
    expected.push_back(number);
    // Fewer and fewer, and more and more, in turns of a thousand.
    for (int times = number % 1000 < 500 ? 0 : 3; times > 0 && !expected.empty(); --times) {
      const std::size_t place = random() % expected.size();
      dictionary->removeObjectForKey(keyFor(expected[place]));
      ASSERT_EQ(dictionary->find(keyFor(expected[place])), nullptr);
      expected.erase(expected.begin() + static_cast<std::ptrdiff_t>(place));
    }
    if (number % 61 != 0) continue;
    ASSERT_EQ(dictionary->count(), expected.size());
    for (std::size_t place = 0; place < expected.size(); ++place) {
      ASSERT_EQ(dictionary->entries()[place].value.intValue(), expected[place]);
      ASSERT_EQ(dictionary->objectForKey(keyFor(expected[place])).intValue(), expected[place]);
    }
  }
}

TEST(NSDictionary, TakesEntriesOutFromTheLastOneOnInLittleTime) {
  constexpr int kMany = 200'000;
  const Ref<NSMutableDictionary> dictionary = NSMutableDictionary::dictionary();
  std::vector<Ref<NSString>> keys;
  for (int number = 0; number < kMany; ++number) {
    keys.push_back(NSString::stringWithUTF8(std::to_string(number)));
    dictionary->setObjectForKey(number, keys.back());
  }
  const WorkBound bound("removed from the last one on");
  for (; !keys.empty(); keys.pop_back()) dictionary->removeObjectForKey(keys.back()->view());
  EXPECT_EQ(dictionary->count(), 0u);
}

TEST(NSDictionary, FindsWithAHintThatMayBeWrong) {
  const Ref<NSMutableDictionary> dictionary = NSMutableDictionary::dictionary();
  for (int number = 0; number < 20; ++number) dictionary->setObjectForKey(number, "key" + std::to_string(number));
  const Ref<NSString> key = NSString::stringWithUTF8("key13");
  const Ref<NSString> unknown = NSString::stringWithUTF8("none");
  for (std::uint32_t start : {0U, 13U, 19U, 20U, 4000000000U}) {
    std::uint32_t hint = start;
    ASSERT_NE(dictionary->find(*key, hint), nullptr);
    EXPECT_EQ(dictionary->find(*key, hint)->intValue(), 13);
    EXPECT_EQ(hint, 13U);
    hint = start;
    EXPECT_EQ(dictionary->find(*unknown, hint), nullptr);
    EXPECT_EQ(hint, start);
  }
  std::uint32_t hint = 2;
  EXPECT_EQ(dictionary->find(*dictionary->entries()[2].key, hint), &dictionary->entries()[2].value);
}

TEST(NSDictionary, EqualsWhatHasTheSameEntriesInAnyOrder) {
  const Ref<NSDictionary> one = NSDictionary::dictionaryWithEntries({{"a", 1}, {"b", "x"}});
  EXPECT_TRUE(one->isEqual(*NSDictionary::dictionaryWithEntries({{"b", "x"}, {"a", 1.0}})));
  EXPECT_EQ(one->hash(), NSDictionary::dictionaryWithEntries({{"b", "x"}, {"a", 1.0}})->hash());
  EXPECT_FALSE(one->isEqual(*NSDictionary::dictionaryWithEntries({{"a", 1}})));
  EXPECT_FALSE(one->isEqual(*NSDictionary::dictionaryWithEntries({{"a", 1}, {"b", "y"}})));
  EXPECT_FALSE(one->isEqual(*NSDictionary::dictionaryWithEntries({{"a", 1}, {"c", "x"}})));
  EXPECT_FALSE(one->isEqual(*NSArray::array()));
}

TEST(NSDictionary, IsCopiedAsOneOfItsOwn) {
  const Ref<NSMutableDictionary> source = NSMutableDictionary::dictionary();
  for (int number = 0; number < 20; ++number) source->setObjectForKey(number, std::to_string(number));
  const Ref<NSMutableDictionary> copy = makeRef<NSMutableDictionary>(*source, nullptr);
  copy->removeObjectForKey("3");
  copy->setObjectForKey("new", "4");
  EXPECT_EQ(source->count(), 20U);
  EXPECT_EQ(source->objectForKey("4").intValue(), 4);
  EXPECT_EQ(copy->count(), 19U);
  EXPECT_EQ(copy->objectForKey("19").intValue(), 19);
}

TEST(NSDictionary, LivesAsLongAsItsWalk) {
  Ref<NSEnumerator> enumerator = NSDictionary::dictionaryWithEntries({{"a", 1}, {"b", 2}})->objectEnumerator();
  EXPECT_EQ(walk(enumerator), "1 2 ");
}

TEST(NSSet, KeepsTheFirstOfEqualMembersInOrder) {
  const Ref<NSSet> set = NSSet::setWithObjects({"b", 1, "a", 1.0, true, "b", "B", Value::null(), Value::null()});
  EXPECT_EQ(set->count(), 5U);
  EXPECT_EQ(walk(set->objectEnumerator()), "b 1 a B <null> ");
  EXPECT_TRUE(set->containsObject(1.0F));
  EXPECT_TRUE(set->containsObject(Value::null()));
  EXPECT_FALSE(set->containsObject("1"));
  EXPECT_TRUE(set->members()[1].isIdenticalTo(1));
}

TEST(NSSet, RefusesAbsentMembers) {
  EXPECT_EQ(raisedName([] { (void)NSSet::setWithObjects({1, Value()}); }), "NSInvalidArgumentException");
}

TEST(NSSet, HoldsNotANumberAsOftenAsItIsPutIn) {
  const double notANumber = std::numeric_limits<double>::quiet_NaN();
  const Ref<NSSet> set = NSSet::setWithObjects({notANumber, notANumber});
  EXPECT_EQ(set->count(), 2U);
  EXPECT_FALSE(set->containsObject(notANumber));
}

TEST(NSSet, EqualsWhatHasTheSameMembersInAnyOrder) {
  const Ref<NSSet> one = NSSet::setWithObjects({1, "a", NSArray::arrayWithObjects({2})});
  const Ref<NSSet> other = NSSet::setWithObjects({NSArray::arrayWithObjects({2.0}), "a", true});
  EXPECT_TRUE(one->isEqual(*other));
  EXPECT_EQ(one->hash(), other->hash());
  EXPECT_FALSE(one->isEqual(*NSSet::setWithObjects({1, "a"})));
  EXPECT_FALSE(one->isEqual(*NSSet::setWithObjects({1, "a", 3})));
  EXPECT_FALSE(one->isEqual(*NSArray::arrayWithObjects({1, "a"})));
}

TEST(ValueSet, TellsWhatIsNew) {
  ValueSet set;
  EXPECT_TRUE(set.insert("a"));
  EXPECT_FALSE(set.insert("a"));
  EXPECT_TRUE(set.insert(makeRef<Named>("a")));
  EXPECT_FALSE(set.insert(makeRef<Named>("a")));
  EXPECT_TRUE(set.contains("a"));
  EXPECT_FALSE(set.contains("b"));
}

TEST(ValueSet, TakesEveryNotANumberInAsNew) {
  constexpr int kCount = 100'000;
  const Value nan = std::numeric_limits<double>::quiet_NaN();
  const WorkBound bound("not-a-numbers");
  const NSSet set(std::vector<Value>(kCount, nan));
  EXPECT_EQ(set.count(), std::size_t{kCount});
  EXPECT_FALSE(set.containsObject(nan));
}

TEST(ListArgument, IsAbsentOnlyWhenMadeOfNothing) {
  const std::vector<Value> items = {1, 2};
  EXPECT_TRUE(ListArgument<Value>(nullptr).isAbsent());
  EXPECT_TRUE(ListArgument<Value>(nullptr).empty());
  const ListArgument<Value> list(items);
  EXPECT_FALSE(list.isAbsent());
  EXPECT_EQ(list.size(), 2U);
  EXPECT_EQ(list[1].intValue(), 2);
  EXPECT_EQ(list.span().data(), items.data());
  EXPECT_FALSE(ListArgument<Value>(std::span<const Value>()).isAbsent());
  EXPECT_FALSE(ListArgument<Value>(std::vector<Value>()).isAbsent());
}

}  // namespace

}  // namespace tavlo::test
