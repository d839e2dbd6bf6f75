#include "Source/KorTemplateSyntaxErrorException.h"

#include <gtest/gtest.h>

#include <limits>

#include "Tests/Source/KorTemplateParserSupport.h"

namespace tavlo::test::parsing {

namespace {

TEST(KorTemplateSyntaxErrorException, HasItsNameReasonAndLine) {
  const auto exception = KorTemplateSyntaxErrorException::exceptionOnLine(7, "'%@'. Expected operator", Text("#"));
  EXPECT_EQ(exception.name(), "KorTemplateSyntaxErrorException");
  EXPECT_EQ(exception.reason(), "Syntax error (line 7): '#'. Expected operator");
  EXPECT_EQ(exception.line(), 7);
  EXPECT_EQ(exception.description(), exception.reason());
  EXPECT_STREQ(exception.what(), exception.reason().c_str());
}

TEST(KorTemplateSyntaxErrorException, IsNamedByTheConstant) {
  EXPECT_STREQ(KorTemplateSyntaxErrorExceptionName, "KorTemplateSyntaxErrorException");
}

TEST(KorTemplateSyntaxErrorException, ShowsAnyLineAndMessage) {
  struct Row {
    const char* what;
    std::int32_t line;
    KorTemplateSyntaxErrorException exception;
    const char* reason;
  };
  const std::int32_t largest = std::numeric_limits<std::int32_t>::max();
  const std::int32_t smallest = std::numeric_limits<std::int32_t>::min();
  const auto made = [](std::int32_t line, const char* format, const auto&... arguments) {
    return KorTemplateSyntaxErrorException::exceptionOnLine(line, format, arguments...);
  };
  const Row rows[] = {
      {"no arguments", 0, made(0, "Empty parenthesis"), "Syntax error (line 0): Empty parenthesis"},
      {"the largest line", largest, made(largest, "x"), "Syntax error (line 2147483647): x"},
      {"the smallest line", smallest, made(smallest, "x"), "Syntax error (line -2147483648): x"},
      {"an empty message", 1, made(1, ""), "Syntax error (line 1): "},
      {"an absent argument", 1, made(1, "<%@>", Text()), "Syntax error (line 1): <(null)>"},
      {"a number", 2, made(2, "%d of %d", 3, 4), "Syntax error (line 2): 3 of 4"},
      {"an argument that looks like a format", 2, made(2, "%@", Text("100 %@ %d %%")),
       "Syntax error (line 2): 100 %@ %d %%"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(row.exception.reason(), row.reason) << row.what;
    EXPECT_EQ(row.exception.line(), row.line) << row.what;
  }
}

TEST(KorTemplateSyntaxErrorException, WantsAFormat) {
  EXPECT_EQ(raisedBy([] { (void)KorTemplateSyntaxErrorException::exceptionOnLine(1, nullptr); }).text(),
            failedCheck("format != nil"));
}

TEST(KorTemplateSyntaxErrorException, IsCaughtAsAnyExceptionOfTheFamily) {
  const auto exception = KorTemplateSyntaxErrorException::exceptionOnLine(3, "x");
  try {
    throw exception;
  } catch (const NSException& caught) {
    EXPECT_EQ(caught.name(), KorTemplateSyntaxErrorExceptionName);
    EXPECT_EQ(dynamic_cast<const KorTemplateSyntaxErrorException&>(caught).line(), 3);
  }
}

TEST(KorTemplateSyntaxErrorException, StandsNowhereUntilItIsTold) {
  auto exception = KorTemplateSyntaxErrorException::exceptionOnLine(3, "x");
  EXPECT_FALSE(exception.place().isKnown());
  exception.setPlace({10, 2});
  EXPECT_EQ(exception.place().offset, 10U);
  EXPECT_EQ(exception.place().length, 2U);
}

}  // namespace

}  // namespace tavlo::test::parsing
