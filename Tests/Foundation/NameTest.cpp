#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Foundation/Name.h"
#include "Tests/Foundation/Raised.h"
#include "Tests/Memory/FailingMemory.h"

namespace tavlo::test {

namespace {

TEST(Name, IsTheSameForTheSameText) {
  const Name one = "name";
  const Name other = std::string("na") + "me";
  const Name third = std::string_view("name and more", 4);
  EXPECT_TRUE(one == other);
  EXPECT_TRUE(one == third);
  EXPECT_EQ(one.hash(), other.hash());
  EXPECT_EQ(one.view().data(), other.view().data());
  EXPECT_FALSE(one == Name("Name"));
  EXPECT_NE(one.hash(), Name("Name").hash());
}

TEST(NameCache, GivesTheNamesOfTheProcess) {
  NameCache cache;
  for (int round = 0; round < 3; ++round) {
    for (int number = 0; number < 1000; ++number) {  // more than it remembers
      const std::string text = "n" + std::to_string(number % 300);
      const Name name = cache.nameForText(text);
      ASSERT_EQ(name, Name(text));
      ASSERT_EQ(cache.nameForText(text), name);
    }
  }
  EXPECT_EQ(cache.nameForText(""), Name(""));
  EXPECT_EQ(raisedName([&] { (void)cache.nameForText("\xff"); }), "NSInvalidArgumentException");
  EXPECT_EQ(raisedName([&] { (void)cache.nameForText("\xff"); }), "NSInvalidArgumentException");
}

TEST(Name, IsAbsentOnlyWhenMadeOfNothing) {
  EXPECT_TRUE(Name().isAbsent());
  EXPECT_TRUE(Name(nullptr).isAbsent());
  EXPECT_TRUE(Name() == Name(nullptr));
  EXPECT_EQ(Name().view(), "");
  EXPECT_EQ(Name().hash(), 0U);
  EXPECT_FALSE(Name("").isAbsent());
  EXPECT_FALSE(Name("") == Name());
  EXPECT_TRUE(Name("") == Name(std::string()));
}

TEST(Name, HoldsAnyValidTextFollowedByAZero) {
  const Name name = std::string_view("a\0\u00e9", 4);
  EXPECT_EQ(name.view(), std::string_view("a\0\u00e9", 4));
  EXPECT_EQ(name.view().data()[4], '\0');
  EXPECT_FALSE(name == Name("a"));
  EXPECT_EQ(raised([] { (void)Name("ab\xff"); }),
            "NSInvalidArgumentException: Text is not valid UTF-8 at byte offset 2");
}

TEST(Name, LivesAsLongAsItIsHeld) {
  Name kept;
  {
    const Name first = "a name that nothing else holds";
    kept = first;
  }
  EXPECT_EQ(kept.view(), "a name that nothing else holds");
  const Name moved = std::move(kept);
  EXPECT_TRUE(kept.isAbsent());  // NOLINT(bugprone-use-after-move): that is what is tested
  EXPECT_TRUE(moved == Name("a name that nothing else holds"));
  Name assigned = moved;
  const Name& same = assigned;
  assigned = same;
  EXPECT_TRUE(assigned == moved);
  const Name copyOfNothing = kept;
  EXPECT_TRUE(copyOfNothing.isAbsent());
}

#ifndef TAVLO_MEMORY_IS_HIDDEN
TEST(Name, IsForgottenWhenManyOthersHaveEndedSince) {
  const std::int64_t before = bytesInUse();
  for (int round = 0; round < 3; ++round) {
    for (int number = 0; number < 20'000; ++number) {
      const Name name = "a name of the round " + std::to_string(round * 20'000 + number);
      EXPECT_EQ(name, Name("a name of the round " + std::to_string(round * 20'000 + number)));
    }
  }
  EXPECT_LT(bytesInUse() - before, 256 * 1024);
  const Name again = "a name of the round 1";
  EXPECT_EQ(again.view(), "a name of the round 1");
}
#endif

TEST(Name, IsMadeAndDroppedByThreadsAtOnce) {
  std::vector<std::thread> threads;
  std::vector<int> same(4);
  for (int& count : same) {
    threads.emplace_back([&count] {
      for (int round = 0; round < 5'000; ++round) {
        const std::string text = "contended" + std::to_string(round % 7);
        const Name one = text;
        const Name copy = one;
        const Name other = text;
        if (copy == other && other.view() == text) ++count;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(same, std::vector<int>(4, 5'000));
}

}  // namespace

}  // namespace tavlo::test
