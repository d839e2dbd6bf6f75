#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

#include "Foundation/HostObject.h"
#include "Foundation/NSArray.h"
#include "Foundation/NSDate.h"
#include "Source/KorTemplateExternalFunction.h"
#include "Source/NSInvocation+Conversion.h"
#include "Tests/Source/EchoedNumbers.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

namespace {

using SetNumber = void (*)(NSInvocation&, const Value&, std::int32_t);
using ReadNumber = Value (*)(const NSInvocation&);

// One type of numbers: its selector, its setter and reader, and its name in messages.
struct TypeRow {
  const char* selector;
  SetNumber set;
  ReadNumber read;
  const char* name;
};

constexpr TypeRow kTypes[] = {
    {"c:", setObjectForCharArgumentAtIndex, returnValueAsChar, "char"},
    {"C:", setObjectForUnsignedCharArgumentAtIndex, returnValueAsUnsignedChar, "unsigned char"},
    {"s:", setObjectForShortArgumentAtIndex, returnValueAsShort, "short"},
    {"S:", setObjectForUnsignedShortArgumentAtIndex, returnValueAsUnsignedShort, "unsigned short"},
    {"i:", setObjectForIntArgumentAtIndex, returnValueAsInt, "int"},
    {"I:", setObjectForUnsignedIntArgumentAtIndex, returnValueAsUnsignedInt, "unsigned int"},
    {"l:", setObjectForLongArgumentAtIndex, returnValueAsLong, "long"},
    {"L:", setObjectForUnsignedLongArgumentAtIndex, returnValueAsUnsignedLong, "unsigned long"},
    {"q:", setObjectForLongLongArgumentAtIndex, returnValueAsLongLong, "long long"},
    {"Q:", setObjectForUnsignedLongLongArgumentAtIndex, returnValueAsUnsignedLongLong, "unsigned long long"},
    {"f:", setObjectForFloatArgumentAtIndex, returnValueAsFloat, "float"},
    {"d:", setObjectForDoubleArgumentAtIndex, returnValueAsDouble, "double"},
};

// What becomes of a value in each type; "l" and "q", "L" and "Q" are alike.
struct ExtremeRow {
  const char* what;
  Value value;
  std::int8_t c;
  std::uint8_t bigC;
  std::int16_t s;
  std::uint16_t bigS;
  std::int32_t i;
  std::uint32_t bigI;
  std::int64_t l;
  std::uint64_t bigL;
  float f;
  double d;

