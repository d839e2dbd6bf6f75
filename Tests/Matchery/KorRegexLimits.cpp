#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <cstdlib>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "Foundation/KorTemplateLimits.h"
#include "Foundation/NSException.h"
#include "Foundation/NSString.h"
#include "Matchery/KorRegex.h"
#include "Matchery/WatchedPattern.h"
#include "Tests/Foundation/Raised.h"
#include "Tests/Foundation/Repeated.h"
#include "Tests/Foundation/SmallStack.h"
#include "Tests/Memory/WorkBound.h"

namespace tavlo::test {

namespace {

struct HardRow {
  std::string pattern;
  std::string text;
};

TEST(KorRegexLimits, EndsASearchThatTakesTooManyRetries) {
  const std::string letters(40, 'a');
  const HardRow rows[] = {
      {"(a+)+$", letters + "b"},
      {"^(a|a)*$", letters + "b"},
      {"(x+x+)+y", std::string(40, 'x')},
      {"^(([a-z])+.)+[A-Z]([a-z])+$", letters},
  };
  for (const HardRow& row : rows) {
    const Ref<KorRegex> regex = KorRegex::compileExpression(row.pattern);
    const Ref<NSString> subject = NSString::stringWithUTF8(row.text);
    const WorkBound bound(row.pattern);
    try {
      (void)regex->matchesString(*subject);
      FAIL() << row.pattern;
    } catch (const KorTemplateLimitException& exception) {
      EXPECT_EQ(exception.limit(), KorTemplateLimit::RegexRetries) << row.pattern;
      EXPECT_EQ(exception.value(), 1'000'000U) << row.pattern;
    }
    // So few are over long before half a second is, which a busy machine may take for many.
    try {
      (void)regex->matchesString(*subject, 1'000);
      FAIL() << row.pattern;
    } catch (const KorTemplateLimitException& exception) {
      EXPECT_STREQ(exception.what(), "A regular expression search needs more than 1000 retries") << row.pattern;
    }
    EXPECT_EQ(limitReached([&] { (void)regex->matchEnd(row.text, 0); }), KorTemplateLimit::RegexRetries) << row.pattern;
  }
}

TEST(KorRegexLimits, TakesTheBoundOnRetriesFromItsCaller) {
  const Ref<KorRegex> regex = KorRegex::compileExpression("^(a|b)*[cd]");
  const Ref<NSString> subject = NSString::stringWithUTF8(std::string(200, 'a') + "-c");
  EXPECT_FALSE(regex->matchesString(*subject));
  EXPECT_EQ(limitReached([&] { (void)regex->matchesString(*subject, 10); }), KorTemplateLimit::RegexRetries);
  EXPECT_FALSE(regex->matchesString(*subject, 1'000'000));
  EXPECT_FALSE(regex->matchesString(*subject));
}

TEST(KorRegexLimits, EndsEverySearchWithinAboutHalfASecond) {
  const std::string letters(16'000, 'a');
  const std::string many(100'000, 'a');
  // Few retries, and much work in each.
  const HardRow rows[] = {
      {"(?>a*)[bc]", many},
      {"a*+[bc]", many},
      {"(?=a*[bc])a", many},
      {"(a+)+$", many + "b"},
      {".*.*[bc]$", many},
      {"[^y]*+a", letters},
      {repeated("[^y]*+a|", 9) + "[^y]*+a", letters},
      {"(a*)\\1(?<=b)", letters},
      {"(a*)\\1(?<=b)", many},
      {repeated("[^y]*+X|", 999) + "[^y]*+X", many + "Xb"},
      {"a" + repeated("{0,2}", 101), "ab"},
      {"(?:a|b){1000}[cd]", many + "c"},
      {"(?:a|b)" + repeated("{2}", 16) + "[cd]", many + "c"},
      {"(?:(?:(?=a)b?){1000}a{0,1}){10000}[XY]1", many + "X"},
      {"(?:a?){20}a{15000}[XY]1", letters + "X"},
      {"(?:a*b?){2,3}[XY]1", many + "X"},
      {"(?<n>a\\g<n>?b?)[XY]1", many + "X"},
      {"(?x) [^y]*+ [XY]1", many + "X"},
      {"(?<x>a)?(?(<x>)[^y]*+[XY]|b)1", many + "X"},
      {"\\G(?x)(?:a?){12} a*+ [XY]1", letters + "X"},
      {"." + repeated("{2,}", 16), many},
      {"." + repeated("{3,}", 16), many},
      {"(?x)." + repeated("{3,}?", 16), many},
      {"(?:ab?)" + repeated("{2,}+{3}", 9) + "[XY]", many},
      {"." + repeated("{3,}", 10), repeated("\u00e9", 50'000)},
      {"(?:a" + repeated("\\B", 500) + ")*+[^a]?\\b\\B", letters},
      {"(?:a" + repeated("\\B", 30'000) + ")*+[^a]?\\b\\B", letters.substr(0, 2'000)},
      {"(?x)(?:a" + repeated("\\B", 30'000) + ")*+[^a]?\\b\\B", letters.substr(0, 2'000)},
      {"(?x)(?:a" + repeated("\\B", 5'000) + ") *+[^a]?\\b\\B", letters},
      {"(?x)(?-x:a" + repeated("\\B", 5'000) + ") *+[^a]?\\b\\B", letters},
      {"(?x)(?:(?:a" + repeated("(?:\\b|\\B)", 90) + ")*+b?)*+[^a]?\\b\\B", letters},
      {".*" + std::string(32'000, 'a') + "b", std::string(1'000'000, 'a')},
      {".*" + repeated("[ab]", 8'000) + "b", std::string(1'000'000, 'a')},
      {"(?x).{0,3000}" + repeated("\\w", 3'500) + "[ac]b", std::string(7'000, 'a') + "bc"},
      {".*" + repeated("(?:a|c)", 8'000) + "b", many},
      {"()(?:a{1}" + repeated("\\1", 20'000) + ")*[xy]", many},
      {"(?<n>)(?:a" + repeated("(?(<n>))", 3'000) + ")*[xy]", many},
      {"(?:.." + repeated("\\y", 1'000) + ")*", repeated("\U0001F1E6\U0001F1E7", 2'000)},
      {"(?x)(?:.." + repeated("\\y", 1'000) + ")*", repeated("\U0001F1E6\U0001F1E7", 2'000)},
      {"(?y{w})(?>(?:a)" + repeated("b*", 20'000) + ")+x?\\z", many},
      {"(?:a{1}|" + repeated("\\w++-|", 250) + "b)", repeated("\u0430\u044f", 250'000)},
      {"(?x)(?<f>a" + repeated("\\B", 3'000) + "\\g<f>?)[^a]?\\b\\B", letters},
      {"(?x)" + repeated("a?", 10) + "(?<n>a)*+\\k<n>x", std::string(900'000, 'a')},
      {"(?x)" + repeated("a?", 10) + "(?>(?<n>a)*)x", std::string(900'000, 'a')},
      {repeated("a?", 9) + "a{,2}*+x", std::string(900'000, 'a')},
      {"(a)*+[^a]", std::string(900'000, 'a')},
      {".{0,2000}\\w*+z\\R", letters.substr(0, 10'000) + "bzz"},
      {".{0,1900}\\w*+z\\cA", letters.substr(0, 10'000) + "bz\x01"},
      {"(?x)" + repeated("(?:a|a)", 9) + std::string(60'000, '.') + "b", std::string(250'000, 'a')},
      {repeated("(?:a|a)", 9) + std::string(60'000, '.') + "b", std::string(250'000, 'a')},
      {".*" + repeated("\\B", 1'000) + "[!?]", repeated("\u044f", 300'000) + "\n!"},
      {".*" + repeated("\\B", 30'000) + "[!?]", repeated("\u044f", 5'000) + "\n!"},
      {repeated("\\B", 32'000) + "\u044f\\b", repeated("\u044f", 5'000)},
      {"(?x)" + repeated("\\B", 30'000) + "\u044f\\b", repeated("\u044f", 5'000)},
      {"\\G" + repeated("\\B", 30'000) + "\u044f*\\b!", repeated("\u044f", 5'000)},
      {"(?i).*" + std::string(1'000, 'k') + "[!?]", repeated("\u212a", 300'000) + "\n!"},
      {"(?xi)" + repeated("(?<n>", 16) + "a*b?" + repeated(")", 16) + repeated("a?", 10) + "\\k<n>c",
       std::string(200'000, 'a') + "b" + std::string(200'000, 'a')},
  };
  for (const HardRow& row : rows) {
    const Ref<KorRegex> regex = KorRegex::compileExpression(row.pattern);
    const Ref<NSString> subject = NSString::stringWithUTF8(row.text);
    const WorkBound bound(row.pattern.substr(0, 60));
    (void)limitReached([&] { (void)regex->matchesString(*subject); });
  }
}

// The processor time that the least of some rounds takes to compile, or to refuse, that many patterns of as many
// pieces.
double secondsToCompile(const std::string& piece, std::size_t pieces, int patterns) {
  const std::string pattern = repeated(piece, static_cast<int>(pieces));
  double least = 1e9;
  for (int round = 0; round < 3; ++round) {
    const double start = processorSeconds();
    for (int time = 0; time < patterns; ++time) (void)raised([&] { (void)KorRegex::compileExpression(pattern); });
    least = std::min(least, processorSeconds() - start);
  }
  return least;
}

TEST(KorRegexLimits, LooksThroughManyGroupsOfOptionsOnce) {
  constexpr std::size_t kFew = 500;
  constexpr std::size_t kMany = 32 * kFew;
  // What begins with options may end like them, or go on; whether it compiles does not matter.
  for (const char* piece : {"(?i)", "(?i", "(?i:", "(?"}) {
    const double few = secondsToCompile(piece, kFew, kMany / kFew);
    // As many characters at one go: with the square of their number that would take 32 times as long.
    EXPECT_LT(secondsToCompile(piece, kMany, 1), 12 * few + 0.02) << piece;
  }
}

TEST(KorRegexLimits, SaysThatTheTimeIsOver) {
  const HardRow rows[] = {
      {"[^y]*+a", std::string(500'000, 'a')},
      {"(?x) [^y]*+ a", std::string(500'000, 'a')},
      {"\\G(?x) some (?:\\w|\\s|,)* [#]", repeated("some words here, ", 2'000) + "#"},
  };
  for (const HardRow& row : rows) {
    const Ref<KorRegex> regex = KorRegex::compileExpression(row.pattern);
    const WorkBound bound(row.pattern);
    try {
      (void)regex->matchesString(*NSString::stringWithUTF8(row.text), 2'000'000);
      FAIL() << row.pattern;
    } catch (const KorTemplateLimitException& exception) {
      EXPECT_STREQ(exception.what(), "A regular expression search takes longer than half a second") << row.pattern;
      EXPECT_EQ(exception.limit(), KorTemplateLimit::RegexRetries) << row.pattern;
      EXPECT_EQ(exception.value(), 2'000'000U) << row.pattern;
    }
  }
}

struct PlainRow {
  const char* pattern;
  bool found;
};

TEST(KorRegexLimits, APlainSearchOfALongTextSucceeds) {
  const Ref<NSString> subject = NSString::stringWithUTF8(std::string(16 * 1024 * 1024, 'a') + "end");
  const PlainRow rows[] = {
      {"needle", false}, {"\\Aneedle", false},   {"^needle", false}, {"end", true},
      {"nd\\z", true},   {"needle|nail", false}, {"x\\w+y", false},  {".*needle", false},
  };
  for (const PlainRow& row : rows) {
    EXPECT_EQ(KorRegex::compileExpression(row.pattern)->matchesString(*subject), row.found) << row.pattern;
  }
}

TEST(KorRegexLimits, ASearchWithoutManyRetriesAtOnePlaceSucceedsInALongText) {
  const Ref<NSString> subject = NSString::stringWithUTF8(repeated("some words here, ", 2'000) + "#");
  const PlainRow rows[] = {
      {"\\w+[@#]", false},          {"\\w+ \\w+[@#]", false},     {"[^#]*#\\z", true},
      {"(\\w+)\\s+\\1[@#]", false}, {"(?x) e , \\x20 [#]", true}, {"\\G(?x) some [ ] words", true},
      {"\\G(?x) words", false},
  };
  for (const PlainRow& row : rows) {
    EXPECT_EQ(KorRegex::compileExpression(row.pattern)->matchesString(*subject), row.found) << row.pattern;
  }
}

struct StackRow {
  const char* what;
  std::string pattern;
};

TEST(KorRegexLimits, CompilesOrRefusesHostilePatternsOnSmallStacks) {
  std::string chain = "(?<n40>b)";
  for (int at = 39; at >= 1; --at) {
    const std::string name = std::to_string(at);
    chain += "(?<n" + name + ">" + repeated("(?:", 90) + "a\\g<n" + std::to_string(at + 1) + ">" + repeated(")", 91);
  }
  const StackRow rows[] = {
      {"options", repeated("(?i)", 1000) + "a"},
      {"a hundred options", repeated("(?i)", 100) + "a"},
      {"groups", repeated("(?:", 100) + "a" + repeated("){2,3}", 100)},
      {"stacked quantifiers", "a" + repeated("{0,2}", 10'000)},
      {"alternatives", repeated("a*|", 20'000)},
      {"a long sequence", repeated("(a)", 20'000)},
      {"absent operators", repeated("(?~", 100) + "a" + repeated(")", 100)},
      {"a few absent operators", repeated("(?~", 16) + "a" + repeated(")", 16)},
      {"look-behinds", repeated("(?<=", 100) + "a" + repeated(")", 100)},
      {"controls", repeated("\\c", 30'000) + "a"},
      {"controls in a class", "[" + repeated("\\M-", 20'000) + "a]"},
      {"a hundred controls", repeated("\\C-", 100) + "a"},
      {"a chain of calls", chain},
  };
  for (const std::size_t kibibytes : {192, 256, 512}) {
    for (const StackRow& row : rows) {
      const WorkBound bound(row.what);
      runOnStackOf(kibibytes * 1024, [&row] {
        try {
          const Ref<KorRegex> regex = KorRegex::compileExpression(row.pattern);
          (void)regex->matchesString(*NSString::stringWithUTF8("ab"));
          (void)regex->matchesString(*NSString::stringWithUTF8(std::string(20'000, 'a')));
        } catch (const NSException& exception) {
          EXPECT_EQ(exception.name(), NSInvalidArgumentException) << row.what;
        } catch (const KorTemplateLimitException& exception) {
          EXPECT_NE(exception.limit(), KorTemplateLimit::Nesting) << row.what;
        }
      });
    }
  }
}

// What the check of the stack lets through must have enough of it, wherever that border is.
TEST(KorRegexLimits, CompilesDeepPatternsOrRefusesThemOnStacksOfAnySize) {
  const std::string patterns[] = {
      repeated("(b|a", 99) + "a" + repeated(")*", 99),
      repeated("(a|", 99) + "a" + repeated("){2}", 99),
      repeated("(b|a", 99) + "c" + repeated("c)*?", 99),
      repeated("(b|a", 99) + "c" + repeated("b){2,3}", 99),
      repeated("(b|a(?=b|a", 49) + "c" + repeated("b)c)*", 49),
      repeated("(?:(?<=a)b|(?>a", 49) + "c" + repeated("b)+c)*+", 49),
  };
  int compiled = 0;
  int refused = 0;
  for (std::size_t kibibytes = 128; kibibytes <= 448; kibibytes += 8) {
    for (const std::string& pattern : patterns) {
      runOnStackOf(kibibytes * 1024, [&] {
        try {
          (void)KorRegex::compileExpression(pattern);
          ++compiled;
        } catch (const KorTemplateLimitException& exception) {
          EXPECT_EQ(exception.limit(), KorTemplateLimit::Stack) << pattern;
          ++refused;
        }
      });
    }
  }
  EXPECT_GT(compiled, 0);
  EXPECT_GT(refused, 0);
}

TEST(KorRegexLimits, AStackTooSmallForThePatternIsALimit) {
  // A stack of its own: the system may hand out a larger one again.
  constexpr std::size_t kSize = std::size_t{128} * 1024;
  constexpr std::size_t kPage = 4096;
  const std::unique_ptr<void, decltype(&std::free)> stack(std::aligned_alloc(kPage, kSize), &std::free);
  pthread_attr_t attributes;
  ASSERT_EQ(pthread_attr_init(&attributes), 0);
  ASSERT_EQ(pthread_attr_setstack(&attributes, stack.get(), kSize), 0);
  const auto body = [](void* /*unused*/) -> void* {
    const std::string pattern = repeated("(", 100) + repeated(")", 100);
    EXPECT_EQ(limitReached([&] { (void)KorRegex::compileExpression(pattern); }), KorTemplateLimit::Stack);
    EXPECT_TRUE(KorRegex::compileExpression("(a)")->matchesString(*NSString::stringWithUTF8("a")));
    return nullptr;
  };
  pthread_t thread{};
  ASSERT_EQ(pthread_create(&thread, &attributes, body, nullptr), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
}

// Patterns of every construct, with the same answer for the same seed.
class RandomPattern {
 public:
  explicit RandomPattern(std::uint32_t seed) : random_(seed) {}

  std::string alternatives(int depth) {
    std::string pattern = sequence(depth);
    while (pick(4) == 0) pattern += "|" + sequence(depth);
    return pattern;
  }

  std::string text(std::size_t size) {
    std::string text;
    while (text.size() < size) text += oneOf({"a", "a", "a", "b", "b", "c", " ", "\n", "\u00e9", "2"});
    return text;
  }

 private:
  std::size_t pick(std::size_t count) { return random_() % count; }
  const char* oneOf(const std::vector<const char*>& choices) { return choices[pick(choices.size())]; }

  std::string sequence(int depth) {
    std::string pattern;
    for (std::size_t count = pick(4); count > 0; --count) pattern += atom(depth) + quantifier();
    return pattern;
  }

  const char* quantifier() {
    return oneOf({"", "", "", "", "*", "+", "?", "*?", "+?", "??", "*+", "++", "{2}", "{1,3}", "{,2}", "{2,}?", "{x}"});
  }

  std::string atom(int depth) {
    if (depth > 0 && pick(3) == 0) {
      const char* open = oneOf({"(", "(?:", "(?=", "(?!", "(?>", "(?<=", "(?<!", "(?<n>", "(?i:", "(?i)", "(?-i:"});
      return open == std::string_view("(?i)") ? open : open + alternatives(depth - 1) + ")";
    }
    return oneOf({"a",           "b",   "c",   "ab",  ".",       "\u00e9", "[ab]",    "[^b]",   "[]a]", "[a[bc]]",
                  "[[:alpha:]]", "\\w", "\\s", "\\d", "\\x{61}", "\\x61",  "\\142",   "\\p{L}", "\\b",  "^",
                  "$",           "\\A", "\\G", "\\1", "\\k<n>",  "\\g<n>", "\\u0062", "\\K",    "\\/",  "}"});
  }

  std::mt19937 random_;
};

bool isInsideCharacter(const std::string& text, std::size_t at) {
  return at < text.size() && (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80;
}

// Where the matches at every place of the text end, and whether a search finds one; absent where a limit is reached.
std::optional<std::vector<std::optional<std::size_t>>> answers(const KorRegex& regex, const std::string& text) {
  std::vector<std::optional<std::size_t>> result;
  const std::optional<KorTemplateLimit> limit = limitReached([&] {
    for (std::size_t at = 0; at <= text.size(); ++at) {
      if (!isInsideCharacter(text, at)) result.push_back(regex.matchEnd(text, at));
    }
    result.emplace_back(regex.matchesString(*NSString::stringWithUTF8(text)) ? 1 : 0);
  });
  if (limit.has_value()) return {};
  return result;
}

// The watched pattern with an empty group in place of each call, as no pattern may have one that is given by hand.
std::string withoutCalls(std::string pattern) {
  constexpr std::string_view kCall = "(?{t})";
  for (std::size_t at = pattern.find(kCall); at != std::string::npos; at = pattern.find(kCall, at)) {
    pattern.replace(at, kCall.size(), "(?:)");
  }
  return pattern;
}

TEST(KorRegexLimits, AWatchedPatternMatchesAsThePatternDoes) {
  int compared = 0;
  for (std::uint32_t seed = 0; seed < 6'000; ++seed) {
    RandomPattern random(seed);
    const std::string pattern = random.alternatives(3);
    Ref<KorRegex> plain;
    if (!raised([&] { plain = KorRegex::compileExpression(pattern); }).empty()) continue;
    const std::optional<std::string> watched = watchedPattern(pattern);
    if (!watched.has_value()) {
      const auto has = [&pattern](std::string_view part) { return pattern.find(part) != std::string::npos; };
      EXPECT_TRUE(has("(?<=") || has("(?<!") || has("\\b.") || has("\\G.") || has("\\K.")) << pattern;
      continue;
    }
    const Ref<KorRegex> other = KorRegex::compileExpression(withoutCalls(*watched));
    for (int round = 0; round < 3; ++round) {
      const std::string text = random.text(12);
      const auto expected = answers(*plain, text);
      const auto actual = answers(*other, text);
      if (!expected.has_value() || !actual.has_value()) continue;
      ASSERT_EQ(*actual, *expected) << pattern << " as " << *watched << ": " << text;
      ++compared;
    }
  }
  EXPECT_GT(compared, 3'000);
}

// What a search that takes long finds in a text must be what it finds in a short one: the engine joins and drops parts
// of a pattern.
TEST(KorRegexLimits, ALongSearchWithAPlaceBeforeALoopFindsTheSame) {
  for (const char* const pattern : {"(\\b.*){2,}x", "(\\G.*){2,}x", "(?:a|\\B.+){2,}x"}) {
    const Ref<KorRegex> regex = KorRegex::compileExpression(pattern);
    for (const int letters : {10, 20'000}) {
      const std::string text = repeated("\u00df", letters) + "x" + repeated("\u00df", 20);
      std::optional<bool> found;
      (void)limitReached([&] { found = regex->matchesString(*NSString::stringWithUTF8(text)); });
      EXPECT_TRUE(found.value_or(true)) << pattern << letters;
    }
  }
}

TEST(KorRegexLimits, ALongSearchFindsWhatAShortOneFinds) {
  const HardRow rows[] = {
      {"(?:(?i)ss{1})$", "\u00df"}, {"(?:(?i)ss{01,1}s)$", "\u00dfs"},
      {"(?:(?i)ss{)", "\u00df{"},   {"(?:(?i)ss{x})", "\u00df{x}"},
      {"(?:xy){1}?z", "zc"},        {"(?:xy){1}?+z", "zc"},
      {"(?:xy){1}\?\?z", "zc"},     {"(?:xy){2}?z", "zc"},
      {"(?:xy){2,2}?z", "zc"},      {"(?<=1*\\B)a", "dc"},
      {"(?<!1*\\b)a", "dc"},        {"(?<=(?:1+\\B)?)a", "dc"},
      {"(?<=1{0,3}\\B)a", "dc"},    {"(?<=a{2}(?<=a))c", "c"},
      {"(?<=a)b{2}", "bb"},
  };
  const auto finds = [](const HardRow& row, std::size_t letters) {
    const Ref<KorRegex> regex = KorRegex::compileExpression("^(?:(?:a|aa)*c|a*(?:" + row.pattern + "))");
    const Ref<NSString> subject = NSString::stringWithUTF8(std::string(letters, 'a') + row.text);
    std::optional<bool> found;
    (void)limitReached([&] { found = regex->matchesString(*subject); });
    return found;
  };
  for (const HardRow& row : rows) {
    const std::optional<bool> expected = finds(row, 5);
    ASSERT_TRUE(expected.has_value()) << row.pattern;
    EXPECT_EQ(finds(row, 25).value_or(*expected), *expected) << row.pattern;
  }
}

// The first place where the pattern matches; absent where there is none.
std::optional<std::size_t> firstPlace(const KorRegex& regex, const std::string& text) {
  for (std::size_t at = 0; at <= text.size(); ++at) {
    if (!isInsideCharacter(text, at) && regex.matchEnd(text, at).has_value()) return at;
  }
  return {};
}

TEST(KorRegexLimits, ASearchOfALongTextFindsWhatAMatchAtEveryPlaceFinds) {
  for (std::uint32_t seed = 10'000; seed < 10'300; ++seed) {
    RandomPattern random(seed);
    const std::string end = random.alternatives(1);
    if (end.find("\\G") != std::string::npos) continue;
    const std::string pattern = "e(?:" + random.alternatives(2) + ")\\b(?:" + end + ")dd?";
    Ref<KorRegex> regex;
    if (!raised([&] { regex = KorRegex::compileExpression(pattern); }).empty()) continue;
    if (pattern.find("\\G") != std::string::npos) continue;
    std::string text;
    for (int part = 0; part < 20; ++part) text += random.text(1'000) + "e" + random.text(10) + "d";
    std::optional<std::size_t> expected;
    bool found = false;
    if (limitReached([&] { expected = firstPlace(*regex, text); }).has_value()) continue;
    if (limitReached([&] { found = regex->matchesString(*NSString::stringWithUTF8(text)); }).has_value()) continue;
    ASSERT_EQ(found, expected.has_value()) << pattern;
  }
}

// Signs within a name mean nothing, so that what follows is seen: too many calls, each of which doubles the work.
TEST(KorRegexLimits, NamesHideNothingThatFollows) {
  std::string calls;
  for (int level = 0; level < 30; ++level) {
    const std::string next = std::to_string(level + 1);
    calls += "(?<q" + std::to_string(level) + ">\\g<q" + next + ">\\g<q" + next + ">)";
  }
  calls += "(?<q30>a)";
  for (const char* before : {"(?x)(?<a#>)", "(?x)(?'a#')", "(?<a[>)", "(?<a\\>)", "(?<a(?#>)", "(?<a>)(?(<a>)b|c)",
                             "(?x)(?<a#>)\\k<a#>", "(?x)(?<a#>)\\g<a#>", "(?x)(?<a#>)(?(<a#>)b|c)",
                             "(?<a[>)(?(<a[>)b|c)", "(?<a[>)\\g'a['", "\\(?(<[>)", "\\(?(<#>)", "(?x)\\(?(<a\n#\n>)"}) {
    const WorkBound bound(before);
    EXPECT_NE(raised([&] { (void)KorRegex::compileExpression(before + calls); }), "") << before;
  }
}

// Names that stand in one place of the engine's table, the worst of which there are so many.
std::string groupsWithNames(int count) {
  constexpr std::uint32_t kPlaces = 1033;  // of a table for so many
  constexpr std::string_view kLetters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
  std::string pattern;
  for (std::size_t number = 0; count > 0; ++number) {
    std::string name;
    std::uint32_t hash = 0;
    for (std::size_t rest = number + 8'000'000; rest > 0; rest /= kLetters.size()) {
      name += kLetters[rest % kLetters.size()];
      hash = hash * 997 + static_cast<unsigned char>(name.back());
    }
    if ((hash + (hash >> 5)) % kPlaces != 0) continue;
    pattern += "(?<" + name + ">)";
    --count;
  }
  return pattern;
}

struct WeightRow {
  const char* what;
  std::string pattern;
  bool compiles;
};

// So many characters, none of which stands beside another.
std::string characters(int count) {
  std::string text;
  for (int index = 0; index < count; ++index) {
    const int point = 0x4E00 + 2 * index;
    for (const int byte : {0xE0 | (point >> 12), 0x80 | ((point >> 6) & 0x3F), 0x80 | (point & 0x3F)}) {
      text += static_cast<char>(byte);
    }
  }
  return text;
}

// The engine's compiler takes a hundred microseconds and many kilobytes for some classes of a few bytes.
TEST(KorRegexLimits, APatternIsQuickToCompile) {
  const WeightRow rows[] = {
      {"classes with a type", repeated("[\\w]", 249), true},
      {"a class with a type more", repeated("[\\w]", 250), false},
      {"classes with properties", repeated("[\\p{L}\\P{Lu}]", 124), true},
      {"properties", repeated("\\p{L}", 257), false},
      {"bracket expressions", repeated("[[:alpha:]]", 257), false},
      {"what classes have in common", "[" + repeated("a-z&&", 257) + "b]", false},
      {"what a large class and properties have in common", "[" + characters(9'000) + repeated("&&\\p{^Ll}", 6) + "]",
       false},
      {"what a class and properties have in common", "[" + characters(1'000) + repeated("&&\\p{^Ll}", 9) + "]", true},
      {"what two large classes have in common", "[" + characters(6'000) + "&&" + characters(6'000) + "]", false},
      {"two large classes", "[" + characters(6'000) + "][" + characters(6'000) + "]", true},
      {"types outside classes", repeated("\\w\\d\\s", 5'000), true},
      {"plain classes", repeated("[a-z0-9]", 8'000), true},
      {"classes without case", "(?i)" + repeated("[\\w]", 31), true},
      {"more classes without case", "(?i)" + repeated("[\\w]", 32), false},
      {"classes in a group without case", "(?:a(?mi:b))" + repeated("[\\w]", 32), false},
      {"classes where case matters again", repeated("(?-i:[\\w])", 100), true},
      {"letters without case", "(?i)" + std::string(8'000, 's'), true},
      {"more letters without case", "(?i)" + std::string(8'300, 's'), false},
      {"classes inside a class", "[a-z[0-9][\u00e9-\u00ff][_]]", true},
      {"many classes inside a large one", "[" + repeated("\u00e9", 13'000) + repeated("[\u00e9]", 7'000) + "]", false},
      {"brackets that end far behind", "[" + repeated("[:", 30'000) + ":]]", false},
      {"brackets that end in the next bracket", "[" + repeated("[:]", 20'000) + repeated("]", 100), false},
      {"a few brackets that end behind", "[" + repeated("[:", 1'000) + std::string(25, 'a') + ":]]", true},
      {"letters that look like references", repeated("\\k", 30'000), true},
      {"a sign behind such a letter", "\\ka+b>", true},
      {"references to a name", repeated("(?<a>b)", 16) + repeated("\\k<a>", 200), true},
      {"many conditions on many groups", groupsWithNames(1'000) + "(?<n>)" + repeated("(?(<n>))", 3'900), false},
      {"a condition on a group", "(?<n>a)?(?(<n>)b|c)", true},
      {"many references to many groups", groupsWithNames(1'000) + "(?<a>)" + repeated("\\k<a>", 4'000), false},
      {"groups with names", groupsWithNames(2'000), true},
      {"many groups with names", groupsWithNames(2'400), false},
  };
  for (const WeightRow& row : rows) {
    const WorkBound bound(row.what);
    const std::string text = raised([&] { (void)KorRegex::compileExpression(row.pattern); });
    EXPECT_EQ(text.empty(), row.compiles) << row.what << ": " << text.substr(0, 300);
    if (!row.compiles) {
      EXPECT_THAT(text, testing::EndsWith(
                            "does not compile: it has too many character classes, or groups with names and references "
                            "to them, or is too long to ignore case"));
    }
  }
}

// The engine goes back over all flags before a place to see which of them belong together, and over all marks.
TEST(KorRegexLimits, ASearchForJoinedCharactersEndsSoon) {
  const std::string flag = "\xF0\x9F\x87\xA6";
  const std::string mark = "\xCC\x81";
  const std::string joiner = "\xE2\x80\x8D";
  const std::string face = "\xF0\x9F\x98\x80";
  for (const std::string& pattern : {"\\y" + flag + "[yz]", std::string("\\X[yz]"), "\\Y" + flag + "\\y[yz]",
                                     std::string("(\\X)*z"), std::string("(?:..\\y)*z")}) {
    const Ref<KorRegex> regex = KorRegex::compileExpression(pattern);
    for (const std::string& unit : {flag, mark, joiner, face + joiner}) {
      for (const int count : {2'000, 100'000}) {
        const Ref<NSString> subject = NSString::stringWithUTF8(repeated(unit, count));
        const WorkBound bound(pattern + " " + unit + " " + std::to_string(count));
        (void)limitReached([&] { EXPECT_FALSE(regex->matchesString(*subject)); });
      }
    }
  }
  EXPECT_TRUE(KorRegex::compileExpression("^\\X$")->matchesString(*NSString::stringWithUTF8("e" + mark)));
  EXPECT_TRUE(KorRegex::compileExpression("b\\yc")->matchesString(*NSString::stringWithUTF8("abc")));
}

// In ASCII it does not.
TEST(KorRegexLimits, ASearchForJoinedCharactersSucceedsInALongTextOfLetters) {
  const Ref<NSString> subject = NSString::stringWithUTF8(repeated("some words\r\n", 5'000) + "z");
  for (const char* pattern : {"\\X{2}z", "^\\X\\X", "s\\y\r", "\\Y\nso", "\\Xz$"}) {
    EXPECT_TRUE(KorRegex::compileExpression(pattern)->matchesString(*subject)) << pattern;
  }
  EXPECT_FALSE(KorRegex::compileExpression("\\X#")->matchesString(*subject));
}

// The engine looks for the count of a group, and for where a call came from, through all that it has put on its stack.
TEST(KorRegexLimits, ASearchThatLooksThroughTheEnginesStackEndsSoon) {
  const std::string choices = repeated("(?:|())", 12);
  const Ref<NSString> subject = NSString::stringWithUTF8(repeated("ab", 500'000));
  for (const std::string& pattern :
       {"(?:[ab]{50,}" + choices + "){2,}", "(?<f>[ab]{50,}" + choices + "){0}\\g<f>(?!)",
        "(?:(?:(?:[ab]{50,}" + choices + "){2,}){2,}){2,}", std::string("(?:[ab]{50,}|b*){3,}{2}(?!)"),
        "(?:\\R?[ab]{50,}" + choices + "){2,}"}) {
    const Ref<KorRegex> regex = KorRegex::compileExpression(pattern);
    const WorkBound bound(pattern);
    (void)limitReached([&] { (void)regex->matchesString(*subject); });
  }
}

TEST(KorRegexLimits, ASearchThroughManyCallsEndsSoon) {
  std::string pattern;
  for (char group = 'a'; group < 'i'; ++group) {
    pattern += std::string("(?<") + group + ">" +
               repeated(std::string("\\g<") + static_cast<char>(group + 1) + ">", 3) + "){0}";
  }
  const Ref<KorRegex> regex = KorRegex::compileExpression(pattern + "(?<i>){0}\\g<a>[xq]y");
  for (const int size : {200, 20'000}) {
    const WorkBound bound(std::to_string(size));
    (void)limitReached([&] { (void)regex->matchesString(*NSString::stringWithUTF8(std::string(size, 'b') + "xyx")); });
  }
  const Ref<KorRegex> nested = KorRegex::compileExpression("^(?<p>\\((?:[^()]|\\g<p>)*\\))$");
  EXPECT_TRUE(nested->matchesString(*NSString::stringWithUTF8("(" + repeated("(a)", 1'000) + ")")));
  EXPECT_FALSE(nested->matchesString(*NSString::stringWithUTF8("(" + repeated("(a)", 1'000) + "))")));
}

// Groups that call each other double what a place takes, which no retry counts.
TEST(KorRegexLimits, ASearchThroughCallsThatDoubleEndsSoonWhereItCannotBeWatched) {
  std::string pattern = "(?x)";
  for (char group = 'a'; group < 'm'; ++group) {
    pattern += std::string("(?<") + group + ">" +
               repeated(std::string("\\g<") + static_cast<char>(group + 1) + ">", 2) + "){0}";
  }
  const Ref<KorRegex> regex = KorRegex::compileExpression(pattern + "(?<m>){0}\\g<a>[!?]1");
  const Ref<NSString> subject = NSString::stringWithUTF8(std::string(1'000, 'b'));
  const WorkBound bound("doubling calls");
  (void)limitReached([&] { EXPECT_FALSE(regex->matchesString(*subject)); });
}

// The engine looks through its whole stack for the level, and counts nothing.
TEST(KorRegexLimits, AReferenceToALevelOfCallsDoesNotCompile) {
  for (const char* const pattern :
       {"(?<x>a?)\\k<x+0>+|\\B", "(?<x>)(?:a\\k<x-1>)*", "(a)\\k'1+2'", "(a)\\k<-1+0>", "(b)(?:b(?(1+0)|c))*",
        "(b)(?:b(?('1+0')))*", "(?<n>b)(?:b(?(<n-2>)|c))*", "(b)(?:b(?(-1+0)|c))*"}) {
    EXPECT_EQ(raised([&] { (void)KorRegex::compileExpression(pattern); }),
              std::string("NSInvalidArgumentException: The regular expression /") + pattern +
                  "/ does not compile: it refers back to a group at a level of calls");
  }
  for (const char* const pattern : {"^(?<x>a)\\k<x>+-$", "^(a)\\k<-1>+-$", "^(a)\\k'1'+-$", "^(a)(?(1)a-)$",
                                    "^(a)(?(<-1>)a-)$", "^(a)(?(-1)a-)$", "^a(?(a+a|a)-)$", "^(?<x>a)(?('x')a-)$"}) {
    EXPECT_TRUE(KorRegex::compileExpression(pattern)->matchesString(*NSString::stringWithUTF8("aa-"))) << pattern;
  }
}

// What is looked ahead to is gone through anew at every turn of a loop, without a retry.
TEST(KorRegexLimits, ASearchThatLooksAroundInLoopsEndsSoon) {
  const char* const patterns[] = {
      "(?:(?=.*)a)*",   "(?:(?=[a-z]*)a)*",      "(a{3000})(?:(?=\\1)a)*", "(?x)(?:(?=.*)a)*",          "(?:(?!.*b)a)*",
      "(?:(?~.*b)a)*z", "(?:(?<=.{0,200}a)a)*z", "(?:(?=(?:(?=.*)a)*)a)*", "(?<r>(?:(?=\\g<r>|.*)a)*)",
  };
  for (const char* const pattern : patterns) {
    Ref<KorRegex> regex;
    if (!raised([&] { regex = KorRegex::compileExpression(pattern); }).empty()) continue;
    for (const int size : {256, 16'000, 1'000'000}) {
      const WorkBound bound(pattern + (" " + std::to_string(size)));
      (void)limitReached([&] { (void)regex->matchesString(*NSString::stringWithUTF8(std::string(size, 'a'))); });
    }
  }
  const Ref<KorRegex> password = KorRegex::compileExpression("^(?=.*\\d)(?=.*[a-z])(?=.*[A-Z]).{8,}$");
  EXPECT_TRUE(password->matchesString(*NSString::stringWithUTF8("aB3" + std::string(10'000, 'x'))));
  EXPECT_FALSE(password->matchesString(*NSString::stringWithUTF8("ab3" + std::string(10'000, 'x'))));
}

TEST(KorRegexLimits, ASearchHasOnlySoMuchMemory) {
  std::string pattern = "(?:" + repeated("(", 90) + "a" + repeated(")", 90) + "|f)*";
  const Ref<KorRegex> regex = KorRegex::compileExpression(pattern);
  const Ref<NSString> subject = NSString::stringWithUTF8(std::string(256 * 1024, 'a'));
  const WorkBound bound(pattern.substr(0, 10));
  EXPECT_EQ(limitReached([&] { (void)regex->matchesString(*subject); }), KorTemplateLimit::RegexRetries);
}

struct UnwatchedRow {
  const char* what;
  const char* pattern;
};

TEST(KorRegexLimits, PatternsWhosePartsAreNotToldApartAreNotWatched) {
  const UnwatchedRow rows[] = {
      {"extended mode", "(?x)a b"},
      {"extended mode in a group", "(?ix:a b)"},
      {"a comment", "a(?#b)*"},
      {"a condition", "(a)?(?(1)b)"},
      {"an absent operator", "(?~|a|b)"},
      {"a control character", "\\cA*"},
      {"a line's end", "a\\R"},
      {"a boundary of characters", "\\y"},
      {"none", "a\\Y"},
      {"joined characters", "\\X"},
      {"a control character of a bracket", "[\\c[z]"},
      {"one that ends no class", "[\\c]]+"},
      {"a meta character", "[\\M-[]"},
      {"a bracket that stands for itself", "[[:\\]:]"},
      {"a name that is none", "[[:letters:]]"},
      {"digits that may be a group's", "(a)(b)(c)(d)(e)(f)(g)(h)(i)(j)\\10"},
      {"digits that are neither", "(a)\\89"},
  };
  for (const UnwatchedRow& row : rows) EXPECT_EQ(watchedPattern(row.pattern), std::nullopt) << row.what;
}

TEST(KorRegexLimits, NoClassHidesWhatFollows) {
  const std::string subject = std::string(20'000, 'a') + "d";
  for (const std::string before : {"[\\c[z]?", "[\\M-[]?", "[[:\\]:]?"}) {
    const Ref<KorRegex> regex = KorRegex::compileExpression(before + "(?:(?>a*)b|a)*[de][^x]]?");
    const WorkBound bound(before);
    EXPECT_EQ(limitReached([&] { (void)regex->matchesString(*NSString::stringWithUTF8(subject)); }),
              KorTemplateLimit::RegexRetries)
        << before;
  }
  const Ref<KorRegex> hard = KorRegex::compileExpression("(?:x?){100000}[\\c]]+");
  EXPECT_FALSE(hard->matchesString(*NSString::stringWithUTF8("(?{t}")));
  EXPECT_TRUE(KorRegex::compileExpression("[[:alpha:][:^digit:]x]y")->matchesString(*NSString::stringWithUTF8("ay")));
}

TEST(KorRegexLimits, DigitsBehindAnEscapeMeanTheSameInAHardSearch) {
  const Ref<KorRegex> regex = KorRegex::compileExpression("^(?:(?:a|aa)*c|a*\\0611*$)");
  for (const int letters : {0, 10, 24}) {
    EXPECT_TRUE(regex->matchesString(*NSString::stringWithUTF8(std::string(letters, 'a') + "1"))) << letters;
  }
}

TEST(KorRegexLimits, ANameThatIsReferredToHasFewGroups) {
  EXPECT_EQ(raised([] { (void)KorRegex::compileExpression(repeated("(?<a>b)", 16) + "\\k<a>"); }), "");
  EXPECT_EQ(raised([] { (void)KorRegex::compileExpression(repeated("(?<a>b)", 17) + "\\k<b>(?<b>)"); }),
            "NSInvalidArgumentException: The regular expression /" + repeated("(?<a>b)", 17) +
                "\\k<b>(?<b>)/ does not compile: it refers back by name, and more than 16 groups have one name");
  for (const char* const condition : {"(?(<a>)b)", "(?('a')b|c)"}) {
    const std::string pattern = repeated("(?<a>b)", 17) + condition;
    EXPECT_EQ(raised([&] { (void)KorRegex::compileExpression(pattern); }),
              "NSInvalidArgumentException: The regular expression /" + pattern +
                  "/ does not compile: it refers back by name, and more than 16 groups have one name");
  }
  EXPECT_EQ(raised([] { (void)KorRegex::compileExpression(repeated("(?<a>b)", 17)); }), "");
  const std::string letter = "\u00DF";
  const std::string text = std::string(repeated(letter, 100'000)) + "b" + std::string(repeated(letter, 100'000)) + "c";
  const std::string pattern = "^(?<a>)(?=" + repeated("(?<a>", 15) + letter + "*b" + repeated(")", 15) + ")" + letter +
                              "*b(?i:" + repeated("\\k<a>", 5) + ")";
  const Ref<KorRegex> regex = KorRegex::compileExpression(pattern);
  const WorkBound bound("references to namesakes");
  (void)limitReached([&] { (void)regex->matchesString(*NSString::stringWithUTF8(text)); });
}

}  // namespace

}  // namespace tavlo::test
