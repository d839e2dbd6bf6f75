#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "Foundation/NSException.h"
#include "Foundation/NSString.h"
#include "Foundation/Utf8.h"
#include "Foundation/Value.h"
#include "Matchery/KorRegex.h"
#include "Tests/Foundation/Raised.h"
#include "Tests/Foundation/Repeated.h"
#include "Tests/Memory/WorkBound.h"

namespace tavlo::test {

namespace {

using testing::HasSubstr;
using std::string_view_literals::operator""sv;

constexpr char32_t kLastCharacter = 0x10FFFF;

// Whether the pattern, compiled, matches anywhere in the text.
bool matches(std::string_view pattern, std::string_view text) {
  return KorRegex::compileExpression(std::string(pattern))->matchesString(*NSString::stringWithUTF8(text));
}

struct MatchRow {
  std::string_view pattern;
  std::string_view text;
  bool found;
};

TEST(KorRegex, SearchesAnywhereInTheText) {
  const MatchRow rows[] = {
      {"b", "abc", true},
      {"c$", "abc", true},
      {"d", "abc", false},
      {"", "", true},
      {"", "abc", true},
      {"x*", "abc", true},
      {"a", "", false},
      {"ABC", "abc", false},
      {"(?i)ABC", "abc", true},
      {"b", "a\0b"sv, true},
      {"a\\x00b", "a\0b"sv, true},
      {"^.{3}$", "a\0b"sv, true},
      {"(?<=a)b", "ab", true},
      {"(?<!a)b", "ab", false},
      {"a(?!b)", "ab", false},
      {"(a)\\1", "aa", true},
      {"(?<x>a)\\k<x>", "aa", true},
      {"a/b", "a/b", true},
      {"\\Aabc\\z", "abc", true},
      {"\\Aabc\\z", "abc\n", false},
      {"^.$", "\u00e9", true},
      {"^.$", "\U0001f600", true},
      {"^.$", "e\u0301", false},
      {"[\u00e0-\u00ff]", "\u00e9", true},
      {"\u00e9", "e\u0301", false},
      {"(?i)\u00c9", "\u00e9", true},
      {"\\x{1F600}", "\U0001f600", true},
  };
  for (const MatchRow& row : rows)
    EXPECT_EQ(matches(row.pattern, row.text), row.found) << row.pattern << " in " << row.text;
}

TEST(KorRegex, EndsLinesAtLineFeedsOnly) {
  const MatchRow rows[] = {
      {"a.b", "a\nb", false},   {"a.b", "a\rb", true},     {"a.b", "a\u2028b", true}, {"a.b", "a\u0085b", true},
      {"a$", "a\nb", true},     {"a$", "a\r\nb", false},   {"a$", "a\rb", false},     {"a\r$", "a\r\nb", true},
      {"a$", "a\n", true},      {"a$", "a", true},         {"^b", "a\nb", true},      {"^b", "a\rb", false},
      {"^b", "a\r\nb", true},   {"a$", "a\u2028b", false}, {"^$", "a\n\nb", true},    {"a\\z", "a\n", false},
      {"a[^x]b", "a\nb", true}, {"a\\sb", "a\nb", true},
  };
  for (const MatchRow& row : rows)
    EXPECT_EQ(matches(row.pattern, row.text), row.found) << row.pattern << " in " << row.text;
}

TEST(KorRegex, FindsAMatchWhereverItLiesInALongText) {
  const Ref<KorRegex> regex = KorRegex::compileExpression("<[^<>]{0,40}>");
  for (std::size_t at = 0; at < 600; ++at) {
    std::string text(20'000, '-');
    text.replace(at, 2, "<>");
    ASSERT_TRUE(regex->matchesString(*NSString::stringWithUTF8(text))) << at;
    text.replace(at, 12, "<\u00e9\u00e9\u00e9\u00e9\u00e9>");
    ASSERT_TRUE(regex->matchesString(*NSString::stringWithUTF8(text))) << at;
  }
}

struct LongRow {
  const char* what;
  const char* pattern;
  std::string text;
  bool found;
};

TEST(KorRegex, SearchesALongTextAsItDoesAShortOne) {
  const std::string filling(20'000, '-');
  const LongRow rows[] = {
      {"a match of the whole text", "\\A-+\\z", filling, true},
      {"a match of the whole text but its end", "\\A-+x\\z", filling + "x", true},
      {"a long match near the start", "x.{3000}y", "-x" + filling.substr(0, 3000) + "y" + filling, true},
      {"a look-ahead to the end", "^x(?=-*y$)", "x" + filling + "y", true},
      {"a look-behind", "(?<=-x)y", filling + "xy" + filling, true},
      {"the start of the text", "\\Ax", filling + "x", false},
      {"the end of the text", "-\\z", filling, true},
      {"nothing at the end", "(?<!y)\\z", filling + "x", true},
      {"the start of a later line", "^x", filling + "\nx" + filling, true},
      {"no start of a line", "^x", filling + "x" + filling, false},
      {"the end of a line", "x$", filling + "x\n" + filling, true},
      {"no end of a line", "x$", filling + "x" + filling, false},
      {"a word boundary", "\\bx\\b", filling + "x" + filling, true},
      {"an anchor to the place where the search began", "\\Gx", filling + "x", false},
      {"a match of the first place", "\\G-", filling, true},
      {"none", "x", filling, false},
  };
  for (const LongRow& row : rows) EXPECT_EQ(matches(row.pattern, row.text), row.found) << row.what;
}

struct EndRow {
  const char* what;
  const char* pattern;
  std::string_view text;
  std::size_t offset;
  std::optional<std::size_t> end;
};

TEST(KorRegex, MatchesExactlyAtAPlace) {
  const EndRow rows[] = {
      {"at the place", "b+", "abbc", 1, 3},
      {"not further on", "b+", "abbc", 0, {}},
      {"of no characters", "x*", "abc", 1, 1},
      {"at the end", "x*", "abc", 3, 3},
      {"nothing at the end", "a", "abc", 3, {}},
      {"look-behind sees what stands before", "(?<=a)b", "ab", 1, 2},
      {"look-behind that refuses it", "(?<!a)b", "ab", 1, {}},
      {"look-ahead is not part of it", "a(?=b)", "ab", 0, 1},
      {"a word boundary with a word before", "\\bb", "ab", 1, {}},
      {"a word boundary with a space before", "\\bb", " b", 1, 2},
      {"the start of a line", "^b", "a\nb", 2, 3},
      {"no start of a line", "^b", "ab", 1, {}},
      {"the start of the text is not the place", "\\Ab", "ab", 1, {}},
      {"bytes, not characters", "\u00e9", "\u00e9\u00e9", 2, 4},
      {"the first alternative", "a|ab", "ab", 0, 1},
      {"the shortest of a lazy one", "a.*?b", "aabab", 0, 3},
  };
  for (const EndRow& row : rows) {
    EXPECT_EQ(KorRegex::compileExpression(row.pattern)->matchEnd(row.text, row.offset), row.end) << row.what;
  }
}

struct BrokenRow {
  std::string pattern;
  const char* explanation;
};

TEST(KorRegex, RefusesWhatDoesNotCompileWithThePatternAndTheReason) {
  const BrokenRow rows[] = {
      {"(", "end pattern with unmatched parenthesis"},
      {"a)", "unmatched close parenthesis"},
      {"[a", "premature end of char-class"},
      {"[]", "empty char-class"},
      {"*", "target of repeat operator is not specified"},
      {"a\\", "end pattern at escape"},
      {"(?<n", "invalid group name <n>"},
      {"\\k<none>", "undefined name"},
      {"(?<=a*)b(", "end pattern with unmatched parenthesis"},
      {"[z-a]", "empty range in char class"},
      {"\\p{Nonsense}", "invalid character property name"},
      {"(?z)", "undefined group option"},
  };
  for (const BrokenRow& row : rows) {
    const std::string text = raised([&] { (void)KorRegex::compileExpression(row.pattern); });
    EXPECT_THAT(text, testing::StartsWith("NSInvalidArgumentException: ")) << row.pattern;
    EXPECT_THAT(text, HasSubstr(row.pattern));
    EXPECT_THAT(text, HasSubstr(row.explanation));
  }
}

// What reads the pattern beside the engine must find its way where it ends in the middle of something.
TEST(KorRegex, CompilesOrRefusesAPatternThatEndsAnywhere) {
  const std::string patterns[] = {
      "(?<name>a\\k<name>)(\\k<name+1>)\\k'-1'\\g<name>\\g'-1'",
      "(?imx-imx:a(?i-x)b)(?#c \\) d)(?<=e|f)(?<!g)(?=h)(?!i)(?>j)(?~k)",
      "[[:alpha:][:^digit:]a-z&&[^b\\]\\w\\p{^Alpha}]&&\\x{1F600}][]a][^]b]",
      "\\cA\\C-a\\M-b\\M-\\C-c\\x41\\x{41 42}\\o{101}\\101\\p{Alpha}\\P{^Alpha}",
      "(?<a>x){2,3}?y{,4}+z{5,}*(?:w*+v*?){2}\\b\\B\\A\\z\\Z\\G\\K\\R\\X\\y\\Y",
      "(?x) a # comment\n b (?<c>d)?(?(<c>)e|f)(?(1)g)",
  };
  std::size_t compiled = 0;
  for (const std::string& whole : patterns) {
    for (std::size_t length = 0; length <= whole.size(); ++length) {
      const std::string pattern = whole.substr(0, length);
      const std::string text = raised([&] {
        const Ref<KorRegex> regex = KorRegex::compileExpression(pattern);
        ++compiled;
        (void)regex->matchesString(*NSString::stringWithUTF8("a b c xyz 123"));
      });
      if (text.empty()) continue;
      EXPECT_THAT(text, testing::StartsWith("NSInvalidArgumentException: The regular expression /")) << pattern;
    }
  }
  EXPECT_GT(compiled, 60U);
}

TEST(KorRegex, RefusesAPatternThatIsNoUTF8) {
  EXPECT_EQ(raised([] { (void)KorRegex::compileExpression("ab\xff"); }),
            "NSInvalidArgumentException: Text is not valid UTF-8 at byte offset 2");
}

TEST(KorRegex, OfNoPatternIsAbsent) {
  EXPECT_TRUE(KorRegex::compileExpression(nullptr) == nullptr);
}

struct NestingRow {
  const char* what;
  std::string pattern;
  bool compiles;
};

TEST(KorRegex, CompilesUpToAHundredGroupsInsideOneAnother) {
  const std::string open = repeated("(", 100);
  const std::string close = repeated(")", 100);
  const NestingRow rows[] = {
      {"100 groups", open + "a" + close, true},
      {"101 groups", "(" + open + "a" + close + ")", false},
      {"100 groups that capture nothing", repeated("(?:", 100) + "a" + close, true},
      {"101 groups that capture nothing", repeated("(?:", 101) + "a" + close + ")", false},
      {"101 controls", repeated("\\c", 101) + "a", true},
      {"102 controls", repeated("\\C-\\c", 51) + "a", false},
      {"101 look-aheads", repeated("(?=", 101) + "a" + close + ")", false},
      {"many groups side by side", repeated("(a)", 1000), true},
      {"100 groups, again and again", repeated(open + "a" + close, 5), true},
      {"a class inside 100 groups", open + "[a]" + close, true},
      {"parentheses in a class", repeated("(", 99) + "[" + repeated("(", 50) + "]" + repeated(")", 99), true},
      {"a bracket first in a class", repeated("(", 99) + "[]((]" + repeated(")", 99), true},
      {"a bracket first in a class turned round", repeated("(", 99) + "[^]((]" + repeated(")", 99), true},
      {"escaped parentheses", repeated("\\(", 500), true},
      {"escaped brackets", repeated("\\[", 500), true},
      {"closing parentheses that are escaped close nothing", repeated("(\\)", 101) + repeated(")", 101), false},
      {"closing parentheses in a class close nothing", repeated("([)]", 101) + repeated(")", 101), false},
      {"closing parentheses in a comment close nothing", repeated("((?#\\))", 101) + repeated(")", 101), false},
      {"100 options for the rest of the pattern", repeated("(?i)", 100) + "a", true},
      {"101 options for the rest of the pattern", repeated("(?i)", 101) + "a", false},
      {"a thousand options for the rest of the pattern", repeated("(?-i)", 1000) + "a", false},
      {"options for the rest of each alternative", repeated("a|(?i-m)", 101), false},
      {"options for the rest of each group", repeated("((?i)a)", 101), true},
      {"options for a group", repeated("(?i:a)", 101), true},
      {"options in groups in one another", repeated("((?i)", 51) + "a" + repeated(")", 51), false},
      {"stacked quantifiers", "a" + repeated("{0,2}", 101), true},
      {"a stacked quantifier more", "a" + repeated("{0,2}", 102), false},
      {"1600 stacked quantifiers", "a" + repeated("{0,2}", 1600), false},
      {"stacked quantifiers outside and inside", "(?:(?:a)" + repeated("{1,2}", 51) + ")" + repeated("{1,2}", 51),
       false},
      {"stacked loops", "a" + repeated("*?*+", 60), false},
      {"many quantifiers side by side", repeated("a{2}b*?c?+", 500), true},
      {"100 quantified groups", repeated("(?:", 100) + "a" + repeated(")*?", 100), true},
      {"stacked quantifiers with space between them", "(?x)a" + repeated("{1,2} \t", 102), false},
      {"absent operators inside one another", repeated("(?~", 100) + "a" + repeated(")", 100), false},
      {"calls of a group", "(?<x>a)" + repeated("\\g<x>", 40), true},
      {"a call more", "(?<x>a)" + repeated("\\g<x>", 41), false},
      {"a bracket behind a number sign hides nothing", "(?x) # [\n" + repeated("(", 101) + repeated(")", 101), false},
      {"a comment's beginning behind a number sign hides nothing",
       "(?x) # (?#\n" + repeated("(", 101) + repeated(")", 101), false},
      {"closing parentheses behind a number sign close nothing",
       "(?x)" + repeated("( # )\n", 101) + "a" + repeated(")", 101), false},
      {"a number sign that hides nothing", repeated("( # )", 500), true},
      {"101 classes inside one another", repeated("[a", 101) + repeated("]", 101), false},
      {"groups side by side in extended mode with a comment", "(?x)" + repeated("(a)", 1000) + " # c", true},
      {"groups behind an end of extended mode", "(?x:a)#" + repeated("(b)", 1000), true},
      {"groups behind extended mode that is turned off", "(?x:(?-x)a#((()" + repeated(")", 3), true},
      {"groups behind what looks like extended mode in a class", "[(?x:)#]" + repeated("(a)", 1000), true},
      {"groups behind extended mode that ends with its group", "(?:a(?x) b)#" + repeated("(", 101) + repeated(")", 101),
       false},
      {"groups in a comment", "(?x)a # " + repeated("(", 101), true},
      {"closing control characters", repeated("(\\c)", 101) + repeated(")", 101), false},
      {"100 groups with closing control characters", repeated("(\\c)", 100) + repeated(")", 100), true},
      {"other closing control characters", repeated("(\\C-)", 101) + repeated(")", 101), false},
      {"closing meta characters", repeated("(\\M-\\C-)", 101) + repeated(")", 101), false},
      {"opening control characters", repeated("\\c(", 500), true},
      {"an opening control character in a class", "[\\c[]" + repeated("(", 101) + repeated(")", 101), false},
      {"a closing control character in a class", "[\\c]a" + repeated("(", 50) + "]" + repeated("(a)", 200), true},
      {"what is no bracket expression", "[[:" + repeated("a", 30) + ":]" + repeated("(", 101) + repeated(")", 101),
       false},
      {"a class in a class that begins with a colon", "[[:a(]b(]" + repeated("(", 101) + repeated(")", 101), false},
      {"bracket expressions", repeated("[[:alpha:][:^digit:](]", 124) + repeated("(a)", 300), true},
      {"groups behind a bracket expression", "[[:alpha:]]" + repeated("(", 101) + repeated(")", 101), false},
      {"many bracket expressions", repeated("[[:alpha:]]+", 200), true},
      {"many groups and a comment", repeated("(a)", 15'000) + "(?#c)", true},
      {"very many groups", repeated("(", 30'000) + repeated(")", 30'000), false},
      {"very many classes", repeated("[", 60'000), false},
  };
  for (const NestingRow& row : rows) {
    const WorkBound bound(row.what);
    const std::string text = raised([&] { (void)KorRegex::compileExpression(row.pattern); });
    EXPECT_EQ(text.empty(), row.compiles) << row.what << ": " << text.substr(0, 300);
    if (!row.compiles) {
      EXPECT_THAT(text, testing::StartsWith("NSInvalidArgumentException: ")) << row.what;
      EXPECT_NE(text.find(row.pattern), std::string::npos) << row.what;
    }
  }
}

// They would end a search as they like, also as if memory had run out.
TEST(KorRegex, CannotCallFunctionsOfTheEngine) {
  for (const std::string_view pattern :
       {"(*ERROR{-5})a", "(*FAIL)", "(*MAX{3})", "a(*SKIP)b", "(?{a})b", "(?{{a}}[t])"}) {
    EXPECT_THAT(raised([&] { (void)KorRegex::compileExpression(pattern); }),
                testing::StartsWith("NSInvalidArgumentException: The regular expression /"))
        << pattern;
  }
}

TEST(KorRegex, CompilesUpTo64KiB) {
  const std::string longest(64 * 1024, 'a');
  EXPECT_TRUE(KorRegex::compileExpression(longest)->matchesString(*NSString::stringWithUTF8("x" + longest)));
  EXPECT_EQ(raisedName([&] { (void)KorRegex::compileExpression(longest + "a"); }), "NSInvalidArgumentException");
}

TEST(KorRegex, NamesAPatternThatIsTooLongInValidText) {
  // A character of two bytes at every odd offset, so that any cut at an even one falls into a character.
  std::string pattern = "a";
  for (int round = 0; round < 40'000; ++round) pattern += "\u00e9";
  const std::string text = raised([&] { (void)KorRegex::compileExpression(pattern); });
  EXPECT_FALSE(text.empty());
  EXPECT_EQ(firstInvalidByte(text), std::nullopt);
}

TEST(KorRegex, IsSearchedByThreadsAtOnce) {
  const Ref<KorRegex> regex = KorRegex::compileExpression("(\\w+)@(\\w+)\\.com");
  EXPECT_TRUE(regex->isShared());
  std::vector<std::thread> threads;
  std::vector<int> found(4);
  for (int& count : found) {
    threads.emplace_back([&regex, &count] {
      const Ref<NSString> yes = NSString::stringWithUTF8("mail to ada@example.com");
      const Ref<NSString> no = NSString::stringWithUTF8("mail to ada at example.com");
      for (int round = 0; round < 2'000; ++round) {
        const Ref<KorRegex> own = regex;
        count += own->matchesString(*yes, 100'000) && !own->matchesString(*no) ? 1 : 0;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(found, std::vector<int>(4, 2'000));
}

TEST(KorRegex, IsAValueOfItsOwnKind) {
  const Ref<KorRegex> regex = KorRegex::compileExpression("a/\u00e9");
  EXPECT_EQ(regex->pattern().view(), "a/\u00e9");
  EXPECT_STREQ(regex->className(), "KorRegex");
  EXPECT_EQ(regex->description(), "/a/\u00e9/");
  EXPECT_EQ(regexIn(regex), regex.get());
  EXPECT_EQ(regexIn("a"), nullptr);
  EXPECT_EQ(regexIn(5), nullptr);
  EXPECT_EQ(regexIn({}), nullptr);
  EXPECT_TRUE(regex->isEqual(*KorRegex::compileExpression("a/\u00e9")));
  EXPECT_EQ(regex->hash(), KorRegex::compileExpression("a/\u00e9")->hash());
  EXPECT_FALSE(regex->isEqual(*KorRegex::compileExpression("a")));
  EXPECT_FALSE(regex->isEqual(*NSString::stringWithUTF8("a/\u00e9")));
  EXPECT_NO_THROW(Value(regex).share());
}

bool isSurrogate(char32_t character) {
  return character >= 0xD800 && character <= 0xDFFF;
}

TEST(CharacterClasses, HaveUnicodesWhiteSpace) {
  const Ref<KorRegex> space = KorRegex::compileExpression("\\s");
  for (char32_t character = 0; character <= kLastCharacter; ++character) {
    if (isSurrogate(character)) continue;
    std::string text;
    appendCodePoint(text, character);
    const bool expected = isWhiteSpace(character);
    ASSERT_EQ(isSpaceCharacter(character), expected) << static_cast<std::uint32_t>(character);
    ASSERT_EQ(space->matchEnd(text, 0).has_value(), expected) << static_cast<std::uint32_t>(character);
  }
}

TEST(CharacterClasses, AreThoseOfThePatterns) {
  const Ref<KorRegex> word = KorRegex::compileExpression("\\w");
  const Ref<KorRegex> digit = KorRegex::compileExpression("\\d");
  for (char32_t character = 0; character <= kLastCharacter; ++character) {
    if (isSurrogate(character)) continue;
    std::string text;
    appendCodePoint(text, character);
    ASSERT_EQ(isWordCharacter(character), word->matchEnd(text, 0).has_value()) << static_cast<std::uint32_t>(character);
    ASSERT_EQ(isDigitCharacter(character), digit->matchEnd(text, 0).has_value())
        << static_cast<std::uint32_t>(character);
  }
}

struct ClassRow {
  char32_t character;
  bool word;
  bool digit;
};

TEST(CharacterClasses, KnowUnicode) {
  const ClassRow rows[] = {
      {U'a', true, false},         {U'Z', true, false},       {U'5', true, true},
      {U'_', true, false},         {U'-', false, false},      {U'$', false, false},
      {U' ', false, false},        {0, false, false},         {U'\u00e9', true, false},
      {U'\u0301', true, false},    {U'\u0661', true, true},   {U'\uff15', true, true},
      {U'\u4e2d', true, false},    {U'\u20ac', false, false}, {U'\U0001f600', false, false},
      {U'\U0001d7ce', true, true},
  };
  for (const ClassRow& row : rows) {
    EXPECT_EQ(isWordCharacter(row.character), row.word) << static_cast<std::uint32_t>(row.character);
    EXPECT_EQ(isDigitCharacter(row.character), row.digit) << static_cast<std::uint32_t>(row.character);
  }
}

}  // namespace

}  // namespace tavlo::test
