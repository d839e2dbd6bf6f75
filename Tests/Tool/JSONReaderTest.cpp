#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

#include "Foundation/NSArray.h"
#include "Foundation/NSDictionary.h"
#include "Tests/Foundation/Repeated.h"
#include "Tests/Foundation/SmallStack.h"
#include "Tests/Memory/WorkBound.h"
#include "Tool/JSONReader.h"

namespace tavlo::test {

namespace {

using namespace std::string_view_literals;

// The value written out with its kinds: "i:1" is an integer, "d:1" a double.
std::string dumped(const Value& value) {
  if (value.isNull()) return "null";
  if (value.isBoolean()) return value.boolValue() ? "true" : "false";
  if (value.kind() == ValueKind::Double) return "d:" + value.description();
  if (value.isNumber()) return "i:" + value.description();
  if (const NSString* string = value.string()) return "'" + std::string(string->view()) + "'";
  std::string text;
  if (const auto* array = value.as<NSArray>()) {
    for (const Value& element : array->elements()) text += (text.empty() ? "" : ",") + dumped(element);
    return "[" + text + "]";
  }
  const auto* dictionary = value.as<NSDictionary>();
  if (dictionary == nullptr) return "?";
  for (const NSDictionary::Entry& entry : dictionary->entries()) {
    text += (text.empty() ? "" : ",") + std::string(entry.key->view()) + "=" + dumped(entry.value);
  }
  return "{" + text + "}";
}

// How the text is refused: "line:column reason"; "accepted" when it is not.
std::string refusalOf(const std::string& text) {
  try {
    readJSONObject(text);
  } catch (const JSONError& error) {
    return std::to_string(error.place().line) + ":" + std::to_string(error.place().column) + " " + error.what();
  }
  return "accepted";
}

struct AcceptedRow {
  const char* what;
  std::string_view text;
  std::string_view dump;
};

TEST(JSONReader, ReadsEveryKindOfValue) {
  const AcceptedRow rows[] = {
      {"literals", R"({"a":[true,false,null,{},[]]})", "{a=[true,false,null,{},[]]}"},
      {"white space everywhere", " \t\r\n{ \n\"a\" \t: \r[ 1 , 2 ] \n} \n", "{a=[i:1,i:2]}"},
      {"a byte order mark", "\xEF\xBB\xBF{\"a\":1}", "{a=i:1}"},
      {"a byte order mark and white space", "\xEF\xBB\xBF \r\n{\"a\":1}\n", "{a=i:1}"},
      {"members in their order", R"({"z":1,"a":2,"m":3})", "{z=i:1,a=i:2,m=i:3}"},
      {"the later value in the first place", R"({"a":1,"b":2,"a":3})", "{a=i:3,b=i:2}"},
      {"the same name by an escape", R"({"a":1,"b":2,"\u0061":[3]})", "{a=[i:3],b=i:2}"},
      {"a zero character in a name", R"({"a\u0000b":1,"a":2})", "{a\0b=i:1,a=i:2}"sv},
      {"an empty name", R"({"":1})", "{=i:1}"},
      {"all escapes", R"({"a":"\"\\\/\b\f\n\r\t\u00e9\u20AC\ud83d\uDE00\u0000x"})", "{a='\"\\/\b\f\n\r\té€😀\0x'}"sv},
      {"a zero character alone", R"({"a":"\u0000"})", "{a='\0'}"sv},
      {"stretches between escapes", R"({"a":"abc\ndefghijklmnopqrstuvwxyz\"","b":"plain"})",
       "{a='abc\ndefghijklmnopqrstuvwxyz\"',b='plain'}"},
      {"the same string after one with escapes", R"({"a":"x\ty","b":"","c":"x\ty"})", "{a='x\ty',b='',c='x\ty'}"},
      {"delete in a string", "{\"a\":\"\x7F\"}", "{a='\x7F'}"},
      {"characters of every length", "{\"é\":\"\u0080߿ࠀ\uD7FF\uE000\uFFFF𐀀\U0010FFFF\"}",
       "{é='\u0080߿ࠀ\uD7FF\uE000\uFFFF𐀀\U0010FFFF'}"},
  };
  for (const AcceptedRow& row : rows) EXPECT_EQ(dumped(readJSON(std::string(row.text))), row.dump) << row.what;
}

