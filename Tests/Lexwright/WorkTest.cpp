#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "Lexwright/KorDefaultScannerRule.h"
#include "Lexwright/KorRegularExpressionRule.h"
#include "Lexwright/KorTextLiteralRule.h"
#include "Tests/Lexwright/ScanText.h"
#include "Tests/Memory/WorkBound.h"

namespace tavlo::test {

namespace {

constexpr int kMany = 20'000;

std::size_t countTokens(const std::string& text, const Rules& rules) {
  const WorkBound bound(text.substr(0, 8));
  const Ref<KorRuleBasedScanner> scanner = scannerOver(text, rules);
  std::size_t count = 0;
  while (scanner->nextToken() != nullptr) ++count;
  return count;
}

std::uint64_t charactersLookedAt = 0;

// Finds "/ … /" as long as a closing one stands on the line, keeps in its memo what it has seen, and counts its steps.
std::uint32_t countingRecogniser(std::string_view text, std::uint32_t at, SearchMemo& memo) {
  if (!memo.covers(at)) {
    memo.from = at;
    memo.answer = SearchMemo::kNone;
    std::uint32_t end = at + 1;
    for (; end < text.size() && memo.answer == SearchMemo::kNone; ++end, ++charactersLookedAt) {
      if (text[end] == '/' && end + 1 < text.size() && text[end + 1] == ')') memo.answer = end;
    }
    memo.to = end - 1;
  }
  return memo.answer == SearchMemo::kNone || memo.answer <= at ? at : memo.answer + 1;
}

TEST(Work, OfARecogniserThatRemembersIsKeptFromOnePlaceToTheNext) {
  charactersLookedAt = 0;
  const Rules rules = {
      KorRegularExpressionRule::ruleWithPattern("/", classNamed('r'), countingRecogniser, FirstBytes().set('/'), true),
      KorDefaultScannerRule::ruleWithTokenClass(classNamed('d'))};
  EXPECT_EQ(countTokens(std::string(kMany, '/'), rules), static_cast<std::size_t>(kMany));
  EXPECT_LE(charactersLookedAt, static_cast<std::uint64_t>(kMany));
}

// A quotation mark that the rest of the text never closes is searched for once, not once at every opening one. The
// square of a million would take hours.
TEST(Work, OnOpeningsThatNeverCloseIsInProportionToTheText) {
  constexpr std::size_t kVeryMany = 1'000'000;
  const Rules rules = {KorTextLiteralRule::ruleWithOpenSequence("(", ")", '\\', false, false, classNamed('q')),
                       KorDefaultScannerRule::ruleWithTokenClass(classNamed('d'))};
  EXPECT_EQ(countTokens(std::string(kVeryMany, '('), rules), kVeryMany);
  std::string escaped;
  for (std::size_t round = 0; round < kVeryMany; ++round) escaped += "(\\)";
  EXPECT_EQ(countTokens(escaped, rules), 3 * kVeryMany);
  std::string lines;
  for (std::size_t round = 0; round < kVeryMany; ++round) lines += "(\n";
  EXPECT_EQ(countTokens(lines, rules), 2 * kVeryMany);
}

TEST(Work, OnLiteralsOfOneLineIsInProportionToTheText) {
  const Rules rules = {KorTextLiteralRule::ruleWithOpenSequence("\"", "\"", '\\', false, false, classNamed('q')),
                       KorDefaultScannerRule::ruleWithTokenClass(classNamed('d'))};
  EXPECT_EQ(countTokens(std::string(kMany, '"'), rules), static_cast<std::size_t>(kMany) / 2);
  EXPECT_EQ(countTokens("\\" + std::string(kMany + 1, '"'), rules), static_cast<std::size_t>(kMany) / 2 + 2);
}

TEST(Work, OnLongerCloseSequencesIsInProportionToTheText) {
  const Rules rules = {KorTextLiteralRule::ruleWithOpenSequence("<", ">>>>", '\0', true, false, classNamed('q')),
                       KorDefaultScannerRule::ruleWithTokenClass(classNamed('d'))};
  std::string text;
  for (int round = 0; round < 500'000; ++round) text += "<>>>";
  EXPECT_EQ(countTokens(text, rules), text.size());
}

}  // namespace

}  // namespace tavlo::test
