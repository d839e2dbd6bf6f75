#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Foundation/NSString.h"
#include "Foundation/TypeEncoding.h"
#include "Tests/Foundation/HostObjects.h"

namespace tavlo::test {

struct Point {
  double x = 0;
  double y = 0;
};

// A class with a conversion in both directions.
struct Money {
  std::int64_t cents = 0;
};

}  // namespace tavlo::test

template <>
struct tavlo::ValueConversion<tavlo::test::Money> {
  static Value toValue(const test::Money& money) { return money.cents; }
  static std::optional<test::Money> fromValue(const Value& value) {
    if (!value.isNumber()) return {};
    return test::Money{value.integerValue()};
  }
};

namespace tavlo::test {

namespace {

template <class T>
struct Pair {
  T first;
  T second;
};

union Either {
  int whole;
  float part;
};

class OnlyDeclared;

enum Plain : short { PlainOne };
enum class Small : unsigned char { One };
enum class Truth : bool { No };
enum class Usual { One };

struct EncodingRow {
  const char* what;
  std::string encoding;
  const char* expected;
};

void expectRows(const std::vector<EncodingRow>& rows) {
  for (const EncodingRow& row : rows) EXPECT_EQ(row.encoding, row.expected) << row.what;
}

TEST(TypeEncoding, OfNumbers) {
  expectRows({
      {"bool", typeEncoding<bool>(), "c"},
      {"char", typeEncoding<char>(), "c"},
      {"signed char", typeEncoding<signed char>(), "c"},
      {"unsigned char", typeEncoding<unsigned char>(), "C"},
      {"short", typeEncoding<short>(), "s"},
      {"unsigned short", typeEncoding<unsigned short>(), "S"},
      {"int", typeEncoding<int>(), "i"},
      {"unsigned", typeEncoding<unsigned>(), "I"},
      {"long", typeEncoding<long>(), "l"},
      {"unsigned long", typeEncoding<unsigned long>(), "L"},
      {"long long", typeEncoding<long long>(), "q"},
      {"unsigned long long", typeEncoding<unsigned long long>(), "Q"},
      {"float", typeEncoding<float>(), "f"},
      {"double", typeEncoding<double>(), "d"},
      {"long double", typeEncoding<long double>(), "D"},
      {"a number by constant reference", typeEncoding<const int&>(), "i"},
      {"a constant number", typeEncoding<const int>(), "i"},
      {"a number by rvalue reference", typeEncoding<double&&>(), "d"},
      {"a UTF-8 character", typeEncoding<char8_t>(), "C"},
      {"a UTF-16 character", typeEncoding<char16_t>(), "S"},
      {"a UTF-32 character", typeEncoding<char32_t>(), "I"},
  });
}

TEST(TypeEncoding, OfAnEnumerationIsThatOfWhatItIsKeptIn) {
  expectRows({
      {"an enumeration over short", typeEncoding<Plain>(), "s"},
      {"one over unsigned char", typeEncoding<Small>(), "C"},
      {"one over bool", typeEncoding<Truth>(), "c"},
      {"one over int", typeEncoding<Usual>(), "i"},
      {"one by constant reference", typeEncoding<const Usual&>(), "i"},
  });
}

TEST(TypeEncoding, OfObjects) {
  expectRows({
      {"a value", typeEncoding<Value>(), "@"},
      {"a value by constant reference", typeEncoding<const Value&>(), "@"},
      {"an owning reference", typeEncoding<Ref<NSString>>(), "@"},
      {"one by constant reference", typeEncoding<const Ref<Named>&>(), "@"},
      {"a pointer", typeEncoding<Named*>(), "@"},
      {"a pointer to constant", typeEncoding<const NSString*>(), "@"},
      {"a reference", typeEncoding<Named&>(), "@"},
      {"a constant reference", typeEncoding<const NSObject&>(), "@"},
      {"a view of text", typeEncoding<std::string_view>(), "@"},
      {"a text", typeEncoding<const std::string&>(), "@"},
      {"a class with a conversion", typeEncoding<Money>(), "@"},
      {"one by constant reference", typeEncoding<const Money&>(), "@"},
      {"one as a result", typeEncoding<Money, TypeUse::Result>(), "@"},
      {"a class", typeEncoding<ClassReference>(), "#"},
      {"a class by reference", typeEncoding<const ClassReference&>(), "#"},
      {"a selector", typeEncoding<Selector>(), ":"},
      {"a selector by reference", typeEncoding<const Selector&>(), ":"},
  });
}

TEST(TypeEncoding, OfPointersAndStructures) {
  struct Local {};
  expectRows({
      {"nothing", typeEncoding<void>(), "v"},
      {"constant characters", typeEncoding<const char*>(), "r*"},
      {"characters", typeEncoding<char*>(), "*"},
      {"a pointer to a number", typeEncoding<int*>(), "^i"},
      {"a pointer to a constant number", typeEncoding<const double*>(), "r^d"},
      {"a pointer to anything", typeEncoding<void*>(), "^v"},
      {"a pointer to a structure", typeEncoding<Point*>(), "^{Point=...}"},
      {"a pointer to a class known by name", typeEncoding<OnlyDeclared*>(), "^?"},
      {"a pointer to characters", typeEncoding<const char**>(), "^r*"},
      {"a number that is changed", typeEncoding<int&>(), "^i"},
      {"a structure", typeEncoding<Point>(), "{Point=...}"},
      {"a structure by constant reference", typeEncoding<const Point&>(), "{Point=...}"},
      {"a structure as a result", typeEncoding<Point, TypeUse::Result>(), "{Point=...}"},
      {"a structure of a template", typeEncoding<Pair<Point>>(), "{Pair=...}"},
      {"a structure of nested templates", typeEncoding<Pair<Pair<int>>>(), "{Pair=...}"},
      {"a structure inside a function", typeEncoding<Local>(), "{Local=...}"},
      {"a union", typeEncoding<Either>(), "(Either=...)"},
      {"a null pointer", typeEncoding<std::nullptr_t>(), "?"},
  });
}

TEST(TypeEncoding, NamesTypesWithoutTheirNamespaces) {
  struct Row {
    std::string_view name;
    const char* expected;
  };
  const Row rows[] = {
      {typeName<int>(), "int"},           {typeName<Point>(), "Point"},   {typeName<Named>(), "Named"},
      {typeName<NSString>(), "NSString"}, {typeName<Either>(), "Either"}, {typeName<Pair<double>>(), "Pair"},
      {typeName<double>(), "double"},
  };
  for (const Row& row : rows) EXPECT_EQ(row.name, row.expected);
}

}  // namespace

}  // namespace tavlo::test
