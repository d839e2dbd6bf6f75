#include <gtest/gtest.h>

#include "Foundation/Utf8.h"
#include "Lexwright/KorRegularExpressionRule.h"
#include "Matchery/KorRegex.h"
#include "Source/TokenRecognisers.h"
#include "Tests/Differential/RandomText.h"

namespace tavlo::test {

namespace {

// Calls `body` with every text of up to `longest` pieces of the alphabet.
template <class Body>
void forEveryText(const std::vector<std::string>& alphabet, std::size_t longest, const Body& body) {
  std::vector<std::size_t> digits;
  while (digits.size() <= longest) {
    std::string text;
    for (const std::size_t digit : digits) text += alphabet[digit];
    body(text);
    std::size_t place = 0;
    while (place < digits.size() && ++digits[place] == alphabet.size()) digits[place++] = 0;
    if (place == digits.size()) digits.push_back(0);
  }
}

std::uint32_t matchEnd(const KorRegex& regex, std::string_view text, std::uint32_t at) {
  return static_cast<std::uint32_t>(regex.matchEnd(text, at).value_or(at));
}

struct RecogniserRow {
  const char* pattern;
  KorRegularExpressionRule::Recogniser recogniser;
  std::vector<std::string> alphabet;
  std::size_t longest;
};

void expectSameMatches(const RecogniserRow& row) {
  const Ref<KorRegex> regex = KorRegex::compileExpression(row.pattern);
  std::size_t count = 0;
  forEveryText(row.alphabet, row.longest, [&](const std::string& text) {
    SearchMemo memo;
    ++count;
    const std::uint32_t found = text.empty() ? 0 : row.recogniser(text, 0, memo);
    const std::uint32_t expected = text.empty() ? 0 : matchEnd(*regex, text, 0);
    if (found != expected) ADD_FAILURE() << readable(text) << ": " << found << " in place of " << expected;
  });
  EXPECT_GT(count, 10'000U);
}

constexpr const char* kNonIntegral = R"((([+-]?(\d+)?\.(\d+)([eE]\d+)?)|([+-]?\d+\.?(\d+([eE]\d+)?)?))(?=\b))";
constexpr const char* kIntegral = R"(((0x[\da-fA-F]+)|([+-]?\d+))(?=\b))";
constexpr const char* kRegexLiteral = R"(/.*?(?<!\\)/(?=\s*(&&|\|\||==|!=|>|>=|<|<=|\)|,|$|\z|\?>)))";
const std::vector<std::string> kNumberLetters = {"0", "1", ".", "e", "+", "-", "x", "a"};
const std::vector<std::string> kOtherDigits = {"1", "\xD9\xA3", "\xC3\xA9", "\xCC\x81", ".", "e", "E", "+"};

TEST(RecogniserDifferential, NonIntegralNumbers) {
  expectSameMatches({kNonIntegral, recognisers::nonIntegralNumber, kNumberLetters, 6});
  expectSameMatches({kNonIntegral, recognisers::nonIntegralNumber, kOtherDigits, 5});
}

TEST(RecogniserDifferential, IntegralNumbers) {
  expectSameMatches({kIntegral, recognisers::integralNumber, kNumberLetters, 6});
  expectSameMatches({kIntegral, recognisers::integralNumber, kOtherDigits, 5});
  expectSameMatches({kIntegral, recognisers::integralNumber, {"0x", "0", "x", "A", "f", "g", "\xD9\xA3", "."}, 5});
}

TEST(RecogniserDifferential, Names) {
  const std::vector<std::string> letters = {"$", "@", ".", "a", "_", "\xC3\xA9", "\xCC\x81", " "};
  expectSameMatches({R"(\$[\w\.@]+)", recognisers::variable, letters, 5});
  expectSameMatches({R"(@@[\w]+)", recognisers::intrinsicVariable, letters, 5});
  expectSameMatches({R"(\w+)", recognisers::word, letters, 5});
}

TEST(RecogniserDifferential, Tags) {
  expectSameMatches({R"(<\?)", recognisers::blockStart, {"<", "?", ">", " "}, 7});
  expectSameMatches({R"(\?>)", recognisers::blockEnd, {"<", "?", ">", " "}, 7});
}

// At every slash of a text in turn, as a scanner asks, with what is known about the line kept between.
TEST(RecogniserDifferential, RegexLiteralsAtEverySlashOfALine) {
  const Ref<KorRegex> regex = KorRegex::compileExpression(kRegexLiteral);
  const std::vector<std::string> letters = {"/", "\\", " ", "\n", "\r", "a", ")", "="};
  forEveryText(letters, 6, [&](const std::string& text) {
    SearchMemo memo;
    for (std::uint32_t at = 0; at < text.size(); ++at) {
      if (text[at] != '/') continue;
      const std::uint32_t found = recognisers::regexLiteral(text, at, memo);
      const std::uint32_t expected = matchEnd(*regex, text, at);
      if (found != expected) ADD_FAILURE() << readable(text) << " at " << at << ": " << found << ", not " << expected;
    }
  });
}

TEST(RecogniserDifferential, WhatMayFollowARegexLiteral) {
  const std::vector<std::string> letters = {
      "&", "|", "=", "!", "<", ">", "?", ",", " ", "\n", "\r", "\xC2\x85", "\xE2\x80\xA8", "\xC2\xA0", "a"};
  const Ref<KorRegex> regex = KorRegex::compileExpression(kRegexLiteral);
  forEveryText(letters, 4, [&](const std::string& behind) {
    SearchMemo memo;
    const std::string text = "/a/" + behind;
    const std::uint32_t found = recognisers::regexLiteral(text, 0, memo);
    const std::uint32_t expected = matchEnd(*regex, text, 0);
    if (found != expected) ADD_FAILURE() << readable(text) << ": " << found << " in place of " << expected;
  });
}

// Every character there is, behind what lets it go on or end each kind of token.
TEST(RecogniserDifferential, EveryCharacter) {
  struct Row {
    const char* before;
    const char* pattern;
    KorRegularExpressionRule::Recogniser recogniser;
  };
  const Row rows[] = {
      {"", R"(\w+)", recognisers::word},
      {"$", R"(\$[\w\.@]+)", recognisers::variable},
      {"@@", R"(@@[\w]+)", recognisers::intrinsicVariable},
      {"1", kNonIntegral, recognisers::nonIntegralNumber},
      {"1.", kNonIntegral, recognisers::nonIntegralNumber},
      {"0x", kIntegral, recognisers::integralNumber},
      {"/a/", kRegexLiteral, recognisers::regexLiteral},
  };
  for (const Row& row : rows) {
    const Ref<KorRegex> regex = KorRegex::compileExpression(row.pattern);
    std::string different;
    for (char32_t character = 0; character < 0xE0200; ++character) {
      if (character == 0xD800) character = 0xE000;    // behind the surrogates
      if (character == 0x33000) character = 0xE0000;  // behind the planes that hold no characters
      std::string text = row.before;
      appendCodePoint(text, character);
      SearchMemo memo;
      if (row.recogniser(text, 0, memo) != matchEnd(*regex, text, 0)) different += " " + std::to_string(character);
    }
    EXPECT_EQ(different, "") << row.pattern << " behind \"" << row.before << "\"";
  }
}

}  // namespace

}  // namespace tavlo::test