TEST(JSONReader, KeepsTheFirstPlaceOfManyRepeatedNames) {
  std::string text = "{";
  std::string dump = "{";
  for (int index = 0; index < 40; ++index) {
    text += (index == 0 ? "\"k" : ",\"k") + std::to_string(index % 30) + "\":" + std::to_string(index);
  }
  for (int index = 0; index < 30; ++index) {
    dump += (index == 0 ? "k" : ",k") + std::to_string(index) + "=i:" + std::to_string(index < 10 ? index + 30 : index);
  }
  EXPECT_EQ(dumped(readJSON(text + "}")), dump + "}");
}

TEST(JSONReader, ReadsNumbersThatFit64BitsAsIntegers) {
  const AcceptedRow rows[] = {
      {"zero", "0", "i:0"},
      {"minus zero", "-0", "i:0"},
      {"one", "1", "i:1"},
      {"minus one", "-1", "i:-1"},
      {"the greatest signed", "9223372036854775807", "i:9223372036854775807"},
      {"the smallest signed", "-9223372036854775808", "i:-9223372036854775808"},
      {"beyond the signed", "9223372036854775808", "i:9223372036854775808"},
      {"the greatest unsigned", "18446744073709551615", "i:18446744073709551615"},
      {"exact where doubles are not", "9007199254740993", "i:9007199254740993"},
  };
  for (const AcceptedRow& row : rows) EXPECT_EQ(dumped(readJSON(std::string(row.text))), row.dump) << row.what;
}

struct DoubleRow {
  std::string text;
  double number;
};

const std::string kHalf = "9007199254740993.";  // between two doubles

const DoubleRow kDoubles[] = {
    {"18446744073709551616", 18446744073709551616.0},
    {"-9223372036854775809", -9223372036854775809.0},
    {"123456789012345678901234567890", 123456789012345678901234567890.0},
    {"-123456789012345678901234567890", -123456789012345678901234567890.0},
    {"1.0", 1.0},
    {"-0.0", -0.0},
    {"1e2", 100.0},
    {"0e0", 0.0},
    {"-0e5", -0.0},
    {"0e400", 0.0},
    {"0.0e999", 0.0},
    {"0.0e300", 0.0},
    {"0.0e-300", 0.0},
    {"0e99999999999999999999", 0.0},
    {"0e-99999999999999999999", 0.0},
    {"9007199254740993.0", 9007199254740992.0},
    {"9007199254740993e0", 9007199254740992.0},
    {"2.2250738585072011e-308", 2.2250738585072011e-308},
    {"2.2250738585072012e-308", 2.2250738585072012e-308},
    {"2.2250738585072014e-308", 2.2250738585072014e-308},
    {"1.7976931348623157e308", 1.7976931348623157e308},
    {"1.7976931348623158e308", 1.7976931348623157e308},
    {"179769313486231580793e288", 1.7976931348623157e308},
    {"0.1e-5", 1e-6},
    {"5e-324", 0x1p-1074},
    {"4.9406564584124654e-324", 0x1p-1074},
    {"2.4703282292062327e-324", 0.0},
    {"2.4703282292062328e-324", 0x1p-1074},
    {"1e-400", 0.0},
    {"1e-324", 0.0},
    {"-1e-400", -0.0},
    {"1e-99999999999999999999", 0.0},
    {"1e23", 1e23},
    {"8.5e22", 8.5e22},
    {"7.2057594037927933e16", 7.2057594037927933e16},
    {"123456789.123456789e-20", 123456789.123456789e-20},
    {"0.1", 0.1},
    {"0.3", 0.3},
    {"1e22", 1e22},
    {"1e308", 1e308},
    {"1E+05", 1e5},
    {"1E-05", 1e-5},
    {"6.631236846766476e-316", 6.631236846766476e-316},
    {"3.2378839133029012895883524125015321748630094462e-319", 3.2378839133029012895883524125015321748630094462e-319},
    {"5.708990770823839524233143877797980545530986496e45", 5.708990770823839524233143877797980545530986496e45},
    {"0.500000000000000166533453693773481063544750213623046875",
     0.500000000000000166533453693773481063544750213623046875},
    {"3.518437208883201171875e13", 3.518437208883201171875e13},
    {"9214843084008499.0", 9214843084008499.0},
    {"1.00000000000000011102230246251565404", 1.00000000000000011102230246251565404},
    {kHalf + repeated("0", 784), 9007199254740992.0},
    {kHalf + repeated("0", 783) + "1", 9007199254740994.0},
    {kHalf + repeated("0", 1983) + "1", 9007199254740994.0},
    {"0." + repeated("0", 400) + "1", 0.0},
    {"0." + repeated("0", 400) + "1e401", 1.0},
    {"0." + repeated("0", 400) + "12345678901234567890", 0.0},
    {"1" + repeated("0", 400) + "e-400", 1.0},
    {repeated("9", 310) + "e-10", 1e300},
    {"0." + repeated("0", 299) + "1e300", 1.0},
    {"0.0" + repeated("0", 500), 0.0},
    {"0.0" + repeated("0", 500) + "e300", 0.0},
};

