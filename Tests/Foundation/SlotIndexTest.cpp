#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <random>
#include <stdexcept>
#include <vector>

#include "Foundation/SlotIndex.h"
#include "Foundation/WorkMeter.h"
#include "Tests/Foundation/WatchedTime.h"

namespace tavlo::test {

namespace {

// A table of numbers whose hashes clash often.
class NumberTable {
 public:
  static std::size_t hashOf(int number) { return static_cast<std::size_t>(number % 997) * 31; }
  auto hashes() const {
    return [this](std::size_t index) { return hashOf(numbers_[index]); };
  }

  void append(int number) {
    if (!slots_.hasRoomFor(numbers_.size() + 1)) grow(numbers_.size() + 1);
    numbers_.push_back(number);
    slots_.put(hashOf(number), numbers_.size() - 1);
  }
  void grow(std::size_t count) { slots_.grow(SlotIndex::sizeFor(count), numbers_.size(), hashes()); }
  void shrink() { slots_.rebuild(SlotIndex::sizeFor(numbers_.size()), numbers_.size(), hashes()); }
  void removeAt(std::size_t index) {
    slots_.remove(static_cast<std::uint32_t>(index), numbers_.size(), hashes());
    numbers_.erase(numbers_.begin() + static_cast<std::ptrdiff_t>(index));
  }

  std::uint32_t find(int number) const {
    return slots_.find(hashOf(number), [&](std::uint32_t index) { return numbers_[index] == number; });
  }
  // Whether each number is found where it stands, and one that is not there is not.
  bool isWhole() const {
    for (std::size_t index = 0; index < numbers_.size(); ++index) {
      if (find(numbers_[index]) != index) return false;
    }
    return find(-1) == SlotIndex::kNowhere;
  }
  std::size_t count() const { return numbers_.size(); }
  const SlotIndex& slots() const { return slots_; }

 private:
  std::vector<int> numbers_;
  SlotIndex slots_;
};

TEST(SlotIndex, FindsEveryEntryWhereverOthersAreTakenOut) {
  std::minstd_rand random(11);
  NumberTable table;
  for (int number = 0; number < 2'000; ++number) {
    table.append(number);
    if (table.count() > 100) table.removeAt(random() % table.count());
    ASSERT_TRUE(table.isWhole()) << number;
  }
}

TEST(SlotIndex, ShrinksWhereItIsTooLarge) {
  NumberTable table;
  for (int number = 0; number < 400; ++number) table.append(number);
  EXPECT_EQ(table.slots().size(), 2048U);
  while (!table.slots().isTooLargeFor(table.count())) table.removeAt(table.count() - 1);
  EXPECT_EQ(table.count(), 127U);
  table.shrink();
  EXPECT_EQ(table.slots().size(), 512U);
  EXPECT_TRUE(table.isWhole());
}

TEST(SlotIndex, StaysAsItIsWhereTimeIsOverWhileItGrows) {
  NumberTable table;
  for (int number = 0; number < 10'000; ++number) table.append(number);
  const std::size_t size = table.slots().size();
  {
    WatchedTime time(0);
    const WorkMeter::Scope scope(time);
    EXPECT_THROW(table.grow(100'000), std::runtime_error);
  }
  EXPECT_EQ(table.slots().size(), size);
  EXPECT_TRUE(table.isWhole());
}

}  // namespace

}  // namespace tavlo::test
