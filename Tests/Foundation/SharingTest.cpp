#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <thread>
#include <vector>

#include "Foundation/NSArray.h"
#include "Foundation/NSDate.h"
#include "Foundation/NSDictionary.h"
#include "Foundation/NSSet.h"
#include "Foundation/NSString.h"
#include "Foundation/Value.h"
#include "Tests/Foundation/HostObjects.h"
#include "Tests/Foundation/Raised.h"
#include "Tests/Foundation/SmallStack.h"
#include "Tests/Memory/WorkBound.h"

namespace tavlo::test {

namespace {

TEST(Sharing, ReachesEverythingThatAValueHolds) {
  const Value text = "text";
  const Value inner = NSDictionary::dictionaryWithEntries({{"key", text}});
  const Value member = NSDate::dateWithTimeIntervalSince1970(1);
  const Value list = NSArray::arrayWithObjects({inner, NSSet::setWithObjects({member}), 5, Value::null(), true});
  EXPECT_FALSE(list.object()->isShared());
  list.share();
  for (const Value& value : {text, inner, member, list}) EXPECT_TRUE(value.object()->isShared()) << value.description();
  EXPECT_TRUE(inner.as<NSDictionary>()->entries()[0].key->isShared());
  list.share();  // again: nothing left to do
  EXPECT_EQ(list.as<NSArray>()->count(), 5U);
}

TEST(Sharing, OfWhatIsNoObjectDoesNothing) {
  for (const Value& value : {Value(), Value::null(), Value(5), Value(true), Value(0.5)}) {
    EXPECT_NO_THROW(value.share()) << value.description();
  }
}

TEST(Sharing, RefusesAHostsObjectBeforeAnythingHasChanged) {
  int alive = 0;
  const Value text = "text";
  const Ref<NSMutableArray> list = NSMutableArray::array();
  list->addObject(text);
  list->addObject(NSDictionary::dictionaryWithEntries({{"host", makeRef<Tracked>(alive)}}));
  EXPECT_EQ(raisedName([&] { Value(list).share(); }), "NSInvalidArgumentException");
  EXPECT_FALSE(list->isShared());
  EXPECT_FALSE(text.object()->isShared());
  EXPECT_NO_THROW(list->addObject(1));
}

TEST(Sharing, TakesAHostsObjectThatSaysItMayBeShared) {
  const Value host = makeRef<Named>("x");
  const Value list = NSArray::arrayWithObjects({host});
  list.share();
  EXPECT_TRUE(host.object()->isShared());
}

TEST(Sharing, ReachesWhatAHostsObjectAddsMeanwhile) {
  class Adding final : public NSObject {
   public:
    explicit Adding(NSMutableArray& list) : list_(list) {}
    bool canBeShared() const override {
      list_.insertObjectAtIndex("added", 0);
      return true;
    }

   private:
    NSMutableArray& list_;
  };
  const Ref<NSMutableArray> list = NSMutableArray::array();
  list->addObject(makeRef<Adding>(*list));
  Value(list).share();
  ASSERT_EQ(list->count(), 2U);
  for (const Value& element : list->elements()) EXPECT_TRUE(element.object()->isShared()) << element.className();
}

// Each shares what it holds when it is asked.
class Holder final : public NSObject {
 public:
  bool canBeShared() const override {
    next.share();
    return true;
  }
  Value next;
};

TEST(Sharing, EndsWithALimitWhereHostsObjectsShareOneAnother) {
  const Ref<Holder> first = makeRef<Holder>();
  const Ref<Holder> second = makeRef<Holder>();
  first->next = second;
  second->next = first;
  // The frames are small, and the thread sanitizer follows no more than 65,536 calls.
  EXPECT_EQ(outcomeOnStackOf(kSmallStack / 8, [&] { Value(first).share(); }), "stack");
  EXPECT_FALSE(first->isShared());
  first->next = Value();
}

TEST(Sharing, FreezesLists) {
  const Ref<NSMutableArray> list = NSMutableArray::array();
  list->addObject(1);
  Value(list).share();
  const std::string name = "NSInternalInconsistencyException";
  EXPECT_EQ(raisedName([&] { list->addObject(2); }), name);
  EXPECT_EQ(raisedName([&] { list->insertObjectAtIndex(2, 0); }), name);
  EXPECT_EQ(raisedName([&] { list->replaceObjectAtIndex(0, 2); }), name);
  EXPECT_EQ(raisedName([&] { list->removeObjectAtIndex(0); }), name);
  EXPECT_EQ(raisedName([&] { list->removeAllObjects(); }), name);
  ASSERT_EQ(list->count(), 1U);
  EXPECT_EQ(list->objectAtIndex(0).intValue(), 1);
}

TEST(Sharing, FreezesDictionaries) {
  const Ref<NSMutableDictionary> dictionary = NSMutableDictionary::dictionary();
  dictionary->setObjectForKey(1, "a");
  Value(dictionary).share();
  const std::string name = "NSInternalInconsistencyException";
  EXPECT_EQ(raisedName([&] { dictionary->setObjectForKey(2, "a"); }), name);
  EXPECT_EQ(raisedName([&] { dictionary->setObjectForKey(2, "b"); }), name);
  EXPECT_EQ(raisedName([&] { dictionary->removeObjectForKey("a"); }), name);
  EXPECT_EQ(raisedName([&] { dictionary->removeAllObjects(); }), name);
  ASSERT_EQ(dictionary->count(), 1U);
  EXPECT_EQ(dictionary->objectForKey("a").intValue(), 1);
}

TEST(Sharing, VisitsAnObjectOnceHoweverOftenItIsHeld) {
  // Without that, a list of two the same, 60 deep, would be walked 2 to the 60 times.
  Value value = NSArray::array();
  for (int level = 0; level < 60; ++level) value = NSArray::arrayWithObjects({value, value});
  const WorkBound bound("shared twice at each level");
  value.share();
  EXPECT_TRUE(value.object()->isShared());
}

TEST(Sharing, NeedsNoStackForADeepValue) {
  bool shared = false;
  runOnStackOf(kSmallStack, [&shared] {
    Value innermost = NSArray::array();
    Value value = innermost;
    for (int level = 0; level < 1'000'000; ++level) value = NSArray::arrayWithObjects({value});
    const WorkBound bound("deep");
    value.share();
    shared = innermost.object()->isShared();
  });
  EXPECT_TRUE(shared);
}

TEST(Sharing, LetsThreadsHoldAndReadOneValueAtOnce) {
  constexpr int kThreads = 4;
  constexpr int kRounds = 20'000;
  const Value list = NSArray::arrayWithObjects(
      {"text", NSDictionary::dictionaryWithEntries({{"key", "value"}}), NSSet::setWithObjects({"member"})});
  list.share();
  std::vector<std::thread> threads;
  std::vector<int> found(kThreads);
  for (int& count : found) {
    threads.emplace_back([&list, &count] {
      for (int round = 0; round < kRounds; ++round) {
        const Value own = list;
        const auto& elements = own.as<NSArray>()->elements();
        const Value text = elements[0];
        const Value entry = elements[1].as<NSDictionary>()->objectForKey("key");
        if (text.hash() == list.as<NSArray>()->elements()[0].hash() && entry.string()->view() == "value") ++count;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(found, std::vector<int>(kThreads, kRounds));
  EXPECT_TRUE(list.object()->hasOneReference());
  EXPECT_TRUE(list.as<NSArray>()->objectAtIndex(0).object()->hasOneReference());
}

}  // namespace

}  // namespace tavlo::test