  Value expected(char type) const {
    switch (type) {
      case 'c':
        return c;
      case 'C':
        return bigC;
      case 's':
        return s;
      case 'S':
        return bigS;
      case 'i':
        return i;
      case 'I':
        return bigI;
      case 'l':
      case 'q':
        return l;
      case 'L':
      case 'Q':
        return bigL;
      case 'f':
        return f;
      default:
        return d;
    }
  }
};

constexpr std::int64_t kLongMinimum = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kLongMaximum = std::numeric_limits<std::int64_t>::max();
constexpr std::uint64_t kUnsignedMaximum = std::numeric_limits<std::uint64_t>::max();
constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr float kInfinityF = std::numeric_limits<float>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr std::int32_t kIntMinimum = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t kIntMaximum = std::numeric_limits<std::int32_t>::max();

const ExtremeRow kExtremes[] = {
    {"absent", Value(), 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
    {"true", true, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1},
    {"false", false, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
    {"127", 127, 127, 127, 127, 127, 127, 127, 127, 127, 127, 127},
    {"128", 128, -128, 128, 128, 128, 128, 128, 128, 128, 128, 128},
    {"-128", -128, -128, 128, -128, 65408, -128, 4294967168, -128, 18446744073709551488U, -128, -128},
    {"-129", -129, 127, 127, -129, 65407, -129, 4294967167, -129, 18446744073709551487U, -129, -129},
    {"-1", -1, -1, 255, -1, 65535, -1, 4294967295, -1, kUnsignedMaximum, -1, -1},
    {"255", 255, -1, 255, 255, 255, 255, 255, 255, 255, 255, 255},
    {"256", 256, 0, 0, 256, 256, 256, 256, 256, 256, 256, 256},
    {"32767", 32767, -1, 255, 32767, 32767, 32767, 32767, 32767, 32767, 32767, 32767},
    {"32768", 32768, 0, 0, -32768, 32768, 32768, 32768, 32768, 32768, 32768, 32768},
    {"-32769", -32769, -1, 255, 32767, 32767, -32769, 4294934527, -32769, 18446744073709518847U, -32769, -32769},
    {"65535", 65535, -1, 255, -1, 65535, 65535, 65535, 65535, 65535, 65535, 65535},
    {"65536", 65536, 0, 0, 0, 0, 65536, 65536, 65536, 65536, 65536, 65536},
    {"2^31-1", kIntMaximum, -1, 255, -1, 65535, kIntMaximum, 2147483647, 2147483647, 2147483647, 2147483648.0F,
     2147483647},
    {"2^31", 2147483648, 0, 0, 0, 0, kIntMinimum, 2147483648, 2147483648, 2147483648, 2147483648.0F, 2147483648},
    {"-2^31-1", -2147483649, -1, 255, -1, 65535, kIntMaximum, 2147483647, -2147483649, 18446744071562067967U,
     -2147483648.0F, -2147483649},
    {"2^32-1", 4294967295, -1, 255, -1, 65535, -1, 4294967295, 4294967295, 4294967295, 4294967296.0F, 4294967295},
    {"2^32", 4294967296, 0, 0, 0, 0, 0, 0, 4294967296, 4294967296, 4294967296.0F, 4294967296},
    {"2^63-1", kLongMaximum, -1, 255, -1, 65535, -1, 4294967295, kLongMaximum, 9223372036854775807U, 0x1p63F, 0x1p63},
    {"-2^63", kLongMinimum, 0, 0, 0, 0, 0, 0, kLongMinimum, 9223372036854775808U, -0x1p63F, -0x1p63},
    {"2^63", 9223372036854775808U, 0, 0, 0, 0, 0, 0, kLongMinimum, 9223372036854775808U, 0x1p63F, 0x1p63},
    {"2^64-1", kUnsignedMaximum, -1, 255, -1, 65535, -1, 4294967295, -1, kUnsignedMaximum, 0x1p64F, 0x1p64},
    {"rounded once", 9007199791611905, 1, 1, 1, 1, 536870913, 536870913, 9007199791611905, 9007199791611905,
     9007200328482816.0F, 9007199791611904},
    {"2.9", 2.9, 2, 2, 2, 2, 2, 2, 2, 2, 2.9F, 2.9},
    {"-2.9", -2.9, -2, 0, -2, 0, -2, 0, -2, 0, -2.9F, -2.9},
    {"0.5 as a float", 0.5F, 0, 0, 0, 0, 0, 0, 0, 0, 0.5F, 0.5},
    {"300.7", 300.7, 127, 255, 300, 300, 300, 300, 300, 300, 300.7F, 300.7},
    {"-300.7 as a float", -300.7F, -128, 0, -300, 0, -300, 0, -300, 0, -300.7F, static_cast<double>(-300.7F)},
    {"1e300", 1e300, 127, 255, 32767, 65535, kIntMaximum, 4294967295, kLongMaximum, kUnsignedMaximum, kInfinityF,
     1e300},
    {"-1e300", -1e300, -128, 0, -32768, 0, kIntMinimum, 0, kLongMinimum, 0, -kInfinityF, -1e300},
    {"infinity", kInfinity, 127, 255, 32767, 65535, kIntMaximum, 4294967295, kLongMaximum, kUnsignedMaximum, kInfinityF,
     kInfinity},
    {"-infinity", -kInfinity, -128, 0, -32768, 0, kIntMinimum, 0, kLongMinimum, 0, -kInfinityF, -kInfinity},
    {"not a number", kNaN, 0, 0, 0, 0, 0, 0, 0, 0, std::numeric_limits<float>::quiet_NaN(), kNaN},
    {"1e-320", 1e-320, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1e-320},
    {"the largest double", std::numeric_limits<double>::max(), 127, 255, 32767, 65535, kIntMaximum, 4294967295,
     kLongMaximum, kUnsignedMaximum, kInfinityF, std::numeric_limits<double>::max()},
};

struct EchoStage : Stage {
  Ref<KorTemplateExternalFunction> bind(const Selector& selector) {
    return KorTemplateExternalFunction::functionWithSelectorTarget(selector, echo);
  }
  Value call(const Selector& selector, const Value& value) {
    return bind(selector)->invokeWithEnvironment(get(), {value});
  }

  Echo echo;
};

TEST(ExternalFunctions, NarrowNumbersToEveryTypeAndBack) {
  EchoStage stage;
  for (const ExtremeRow& row : kExtremes) {
    for (const TypeRow& type : kTypes) {
      const Value result = stage.call(type.selector, row.value);
      const Value expected = row.expected(type.selector[0]);
      EXPECT_EQ(result.kind(), expected.kind()) << row.what << " as " << type.name;
      EXPECT_EQ(result.description(), expected.description()) << row.what << " as " << type.name;
    }
  }
}

TEST(ExternalFunctions, KeepEveryCallsNumbersInTheirInvocation) {
  EchoStage stage;
  for (const TypeRow& type : kTypes) {
    const Ref<KorTemplateExternalFunction> function = stage.bind(type.selector);
    (void)function->invokeWithEnvironment(stage.get(), {7});
    for (const ExtremeRow& row : kExtremes) {  // by now the method is known
      if (row.value.isAbsent()) continue;
      const Value result = function->invokeWithEnvironment(stage.get(), {row.value});
      const Value expected = row.expected(type.selector[0]);
      EXPECT_EQ(result.kind(), expected.kind()) << row.what << " as " << type.name;
      EXPECT_EQ(result.description(), expected.description()) << row.what << " as " << type.name;
      EXPECT_EQ(type.read(*function->invocation()).description(), expected.description()) << row.what;
      const std::uint64_t argument = function->invocation()->slotAtIndex(2).bits;
      type.set(*function->invocation(), row.value, 2);
      EXPECT_EQ(function->invocation()->slotAtIndex(2).bits, argument) << row.what << " as " << type.name;
    }
    EXPECT_EQ(function->invokeWithEnvironment(stage.get(), {Value::null()}).description(), "0") << type.name;
    EXPECT_EQ(raisedBy([&] { (void)function->invokeWithEnvironment(stage.get(), {"7"}); }).substr(0, 40),
              "NSGenericException: Incorrect type for " + std::string(type.name).substr(0, 1));
  }
}

TEST(ExternalFunctions, HaveASetterAndAReaderForEveryType) {
  EchoStage stage;
  for (const ExtremeRow& row : kExtremes) {
    for (const TypeRow& type : kTypes) {
      const Ref<NSInvocation> invocation = stage.bind(type.selector)->invocation();
      type.set(*invocation, row.value, 2);
      invocation->invoke();
      EXPECT_EQ(type.read(*invocation).description(), row.expected(type.selector[0]).description())
          << row.what << " as " << type.name;
      EXPECT_EQ(returnValueAsObject(*invocation).description(), type.read(*invocation).description());
    }
  }
}

TEST(ExternalFunctions, PassNullAsZeroOfEveryType) {
  EchoStage stage;
  for (const TypeRow& type : kTypes) {
    const Value result = stage.call(type.selector, Value::null());
    EXPECT_TRUE(result.isNumber()) << type.name;
    EXPECT_EQ(result.description(), "0") << type.name;
  }
}

TEST(ExternalFunctions, TakeNumbersOnlyForEveryType) {
  EchoStage stage;
  const Value others[] = {"3", "", NSArray::arrayWithObjects({3}), NSDate::dateWithTimeIntervalSince1970(3),
                          makeRef<HostObject>()};
  for (const TypeRow& type : kTypes) {
    const std::string expected = std::string("NSGenericException: Incorrect type for ") + type.name +
                                 " argument at index 2 of " + type.selector + ". NSNumber expected.";
    for (const Value& other : others) {
      EXPECT_EQ(raisedBy([&] { (void)stage.call(type.selector, other); }), expected) << other.description();
      const Ref<NSInvocation> invocation = stage.bind(type.selector)->invocation();
      EXPECT_EQ(raisedBy([&] { type.set(*invocation, other, 2); }), expected) << other.description();
    }
    const Ref<NSInvocation> invocation = stage.bind(type.selector)->invocation();
    EXPECT_EQ(raisedBy([&] { type.set(*invocation, Value::null(), 2); }), expected);
  }
}

TEST(ExternalFunctions, ReadTruthsFromTheLowBits) {
  struct Row {
    const char* what;
    Value value;
    int truth;
  };
  const Row rows[] = {
      {"true", true, 1},
      {"false", false, 0},
      {"null", Value::null(), 0},
      {"1", 1, 1},
      {"2", 2, 1},
      {"-1", -1, 1},
      {"0", 0, 0},
      {"256", 256, 0},
      {"257", 257, 1},
      {"0.5", 0.5, 0},
      {"1.5", 1.5, 1},
      {"1e300", 1e300, 1},
      {"not a number", kNaN, 0},
      {"-inf", -kInfinity, 1},
  };
  EchoStage stage;
  for (const Row& row : rows) {
    const Value result = stage.call("bool:", row.value);
    EXPECT_EQ(result.kind(), ValueKind::Signed) << row.what;
    EXPECT_EQ(result.intValue(), row.truth) << row.what;
  }
  EXPECT_EQ(raisedBy([&] { (void)stage.call("bool:", "yes"); }),
            "NSGenericException: Incorrect type for char argument at index 2 of bool:. NSNumber expected.");
}

TEST(ExternalFunctions, PassCharactersAndEnumerationsAsTheirNumbers) {
  EchoStage stage;
  EXPECT_EQ(stage.call("char:", 65).description(), "65");
  EXPECT_EQ(stage.call("char:", 200).description(), "-56");
  EXPECT_EQ(stage.call("level:", 255).description(), "255");
  EXPECT_EQ(stage.call("level:", -1).description(), "255");
  EXPECT_EQ(stage.call("level:", 256).description(), "0");
  EXPECT_EQ(raisedBy([&] { (void)stage.call("level:", "High"); }),
            "NSGenericException: Incorrect type for unsigned char argument at index 2 of level:. NSNumber expected.");
}

TEST(TypedSetters, RefusePositionsAndTypesThatTheMethodHasNot) {
  EchoStage stage;
  const Ref<NSInvocation> invocation = stage.bind("d:")->invocation();
  struct Row {
    const char* what;
    std::string text;
    const char* expected;
  };
  const Row rows[] = {
      {"another type", raisedBy([&] { setObjectForIntArgumentAtIndex(*invocation, 1, 2); }),
       "A value of type \"i\" cannot stand where the method has \"d\""},
      {"another result", raisedBy([&] { (void)returnValueAsFloat(*invocation); }),
       "A value of type \"f\" cannot stand where the method has \"d\""},
      {"the selector's position", raisedBy([&] { setObjectForDoubleArgumentAtIndex(*invocation, 1, 1); }),
       "The arguments begin at index 2: there is none at index 1"},
      {"a position too far", raisedBy([&] { setObjectForDoubleArgumentAtIndex(*invocation, 1, 3); }),
       "There is no argument at index 3: the method has 3 arguments"},
      {"a position too far for any", raisedBy([&] { setObjectForArgumentAtIndex(*invocation, 1, 3); }),
       "There is no argument at index 3: the method has 3 arguments"},
      {"no type of numbers", raisedBy([&] { setObjectForNumberArgumentAtIndex(*invocation, 1, 2, '@'); }),
       "\"@\" is no encoding of numbers"},
      {"no type of numbers to read", raisedBy([&] { (void)returnValueAsNumber(*invocation, 'B'); }),
       "\"B\" is no encoding of numbers"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(row.text, std::string("NSInvalidArgumentException: ") + row.expected) << row.what;
  }
}

}  // namespace

}  // namespace tavlo::test
