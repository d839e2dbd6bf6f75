#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>

#include "Foundation/NSKeyValueCoding.h"
#include "Foundation/NSNumber.h"
#include "Foundation/Value.h"
#include "Tests/Foundation/Raised.h"
#include "Tests/Foundation/SpecialNumbers.h"

namespace tavlo::test {

namespace {

struct NarrowingRow {
  double number;
  int i8;
  int u8;
  int i16;
  int u16;
  std::int32_t i32;
  std::uint32_t u32;
  std::int64_t i64;
  std::uint64_t u64;
};

const NarrowingRow kNarrowings[] = {
    {0.0, 0, 0, 0, 0, 0, 0U, 0, 0U},
    {-0.0, 0, 0, 0, 0, 0, 0U, 0, 0U},
    {0.9, 0, 0, 0, 0, 0, 0U, 0, 0U},
    {-0.9, 0, 0, 0, 0, 0, 0U, 0, 0U},
    {1.5, 1, 1, 1, 1, 1, 1U, 1, 1U},
    {-1.5, -1, 0, -1, 0, -1, 0U, -1, 0U},
    {127.0, 127, 127, 127, 127, 127, 127U, 127, 127U},
    {127.9, 127, 127, 127, 127, 127, 127U, 127, 127U},
    {128.0, 127, 128, 128, 128, 128, 128U, 128, 128U},
    {-128.0, -128, 0, -128, 0, -128, 0U, -128, 0U},
    {-128.9, -128, 0, -128, 0, -128, 0U, -128, 0U},
    {-129.0, -128, 0, -129, 0, -129, 0U, -129, 0U},
    {255.0, 127, 255, 255, 255, 255, 255U, 255, 255U},
    {255.5, 127, 255, 255, 255, 255, 255U, 255, 255U},
    {256.0, 127, 255, 256, 256, 256, 256U, 256, 256U},
    {32767.5, 127, 255, 32767, 32767, 32767, 32767U, 32767, 32767U},
    {32768.0, 127, 255, 32767, 32768, 32768, 32768U, 32768, 32768U},
    {-32768.5, -128, 0, -32768, 0, -32768, 0U, -32768, 0U},
    {-32769.0, -128, 0, -32768, 0, -32769, 0U, -32769, 0U},
    {65535.9, 127, 255, 32767, 65535, 65535, 65535U, 65535, 65535U},
    {65536.0, 127, 255, 32767, 65535, 65536, 65536U, 65536, 65536U},
    {2147483647.0, 127, 255, 32767, 65535, 2147483647, 2147483647U, 2147483647, 2147483647U},
    {2147483647.5, 127, 255, 32767, 65535, 2147483647, 2147483647U, 2147483647, 2147483647U},
    {2147483648.0, 127, 255, 32767, 65535, 2147483647, 2147483648U, 2147483648, 2147483648U},
    {-2147483648.0, -128, 0, -32768, 0, INT32_MIN, 0U, -2147483648, 0U},
    {-2147483648.9, -128, 0, -32768, 0, INT32_MIN, 0U, -2147483648, 0U},
    {-2147483649.0, -128, 0, -32768, 0, INT32_MIN, 0U, -2147483649LL, 0U},
    {4294967295.0, 127, 255, 32767, 65535, 2147483647, 4294967295U, 4294967295LL, 4294967295U},
    {4294967295.9, 127, 255, 32767, 65535, 2147483647, 4294967295U, 4294967295LL, 4294967295U},
    {4294967296.0, 127, 255, 32767, 65535, 2147483647, 4294967295U, 4294967296LL, 4294967296U},
    {9007199254740992.0, 127, 255, 32767, 65535, 2147483647, 4294967295U, 9007199254740992LL, 9007199254740992U},
    {9.223372036854775e+18, 127, 255, 32767, 65535, 2147483647, 4294967295U, 9223372036854774784LL,
     9223372036854774784U},
    {9.223372036854776e+18, 127, 255, 32767, 65535, 2147483647, 4294967295U, 9223372036854775807LL,
     9223372036854775808ULL},
    {-9.223372036854776e+18, -128, 0, -32768, 0, INT32_MIN, 0U, INT64_MIN, 0U},
    {-9.223372036854778e+18, -128, 0, -32768, 0, INT32_MIN, 0U, INT64_MIN, 0U},
    {1.844674407370955e+19, 127, 255, 32767, 65535, 2147483647, 4294967295U, 9223372036854775807LL,
     18446744073709549568ULL},
    {1.8446744073709552e+19, 127, 255, 32767, 65535, 2147483647, 4294967295U, 9223372036854775807LL,
     18446744073709551615ULL},
    {1e+300, 127, 255, 32767, 65535, 2147483647, 4294967295U, 9223372036854775807LL, 18446744073709551615ULL},
    {-1e+300, -128, 0, -32768, 0, INT32_MIN, 0U, INT64_MIN, 0U},
    {5e-324, 0, 0, 0, 0, 0, 0U, 0, 0U},
    {-5e-324, 0, 0, 0, 0, 0, 0U, 0, 0U},
    {kInfinity, 127, 255, 32767, 65535, 2147483647, 4294967295U, 9223372036854775807LL, 18446744073709551615ULL},
    {-kInfinity, -128, 0, -32768, 0, INT32_MIN, 0U, INT64_MIN, 0U},
    {kNotANumber, 0, 0, 0, 0, 0, 0U, 0, 0U},
};

TEST(Narrowing, CutsADoubleTowardZeroAndClampsIt) {
  for (const NarrowingRow& row : kNarrowings) {
    const RawValue raw = RawValue::real(row.number);
    EXPECT_EQ(numberAsInteger<std::int8_t>(raw), row.i8) << row.number;
    EXPECT_EQ(numberAsInteger<std::uint8_t>(raw), row.u8) << row.number;
    EXPECT_EQ(numberAsInteger<std::int16_t>(raw), row.i16) << row.number;
    EXPECT_EQ(numberAsInteger<std::uint16_t>(raw), row.u16) << row.number;
    EXPECT_EQ(numberAsInteger<std::int32_t>(raw), row.i32) << row.number;
    EXPECT_EQ(numberAsInteger<std::uint32_t>(raw), row.u32) << row.number;
    EXPECT_EQ(numberAsInteger<std::int64_t>(raw), row.i64) << row.number;
    EXPECT_EQ(numberAsInteger<std::uint64_t>(raw), row.u64) << row.number;
    EXPECT_EQ(valueForKeyPath(row.number, "intValue").integerValue(), row.i32) << row.number;
    EXPECT_EQ(valueForKeyPath(row.number, "integerValue").integerValue(), row.i64) << row.number;
  }
}

TEST(Narrowing, CutsAFloatAsADouble) {
  EXPECT_EQ(Value(-2.9F).intValue(), -2);
  EXPECT_EQ(Value(3e9F).intValue(), std::numeric_limits<std::int32_t>::max());
  EXPECT_EQ(Value(static_cast<float>(kNotANumber)).integerValue(), 0);
  EXPECT_EQ(numberAsInteger<std::uint8_t>(RawValue::ofSingle(-1.5F)), 0);
}

struct LowBitsRow {
  Value number;
  int i8;
  int u8;
  int i16;
  int u16;
  std::int32_t i32;
  std::uint32_t u32;
  std::int64_t i64;
  std::uint64_t u64;
};

TEST(Narrowing, KeepsTheLowBitsOfAnInteger) {
  const LowBitsRow rows[] = {
      {0, 0, 0, 0, 0, 0, 0U, 0, 0U},
      {true, 1, 1, 1, 1, 1, 1U, 1, 1U},
      {false, 0, 0, 0, 0, 0, 0U, 0, 0U},
      {-1, -1, 255, -1, 65535, -1, 4294967295U, -1, 18446744073709551615ULL},
      {128, -128, 128, 128, 128, 128, 128U, 128, 128U},
      {-129, 127, 127, -129, 65407, -129, 4294967167U, -129, 18446744073709551487ULL},
      {256, 0, 0, 256, 256, 256, 256U, 256, 256U},
      {32768, 0, 0, -32768, 32768, 32768, 32768U, 32768, 32768U},
      {65536, 0, 0, 0, 0, 65536, 65536U, 65536, 65536U},
      {0x80000000LL, 0, 0, 0, 0, INT32_MIN, 2147483648U, 2147483648LL, 2147483648ULL},
      {0x1FFFFFFFFLL, -1, 255, -1, 65535, -1, 4294967295U, 8589934591LL, 8589934591ULL},
      {INT64_MIN, 0, 0, 0, 0, 0, 0U, INT64_MIN, 9223372036854775808ULL},
      {INT64_MAX, -1, 255, -1, 65535, -1, 4294967295U, INT64_MAX, 9223372036854775807ULL},
      {UINT64_MAX, -1, 255, -1, 65535, -1, 4294967295U, -1, UINT64_MAX},
  };
  for (const LowBitsRow& row : rows) {
    const RawValue raw = row.number.peek();
    const std::string what = row.number.description();
    EXPECT_EQ(numberAsInteger<std::int8_t>(raw), row.i8) << what;
    EXPECT_EQ(numberAsInteger<std::uint8_t>(raw), row.u8) << what;
    EXPECT_EQ(numberAsInteger<std::int16_t>(raw), row.i16) << what;
    EXPECT_EQ(numberAsInteger<std::uint16_t>(raw), row.u16) << what;
    EXPECT_EQ(numberAsInteger<std::int32_t>(raw), row.i32) << what;
    EXPECT_EQ(numberAsInteger<std::uint32_t>(raw), row.u32) << what;
    EXPECT_EQ(numberAsInteger<std::int64_t>(raw), row.i64) << what;
    EXPECT_EQ(numberAsInteger<std::uint64_t>(raw), row.u64) << what;
  }
}

struct TruthRow {
  Value number;
  bool truth;
};

TEST(BoolValue, OfANumberIsWhetherItIsOtherThanZero) {
  const TruthRow rows[] = {
      {0, false},          {1, true},          {-1, true},    {256, true},   {std::int64_t{1} << 32, true},
      {0U, false},         {UINT64_MAX, true}, {0.0, false},  {-0.0, false}, {0.1, true},
      {5e-324, true},      {kInfinity, true},  {0.0F, false}, {-0.5F, true}, {true, true},
      {kNotANumber, true}, {false, false},
  };
  for (const TruthRow& row : rows) {
    EXPECT_EQ(row.number.boolValue(), row.truth) << row.number.description();
    EXPECT_EQ(numberAsBool(row.number.peek()), row.truth) << row.number.description();
    EXPECT_TRUE(valueForKeyPath(row.number, "boolValue").isIdenticalTo(row.truth)) << row.number.description();
  }
}

struct KeyRow {
  Value number;
  const char* key;
  Value value;
};

TEST(NumberKeys, AreTheReadings) {
  const KeyRow rows[] = {
      {-2.75, "intValue", -2},     {2.75, "integerValue", 2},      {7, "doubleValue", 7.0},
      {true, "doubleValue", 1.0},  {0.5F, "doubleValue", 0.5},     {UINT64_MAX, "doubleValue", 18446744073709551616.0},
      {0.1, "stringValue", "0.1"}, {1e17, "description", "1e+17"}, {false, "stringValue", "0"},
  };
  for (const KeyRow& row : rows) {
    EXPECT_TRUE(valueForKeyPath(row.number, row.key).isEqual(row.value)) << row.number.description() << row.key;
  }
  EXPECT_EQ(valueForKeyPath(7, "doubleValue").kind(), ValueKind::Double);
  EXPECT_EQ(raisedName([] { (void)valueForKeyPath(7, "length"); }), "NSUndefinedKeyException");
  EXPECT_EQ(raisedName([] { (void)valueForKeyPath(7, ""); }), "NSUndefinedKeyException");
}

struct DoubleReadingRow {
  std::string text;
  double number;
};

const std::string kZeros(330, '0');
const std::string kNines(310, '9');
const DoubleReadingRow kDoubleReadings[] = {
    {"", 0},
    {"0", 0},
    {"42", 42},
    {"+42", 42},
    {"-42", -42},
    {"--42", 0},
    {"+-42", 0},
    {"- 42", 0},
    {" \t\r\n\u00a0\u3000\u200942", 42},
    {"\u200b42", 0},
    {"1.5", 1.5},
    {"1.", 1},
    {".5", 0.5},
    {"-.5", -0.5},
    {".", 0},
    {"-.", 0},
    {"..5", 0},
    {"1..5", 1},
    {"1.5.5", 1.5},
    {"1,5", 1},
    {"1 000", 1},
    {"1_000", 1},
    {"1e3", 1000},
    {"1E3", 1000},
    {"1e+3", 1000},
    {"1e-3", 0.001},
    {"1e", 1},
    {"1e+", 1},
    {"1e-x", 1},
    {"1e 3", 1},
    {"1e1.5", 10},
    {".e3", 0},
    {"1.e2", 100},
    {".5e1", 5},
    {"e3", 0},
    {"0x1F", 0},
    {"0x", 0},
    {"inf", 0},
    {"infinity", 0},
    {"-inf", 0},
    {"nan", 0},
    {"12abc", 12},
    {"abc12", 0},
    {"\u0661\u0662", 0},
    {"\uff11", 0},
    {"1\u0662", 1},
    {"0.1", 0.1},
    {"9007199254740993", 9007199254740992.0},
    {"123456789012345678901234567890", 123456789012345678901234567890.0},
    {"1.7976931348623157e308", std::numeric_limits<double>::max()},
    {"1e309", kInfinity},
    {"-1e309", -kInfinity},
    {"1e999999999999999999999", kInfinity},
    {"1e-999999999999999999999", 0},
    {kNines, kInfinity},
    {"1" + kZeros, kInfinity},
    {"0." + kZeros + "1", 0},
    {"0." + kZeros + "1e331", 1},
    {"0." + kZeros + "1e1000", kInfinity},
    {"1" + kZeros + "e-330", 1},
    {"1" + kZeros + "e-1000", 0},
    {"0." + kZeros + "1e 1000", 0},
    {kNines + "e -400", kInfinity},
    {"0." + kZeros + "1e+-1000", 0},
    {"0e999999", 0},
    {"0.0e999999", 0},
    {"5e-324", 5e-324},
    {"3e-324", 5e-324},
    {"2e-324", 0},
    {"2.2250738585072011e-308", 2.2250738585072011e-308},
    {"1e-400", 0},
    {std::string("1\0"
                 "2",
                 3),
     1},
};

TEST(TextAsDouble, ReadsTheLongestDecimalPrefix) {
  for (const DoubleReadingRow& row : kDoubleReadings) {
    EXPECT_EQ(textAsDouble(row.text), row.number) << row.text;
    EXPECT_EQ(valueForKeyPath(row.text, "doubleValue").doubleValue(), row.number) << row.text;
  }
  EXPECT_TRUE(std::signbit(textAsDouble("-0")));
}

struct IntegerReadingRow {
  std::string text;
  std::int32_t narrow;
  std::int64_t wide;
};

TEST(TextAsInteger, ReadsTheLongestDecimalPrefixAndClampsIt) {
  const IntegerReadingRow rows[] = {
      {"", 0, 0},
      {"0", 0, 0},
      {"007", 7, 7},
      {"-0", 0, 0},
      {"+5", 5, 5},
      {"-5x", -5, -5},
      {"--5", 0, 0},
      {"- 5", 0, 0},
      {"\u2003\u0085 5", 5, 5},
      {"5.9", 5, 5},
      {"-5.9", -5, -5},
      {".9", 0, 0},
      {"1e3", 1, 1},
      {"0x1F", 0, 0},
      {"1,000", 1, 1},
      {"\u0665", 0, 0},
      {"abc", 0, 0},
      {"2147483647", 2147483647, 2147483647},
      {"2147483648", 2147483647, 2147483648LL},
      {"-2147483648", INT32_MIN, -2147483648LL},
      {"-2147483649", INT32_MIN, -2147483649LL},
      {"9223372036854775807", INT32_MAX, INT64_MAX},
      {"9223372036854775808", INT32_MAX, INT64_MAX},
      {"-9223372036854775807", INT32_MIN, -9223372036854775807LL},
      {"-9223372036854775808", INT32_MIN, INT64_MIN},
      {"-9223372036854775809", INT32_MIN, INT64_MIN},
      {"18446744073709551616", INT32_MAX, INT64_MAX},
      {std::string(1000, '9'), INT32_MAX, INT64_MAX},
      {"-" + std::string(1000, '9'), INT32_MIN, INT64_MIN},
      {std::string(1000, '0') + "12", 12, 12},
  };
  for (const IntegerReadingRow& row : rows) {
    EXPECT_EQ(textAsInt(row.text), row.narrow) << row.text;
    EXPECT_EQ(textAsInteger(row.text), row.wide) << row.text;
    EXPECT_EQ(valueForKeyPath(row.text, "intValue").integerValue(), row.narrow) << row.text;
    EXPECT_EQ(valueForKeyPath(row.text, "integerValue").integerValue(), row.wide) << row.text;
  }
}

struct BoolReadingRow {
  const char* text;
  bool truth;
};

TEST(TextAsBool, LooksAtTheFirstCharacterBehindSpaceSignAndZeros) {
  const BoolReadingRow rows[] = {
      {"", false},    {"0", false},     {"000", false}, {"1", true},       {"9", true},        {"01", true},
      {"Y", true},    {"y", true},      {"T", true},    {"t", true},       {"yes", true},      {"no", false},
      {"true", true}, {"false", false}, {"N", false},   {"f", false},      {"-1", true},       {"+2", true},
      {"-0", false},  {"+0y", true},    {"--1", false}, {"- 1", false},    {" \u30001", true}, {"0.5", false},
      {".5", false},  {"00t", true},    {"x1", false},  {"\u0661", false}, {"0 1", false},     {"\u200b1", false},
  };
  for (const BoolReadingRow& row : rows) {
    EXPECT_EQ(textAsBool(row.text), row.truth) << row.text;
    EXPECT_TRUE(valueForKeyPath(row.text, "boolValue").isIdenticalTo(row.truth)) << row.text;
  }
}

TEST(NumberReading, DoesNotDependOnTheLocale) {
  const std::string before = std::setlocale(LC_ALL, nullptr);
  for (const char* locale : {"C", "C.UTF-8", "POSIX", "de_DE.UTF-8", "tr_TR.UTF-8"}) {
    if (std::setlocale(LC_ALL, locale) == nullptr) continue;  // not on this machine; "C" is on every one
    EXPECT_EQ(textAsDouble("1.5"), 1.5) << locale;
    EXPECT_EQ(textAsDouble("1,5"), 1) << locale;
    EXPECT_EQ(Value(1.5).description(), "1.5") << locale;
    EXPECT_EQ(Value(1234567).description(), "1234567") << locale;
    EXPECT_EQ(valueForKeyPath("iI", "uppercaseString").description(), "II") << locale;
  }
  std::setlocale(LC_ALL, before.c_str());
}

}  // namespace

}  // namespace tavlo::test
