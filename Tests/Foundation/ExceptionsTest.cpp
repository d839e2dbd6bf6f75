#include <gtest/gtest.h>

#include <cstdint>
#include <exception>
#include <string>
#include <type_traits>

#include "Foundation/KorTemplateLimits.h"
#include "Foundation/NSArray.h"
#include "Foundation/NSException.h"
#include "Foundation/NSString.h"
#include "Foundation/StackGuard.h"
#include "Foundation/StringFormat.h"
#include "Tests/Foundation/HostObjects.h"
#include "Tests/Foundation/Raised.h"
#include "Tests/Foundation/SmallStack.h"

namespace tavlo::test {

namespace {

TEST(NSException, IsDescribedByItsReasonOrElseByItsName) {
  const NSException full("Name", "reason");
  EXPECT_EQ(full.name(), "Name");
  EXPECT_EQ(full.reason(), "reason");
  EXPECT_TRUE(full.hasReason());
  EXPECT_EQ(full.description(), "reason");
  EXPECT_STREQ(full.what(), "reason");

  const NSException bare("Name");
  EXPECT_FALSE(bare.hasReason());
  EXPECT_EQ(bare.reason(), "");
  EXPECT_EQ(bare.description(), "Name");
  EXPECT_STREQ(bare.what(), "Name");

  const NSException empty("Name", "");
  EXPECT_TRUE(empty.hasReason());
  EXPECT_EQ(empty.description(), "");
}

TEST(NSException, IsCopiedWithoutThrowingAndSharesItsTexts) {
  static_assert(std::is_nothrow_copy_constructible_v<NSException>);
  static_assert(std::is_nothrow_copy_assignable_v<NSException>);
  static_assert(std::is_base_of_v<std::exception, NSException>);
  static_assert(!std::is_base_of_v<NSObject, NSException>);
  const NSException source("Name", "a reason that is too long to lie inside a string object itself");
  const NSException copy = source;
  EXPECT_EQ(&copy.reason(), &source.reason());
  NSException assigned("Other");
  assigned = source;
  EXPECT_EQ(assigned.name(), "Name");
}

TEST(NSException, IsRaisedWithAFormattedReason) {
  EXPECT_EQ(raised([] { NSException::raise(NSGenericException, "%@ and %s: %d", Value(1.5), "text", -7); }),
            "NSGenericException: 1.5 and text: -7");
  EXPECT_EQ(raised([] { NSException::raise(NSRangeException, "plain"); }), "NSRangeException: plain");
}

TEST(NSException, CarriesTheNameOfItsConstant) {
  EXPECT_STREQ(NSGenericException, "NSGenericException");
  EXPECT_STREQ(NSInternalInconsistencyException, "NSInternalInconsistencyException");
  EXPECT_STREQ(NSInvalidArgumentException, "NSInvalidArgumentException");
  EXPECT_STREQ(NSRangeException, "NSRangeException");
  EXPECT_STREQ(NSUndefinedKeyException, "NSUndefinedKeyException");
}

TEST(Assertions, RaiseAnInternalInconsistency) {
  EXPECT_EQ(raised([] { failAssertion("went wrong"); }), "NSInternalInconsistencyException: went wrong");
  EXPECT_EQ(raised([] { failParameter("name != nil"); }),
            "NSInternalInconsistencyException: Invalid parameter not satisfying: name != nil");
  EXPECT_EQ(raised([] { requireParameter(false, "a > 0"); }),
            "NSInternalInconsistencyException: Invalid parameter not satisfying: a > 0");
  EXPECT_EQ(raised([] { requireParameter(true, "a > 0"); }), "");
}

struct FormattedRow {
  std::string text;
  std::string expected;
};

TEST(StringWithFormat, FormatsByTypeWhicheverPlaceholderStandsThere) {
  const Ref<NSString> string = NSString::stringWithUTF8("abc");
  const FormattedRow rows[] = {
      {stringWithFormat(""), ""},
      {stringWithFormat("plain"), "plain"},
      {stringWithFormat("%d %@ %s", 1, 2, 3), "1 2 3"},
      {stringWithFormat("%d %@ %s", "a", "b", "c"), "a b c"},
      {stringWithFormat("%d", -5), "-5"},
      {stringWithFormat("%d", UINT64_MAX), "18446744073709551615"},
      {stringWithFormat("%d", INT64_MIN), "-9223372036854775808"},
      {stringWithFormat("%@", Value(0.1)), "0.1"},
      {stringWithFormat("%@", Value::null()), "<null>"},
      {stringWithFormat("%@", Value()), "(null)"},
      {stringWithFormat("%s", nullptr), "(null)"},
      {stringWithFormat("%@", Text()), "(null)"},
      {stringWithFormat("%@", Name()), "(null)"},
      {stringWithFormat("%@", Ref<NSString>()), "(null)"},
      {stringWithFormat("%@|%@", Text(""), Name("")), "|"},
      {stringWithFormat("%@", string), "abc"},
      {stringWithFormat("%@", Name("name")), "name"},
      {stringWithFormat("%s", std::string("text")), "text"},
      {stringWithFormat("%s", std::string_view("text", 2)), "te"},
      {stringWithFormat("%@", NSArray::arrayWithObjects({1})), "(\n    1\n)"},
      {stringWithFormat("%@%@", "a", "b"), "ab"},
      {stringWithFormat("100%%"), "100%"},
      {stringWithFormat("%%d %d", 1), "%d 1"},
      {stringWithFormat("%d and %d", 1), "1 and %d"},
      {stringWithFormat("%x %"), "%x %"},
      {stringWithFormat("%@", "%d %@"), "%d %@"},
      {stringWithFormat("none", 1), "none"},
  };
  for (const FormattedRow& row : rows) EXPECT_EQ(row.text, row.expected);
}

struct LimitRow {
  KorTemplateLimit limit;
  std::uint64_t value;
  const char* text;
};

TEST(KorTemplateLimitException, NamesTheLimitAndItsValue) {
  const LimitRow rows[] = {
      {KorTemplateLimit::Nesting, 1000, "Blocks and parentheses are nested deeper than 1000"},
      {KorTemplateLimit::FunctionDepth, 7, "Functions are running deeper than 7 inside one another"},
      {KorTemplateLimit::Stack, 65536, "Less than 65536 bytes of the thread's stack are left"},
      {KorTemplateLimit::RegexRetries, 1000000, "A regular expression search needs more than 1000000 retries"},
      {KorTemplateLimit::StringLength, 268435456, "A string is longer than 268435456 bytes"},
      {KorTemplateLimit::ValueDepth, 1000, "A value is nested deeper than 1000"},
  };
  for (const LimitRow& row : rows) {
    try {
      raiseLimit(row.limit, row.value);
      FAIL() << row.text;
    } catch (const KorTemplateLimitException& exception) {
      EXPECT_EQ(exception.limit(), row.limit);
      EXPECT_EQ(exception.value(), row.value);
      EXPECT_STREQ(exception.what(), row.text);
      const KorTemplateLimitException copy = exception;
      EXPECT_EQ(copy.what(), exception.what());
    }
  }
}

TEST(KorTemplateLimitException, StandsOutsideTheFamily) {
  static_assert(!std::is_base_of_v<NSException, KorTemplateLimitException>);
  static_assert(std::is_base_of_v<std::exception, KorTemplateLimitException>);
  static_assert(std::is_nothrow_copy_constructible_v<KorTemplateLimitException>);
  EXPECT_THROW(raised([] { raiseLimit(KorTemplateLimit::Stack, 1); }), KorTemplateLimitException);
}

TEST(KorTemplateLimits, AreTheseUnlessAHostSaysOtherwise) {
  const KorTemplateLimits limits;
  EXPECT_EQ(limits.nesting, 1000);
  EXPECT_EQ(limits.functionDepth, 1000);
  EXPECT_EQ(limits.stackLeft, 64U * 1024);
  EXPECT_EQ(limits.regexRetries, 1'000'000U);
  EXPECT_EQ(limits.stringLength, 256ULL * 1024 * 1024);
  EXPECT_EQ(limits.valueDepth, 1000);
  EXPECT_FALSE(limitReached([] { requireValueDepth(1000); }).has_value());
  EXPECT_EQ(limitReached([] { requireValueDepth(1001); }), KorTemplateLimit::ValueDepth);
}

TEST(StackGuard, PassesUntilItsFloorIsReached) {
  const auto here = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
  constexpr std::uintptr_t kFar = 256 * 1024;
  EXPECT_FALSE(limitReached([&] { StackGuard::withFloor(here - kFar, 5).check(); }).has_value());
  try {
    StackGuard::withFloor(here + kFar, 5).check();
    FAIL();
  } catch (const KorTemplateLimitException& exception) {
    EXPECT_EQ(exception.limit(), KorTemplateLimit::Stack);
    EXPECT_EQ(exception.value(), 5U);
  }
  EXPECT_FALSE(limitReached([] { StackGuard().check(); }).has_value());
}

TEST(StackGuard, KnowsTheStackOfItsThread) {
  EXPECT_FALSE(limitReached([] { StackGuard::forThisThread(64 * 1024).check(); }).has_value());
  bool passed = false;
  std::optional<KorTemplateLimit> reached;
  runOnStackOf(kSmallStack, [&] {
    passed = !limitReached([] { StackGuard::forThisThread(kSmallStack / 4).check(); }).has_value();
    // The system may hand out a larger stack than was asked for, one that another thread has left.
    reached = limitReached([] { StackGuard::forThisThread(1024 * kSmallStack).check(); });
  });
  EXPECT_TRUE(passed);
  EXPECT_EQ(reached, KorTemplateLimit::Stack);
}

// Recurses until the check stops it; the volatile keeps each call's frame.
int recurse(int depth) {  // NOLINT(misc-no-recursion): that is what is tested
  volatile char frame[256];
  frame[0] = static_cast<char>(depth);
  checkStack();
  if (depth > 1'000'000'000) return 0;
  return recurse(depth + 1) + frame[0];
}

TEST(StackGuard, EndsARecursionBeforeTheThreadsStackDoes) {
  std::optional<KorTemplateLimit> reached;
  runOnStackOf(kSmallStack, [&reached] { reached = limitReached([] { (void)recurse(0); }); });
  EXPECT_EQ(reached, KorTemplateLimit::Stack);
}

}  // namespace

}  // namespace tavlo::test