TEST(JSONReader, ReadsEveryOtherNumberAsTheNearestDouble) {
  for (const DoubleRow& row : kDoubles) {
    const Value value = readJSON(row.text);
    EXPECT_EQ(value.kind(), ValueKind::Double) << row.text;
    EXPECT_EQ(std::bit_cast<std::uint64_t>(value.doubleValue()), std::bit_cast<std::uint64_t>(row.number)) << row.text;
  }
}

struct RefusedRow {
  std::string_view text;
  int line;
  int column;
  const char* reason;
};

const RefusedRow kRefused[] = {
    {"{\"a\": \"é\\ud800\"}", 1, 9, "The surrogate pair in string is invalid"},
    {"{\"a\": \"x\\ud800y\"}", 1, 9, "The surrogate pair in string is invalid"},
    {"{\"a\": \"x\\udbff\\n\"}", 1, 9, "The surrogate pair in string is invalid"},
    {"{\"a\": \"\\ud800\\u0041\"}", 1, 8, "The surrogate pair in string is invalid"},
    {"{\"a\": \"\\ud800\\ud800\"}", 1, 8, "The surrogate pair in string is invalid"},
    {"{\"a\": \"x\\udc00\"}", 1, 9, "A surrogate stands alone in a string"},
    {"{\n \"b\": 1, \"é\\uDFFFz\": 2}", 2, 12, "A surrogate stands alone in a string"},
    {"{\"a\": \"\\udc00\\ud800\"}", 1, 8, "A surrogate stands alone in a string"},
    {"{\"a\": \"\\ud83d\\ude00\\ude00\"}", 1, 20, "A surrogate stands alone in a string"},
    {"{\"a\303\251\": \"\346\227\245\346\234\254\300\257\"}", 1, 11, "The text is not valid UTF-8 here"},
    {"{\"a\303\251\": \"\346\227\245\346\234\254\340\200\200\"}", 1, 11, "The text is not valid UTF-8 here"},
    {"{\"a\303\251\": \"\346\227\245\346\234\254\360\200\200\200\"}", 1, 11, "The text is not valid UTF-8 here"},
    {"{\"a\303\251\": \"\346\227\245\346\234\254\355\240\200\"}", 1, 11, "The text is not valid UTF-8 here"},
    {"{\"a\303\251\": \"\346\227\245\346\234\254\355\260\200\"}", 1, 11, "The text is not valid UTF-8 here"},
    {"{\"a\303\251\": \"\346\227\245\346\234\254\364\220\200\200\"}", 1, 11, "The text is not valid UTF-8 here"},
    {"{\"a\303\251\": \"\346\227\245\346\234\254\200\"}", 1, 11, "The text is not valid UTF-8 here"},
    {"{\"a\303\251\": \"\346\227\245\346\234\254\377\"}", 1, 11, "The text is not valid UTF-8 here"},
    {"{\"a\303\251\": \"\346\227\245\346\234\254\342\202\"}", 1, 11, "The text is not valid UTF-8 here"},
    {"{\"a\303\251\": \"\346\227\245\346\234\254\360\237\230\"}", 1, 11, "The text is not valid UTF-8 here"},
    {"{\"a\303\251\": \"\346\227\245\346\234\254\303\"}", 1, 11, "The text is not valid UTF-8 here"},
    {"{\"a\377b\": 1}", 1, 4, "The text is not valid UTF-8 here"},
    {"{\"a\": \3771}", 1, 7, "The text is not valid UTF-8 here"},
    {"{\"a\": 1}\377", 1, 9, "The text is not valid UTF-8 here"},
    {"{\"a\": \"abc\001de\"}", 1, 11, "A control character in a string must be written as an escape"},
    {"{\"a\": \"abc\tde\"}", 1, 11, "A control character in a string must be written as an escape"},
    {"{\"a\": \"abc\nde\"}", 1, 11, "A control character in a string must be written as an escape"},
    {"{\"a\": \"abc\rde\"}", 1, 11, "A control character in a string must be written as an escape"},
    {"{\"a\": \"abc\031de\"}", 1, 11, "A control character in a string must be written as an escape"},
    {"{\"a\": \"abc\032de\"}", 1, 11, "A control character in a string must be written as an escape"},
    {"{\"a\": \"abc\033de\"}", 1, 11, "A control character in a string must be written as an escape"},
    {"{\"a\": \"abc\037de\"}", 1, 11, "A control character in a string must be written as an escape"},
    {"{\"a\": \"xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx\037yyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyy\"}", 1, 48,
     "A control character in a string must be written as an escape"},
    {"{\"a\": \"abc\000de\"}"sv, 1, 11, "A zero byte cannot stand here"},
    {"{\"a\": 1}\n {}", 2, 2, "The document root must not be followed by other values"},
    {"{}x", 1, 3, "The document root must not be followed by other values"},
    {"{},", 1, 3, "The document root must not be followed by other values"},
    {"{}}", 1, 3, "The document root must not be followed by other values"},
    {"{\"a\":{}} \"x\"", 1, 10, "The document root must not be followed by other values"},
    {"{}\000 garbage"sv, 1, 3, "A zero byte cannot stand here"},
    {"{}\n\000"sv, 2, 1, "A zero byte cannot stand here"},
    {"[1]", 1, 1, "The top level is not an object"},
    {" \n 1", 2, 2, "The top level is not an object"},
    {"\"a\"", 1, 1, "The top level is not an object"},
    {"null", 1, 1, "The top level is not an object"},
    {"true", 1, 1, "The top level is not an object"},
    {"1.5", 1, 1, "The top level is not an object"},
    {"\000{}"sv, 1, 1, "A zero byte cannot stand here"},
    {"{\000\"a\": 1}"sv, 1, 2, "A zero byte cannot stand here"},
    {"{\"a\"\000: 1}"sv, 1, 5, "A zero byte cannot stand here"},
    {"{\"a\":\000 1}"sv, 1, 6, "A zero byte cannot stand here"},
    {"{\"a\": 1\000}"sv, 1, 8, "A zero byte cannot stand here"},
    {"{\"a\": [1,\000 2]}"sv, 1, 10, "A zero byte cannot stand here"},
    {"{\"a\": tr\000ue}"sv, 1, 9, "A zero byte cannot stand here"},
    {"{", 1, 2, "The text ends here, inside a value"},
    {"{\"", 1, 3, "The text ends here, inside a value"},
    {"{\"a", 1, 4, "The text ends here, inside a value"},
    {"{\"a\"", 1, 5, "The text ends here, inside a value"},
    {"{\"a\":", 1, 6, "The text ends here, inside a value"},
    {"{\"a\":1", 1, 7, "The text ends here, inside a value"},
    {"{\"a\":1,", 1, 8, "The text ends here, inside a value"},
    {"{\"a\":[", 1, 7, "The text ends here, inside a value"},
    {"{\"a\":[1", 1, 8, "The text ends here, inside a value"},
    {"{\"a\":[1,", 1, 9, "The text ends here, inside a value"},
    {"{\"a\":tru", 1, 9, "The text ends here, inside a value"},
    {"{\"a\":\"x\\", 1, 8, "Invalid escape character in string"},
    {"{\"a\":\"x\\u00", 1, 8, "Incorrect hex digit after \\u escape in string"},
    {"{\"a\":-", 1, 7, "The text ends here, inside a value"},
    {"{\"a\":1.", 1, 8, "The text ends here, inside a value"},
    {"{\"a\":1e", 1, 8, "The text ends here, inside a value"},
    {"{\"a\":{}", 1, 8, "The text ends here, inside a value"},
    {"{\"a\":\"é", 1, 8, "The text ends here, inside a value"},
    {"{\"a\":\"\\ud800\\u", 1, 7, "Incorrect hex digit after \\u escape in string"},
    {"{\"a\": 1 // c\n}", 1, 9, "Missing a comma or '}' after an object member"},
    {"{ /* c */ \"a\": 1}", 1, 3, "Missing a name for object member"},
    {"# c\n{}", 1, 1, "Invalid value"},
    {"{} // c", 1, 4, "The document root must not be followed by other values"},
    {"{\"a\": [1,]}", 1, 10, "Invalid value"},
    {"{\"a\": 1,}", 1, 9, "Missing a name for object member"},
    {"{\"a\": [,]}", 1, 8, "Invalid value"},
    {"{\"a\": [1,,2]}", 1, 10, "Invalid value"},
    {"{,\"a\":1}", 1, 2, "Missing a name for object member"},
    {"{\"a\": [1 2]}", 1, 10, "Missing a comma or ']' after an array element"},
    {"{\"a\": 1 \"b\": 2}", 1, 9, "Missing a comma or '}' after an object member"},
    {"{\"a\" 1}", 1, 6, "Missing a colon after a name of object member"},
    {"{\"a\", 1}", 1, 5, "Missing a colon after a name of object member"},
    {"{\"a\": 1]", 1, 8, "Missing a comma or '}' after an object member"},
    {"{\"a\": [1}}", 1, 9, "Missing a comma or ']' after an array element"},
    {"{1: 2}", 1, 2, "Missing a name for object member"},
    {"{\"a\": [\"b\": 2]}", 1, 11, "Missing a comma or ']' after an array element"},
    {"{\"a\": NaN}", 1, 7, "Invalid value"},
    {"{\"a\": nan}", 1, 8, "Invalid value"},
    {"{\"a\": Infinity}", 1, 7, "Invalid value"},
    {"{\"a\": -Infinity}", 1, 8, "Invalid value"},
    {"{\"a\": Inf}", 1, 7, "Invalid value"},
    {"{\"a\": -inf}", 1, 8, "Invalid value"},
    {"{\"a\": -NaN}", 1, 8, "Invalid value"},
    {"{\"a\": +Infinity}", 1, 7, "Invalid value"},
    {"{\"a\": 01}", 1, 8, "Missing a comma or '}' after an object member"},
    {"{\"a\": -01}", 1, 9, "Missing a comma or '}' after an object member"},
    {"{\"a\": 00}", 1, 8, "Missing a comma or '}' after an object member"},
    {"{\"a\": 00.5}", 1, 8, "Missing a comma or '}' after an object member"},
    {"{\"a\": +1}", 1, 7, "Invalid value"},
    {"{\"a\": .5}", 1, 7, "Invalid value"},
    {"{\"a\": -.5}", 1, 8, "Invalid value"},
    {"{\"a\": 1.}", 1, 9, "Miss fraction part in number"},
    {"{\"a\": 1.e5}", 1, 9, "Miss fraction part in number"},
    {"{\"a\": 1e}", 1, 9, "Miss exponent in number"},
    {"{\"a\": 1e+}", 1, 10, "Miss exponent in number"},
    {"{\"a\": 1.5.5}", 1, 10, "Missing a comma or '}' after an object member"},
    {"{\"a\": 1a}", 1, 8, "Missing a comma or '}' after an object member"},
    {"{\"a\": -}", 1, 8, "Invalid value"},
    {"{\"a\": --1}", 1, 8, "Invalid value"},
    {"{\"a\": 0x10}", 1, 8, "Missing a comma or '}' after an object member"},
    {"{\"a\": 1_000}", 1, 8, "Missing a comma or '}' after an object member"},
    {"{\"a\": 1 2}", 1, 9, "Missing a comma or '}' after an object member"},
    {"{\"a\": １}", 1, 7, "Invalid value"},
    {"{\"a\": 'a'}", 1, 7, "Invalid value"},
    {"{\"a\": undefined}", 1, 7, "Invalid value"},
    {"{\"a\": True}", 1, 7, "Invalid value"},
    {"{\"a\": nul}", 1, 10, "Invalid value"},
    {"{\"a\": nulll}", 1, 11, "Missing a comma or '}' after an object member"},
    {"{\"a\": trux}", 1, 10, "Invalid value"},
    {"{\"a\": a}", 1, 7, "Invalid value"},
    {"{\"a\": \\u0041}", 1, 7, "Invalid value"},
    {"{'a': 1}", 1, 2, "Missing a name for object member"},
    {"{a: 1}", 1, 2, "Missing a name for object member"},
    {"{\"a\": \"b\\x41\"}", 1, 9, "Invalid escape character in string"},
    {"{\"a\": \"b\\'\"}", 1, 9, "Invalid escape character in string"},
    {"{\"a\": \"b\\a\"}", 1, 9, "Invalid escape character in string"},
    {"{\"a\": \"b\\u12\"}", 1, 9, "Incorrect hex digit after \\u escape in string"},
    {"{\"a\": \"b\\u12G4\"}", 1, 9, "Incorrect hex digit after \\u escape in string"},
    {"{\"a\": \"b\\U0041\"}", 1, 9, "Invalid escape character in string"},
    {"{\"a\": \"b\\0\"}", 1, 9, "Invalid escape character in string"},
    {"", 1, 1, "There is no value"},
    {" \n\t\r\n  ", 3, 3, "There is no value"},
    {"\357\273\277", 1, 1, "There is no value"},
    {"{\"a\":\0141}", 1, 6, "Invalid value"},
    {"{\"a\":\302\2401}", 1, 6, "Invalid value"},
    {"\357\273\277\357\273\277{}", 1, 1, "Invalid value"},
    {"{\"é\": \"日本語😀\",\r\n  \"x\": \"ü\" x}", 2, 12, "Missing a comma or '}' after an object member"},
    {"\357\273\277{\"a\" 1}", 1, 6, "Missing a colon after a name of object member"},
    {"\357\273{}", 1, 1, "The text is not valid UTF-8 here"},
    {"{\"a\":1e400}", 1, 6, "A number is beyond the range of doubles"},
    {"{\"a\":-1e400}", 1, 6, "A number is beyond the range of doubles"},
    {"{\"a\":1e309}", 1, 6, "A number is beyond the range of doubles"},
    {"{\"a\":1.7976931348623159e308}", 1, 6, "A number is beyond the range of doubles"},
    {"{\"a\":1e99999999999999999999}", 1, 6, "A number is beyond the range of doubles"},
    {"{\"a\":0.1e400}", 1, 6, "A number is beyond the range of doubles"},
};

