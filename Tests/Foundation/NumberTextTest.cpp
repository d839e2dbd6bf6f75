#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string>

#include "Foundation/NSKeyValueCoding.h"
#include "Foundation/NSNumber.h"
#include "Foundation/Value.h"

namespace tavlo::test {

namespace {

struct IntegerTextRow {
  Value number;
  const char* text;
};

TEST(NumberText, OfIntegersAndBooleansIsTheirDigits) {
  const IntegerTextRow rows[] = {
      {0, "0"},
      {true, "1"},
      {false, "0"},
      {-1, "-1"},
      {1000000, "1000000"},
      {std::numeric_limits<std::int8_t>::min(), "-128"},
      {std::numeric_limits<std::int32_t>::max(), "2147483647"},
      {std::numeric_limits<std::int32_t>::min(), "-2147483648"},
      {std::numeric_limits<std::uint32_t>::max(), "4294967295"},
      {std::numeric_limits<std::int64_t>::max(), "9223372036854775807"},
      {std::numeric_limits<std::int64_t>::min(), "-9223372036854775808"},
      {std::numeric_limits<std::uint64_t>::max(), "18446744073709551615"},
      {std::uint64_t{1} << 63, "9223372036854775808"},
  };
  for (const IntegerTextRow& row : rows) {
    EXPECT_EQ(row.number.description(), row.text);
    EXPECT_EQ(valueForKeyPath(row.number, "stringValue").description(), row.text);
    EXPECT_EQ(valueForKeyPath(row.number, "description").description(), row.text);
  }
}

struct DoubleTextRow {
  double number;
  const char* text;
};

const DoubleTextRow kDoubleTexts[] = {
    {-0.0, "-0"},
    {0.0, "0"},
    {1.0, "1"},
    {-1.0, "-1"},
    {5.0, "5"},
    {0.1, "0.1"},
    {0.2, "0.2"},
    {0.30000000000000004, "0.30000000000000004"},
    {0.3333333333333333, "0.3333333333333333"},
    {0.6666666666666666, "0.6666666666666666"},
    {0.5, "0.5"},
    {-0.25, "-0.25"},
    {1.5, "1.5"},
    {3.5, "3.5"},
    {100.0, "100"},
    {123.456, "123.456"},
    {-123.456, "-123.456"},
    {100000.0, "100000"},
    {1000000.0, "1000000"},
    {1000000000000000.0, "1000000000000000"},
    {1.2345678901234568e+17, "1.2345678901234568e+17"},
    {9.999999999999998e+16, "99999999999999980"},
    {1e+16, "10000000000000000"},
    {1e+17, "1e+17"},
    {-1e+17, "-1e+17"},
    {1e+18, "1e+18"},
    {1.5e+17, "1.5e+17"},
    {1e+21, "1e+21"},
    {1e+22, "1e+22"},
    {1e+23, "1e+23"},
    {1e+100, "1e+100"},
    {1.7976931348623157e+308, "1.7976931348623157e+308"},
    {2.2250738585072014e-308, "2.2250738585072014e-308"},
    {2.225073858507201e-308, "2.225073858507201e-308"},
    {5e-324, "5e-324"},
    {1e-323, "1e-323"},
    {0.0001, "0.0001"},
    {0.00012345, "0.00012345"},
    {1e-05, "1e-05"},
    {9.9999e-05, "9.9999e-05"},
    {1.5e-07, "1.5e-07"},
    {1e-10, "1e-10"},
    {-1e-05, "-1e-05"},
    {16777215.0, "16777215"},
    {16777216.0, "16777216"},
    {16777217.0, "16777217"},
    {4294967295.0, "4294967295"},
    {4294967296.0, "4294967296"},
    {9007199254740991.0, "9007199254740991"},
    {9007199254740992.0, "9007199254740992"},
    {9007199254740994.0, "9007199254740994"},
    {9.223372036854776e+18, "9.223372036854776e+18"},
    {1.8446744073709552e+19, "1.8446744073709552e+19"},
    {1234567.125, "1234567.125"},
    {9.5e-05, "9.5e-05"},
    {12345678.9, "12345678.9"},
    {2500000000000000.5, "2500000000000000.5"},
    {1.0000000000000002e+16, "10000000000000002"},
    {9007199254740990.0, "9007199254740990"},
    {5.684341886080802e-14, "5.684341886080802e-14"},
    {3.141592653589793, "3.141592653589793"},
    {2.718281828459045, "2.718281828459045"},
    {1.1, "1.1"},
    {2.2, "2.2"},
    {1000000000.1, "1000000000.1"},
    {-0.0001, "-0.0001"},
    {4.35, "4.35"},
    {0.007, "0.007"},
    {8.41e+21, "8.41e+21"},
    {1.5e-323, "1.5e-323"},
    {1.0000000000000002, "1.0000000000000002"},
};

TEST(NumberText, OfADoubleIsTheShortestThatReadsBack) {
  for (const DoubleTextRow& row : kDoubleTexts) {
    EXPECT_EQ(Value(row.number).description(), row.text);
    EXPECT_EQ(Value(-row.number).description(),
              row.text[0] == '-' ? std::string(row.text + 1) : "-" + std::string(row.text));
    const double back = textAsDouble(row.text);
    EXPECT_EQ(back, row.number) << row.text;
    EXPECT_EQ(std::signbit(back), std::signbit(row.number)) << row.text;
    EXPECT_EQ(valueForKeyPath(row.number, "stringValue").description(), row.text);
    char text[kNumberTextSize];
    EXPECT_EQ(std::string(text, writeDouble(text, row.number)), row.text);
  }
}

struct FloatTextRow {
  float number;
  const char* text;
};

TEST(NumberText, OfAFloatIsTheShortestThatReadsBackAsAFloat) {
  const FloatTextRow rows[] = {
      {-0.0F, "-0"},
      {0.0F, "0"},
      {1.0F, "1"},
      {-1.0F, "-1"},
      {0.100000001F, "0.1"},
      {0.200000003F, "0.2"},
      {0.300000012F, "0.3"},
      {0.333333343F, "0.33333334"},
      {0.5F, "0.5"},
      {1.5F, "1.5"},
      {100.0F, "100"},
      {3.14159274F, "3.1415927"},
      {16777215.0F, "16777215"},
      {16777216.0F, "16777216"},
      {16777218.0F, "16777218"},
      {33554432.0F, "33554432"},
      {123456792.0F, "123456790"},
      {1e+09F, "1000000000"},
      {1e+10F, "10000000000"},
      {1.00000003e+16F, "10000000000000000"},
      {9.99999984e+16F, "1e+17"},
      {-9.99999984e+16F, "-1e+17"},
      {3.40282347e+38F, "3.4028235e+38"},
      {1.17549435e-38F, "1.1754944e-38"},
      {1.40129846e-45F, "1e-45"},
      {2.80259693e-45F, "3e-45"},
      {9.99999975e-05F, "0.0001"},
      {9.99999975e-06F, "1e-05"},
      {1.50000005e-07F, "1.5e-07"},
      {-0.25F, "-0.25"},
      {2.14748365e+09F, "2147483600"},
      {4.2949673e+09F, "4294967300"},
      {9.22337204e+18F, "9.223372e+18"},
      {0.699999988F, "0.7"},
      {1.10000002F, "1.1"},
      {2.20000005F, "2.2"},
      {123.456001F, "123.456"},
      {0.00700000022F, "0.007"},
      {65504.0F, "65504"},
      {9.99999898e+16F, "99999990000000000"},
      {1.00000001e-10F, "1e-10"},
      {8388608.0F, "8388608"},
      {8388607.5F, "8388607.5"},
      {9.50000031e-05F, "9.5e-05"},
      {0.000123000005F, "0.000123"},
  };
  for (const FloatTextRow& row : rows) {
    EXPECT_EQ(Value(row.number).description(), row.text);
    EXPECT_EQ(static_cast<float>(textAsDouble(row.text)), row.number) << row.text;
    char text[kNumberTextSize];
    EXPECT_EQ(std::string(text, writeFloat(text, row.number)), row.text);
  }
}

TEST(NumberText, OfWhatIsNoOrdinaryNumber) {
  const double infinity = std::numeric_limits<double>::infinity();
  const double notANumber = std::numeric_limits<double>::quiet_NaN();
  const IntegerTextRow rows[] = {
      {infinity, "inf"},
      {-infinity, "-inf"},
      {notANumber, "nan"},
      {-notANumber, "nan"},
      {static_cast<float>(infinity), "inf"},
      {static_cast<float>(-infinity), "-inf"},
      {static_cast<float>(notANumber), "nan"},
  };
  for (const IntegerTextRow& row : rows) EXPECT_EQ(row.number.description(), row.text);
}

// A sequence of bit patterns that looks random and is always the same.
std::uint64_t nextPattern(std::uint64_t& state) {
  state = state * 6364136223846793005U + 1442695040888963407U;
  return state ^ (state >> 29);
}

TEST(NumberText, OfAnyDoubleReadsBackAndNeedsNoDigitMore) {
  std::uint64_t state = 1;
  for (int round = 0; round < 20'000; ++round) {
    const auto number = std::bit_cast<double>(nextPattern(state));
    if (!std::isfinite(number)) continue;
    const std::string text = Value(number).description();
    ASSERT_EQ(textAsDouble(text), number) << text;
    ASSERT_EQ(std::strtod(text.c_str(), nullptr), number) << text;
    ASSERT_LE(text.size(), kNumberTextSize) << text;
    // One significant digit fewer, correctly rounded, is another number.
    const std::string mantissa = text.substr(0, text.find('e'));
    std::size_t digits = 0;
    for (const char letter : mantissa) digits += letter >= '0' && letter <= '9' ? 1 : 0;
    if (digits < 2 || text.find('e') == std::string::npos) continue;
    char shorter[64];
    std::snprintf(shorter, sizeof shorter, "%.*e", static_cast<int>(digits) - 2, number);
    ASSERT_NE(std::strtod(shorter, nullptr), number) << text;
  }
}

TEST(NumberText, OfAnyFloatReadsBackAsThatFloat) {
  std::uint64_t state = 2;
  for (int round = 0; round < 20'000; ++round) {
    const auto number = std::bit_cast<float>(static_cast<std::uint32_t>(nextPattern(state) >> 32));
    if (!std::isfinite(number)) continue;
    const std::string text = Value(number).description();
    ASSERT_EQ(std::strtof(text.c_str(), nullptr), number) << text;
  }
}

}  // namespace

}  // namespace tavlo::test
