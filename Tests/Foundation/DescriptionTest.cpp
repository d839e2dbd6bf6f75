#include <gtest/gtest.h>

#include <cstdio>
#include <limits>
#include <string>

#include "Foundation/Description.h"
#include "Foundation/NSArray.h"
#include "Foundation/NSDate.h"
#include "Foundation/NSDictionary.h"
#include "Foundation/NSSet.h"
#include "Matchery/KorRegex.h"
#include "Tests/Foundation/HostObjects.h"
#include "Tests/Foundation/Raised.h"
#include "Tests/Memory/WorkBound.h"

namespace tavlo::test {

namespace {

struct DescriptionRow {
  const char* what;
  Value value;
  std::string text;
};

TEST(Description, OfEveryKindOfValue) {
  const DescriptionRow rows[] = {
      {"nothing", {}, "(null)"},
      {"null", Value::null(), "<null>"},
      {"true", true, "1"},
      {"false", false, "0"},
      {"a text as it stands", "a \"b\"\n\\", "a \"b\"\n\\"},
      {"the empty text", "", ""},
      {"an embedded NUL", std::string_view("a\0b", 3), std::string("a\0b", 3)},
      {"an integer", -42, "-42"},
      {"a double", 2.5, "2.5"},
      {"a date", NSDate::dateWithTimeIntervalSince1970(0), "1970-01-01 00:00:00 +0000"},
      {"a pattern", KorRegex::compileExpression("a+/b\""), "/a+/b\"/"},
      {"the empty pattern", KorRegex::compileExpression(""), "//"},
      {"a host's object", makeRef<Named>("x"), "named x"},
      {"the empty list", NSArray::array(), "(\n)"},
      {"the empty dictionary", NSDictionary::dictionary(), "{\n}"},
      {"the empty set", NSSet::setWithObjects({}), "{(\n)}"},
      {"a list", NSArray::arrayWithObjects({1, "a", Value::null()}), "(\n    1,\n    a,\n    <null>\n)"},
      {"a set", NSSet::setWithObjects({"b", 1.5}), "{(\n    b,\n    1.5\n)}"},
      {"a dictionary", NSDictionary::dictionaryWithEntries({{"b", 1}, {"a", "x"}}), "{\n    a = x;\n    b = 1;\n}"},
      {"a list of one", NSArray::arrayWithObjects({true}), "(\n    1\n)"},
      {"objects inside a list",
       NSArray::arrayWithObjects(
           {NSDate::dateWithTimeIntervalSince1970(0), KorRegex::compileExpression("a b"), makeRef<Named>("x y")}),
       "(\n    1970-01-01 00:00:00 +0000,\n    /a b/,\n    named x y\n)"},
      {"empty ones inside a list",
       NSArray::arrayWithObjects({NSArray::array(), NSDictionary::dictionary(), NSSet::setWithObjects({}), ""}),
       "(\n    (\n    ),\n    {\n    },\n    {(\n    )},\n    \"\"\n)"},
      {"nested",
       NSDictionary::dictionaryWithEntries(
           {{"list", NSArray::arrayWithObjects({1, NSArray::arrayWithObjects({"a b"})})},
            {"dict", NSDictionary::dictionaryWithEntries({{"x y", NSSet::setWithObjects({2})}})}}),
       "{\n    dict = {\n        \"x y\" = {(\n            2\n        )};\n    };\n"
       "    list = (\n        1,\n        (\n            \"a b\"\n        )\n    );\n}"},
  };
  for (const DescriptionRow& row : rows) {
    EXPECT_EQ(row.value.description(), row.text) << row.what;
    EXPECT_EQ(Description::of(row.value, 1 << 20), row.text) << row.what;
  }
}

struct QuotingRow {
  std::string text;
  std::string shown;
};

TEST(Description, QuotesATextInsideACollectionUnlessItIsPlain) {
  const QuotingRow rows[] = {
      {"abcXYZ019", "abcXYZ019"},
      {"_$/:.", "_$/:."},
      {"", "\"\""},
      {" ", "\" \""},
      {"a b", "\"a b\""},
      {"a-b", "\"a-b\""},
      {"-1", "\"-1\""},
      {"1.5", "1.5"},
      {"a,b", "\"a,b\""},
      {"a=b;", "\"a=b;\""},
      {"@", "\"@\""},
      {"(", "\"(\""},
      {"'", "\"'\""},
      {"\"", "\"\\\"\""},
      {"\\", "\"\\\\\""},
      {"\n\r\t", "\"\\n\\r\\t\""},
      {"\v\f\x01\x7f", "\"\v\f\x01\x7f\""},
      {std::string("a\0b", 3), std::string("\"a\0b\"", 5)},
      {"\u00e9", "\"\u00e9\""},
      {"\u0661", "\"\u0661\""},
      {"\U0001f600", "\"\U0001f600\""},
      {"<null>", "\"<null>\""},
  };
  for (const QuotingRow& row : rows) {
    const Value text = row.text;
    EXPECT_EQ(Value(NSArray::arrayWithObjects({text})).description(), "(\n    " + row.shown + "\n)");
    EXPECT_EQ(Value(NSSet::setWithObjects({text})).description(), "{(\n    " + row.shown + "\n)}");
    EXPECT_EQ(Value(NSDictionary::dictionaryWithEntries({{row.text, text}})).description(),
              "{\n    " + row.shown + " = " + row.shown + ";\n}");
  }
}

TEST(Description, SortsKeysByCodePoint) {
  const Value dictionary = NSDictionary::dictionaryWithEntries({{"\U00010000", 1},
                                                                {"\uffff", 2},
                                                                {"b", 3},
                                                                {"a", 4},
                                                                {"B", 5},
                                                                {"", 6},
                                                                {"a1", 7},
                                                                {"\u00e9", 8},
                                                                {"10", 9},
                                                                {"9", 10}});
  EXPECT_EQ(dictionary.description(),
            "{\n    \"\" = 6;\n    10 = 9;\n    9 = 10;\n    B = 5;\n    a = 4;\n    a1 = 7;\n    b = 3;\n"
            "    \"\u00e9\" = 8;\n    \"\uffff\" = 2;\n    \"\U00010000\" = 1;\n}");
}

TEST(Description, OfAnObjectThatSaysNothingIsItsClassAndAddress) {
  int alive = 0;
  const Ref<Tracked> object = makeRef<Tracked>(alive);
  char expected[64];
  std::snprintf(expected, sizeof expected, "<NSObject: 0x%llx>",
                static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(object.get())));
  EXPECT_EQ(object->description(), expected);
  EXPECT_EQ(Value(object).description(), expected);
}

// An object that describes itself by a format over two values.
class Formatted final : public NSObject {
 public:
  Formatted(std::string format, Value left, Value right)
      : format_(std::move(format)), left_(std::move(left)), right_(std::move(right)) {}
  void describe(Description& out) const override { out.format(format_, left_, right_); }

