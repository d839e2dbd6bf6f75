#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

#include "Foundation/HostObject.h"
#include "Foundation/NSArray.h"
#include "Foundation/NSDate.h"
#include "Foundation/ValueConversion.h"
#include "Tests/Foundation/Raised.h"
#include "Tests/Foundation/SpecialNumbers.h"

namespace tavlo::test {

namespace {

// The value of the next number above the largest one, and below the smallest one, as a double.
template <class T>
double beyond(bool isAbove) {
  const double size = std::ldexp(1.0, std::numeric_limits<T>::digits);
  if (isAbove) return size;
  return std::is_signed_v<T> ? -size * 2 : -1.0;
}

template <class T>
class IntegerConversion : public testing::Test {};
using Integers = testing::Types<char, signed char, unsigned char, short, unsigned short, int, unsigned, long,
                                unsigned long, long long, unsigned long long, char8_t, char16_t, char32_t, wchar_t>;
TYPED_TEST_SUITE(IntegerConversion, Integers);

TYPED_TEST(IntegerConversion, KeepsTheSmallestAndTheLargest) {
  using Limits = std::numeric_limits<TypeParam>;
  for (const TypeParam number : {Limits::min(), TypeParam(0), TypeParam(1), Limits::max()}) {
    const Value value = valueOf(number);
    EXPECT_TRUE(value.isNumber());
    EXPECT_EQ(value.description(), std::to_string(number));
    EXPECT_EQ(objectOf<TypeParam>(value), number);
  }
}

TYPED_TEST(IntegerConversion, ReadsEveryNumber) {
  using Limits = std::numeric_limits<TypeParam>;
  struct Row {
    const char* what;
    Value value;
    TypeParam expected;
  };
  const Row rows[] = {
      {"null", Value::null(), 0},
      {"absent", Value(), 0},
      {"true", true, 1},
      {"false", false, 0},
      {"a fraction", 2.75, 2},
      {"a single fraction", 2.75F, 2},
      {"a negative fraction", -0.5, 0},
      {"not-a-number", kNotANumber, 0},
      {"infinity", kInfinity, Limits::max()},
      {"minus infinity", -kInfinity, Limits::min()},
      {"a double beyond the largest", beyond<TypeParam>(true), Limits::max()},
      {"a double beyond the smallest", beyond<TypeParam>(false), Limits::min()},
      {"an integer beyond the largest", std::uint64_t{Limits::max()} + 1, static_cast<TypeParam>(Limits::max() + 1ULL)},
      {"minus one", -1, static_cast<TypeParam>(-1)},
      {"all bits", std::numeric_limits<std::uint64_t>::max(), static_cast<TypeParam>(-1)},
  };
  for (const Row& row : rows) EXPECT_EQ(objectIn<TypeParam>(row.value), row.expected) << row.what;
}

TYPED_TEST(IntegerConversion, RefusesWhatIsNoNumber) {
  for (const Value& value : {Value("5"), Value(""), Value(NSArray::array())}) {
    EXPECT_FALSE(objectIn<TypeParam>(value).has_value()) << value.description();
  }
}

template <class T>
class RealConversion : public testing::Test {};
using Reals = testing::Types<float, double, long double>;
TYPED_TEST_SUITE(RealConversion, Reals);

TYPED_TEST(RealConversion, KeepsWhatADoubleHolds) {
  using Limits = std::conditional_t<(sizeof(TypeParam) > sizeof(double)), std::numeric_limits<double>,
                                    std::numeric_limits<TypeParam>>;
  for (const auto number : {Limits::lowest(), Limits::max(), Limits::denorm_min(), Limits::infinity()}) {
    EXPECT_EQ(objectOf<TypeParam>(valueOf(static_cast<TypeParam>(number))), number);
  }
  EXPECT_TRUE(std::isnan(objectOf<TypeParam>(valueOf(static_cast<TypeParam>(kNotANumber)))));
  EXPECT_TRUE(std::signbit(objectOf<TypeParam>(valueOf(static_cast<TypeParam>(-0.0)))));
}

TYPED_TEST(RealConversion, ReadsEveryNumberAndNothingElse) {
  EXPECT_EQ(objectIn<TypeParam>(Value::null()), TypeParam(0));
  EXPECT_EQ(objectIn<TypeParam>(Value()), TypeParam(0));
  EXPECT_EQ(objectIn<TypeParam>(true), TypeParam(1));
  EXPECT_EQ(objectIn<TypeParam>(std::numeric_limits<std::uint64_t>::max()), TypeParam(18446744073709551616.0));
  EXPECT_EQ(objectIn<TypeParam>(std::numeric_limits<std::int64_t>::min()), TypeParam(-9223372036854775808.0));
  EXPECT_FALSE(objectIn<TypeParam>("5").has_value());
}

TEST(ConvertedFloats, AreInfiniteBeyondTheirRange) {
  EXPECT_EQ(objectOf<float>(1e300), std::numeric_limits<float>::infinity());
  EXPECT_EQ(objectOf<float>(-1e300), -std::numeric_limits<float>::infinity());
  EXPECT_EQ(valueOf(0.1F).description(), "0.1");
}

TEST(ConvertedTruths, AreWhetherANumberIsOtherThanZero) {
  struct Row {
    const char* what;
    Value value;
    bool expected;
  };
  const Row rows[] = {
      {"true", true, true},        {"false", false, false},
      {"zero", 0, false},          {"the size of a char", 256, true},
      {"a half", 0.5, true},       {"not-a-number", kNotANumber, true},
      {"minus zero", -0.0, false}, {"null", Value::null(), false},
      {"absent", {}, false},
  };
  for (const Row& row : rows) EXPECT_EQ(objectIn<bool>(row.value), row.expected) << row.what;
  EXPECT_FALSE(objectIn<bool>("true").has_value());
  EXPECT_TRUE(valueOf(true).isBoolean());
}

TEST(ConvertedTexts, AreStringsOfEveryKind) {
  const std::string text = "gr\u00fc\u00df \U0001F600";
  char buffer[] = "buffer";
  const char* const null = nullptr;
  struct Row {
    const char* what;
    Value value;
    std::string expected;
  };
  const Row rows[] = {
      {"a string", valueOf(text), text},
      {"a view", valueOf(std::string_view(text)), text},
      {"a literal", valueOf("literal"), "literal"},
      {"a buffer", valueOf(buffer), "buffer"},
      {"a pointer", valueOf(text.c_str()), text},
      {"UTF-8", valueOf(std::u8string(u8"gr\u00fcn")), "gr\u00fcn"},
      {"UTF-16", valueOf(std::u16string(u"\U0001F600")), "\U0001F600"},
      {"a null character", valueOf(std::string("a\0b", 3)), std::string("a\0b", 3)},
      {"empty", valueOf(std::string_view()), ""},
  };
  for (const Row& row : rows) {
    ASSERT_TRUE(row.value.isString()) << row.what;
    EXPECT_EQ(row.value.description(), row.expected) << row.what;
  }
  EXPECT_TRUE(valueOf(null).isNull());
}

TEST(ConvertedTexts, AreReadAsEveryKindOfString) {
  const Value value("\u00fc\U0001F600!");
  EXPECT_EQ(objectOf<std::string>(value), "\u00fc\U0001F600!");
  EXPECT_EQ(objectOf<std::string_view>(value), "\u00fc\U0001F600!");
  EXPECT_STREQ(objectOf<const char*>(value), "\u00fc\U0001F600!");
  EXPECT_TRUE(objectOf<std::u8string>(value) == u8"\u00fc\U0001F600!");
  EXPECT_EQ(objectOf<std::u16string>(value), u"\u00fc\U0001F600!");
}

TEST(ConvertedTexts, AreTheValuesOwnWhereTheyAreViews) {
  const Value value("text");
  EXPECT_EQ(objectOf<std::string_view>(value).data(), value.string()->characters());
  EXPECT_EQ(objectOf<const char*>(value), value.string()->characters());
}

TEST(ConvertedTexts, AreNothingElse) {
  for (const Value& value : {Value(5), Value(true), Value::null(), Value(), Value(NSArray::array())}) {
    EXPECT_FALSE(objectIn<std::string>(value).has_value()) << value.description();
    EXPECT_FALSE(objectIn<std::string_view>(value).has_value()) << value.description();
    EXPECT_FALSE(objectIn<const char*>(value).has_value()) << value.description();
    EXPECT_FALSE(objectIn<std::u16string>(value).has_value()) << value.description();
  }
}

TEST(ConvertedTexts, EndAtNoNullCharacterUnseen) {
  const Value value(std::string("a\0b", 3));
  EXPECT_FALSE(objectIn<const char*>(value).has_value());
  EXPECT_EQ(objectOf<std::string>(value).size(), 3U);
}

TEST(ConvertedTexts, AreCheckedAtTheBorder) {
  EXPECT_EQ(raisedName([] { (void)valueOf(std::string("ab\xFF")); }), NSInvalidArgumentException);
  EXPECT_EQ(raisedName([] { (void)valueOf(std::u16string(1, u'\xD800')); }), NSInvalidArgumentException);
}

TEST(ConvertedNothing, IsNull) {
  EXPECT_TRUE(valueOf(nullptr).isNull());
  EXPECT_TRUE(valueOf(std::monostate()).isNull());
  EXPECT_TRUE(valueOf(std::nullopt).isNull());
  EXPECT_TRUE(objectIn<std::monostate>(Value::null()).has_value());
  EXPECT_TRUE(objectIn<std::nullptr_t>(Value()).has_value());
  EXPECT_FALSE(objectIn<std::monostate>(0).has_value());
}

TEST(ConvertedValues, AreWhatTheyAre) {
  EXPECT_TRUE(objectOf<Value>(Value::null()).isNull());
  EXPECT_TRUE(objectOf<Value>(Value()).isAbsent());
  const Ref<NSArray> array = NSArray::arrayWithObjects({1});
  EXPECT_EQ(valueOf(array).object(), array.get());
  EXPECT_EQ(objectOf<Ref<NSArray>>(array), array);
  EXPECT_EQ(objectOf<Ref<NSArray>>(Value::null()), nullptr);
  EXPECT_FALSE(objectIn<Ref<NSArray>>("text").has_value());
  EXPECT_TRUE(valueOf(Ref<NSArray>()).isAbsent());
}

TEST(ConvertedObjects, AreNamedWhereTheyAreRefused) {
  const std::string prefix = "NSInvalidArgumentException: Incorrect type for ";
  EXPECT_EQ(raised([] { (void)objectOf<int>("5"); }), prefix + "int: NSString supplied, NSNumber expected.");
  EXPECT_EQ(raised([] { (void)objectOf<std::string>(Value::null()); }),
            prefix + "string: NSNull supplied, NSString expected.");
  EXPECT_EQ(raised([] { (void)objectOf<Ref<NSDate>>(1); }), prefix + "object: NSNumber supplied, NSDate expected.");
  EXPECT_EQ(raised([] { (void)objectOf<std::vector<std::optional<double>>>(1); }),
            prefix + "array: NSNumber supplied, NSArray of NSNumber or null expected.");
}

}  // namespace

}  // namespace tavlo::test
