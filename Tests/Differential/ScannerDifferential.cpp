#include <gtest/gtest.h>

#include "Lexwright/KorRegularExpressionRule.h"
#include "Tests/Differential/PlainScanner.h"
#include "Tests/Differential/RandomText.h"
#include "Tests/Differential/RecogniserSwitch.h"
#include "Tests/Differential/RuleScanner.h"

namespace tavlo::test {

namespace {

void expectSameTokens(const std::string& text) {
  const std::vector<PlainBlock> expected = scanPlainly(text);
  for (const bool enabled : {true, false}) {
    const RecogniserSwitch recognisers(enabled);
    const std::vector<PlainBlock> found = scanWithRules(text);
    if (found == expected) continue;
    ADD_FAILURE() << "recognisers " << (enabled ? "on" : "off") << ": " << readable(text) << "\nexpected"
                  << describe(expected) << "\nfound" << describe(found);
  }
}

TEST(ScannerDifferential, RandomTexts) {
  Chooser chooser(1);
  for (int time = 0; time < 20'000 && !testing::Test::HasFailure(); ++time) {
    expectSameTokens((chooser.oneIn(8) ? "" : "<?") + randomText(chooser, trickyPieces(), 1 + chooser.below(24)));
  }
}

TEST(ScannerDifferential, MutatedTemplates) {
  Chooser chooser(2);
  const std::vector<std::string> templates = realTemplates(200);
  ASSERT_GT(templates.size(), 100U);
  for (int time = 0; time < 10'000 && !testing::Test::HasFailure(); ++time) {
    expectSameTokens(mutated(chooser, chooser.from(templates), trickyPieces()));
  }
}

TEST(ScannerDifferential, RealTemplates) {
  for (const std::string& text : realTemplates(4000)) expectSameTokens(text);
}

TEST(ScannerDifferential, DenseNumbers) {
  const std::vector<std::string> pieces = {"0", "1", "9", ".", ".",        "e",        "E",        "+", "-", "0x", "x",
                                           "a", "F", "_", " ", "\xD9\xA3", "\xC3\xA9", "\xCC\x81", "(", "$", "?"};
  Chooser chooser(3);
  for (int time = 0; time < 20'000 && !testing::Test::HasFailure(); ++time) {
    expectSameTokens("<?" + randomText(chooser, pieces, 1 + chooser.below(12)));
  }
}

TEST(ScannerDifferential, DenseLiterals) {
  const std::vector<std::string> pieces = {"/",
                                           "/",
                                           "\"",
                                           "'",
                                           "\\",
                                           "\\",
                                           " ",
                                           "\n",
                                           "\r",
                                           "?>",
                                           "<?",
                                           ")",
                                           "a",
                                           "=",
                                           "==",
                                           "&&",
                                           "\xE2\x80\xA8",
                                           "\xC2\x85",
                                           "\xF0\x9F\x98\x80"};
  Chooser chooser(4);
  for (int time = 0; time < 20'000 && !testing::Test::HasFailure(); ++time) {
    expectSameTokens("<?" + randomText(chooser, pieces, 1 + chooser.below(20)));
  }
}

TEST(ScannerDifferential, DenseWords) {
  const std::vector<std::string> pieces = {
      "if",          "else", "elseif",   "end",      "foreach",  "ENDIF",    "Return",
      "function",    "true", "null",     "_",        "1",        ".",        " ",
      "$",           "@@",   "=",        "<",        ">",        "!",        "&",
      "|",           "~",    "\xC3\xA9", "\xCC\x81", "\xC5\xBF", "\xC2\xB2", "\xE2\x80\x8B",
      "\xE2\x81\xBF"};
  Chooser chooser(5);
  for (int time = 0; time < 20'000 && !testing::Test::HasFailure(); ++time) {
    expectSameTokens("<?" + randomText(chooser, pieces, 1 + chooser.below(10)) + "?>");
  }
}

}  // namespace

}  // namespace tavlo::test