TEST(JSONReader, RefusesWhatIsNoJSONAtItsPlace) {
  for (const RefusedRow& row : kRefused) {
    EXPECT_EQ(refusalOf(std::string(row.text)),
              std::to_string(row.line) + ":" + std::to_string(row.column) + " " + row.reason)
        << row.text;
  }
}

TEST(JSONReader, NamesThePlaceFarInsideALongString) {
  EXPECT_EQ(refusalOf("{\"a\": \"" + repeated("x", 100) + repeated("é", 20) + "\xE9\"}"),
            "1:128 The text is not valid UTF-8 here");
}

TEST(JSONReader, RefusesNumbersBeyondTheDoubles) {
  const std::string rows[] = {repeated("1", 400), "-" + repeated("1", 400), "2" + repeated("0", 308)};
  for (const std::string& row : rows) {
    EXPECT_EQ(refusalOf("{\"a\":" + row + "}"), "1:6 A number is beyond the range of doubles") << row;
  }
}

TEST(JSONReader, ReadsAThousandLevels) {
  EXPECT_EQ(refusalOf("{\"a\":" + repeated("[", 999) + repeated("]", 999) + "}"), "accepted");
  EXPECT_EQ(refusalOf(repeated("{\"a\":", 999) + "{}" + repeated("}", 999)), "accepted");
}

