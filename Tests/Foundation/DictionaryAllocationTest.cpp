#include "Tests/Memory/FailingMemory.h"

#ifndef TAVLO_MEMORY_IS_HIDDEN

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "Foundation/NSDictionary.h"
#include "Tests/Memory/FailingWork.h"

namespace tavlo::test {

namespace {

// Beyond 8 keys a dictionary is hashed, and its table grows at 17, 33 and 65.
constexpr int kFewestKeys = 7;
constexpr int kMostKeys = 70;

Ref<NSString> keyAt(int index) {
  return NSString::stringWithUTF8("key " + std::to_string(index));
}

Ref<NSMutableDictionary> dictionaryOf(int count) {
  const Ref<NSMutableDictionary> dictionary = NSMutableDictionary::dictionary();
  for (int index = 0; index < count; ++index) dictionary->setObjectForKey(index, keyAt(index));
  return dictionary;
}

// It holds these keys in this order, and none beside them.
void expectKeys(const NSDictionary& dictionary, const std::vector<int>& keys) {
  ASSERT_EQ(dictionary.count(), keys.size());
  for (std::size_t place = 0; place < keys.size(); ++place) {
    EXPECT_TRUE(dictionary.entries()[place].key->isEqual(*keyAt(keys[place])));
    const Value* value = dictionary.find(*keyAt(keys[place]));
    ASSERT_NE(value, nullptr) << keys[place];
    EXPECT_EQ(value->intValue(), keys[place]);
  }
  EXPECT_EQ(dictionary.find("key 1000"), nullptr);
}

std::vector<int> keysFrom(int first, int count) {
  std::vector<int> keys;
  for (int key = first; key < count; ++key) keys.push_back(key);
  return keys;
}

TEST(DictionaryAllocations, ThatFailLeaveADictionaryWithoutTheEntry) {
  for (int count = kFewestKeys; count <= kMostKeys; ++count) {
    for (const Failing failing : {Failing::Once, Failing::ForGood}) {
      bool hasFailed = true;
      for (std::int64_t allocation = 0; hasFailed; ++allocation) {
        SCOPED_TRACE(std::to_string(count) + " keys, allocation " + std::to_string(allocation));
        const Ref<NSMutableDictionary> dictionary = dictionaryOf(count);
        const Ref<NSString> key = keyAt(count);
        const Outcome outcome = runWith(allocation, failing, [&] { dictionary->setObjectForKey(count, key); });
        expectKeys(*dictionary, keysFrom(0, outcome.isOutOfMemory ? count : count + 1));
        dictionary->setObjectForKey(count, key);
        expectKeys(*dictionary, keysFrom(0, count + 1));
        if (HasFatalFailure()) return;
        hasFailed = outcome.hasFailed;
      }
    }
  }
}

TEST(DictionaryAllocations, AreNotNeededToRemoveAKey) {
  for (int count = kFewestKeys; count <= kMostKeys; ++count) {
    SCOPED_TRACE(count);
    const Ref<NSMutableDictionary> dictionary = dictionaryOf(count);
    for (int first = 0; first < count; ++first) {
      const std::string key(keyAt(first)->view());
      const Outcome outcome = runWith(0, Failing::ForGood, [&] { dictionary->removeObjectForKey(key); });
      EXPECT_FALSE(outcome.hasFailed);
      expectKeys(*dictionary, keysFrom(first + 1, count));
      if (HasFailure()) return;
    }
  }
}

}  // namespace

}  // namespace tavlo::test

#endif
