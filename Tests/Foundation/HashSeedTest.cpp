#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Foundation/HashSeed.h"
#include "Foundation/NSString.h"

namespace tavlo::test {

namespace {

// Of texts of several lengths, so that every way to load their bytes counts.
std::string textOfNumber(std::size_t number) {
  return std::string(number % 20, 'x') + std::to_string(number);
}

TEST(HashSeed, IsDrawnAnewEachTime) {
  const HashSeed one = HashSeed::random();
  const HashSeed other = HashSeed::random();
  EXPECT_NE(one.hashOfText("name"), other.hashOfText("name"));
  EXPECT_NE(one.hashOfText(""), other.hashOfText(""));
  EXPECT_NE(one.mixed(1, 2), other.mixed(1, 2));
  EXPECT_EQ(one.hashOfText("name"), one.hashOfText(std::string("name")));
  EXPECT_EQ(&HashSeed::ofProcess(), &HashSeed::ofProcess());
}

// The first numbers of "SplitMix64" behind 0. What is mixed with 1, but for the seed, comes out as it went in.
TEST(HashSeed, FollowsFromANumberWhereTheSystemHasNoneThatIsRandom) {
  constexpr std::uint64_t kFirst = 0xE220A8397B1DCDAF;
  constexpr std::uint64_t kSecond = 0x6E789E6AA1B965F4;
  constexpr std::uint64_t kThird = 0x06C45D188009454F;
  const HashSeed seed = HashSeed::drawnFrom(0);
  EXPECT_EQ(seed.mixed(kFirst ^ 1, 0), kSecond);
  const std::uint64_t count = kFirst ^ 1 ^ kSecond;
  EXPECT_EQ(seed.completed(kFirst ^ 1, static_cast<HashKind>(count & 3), count >> 2), kSecond ^ kThird);
}

TEST(HashSeed, TellsTextsOfEveryLengthApart) {
  const HashSeed seed = HashSeed::random();
  std::set<std::uint64_t> hashes;
  std::size_t count = 0;
  for (std::size_t length = 0; length < 70; ++length) {
    std::string text(length, '\0');
    hashes.insert(seed.hashOfText(text));
    ++count;
    for (std::size_t place = 0; place < length; ++place) {
      for (const char changed : {'\x01', '\x80'}) {
        text[place] = changed;
        hashes.insert(seed.hashOfText(text));
        ++count;
      }
      text[place] = '\0';
    }
  }
  EXPECT_EQ(hashes.size(), count);
}

TEST(HashSeed, ReadsNoByteBeyondTheText) {
  const HashSeed seed = HashSeed::random();
  for (std::size_t length = 0; length < 40; ++length) {
    const std::string one = std::string(length, 'a') + "bbbbbbbbbbbbbbbb";
    const std::string other = std::string(length, 'a') + "cccccccccccccccc";
    EXPECT_EQ(seed.hashOfText(std::string_view(one).substr(0, length)),
              seed.hashOfText(std::string_view(other).substr(0, length)))
        << length;
  }
}

TEST(HashSeed, MixesWithOrder) {
  const HashSeed seed = HashSeed::random();
  std::set<std::uint64_t> mixed;
  for (std::uint64_t left = 0; left < 100; ++left) {
    for (std::uint64_t right = 0; right < 100; ++right) mixed.insert(seed.mixed(left << 40, right));
  }
  EXPECT_EQ(mixed.size(), 10'000U);
}

// How many places in a table of 1024 the texts' hashes start at.
std::size_t placesOf(const std::vector<std::string>& texts) {
  std::set<std::uint32_t> places;
  for (const std::string& text : texts) places.insert(NSString::hashOf(text) % 1024);
  return places.size();
}

TEST(HashesOfTexts, SpreadWhatIsChosenToCollideInTheStandardHash) {
  std::vector<std::string> chosen;
  for (std::size_t number = 0; chosen.size() < 1000; ++number) {
    const std::string text = textOfNumber(number);
    const std::size_t hash = std::hash<std::string>{}(text);
    if (((hash ^ (hash >> 32)) & 0xFF) == 0) chosen.push_back(text);
  }
  EXPECT_GT(placesOf(chosen), 500U);
}

TEST(HashesOfTexts, SpreadTextsThatCount) {
  std::vector<std::string> counted;
  for (std::size_t number = 0; number < 1000; ++number) counted.push_back("key" + std::to_string(number));
  EXPECT_GT(placesOf(counted), 500U);
}

}  // namespace

}  // namespace tavlo::test