 private:
  std::string format_;
  Value left_;
  Value right_;
};

struct FormatRow {
  const char* format;
  Value left;
  Value right;
  const char* text;
};

TEST(Description, FillsAFormat) {
  const FormatRow rows[] = {
      {"{ %@, x: %@ }", 1, "a", "{ 1, x: a }"},
      {"%@%@", 1, 2, "12"},
      {"%@ and %@", "a", "b", "a and b"},
      {"<%@> <%@>", "", {}, "<> <(null)>"},
      {"<%@> <%@>", {}, "", "<(null)> <>"},
      {"%@ %@!", NSArray::arrayWithObjects({1}), Value::null(), "(\n    1\n) <null>!"},
      {"%@|%@|", NSArray::array(), "a b", "(\n)|a b|"},
  };
  for (const FormatRow& row : rows) {
    EXPECT_EQ(makeRef<Formatted>(row.format, row.left, row.right)->description(), row.text) << row.format;
  }
}

// An object with parts of every type that a description takes.
class Assorted final : public NSObject {
 public:
  void describe(Description& out) const override {
    const std::vector<Ref<NSArray>> lists = {NSArray::array()};
    out.format("%@ %@ %@ %@ %@ %@ %@", std::string("text"), "literal", Name("name"), Name(), NSArray::array(),
               Ref<NSArray>(), lists);
    out.part("!");
  }
};

TEST(Description, TakesPartsOfEveryType) {
  EXPECT_EQ(makeRef<Assorted>()->description(), "text literal name (null) (\n) (null) (\n    (\n    )\n)!");
}

// An object that puts nothing between its parts but empty texts.
class Sparse final : public NSObject {
 public:
  void describe(Description& out) const override {
    out.part("");
    out.part(Value(1));
    out.part("");
    out.part(std::string());
    out.part(Value(2));
  }
};

TEST(Description, OfAnEmptyPartIsNothing) {
  EXPECT_EQ(makeRef<Sparse>()->description(), "12");
}

// An object that holds the next of a chain.
class Link final : public NSObject {
 public:
  explicit Link(Value next) : next_(std::move(next)) {}
  void describe(Description& out) const override { out.format("[%@]", next_); }

 private:
  Value next_;
};

TEST(Description, FollowsAChainOfAnyDepth) {
  const WorkBound bound("a chain");
  constexpr std::size_t kDepth = 100'000;
  Value chain = "x";
  for (std::size_t depth = 0; depth < kDepth; ++depth) chain = makeRef<Link>(chain);
  EXPECT_EQ(chain.description(), std::string(kDepth, '[') + "x" + std::string(kDepth, ']'));
}

TEST(Description, EndsAtTheLimitOfItsLength) {
  const Value value = NSArray::arrayWithObjects({"abc"});  // 11 bytes: "(\n    abc\n)"
  EXPECT_EQ(Description::of(value, 11).size(), 11U);
  for (std::uint64_t limit = 0; limit < 11; ++limit) {
    EXPECT_EQ(limitReached([&] { (void)Description::of(value, limit); }), KorTemplateLimit::StringLength) << limit;
  }
  EXPECT_EQ(limitReached([] { (void)Description::of("\u00e9", 1); }), KorTemplateLimit::StringLength);
  EXPECT_EQ(Description::of("\u00e9", 2), "\u00e9");
  EXPECT_EQ(Description::of("", 0), "");
  try {
    (void)Description::of(value, 5);
    FAIL();
  } catch (const KorTemplateLimitException& exception) {
    EXPECT_EQ(exception.value(), 5U);
    EXPECT_STREQ(exception.what(), "A string is longer than 5 bytes");
  }
}

TEST(Description, IsBoundedWhereAValueHoldsItselfManyTimes) {
  // Written out, it would be longer than 2 to the 60.
  Value value = "abc";
  for (int level = 0; level < 60; ++level) value = NSArray::arrayWithObjects({value, value});
  const WorkBound bound("a description");
  EXPECT_EQ(limitReached([&] { (void)Description::of(value, 1 << 20); }), KorTemplateLimit::StringLength);
}

// As in every other format.
TEST(Description, SaysWhereATextIsANullPointer) {
  class Nameless final : public NSObject {
   public:
    void describe(Description& out) const override {
      const char* const name = nullptr;
      out.format("{ name: %@ }", name);
    }
  };
  EXPECT_EQ(makeRef<Nameless>()->description(), "{ name: (null) }");
}

}  // namespace

}  // namespace tavlo::test
