#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>

#include "Foundation/NSArray.h"
#include "Foundation/NSDictionary.h"
#include "Foundation/NSKeyValueCoding.h"
#include "Foundation/NSSet.h"
#include "Foundation/NSString.h"
#include "Foundation/WorkMeter.h"
#include "Tests/Foundation/WatchedTime.h"

namespace tavlo::test {

namespace {

// Runs a host's code when it is hashed, and when it is asked whether it can be shared.
class HashedObject final : public NSObject {
 public:
  explicit HashedObject(std::function<void()> hashed) : hashed_(std::move(hashed)) {}
  std::size_t hash() const override {
    hashed_();
    return 1;
  }
  bool canBeShared() const override {
    hashed_();
    return true;
  }

 private:
  std::function<void()> hashed_;
};

TEST(ADictionaryThatGrows, LooksAtTheClock) {
  constexpr int kEntries = 100'000;
  NSDictionary::Entries entries;
  for (int number = 0; number < kEntries; ++number) {
    entries.push_back({NSString::stringWithUTF8(std::to_string(number)), number});
  }
  WatchedTime time;
  const WorkMeter::Scope scope(time);
  const Ref<NSMutableDictionary> dictionary = NSMutableDictionary::dictionaryWithDistinctEntries(std::move(entries));
  EXPECT_GE(time.looks(), kEntries / 10'000);
  EXPECT_EQ(dictionary->find("99999")->intValue(), 99'999);
}

TEST(ListsThatChange, AreHashedAsFarAsTheyGo) {
  const Ref<NSMutableArray> list = NSMutableArray::array();
  list->addObject(makeRef<HashedObject>([&] { list->removeAllObjects(); }));
  list->addObject(std::string(100, 'x'));
  (void)Value(list).hash();
  EXPECT_EQ(list->count(), 0U);
}

TEST(ListsThatChange, GoIntoASetWhenTheyAreHashed) {
  const Ref<NSMutableArray> list = NSMutableArray::array();
  list->addObject(makeRef<HashedObject>([&] { list->removeAllObjects(); }));
  list->addObject(std::string(100, 'x'));
  (void)valueForKeyPath(NSArray::arrayWithObjects({list, list}), "@distinctUnionOfObjects");
  EXPECT_EQ(list->count(), 0U);
}

TEST(DictionariesThatChange, AreHashedAsFarAsTheyGo) {
  const Ref<NSMutableDictionary> dictionary = NSMutableDictionary::dictionary();
  dictionary->setObjectForKey(makeRef<HashedObject>([&] { dictionary->removeAllObjects(); }), "a");
  dictionary->setObjectForKey(std::string(100, 'x'), "b");
  (void)Value(dictionary).hash();
  EXPECT_EQ(dictionary->count(), 0U);
}

TEST(ListsThatChange, WhileTheyAreShared) {
  const Ref<NSMutableArray> list = NSMutableArray::array();
  list->addObject(makeRef<HashedObject>([&] { list->removeAllObjects(); }));
  list->addObject(NSArray::arrayWithObjects({std::string(100, 'x')}));
  const Value whole = NSArray::arrayWithObjects({list});
  whole.share();
  EXPECT_EQ(list->count(), 0U);
  EXPECT_TRUE(list->isShared());
}

}  // namespace

}  // namespace tavlo::test
