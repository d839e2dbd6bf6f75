#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "Foundation/NSArray.h"
#include "Foundation/NSString.h"
#include "Foundation/Selector.h"
#include "Foundation/StringFormat.h"
#include "Tests/Foundation/HostObjects.h"
#include "Tests/Foundation/Raised.h"

namespace tavlo::test {

namespace {

TEST(Selector, IsMadeFromAnyText) {
  const std::string text = "price:discount:";
  EXPECT_EQ(Selector("price:discount:"), Selector(text));
  EXPECT_EQ(Selector(std::string_view(text)), Selector(text));
  EXPECT_EQ(Selector(text).view(), text);
  EXPECT_NE(Selector("price:"), Selector("price"));
  EXPECT_EQ(Selector::Hash()("price:"), Selector::Hash()(std::string("price:")));
}

TEST(Selector, MayBeAbsent) {
  const char* const noText = nullptr;
  for (const Selector& selector : {Selector(), Selector(nullptr), Selector(noText)}) {
    EXPECT_TRUE(selector.isAbsent());
    EXPECT_EQ(selector, Selector());
    EXPECT_EQ(selector.view(), "");
    EXPECT_EQ(selector.numberOfArguments(), 0u);
  }
  EXPECT_FALSE(Selector("").isAbsent());
  EXPECT_NE(Selector(""), Selector());
}

TEST(Selector, NamesAnArgumentWithEachColon) {
  struct Row {
    const char* text;
    std::size_t count;
  };
  const Row rows[] = {{"", 0}, {"close", 0}, {"add:", 1}, {"add:to:", 2}, {"add::", 2}, {":", 1}, {"über:größe:", 2}};
  for (const Row& row : rows) EXPECT_EQ(Selector(row.text).numberOfArguments(), row.count) << row.text;
}

TEST(Selector, RefusesTextThatIsNotUTF8) {
  EXPECT_EQ(raisedName([] { (void)Selector("a\xFF:"); }), "NSInvalidArgumentException");
}

TEST(Selector, ReadsAsItsTextInMessages) {
  EXPECT_EQ(stringWithFormat("%@!", NSStringFromSelector("add:to:")), "add:to:!");
  EXPECT_EQ(stringWithFormat("%@!", NSStringFromSelector(Selector())), "(null)!");
  EXPECT_EQ(NSStringFromSelector(Selector()), nullptr);
}

TEST(ClassReference, IsThatOfAValue) {
  struct Row {
    const char* what;
    Value value;
    const char* text;
  };
  const Row rows[] = {
      {"a text", "a", "NSString"},
      {"a number", 1.5, "NSNumber"},
      {"a truth", true, "NSNumber"},
      {"null", Value::null(), "NSNull"},
      {"a list", NSArray::array(), "NSArray"},
      {"an object of a host", makeRef<Named>("n"), "Named"},
      {"nothing", Value(), "(null)"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(stringWithFormat("%@", NSStringFromClass(ClassReference(row.value))), row.text) << row.what;
  }
}

TEST(ClassReference, IsEqualByName) {
  EXPECT_EQ(ClassReference("a"), ClassReference("b"));
  EXPECT_NE(ClassReference("a"), ClassReference(1));
  EXPECT_NE(ClassReference("a"), ClassReference());
  EXPECT_EQ(ClassReference(), ClassReference(Value()));
  EXPECT_TRUE(ClassReference().isAbsent());
  EXPECT_EQ(ClassReference().name(), "");
}

}  // namespace

}  // namespace tavlo::test
