#include <gtest/gtest.h>

#include <limits>
#include <optional>
#include <string>

#include "Foundation/NSDate.h"
#include "Foundation/NSKeyValueCoding.h"
#include "Tests/Foundation/Raised.h"

namespace tavlo::test {

namespace {

struct DateRow {
  double seconds;
  const char* text;
};

TEST(NSDate, ReadsAsItsInstantInUTC) {
  const DateRow rows[] = {
      {0, "1970-01-01 00:00:00 +0000"},
      {-0.0, "1970-01-01 00:00:00 +0000"},
      {1, "1970-01-01 00:00:01 +0000"},
      {0.999, "1970-01-01 00:00:00 +0000"},
      {-0.001, "1969-12-31 23:59:59 +0000"},
      {-1, "1969-12-31 23:59:59 +0000"},
      {-86400, "1969-12-31 00:00:00 +0000"},
      {-86401, "1969-12-30 23:59:59 +0000"},
      {86399, "1970-01-01 23:59:59 +0000"},
      {86400, "1970-01-02 00:00:00 +0000"},
      {1795253400, "2026-11-21 09:30:00 +0000"},
      {951782399, "2000-02-28 23:59:59 +0000"},
      {951782400, "2000-02-29 00:00:00 +0000"},
      {951868800, "2000-03-01 00:00:00 +0000"},
      {1709164800, "2024-02-29 00:00:00 +0000"},
      {1677542400, "2023-02-28 00:00:00 +0000"},
      {1677628800, "2023-03-01 00:00:00 +0000"},
      {4107456000, "2100-02-28 00:00:00 +0000"},
      {4107542400, "2100-03-01 00:00:00 +0000"},
      {-2203977600, "1900-02-28 00:00:00 +0000"},
      {-2203891200, "1900-03-01 00:00:00 +0000"},
      {2147483647, "2038-01-19 03:14:07 +0000"},
      {2147483648, "2038-01-19 03:14:08 +0000"},
      {978307199, "2000-12-31 23:59:59 +0000"},
      {-62135596800, "0001-01-01 00:00:00 +0000"},
      {253402300799, "9999-12-31 23:59:59 +0000"},
      {253402300800, "10000-01-01 00:00:00 +0000"},
  };
  for (const DateRow& row : rows) {
    const Ref<NSDate> date = NSDate::dateWithTimeIntervalSince1970(row.seconds);
    EXPECT_EQ(date->description(), row.text);
    EXPECT_EQ(date->timeIntervalSince1970(), row.seconds);
    EXPECT_EQ(valueForKeyPath(date, "description").description(), row.text);
    EXPECT_TRUE(valueForKeyPath(date, "timeIntervalSince1970").isIdenticalTo(row.seconds)) << row.text;
  }
}

TEST(NSDate, IsOrderedByItsInstant) {
  const Ref<NSDate> earlier = NSDate::dateWithTimeIntervalSince1970(1);
  const Ref<NSDate> later = NSDate::dateWithTimeIntervalSince1970(1.5);
  const Ref<NSDate> sameAsLater = NSDate::dateWithTimeIntervalSince1970(1.5);
  EXPECT_EQ(earlier->isLessThan(later), true);
  EXPECT_EQ(later->isLessThan(earlier), false);
  EXPECT_EQ(later->isLessThan(sameAsLater), false);
  EXPECT_EQ(earlier->isGreaterThan(later), false);
  EXPECT_EQ(later->isGreaterThan(earlier), true);
  EXPECT_EQ(later->isGreaterThan(sameAsLater), false);
  EXPECT_EQ(later->isLessThan(2), std::nullopt);
  EXPECT_EQ(later->isGreaterThan(Value()), std::nullopt);
  EXPECT_TRUE(Value(later).isEqual(sameAsLater));
  EXPECT_FALSE(Value(later).isEqual(earlier));
}

TEST(NSDate, HasATextHoweverFarItIs) {
  const double infinity = std::numeric_limits<double>::infinity();
  for (const double seconds :
       {1e15, -1e15, 1e300, -1e300, infinity, -infinity, 9.3e18, -9.3e18, std::numeric_limits<double>::quiet_NaN()}) {
    const std::string text = NSDate::dateWithTimeIntervalSince1970(seconds)->description();
    EXPECT_TRUE(text.ends_with(" +0000")) << text;
    EXPECT_GE(text.size(), std::string("1970-01-01 00:00:00 +0000").size()) << text;
  }
}

TEST(NSDate, MovesBySeconds) {
  const Ref<NSDate> date = NSDate::dateWithTimeIntervalSince1970(100);
  EXPECT_EQ(date->addTimeInterval(60)->timeIntervalSince1970(), 160);
  EXPECT_EQ(date->addTimeInterval(-100.5)->timeIntervalSince1970(), -0.5);
  EXPECT_EQ(date->timeIntervalSince1970(), 100);
}

TEST(NSDate, EqualsTheSameInstant) {
  const Ref<NSDate> zero = NSDate::dateWithTimeIntervalSince1970(0.0);
  const Ref<NSDate> minusZero = NSDate::dateWithTimeIntervalSince1970(-0.0);
  EXPECT_TRUE(zero->isEqual(*minusZero));
  EXPECT_EQ(zero->hash(), minusZero->hash());
  EXPECT_FALSE(zero->isEqual(*NSDate::dateWithTimeIntervalSince1970(0.1)));
  EXPECT_FALSE(zero->isEqual(*NSString::stringWithUTF8("0")));
}

TEST(NSDate, KnowsNoOtherKey) {
  const Value date = NSDate::dateWithTimeIntervalSince1970(0);
  for (const char* key : {"", "year", "doubleValue", "@count"}) {
    EXPECT_EQ(raisedName([&] { (void)valueForKeyPath(date, key); }), "NSUndefinedKeyException") << key;
  }
}

}  // namespace

}  // namespace tavlo::test
