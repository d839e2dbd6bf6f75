#include <gtest/gtest.h>

#include <random>
#include <string>
#include <string_view>

#include "Foundation/NSString.h"
#include "Matchery/KorRegex.h"
#include "Matchery/LineStart.h"

namespace tavlo::test {

namespace {

struct StartRow {
  std::string_view pattern;
  std::string_view beginsWith;  // the ASCII bytes among the first ones; empty where nothing is known
};

TEST(LineStart, IsKnownOfPatternsThatBeginAtALineWithSomethingPlain) {
  const StartRow rows[] = {
      {"^a", "a"},
      {"^(SALE|LAST)-\\d+$", "LS"},
      {"^(?:GET|PUT|(A|b)) ", "AGPb"},
      {"^a+b", "a"},
      {"^(a|b)+", "ab"},
      {"^\\.x|", ""},
      {"^\\.x", "."},
      {"^\\d\\d", "0123456789"},
      {"^a[)(]", "a"},
      {"^(a|b)[0-9]+$", "ab"},
      {"^a(b|c)", "a"},
      {"^a(b|[c])", "a"},
      {"^ #", " "},
      {"^\u00e9", ""},
      // It may match elsewhere.
      {"a", ""},
      {"a^", ""},
      {"", ""},
      {"^a|b", ""},
      {"^(a)|b", ""},
      {"^a\\||b", ""},
      {"^a[(]|b", ""},
      {"^[(]a|b", ""},
      {"(^a)|b", ""},
      // It may match nothing.
      {"^", ""},
      {"^a?", ""},
      {"^a*b", ""},
      {"^a{0,3}b", ""},
      {"^a+?", ""},
      {"^a+*b", ""},
      {"^(a|b)?c", ""},
      {"^(a|)c", ""},
      {"^(|a)c", ""},
      {"^()c", ""},
      {"^(a[)]x)?b", ""},
      // It is not that simple.
      {"^[ab]", ""},
      {"^.", ""},
      {"^$", ""},
      {"^\\w", ""},
      {"^\\Aa", ""},
      {"^\\x61", ""},
      {"(?i)^a", ""},
      {"^(?i)a", ""},
      {"^(?i:a)", ""},
      {"^a(?i)b|c", ""},
      {"^(?=b)b", ""},
      {"^a(*FAIL)", ""},
      {"^a\\c(|b", ""},
      {"^(a\\c)\\c(b|c)", ""},
      {"^(a\\C-))", ""},
      {"^a\\M-\\C-(|b", ""},
      {"^a[|]", ""},
  };
  for (const StartRow& row : rows) {
    const std::optional<LineStart> start = LineStart::of(row.pattern);
    std::string bytes;
    for (char byte = 0x20; start.has_value() && byte < 0x7f; ++byte) {
      if (start->mayMatch(std::string(1, byte))) bytes += byte;
    }
    EXPECT_EQ(bytes, row.beginsWith) << row.pattern;
  }
}

TEST(LineStart, IsLookedForAtEveryLine) {
  const std::optional<LineStart> start = LineStart::of("^ab");
  ASSERT_TRUE(start.has_value());
  EXPECT_TRUE(start->mayMatch("x\n\nab"));
  EXPECT_TRUE(start->mayMatch("a"));
  EXPECT_FALSE(start->mayMatch("xa\nxab\n"));
  EXPECT_FALSE(start->mayMatch(""));
  EXPECT_FALSE(start->mayMatch("\n"));
  EXPECT_FALSE(start->mayMatch("x\ra"));
}

// The pattern inside a group that changes nothing but that its start is no longer known.
bool matchesWithoutStart(std::string_view pattern, const NSString& text) {
  return KorRegex::compileExpression("(?-i:" + std::string(pattern) + ")")->matchesString(text);
}

TEST(LineStart, NeverChangesWhatAPatternMatches) {
  const std::string_view pieces[] = {"^",    "^",   "^",   "a", "b", "(",  "(",      "(?:", ")",   ")",
                                     "|",    "|",   "+",   "?", "*", "[",  "]",      "-",   "\\d", "\\c",
                                     "\\C-", "\\(", "\\|", ".", "$", "\n", "\u00e9", "(?i)"};
  const std::string_view characters[] = {"a", "b", "A", "(", "|", "1", "\n", "\n", "\u00e9", "\u0661", "-"};
  std::mt19937 random(20'261'121);
  int known = 0;
  for (int round = 0; round < 40'000; ++round) {
    std::string pattern = "^";
    for (auto count = random() % 8; count > 0; --count) pattern += pieces[random() % std::size(pieces)];
    Ref<KorRegex> regex;
    try {
      regex = KorRegex::compileExpression(pattern);
    } catch (const std::exception&) {
      continue;
    }
    known += LineStart::of(pattern).has_value() ? 1 : 0;
    for (int time = 0; time < 6; ++time) {
      std::string subject;
      for (auto count = random() % 6; count > 0; --count) subject += characters[random() % std::size(characters)];
      const Ref<NSString> text = NSString::stringWithUTF8(subject);
      ASSERT_EQ(regex->matchesString(*text), matchesWithoutStart(pattern, *text)) << pattern << " in " << subject;
    }
  }
  EXPECT_GT(known, 1'000);
}

}  // namespace

}  // namespace tavlo::test