TEST(JSONReader, RefusesTheLevelBeyondAThousand) {
  const std::string reason = " Arrays and objects are nested deeper than 1000";
  EXPECT_EQ(refusalOf("{\"a\":" + repeated("[", 1000) + repeated("]", 1000) + "}"), "1:1005" + reason);
  EXPECT_EQ(refusalOf(repeated("{\"a\":", 1000) + "{}" + repeated("}", 1000)), "1:5001" + reason);
  EXPECT_EQ(refusalOf("{\"a\":" + repeated("[", 200'000)), "1:1005" + reason);
}

TEST(JSONReader, IsQuickWithLargeTexts) {
  struct Row {
    const char* what;
    std::string text;
    const char* refusal;
  };
  std::string names;
  for (int index = 0; index < 50'000; ++index) names += "\"" + std::to_string(index % 25'000) + "\":1,";
  const Row rows[] = {
      {"members", "{" + names + "\"a\":[]}", "accepted"},
      {"empty names", "{" + repeated("\"\":0,", 100'000) + "\"\":1}", "accepted"},
      {"lists side by side", "{\"a\":[" + repeated("[],", 200'000) + "1]}", "accepted"},
      {"digits", "{\"a\":0." + repeated("1", 1'000'000) + "}", "accepted"},
      {"digits before the point", "{\"a\":" + repeated("1", 1'000'000) + "}",
       "1:6 A number is beyond the range of doubles"},
      {"an exponent", "{\"a\":1e" + repeated("0", 1'000'000) + "}", "accepted"},
      {"escapes", "{\"a\":\"" + repeated("\\u00e9\\n", 100'000) + "\"}", "accepted"},
      {"white space", "{" + repeated(" \n", 500'000) + "}", "accepted"},
      {"a string that is not closed", "{\"a\":\"" + repeated("x", 1'000'000), "1:1000007"},
      {"a list that is not closed", "{\"a\":[" + repeated("1,", 200'000), "1:400007"},
      {"commas", "{\"a\":[1" + repeated(",", 1'000'000), "1:9"},
  };
  for (const Row& row : rows) {
    const WorkBound bound(row.what);
    EXPECT_THAT(refusalOf(row.text), testing::StartsWith(row.refusal)) << row.what;
  }
}

TEST(JSONReader, EndsCleanlyOnSmallStacks) {
  for (const std::size_t kibibytes : {128, 256}) {
    for (const char* const open : {"[", "{\"a\":", "[{\"a\":"}) {
      for (const std::size_t levels : {400, 200'000}) {
        const std::string text = repeated(open, levels) + "1";
        std::string refusal;
        const WorkBound bound(open);
        const std::string end = outcomeOnStackOf(kibibytes * 1024, [&] { refusal = refusalOf(text); });
        EXPECT_TRUE((end == "well" && refusal != "accepted") || end == "stack") << open << ": " << end;
      }
    }
    for (const std::string& text : {"{\"a\":" + repeated("[", 999) + repeated("]", 999) + "}",
                                    repeated("{\"a\":", 999) + "{}" + repeated("}", 999)}) {
      const std::string end = outcomeOnStackOf(kibibytes * 1024, [&] { (void)readJSONObject(text)->description(); });
      EXPECT_TRUE(end == "well" || end == "stack") << end;
    }
  }
}

TEST(JSONReader, ReadsAnyTopLevelUnlessAnObjectIsAskedFor) {
  EXPECT_EQ(dumped(readJSON("[1]")), "[i:1]");
  EXPECT_EQ(dumped(readJSON(" \"text\" ")), "'text'");
  EXPECT_THROW(readJSONObject("[1]"), JSONError);
}

TEST(JSONReader, CountsTheByteOrderMarkInTheOffsetOnly) {
  try {
    readJSON("\xEF\xBB\xBF{\"a\" 1}");
    FAIL() << "accepted";
  } catch (const JSONError& error) {
    EXPECT_EQ(error.place().column, 6U);
    EXPECT_EQ(error.place().offset, 8U);
  }
}

}  // namespace

}  // namespace tavlo::test
