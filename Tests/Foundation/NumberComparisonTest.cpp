#include <gtest/gtest.h>

#include <cstdint>
#include <iterator>
#include <limits>

#include "Foundation/NSNumber.h"
#include "Foundation/Value.h"
#include "Tests/Foundation/SpecialNumbers.h"

namespace tavlo::test {

namespace {

struct ComparisonRow {
  Value left;
  Value right;
  NumberOrder order;
};

NumberOrder opposite(NumberOrder order) {
  if (order == NumberOrder::Less) return NumberOrder::Greater;
  return order == NumberOrder::Greater ? NumberOrder::Less : order;
}

constexpr auto kLess = NumberOrder::Less;
constexpr auto kEqual = NumberOrder::Equal;
constexpr auto kGreater = NumberOrder::Greater;
constexpr auto kUnordered = NumberOrder::Unordered;

const ComparisonRow kComparisons[] = {
    {0, 0, kEqual},
    {0, -0.0, kEqual},
    {0.0, -0.0, kEqual},
    {false, 0, kEqual},
    {true, 1.0, kEqual},
    {true, 2, kLess},
    {-1, 1, kLess},
    {-2, -1, kLess},
    {INT64_MIN, INT64_MAX, kLess},
    // A signed and an unsigned integer of the same bits.
    {-1, UINT64_MAX, kLess},
    {INT64_MIN, std::uint64_t{1} << 63, kLess},
    {INT64_MAX, std::uint64_t{INT64_MAX}, kEqual},
    {INT64_MAX, (std::uint64_t{1} << 63), kLess},
    {5, 5U, kEqual},
    // Where rounding the integer to a double would say otherwise.
    {9007199254740993, 9007199254740992.0, kGreater},
    {9007199254740991, 9007199254740992.0, kLess},
    {-9007199254740993, -9007199254740992.0, kLess},
    {9007199254740992, 9007199254740992.0, kEqual},
    {INT64_MAX, 9223372036854775808.0, kLess},
    {INT64_MAX, 9223372036854774784.0, kGreater},
    {INT64_MIN, -9223372036854775808.0, kEqual},
    {INT64_MIN + 1, -9223372036854775808.0, kGreater},
    {INT64_MIN, -9223372036854777856.0, kGreater},
    {std::uint64_t{1} << 63, 9223372036854775808.0, kEqual},
    {(std::uint64_t{1} << 63) + 1, 9223372036854775808.0, kGreater},
    {UINT64_MAX, 18446744073709551616.0, kLess},
    {UINT64_MAX, 18446744073709549568.0, kGreater},
    {UINT64_MAX - 2047, 18446744073709549568.0, kEqual},
    {UINT64_MAX, -1.0, kGreater},
    // A fraction breaks the tie.
    {5, 5.5, kLess},
    {5, 4.5, kGreater},
    {-5, -5.5, kGreater},
    {-5, -4.5, kLess},
    {0, 5e-324, kLess},
    {0, -5e-324, kGreater},
    {0, -0.5, kGreater},
    {-1, -0.5, kLess},
    {0U, -0.5, kGreater},
    {1, 1e300, kLess},
    {1, -1e300, kGreater},
    {INT64_MAX, kInfinity, kLess},
    {INT64_MIN, -kInfinity, kGreater},
    {UINT64_MAX, kInfinity, kLess},
    {kInfinity, kInfinity, kEqual},
    {-kInfinity, kInfinity, kLess},
    {1e300, kInfinity, kLess},
    {1.5, 1.25, kGreater},
    // A float is the number that it is, not the one that it was written as.
    {0.5F, 0.5, kEqual},
    {0.1F, 0.1, kGreater},
    {16777216.0F, 16777217, kLess},
    {16777216.0F, 16777216, kEqual},
    {1.5F, 1.25F, kGreater},
    {kNotANumber, kNotANumber, kUnordered},
    {kNotANumber, 0, kUnordered},
    {kNotANumber, UINT64_MAX, kUnordered},
    {kNotANumber, kInfinity, kUnordered},
    {kNotANumber, true, kUnordered},
    {std::numeric_limits<float>::quiet_NaN(), 1.0F, kUnordered},
};

TEST(NumberComparison, IsByTheMathematicalValues) {
  for (const ComparisonRow& row : kComparisons) {
    const std::string what = row.left.description() + " and " + row.right.description();
    EXPECT_EQ(compareNumbers(row.left.peek(), row.right.peek()), row.order) << what;
    EXPECT_EQ(compareNumbers(row.right.peek(), row.left.peek()), opposite(row.order)) << what;
    EXPECT_EQ(row.left.isEqual(row.right), row.order == kEqual) << what;
    EXPECT_EQ(row.right.isEqual(row.left), row.order == kEqual) << what;
    EXPECT_EQ(row.left.isLessThan(row.right), row.order == kLess) << what;
    EXPECT_EQ(row.left.isGreaterThan(row.right), row.order == kGreater) << what;
  }
}

TEST(NumberComparison, AgreesWithTheHash) {
  for (const ComparisonRow& row : kComparisons) {
    if (row.order != kEqual) continue;
    EXPECT_EQ(row.left.hash(), row.right.hash()) << row.left.description() << " and " << row.right.description();
    EXPECT_EQ(hashOfNumber(row.left.peek()), hashOfNumber(row.right.peek()));
  }
}

// In ascending order; what stands on one line is equal.
const std::vector<std::vector<Value>> kAscending = {
    {-kInfinity},
    {-1e300},
    {-9223372036854777856.0},
    {INT64_MIN, -9223372036854775808.0, -9223372036854775808.0F},
    {INT64_MIN + 1},
    {-9007199254740993},
    {-9007199254740992, -9007199254740992.0},
    {-1.5, -1.5F},
    {-1, -1.0, -1.0F},
    {-5e-324},
    {0, 0U, 0.0, -0.0, 0.0F, false},
    {5e-324},
    {1, 1U, 1.0, 1.0F, true},
    {9007199254740992, 9007199254740992.0},
    {9007199254740993, 9007199254740993U},
    {9223372036854774784.0, 9223372036854774784},
    {INT64_MAX},
    {9223372036854775808.0, std::uint64_t{1} << 63, 9223372036854775808.0F},
    {18446744073709549568.0, UINT64_MAX - 2047},
    {UINT64_MAX},
    {18446744073709551616.0, 18446744073709551616.0F},
    {1e300},
    {kInfinity, std::numeric_limits<float>::infinity()},
};

TEST(NumberComparison, IsOneOrderOverAllKinds) {
  for (std::size_t low = 0; low < kAscending.size(); ++low) {
    for (std::size_t high = 0; high < kAscending.size(); ++high) {
      for (const Value& left : kAscending[low]) {
        for (const Value& right : kAscending[high]) {
          EXPECT_EQ(left.isLessThan(right), low < high) << left.description() << " and " << right.description();
          EXPECT_EQ(left.isGreaterThan(right), low > high) << left.description() << " and " << right.description();
          EXPECT_EQ(left.isEqual(right), low == high) << left.description() << " and " << right.description();
          if (low == high) {
            EXPECT_EQ(left.hash(), right.hash()) << left.description();
          }
        }
      }
    }
  }
}

}  // namespace

}  // namespace tavlo::test
