#include <gtest/gtest.h>

#include <cstdint>
#include <iterator>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "Foundation/NSString.h"
#include "Lexwright/KorDefaultScannerRule.h"
#include "Lexwright/KorPartitionRule.h"
#include "Lexwright/KorRegularExpressionRule.h"
#include "Lexwright/KorRuleBasedScanner.h"
#include "Lexwright/KorStringBuffer.h"
#include "Lexwright/KorTextLiteralRule.h"
#include "Lexwright/KorUnicharStream.h"
#include "Lexwright/KorWhitespaceRule.h"
#include "Lexwright/KorWordRule.h"
#include "Tests/Foundation/Raised.h"
#include "Tests/Lexwright/ScanText.h"

namespace tavlo::test {

namespace {

// Blocks between "<?" and "?>" with words, quoted texts and single characters inside.
Rules blockRules() {
  const Ref<KorPartitionRule> block = KorPartitionRule::ruleWithBoundary(pattern("<\\?", 's'));
  block->setSkipBoundary(true);
  block->setClosingClass(classNamed('e'));
  block->addRule(KorWhitespaceRule::rule());
  block->addRule(pattern("\\?>", 'e'));
  block->addRule(KorTextLiteralRule::ruleWithOpenSequence("\"", "\"", '\\', false, false, classNamed('q')));
  block->addRule(pattern("\\w+", 'w'));
  block->addRule(KorDefaultScannerRule::ruleWithTokenClass(classNamed('d')));
  return {KorWhitespaceRule::rule(), block, KorDefaultScannerRule::ruleWithTokenClass(nullptr)};
}

TEST(Scanner, TakesTheFirstRuleThatMatches) {
  const Rules rules = {pattern("ab", 'a'), pattern("a\\w+", 'b'), pattern("\\w", 'c')};
  EXPECT_EQ(tokensOf("abcacd", rules), "a1:0+2'ab' c1:2+1'c' b1:3+3'acd'");
  const Rules otherOrder = {rules[2], rules[1], rules[0]};
  EXPECT_EQ(tokensOf("abc", otherOrder), "c1:0+1'a' c1:1+1'b' c1:2+1'c'");
}

TEST(Scanner, TriesRulesOnlyAtThePlaceWhereItIs) {
  const Rules rules = {pattern("b", 'b'), pattern(".", 'x')};
  EXPECT_EQ(tokensOf("ab", rules), "x1:0+1'a' b1:1+1'b'");
}

TEST(Scanner, PassesOverWhatNoRuleWants) {
  EXPECT_EQ(tokensOf("--a\U0001f600\nb-", {pattern("\\w", 'w')}), "w1:2+1'a' w2:6+1'b'");
  EXPECT_EQ(tokensOf("abc", Rules{}), "");
}

TEST(Scanner, NeverReturnsWhatItSkips) {
  EXPECT_EQ(tokensOf(" text \n<?a?> more <?b?> end", blockRules()),
            "{2:7+5 w0:2+1'a' e0:3+2'?>'} {2:18+5 w0:2+1'b' e0:3+2'?>'}");
  EXPECT_EQ(tokensOf("no block at all", blockRules()), "");
}

TEST(Scanner, KeepsAnsweringWithNothingAtTheEnd) {
  const Ref<KorRuleBasedScanner> scanner = scannerOver("x<?a?>y", blockRules());
  EXPECT_NE(scanner->nextToken(), nullptr);
  for (int round = 0; round < 3; ++round) EXPECT_EQ(scanner->nextToken(), nullptr);
  EXPECT_EQ(scannerOver("", blockRules())->nextToken(), nullptr);
}

TEST(Scanner, LetsALiteralHoldTheClosingSequence) {
  EXPECT_EQ(tokensOf("<?\"?>\"?>", blockRules()), "{1:0+8 q0:3+2'?>' e0:6+2'?>'}");
}

TEST(Scanner, GivesSubtokensAnIdentityOfTheirOwn) {
  const Ref<KorRuleBasedScanner> scanner = scannerOver("<?a a a?>", blockRules());
  const auto* block = static_cast<const KorCompoundToken*>(scanner->nextToken());
  ASSERT_NE(block, nullptr);
  EXPECT_TRUE(block->isCompound);
  EXPECT_EQ(block->tokenClass, nullptr);
  std::set<const KorToken*> addresses;
  for (const KorToken& token : block->subtokens) {
    EXPECT_FALSE(token.isCompound);
    addresses.insert(&token);
  }
  EXPECT_EQ(addresses.size(), 4U);
}

TEST(Scanner, LeavesACompoundTokenAloneUntilTheNextOne) {
  const Ref<KorRuleBasedScanner> scanner = scannerOver("<?a?><?b?>", blockRules());
  const auto* first = static_cast<const KorCompoundToken*>(scanner->nextToken());
  const KorToken* subtoken = &first->subtokens[0];
  const std::vector<KorToken> copy = first->subtokens;
  EXPECT_EQ(copy.size(), 2U);
  EXPECT_EQ(subtoken->position, 2);
  const KorToken* second = scanner->nextToken();
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(second->position, 5);
}

struct LineRow {
  const char* what;
  std::string text;
  int line;
};

TEST(Scanner, CountsEachLineBreakOnce) {
  const LineRow rows[] = {
      {"the first line", "x", 1},
      {"a line feed", "\nx", 2},
      {"a carriage return", "\rx", 2},
      {"both", "\r\nx", 2},
      {"the wrong way round", "\n\rx", 3},
      {"two of both", "\r\n\r\nx", 3},
      {"a return before both", "\r\r\nx", 3},
      {"a feed behind both", "\r\n\nx", 3},
      {"no line break", "\u2028\u2029\u0085\v\fx", 1},
      {"behind a long line", std::string(100, '-') + "\r\nx", 2},
      {"a long run of both",
       [] {
         std::string text;
         for (int round = 0; round < 50; ++round) text += "\r\n";
         return text + "x";
       }(),
       51},
      {"a long mixture", std::string(30, '\n') + std::string(30, '\r') + std::string(30, '\n') + "x", 90},
  };
  for (const LineRow& row : rows) {
    const Rules skipping = {pattern("x", 'x'), KorDefaultScannerRule::ruleWithTokenClass(nullptr)};
    const Ref<KorRuleBasedScanner> scanner = scannerOver(row.text, skipping);
    const KorToken* token = scanner->nextToken();
    ASSERT_NE(token, nullptr) << row.what;
    EXPECT_EQ(token->line, row.line) << row.what;
    // The same when each character is a token of its own.
    const Ref<KorRuleBasedScanner> stepping =
        scannerOver(row.text, {pattern("x", 'x'), KorDefaultScannerRule::ruleWithTokenClass(classNamed('d'))});
    do token = stepping->nextToken();
    while (token != nullptr && token->tokenClass != classNamed('x'));
    ASSERT_NE(token, nullptr) << row.what;
    EXPECT_EQ(token->line, row.line) << row.what;
  }
}

TEST(KorUnicharStream, CountsTheSameInOneStepAsInMany) {
  std::string text;
  const char* const pieces[] = {"a", "\n", "\r", "\r\n", "\u00e9", "\u20ac", "\U0001f600", "bc", "\n\r", "\u2028"};
  std::uint32_t state = 1;
  for (int round = 0; round < 400; ++round) {
    state = state * 1664525 + 1013904223;
    text += pieces[(state >> 16) % std::size(pieces)];
  }
  const Ref<KorUnicharStream> stream =
      KorUnicharStream::streamWithBuffer(KorStringBuffer::bufferFromString(NSString::stringWithUTF8(text)));
  std::vector<ScanCursor> cursors = {ScanCursor()};
  while (cursors.back().byte < stream->byteLength()) cursors.push_back(stream->next(cursors.back()));
  EXPECT_EQ(cursors.back().position, static_cast<std::int32_t>(NSString::stringWithUTF8(text)->length()));
  for (std::size_t from = 0; from < cursors.size(); from += 3) {
    for (std::size_t to = from; to < cursors.size(); to += 5) {
      ASSERT_EQ(stream->advance(cursors[from], cursors[to].byte), cursors[to]) << from << " to " << to;
    }
  }
}

TEST(KorUnicharStream, TellsWhereAByteIsAUnitAndNoLineEnds) {
  const std::string plain(40, 'a');
  for (const std::string odd : {"\n", "\r", "\u00e9"}) {
    for (std::uint32_t place = 0; place < plain.size(); ++place) {
      std::string text = plain;
      text.replace(place, odd.size(), odd);
      const Ref<KorUnicharStream> stream =
          KorUnicharStream::streamWithBuffer(KorStringBuffer::bufferFromString(NSString::stringWithUTF8(text)));
      const auto size = stream->byteLength();
      const auto behind = place + static_cast<std::uint32_t>(odd.size());
      EXPECT_FALSE(stream->isPlain(0, size)) << odd << place;
      EXPECT_FALSE(stream->isPlain(place, behind)) << odd << place;
      EXPECT_TRUE(stream->isPlain(0, place)) << odd << place;
      EXPECT_TRUE(stream->isPlain(behind, size)) << odd << place;
    }
  }
}

TEST(KorUnicharStream, ReadsCharactersAtAndBeforeAPlace) {
  const Ref<KorUnicharStream> stream =
      KorUnicharStream::streamWithBuffer(KorStringBuffer::bufferFromString(NSString::stringWithUTF8("a\U0001f600")));
  EXPECT_EQ(stream->text(), "a\U0001f600");
  EXPECT_EQ(stream->byteLength(), 5U);
  EXPECT_EQ(stream->characterAt(1).value, U'\U0001f600');
  EXPECT_EQ(stream->characterBefore(5).value, U'\U0001f600');
  EXPECT_EQ(stream->characterBefore(1).value, U'a');
  EXPECT_EQ(stream->characterAt(5).byteLength, 0U);
  EXPECT_EQ(stream->characterBefore(0).byteLength, 0U);
}

TEST(KorStringBuffer, RefusesAnAbsentText) {
  EXPECT_EQ(raisedName([] { (void)KorStringBuffer::bufferFromString(nullptr); }), "NSInternalInconsistencyException");
}

TEST(Scanner, RefusesWhatIsAbsent) {
  const std::string name = "NSInternalInconsistencyException";
  EXPECT_EQ(raisedName([] { (void)KorUnicharStream::streamWithBuffer(nullptr); }), name);
  EXPECT_EQ(raisedName([] { (void)KorRuleBasedScanner::scannerForStream(nullptr, Rules{}); }), name);
  const RuleList list;
  EXPECT_EQ(raisedName([&] { (void)KorRuleBasedScanner::scannerForStream(nullptr, list); }), name);
  EXPECT_EQ(raised([] {
              (void)scannerOver("x", {pattern("x", 'x'), nullptr});
            }),
            "NSInternalInconsistencyException: Invalid parameter not satisfying: rule != nil");
}

TEST(Scanner, HoldsItsTextForAsLongAsItReads) {
  Ref<KorRuleBasedScanner> scanner;
  {
    const std::string text = std::string(1000, '-') + "x";
    scanner = scannerOver(text, {pattern("x", 'x')});
  }
  const KorToken* token = scanner->nextToken();
  ASSERT_NE(token, nullptr);
  EXPECT_EQ(token->position, 1000);
}

TEST(RuleList, IsSharedByScannersOnSeveralThreads) {
  const RuleList rules(blockRules());
  EXPECT_EQ(rules.rules().size(), 3U);
  const std::string text = "x<?a \"b\" c\"?>y<?d?>\n<?\"";
  const std::string expected = tokensOf(text, blockRules());
  std::vector<std::thread> threads;
  std::vector<int> same(4);
  for (int& count : same) {
    threads.emplace_back([&rules, &text, &expected, &count] {
      for (int round = 0; round < 200; ++round) {
        const Ref<KorUnicharStream> stream =
            KorUnicharStream::streamWithBuffer(KorStringBuffer::bufferFromString(NSString::stringWithUTF8(text)));
        const Ref<KorRuleBasedScanner> scanner = KorRuleBasedScanner::scannerForStream(stream, rules);
        count += tokensOf(text, *scanner) == expected ? 1 : 0;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(same, std::vector<int>(4, 200));
}

TEST(RuleList, TakesItsOwnRulesAgain) {
  RuleList list(Rules{pattern("a", 'a'), pattern("b", 'b'), pattern("c", 'c')});
  list.add(list.rules());
  ASSERT_EQ(list.rules().size(), 6U);
  EXPECT_EQ(list.rules()[5], list.rules()[2]);
}

TEST(RuleList, SkipsToTheOneByteThatMatters) {
  // All that makes tokens begins with "<", so that the way there is one search.
  const Ref<KorPartitionRule> block =
      KorPartitionRule::ruleWithBoundary(KorWordRule::ruleForDictionary({"<?"}, false, classNamed('s')));
  block->setClosingClass(classNamed('e'));
  block->addRule(pattern("\\?>", 'e'));
  const Rules rules = {block, KorDefaultScannerRule::ruleWithTokenClass(nullptr)};
  EXPECT_EQ(tokensOf("a < b <? c ?> < <\u00e9", rules), "{1:6+7 s0:0+2'<?' e0:5+2'?>'}");
  EXPECT_EQ(tokensOf("nothing", rules), "");
}

// White space is passed over by the rule behind, so that the way to the one text that matters is one search.
TEST(RuleList, SkipsWhiteSpaceWithAllTheRest) {
  const auto two = [](std::string_view text, std::uint32_t at, SearchMemo& /*memo*/) {
    return text.substr(at).starts_with("<?") ? at + 2 : at;
  };
  const Ref<KorPartitionRule> block = KorPartitionRule::ruleWithBoundary(KorRegularExpressionRule::ruleWithPattern(
      "<\\?", classNamed('s'), two, FirstBytes().set(static_cast<unsigned char>('<'))));
  block->setClosingClass(classNamed('e'));
  block->addRule(pattern("\\?>", 'e'));
  EXPECT_EQ(block->opening(), "<?");
  const Rules rules = {KorWhitespaceRule::rule(), block, KorDefaultScannerRule::ruleWithTokenClass(nullptr)};
  struct Row {
    const char* what;
    std::string text;
    std::string tokens;
  };
  const Row rows[] = {
      {"nothing", "a b", ""},
      {"white space alone", " \n\u3000", ""},
      {"white space beyond ASCII", "\u00a0\u3000<?\u3000?>", "{1:2+5 s0:0+2'<?' e0:3+2'?>'}"},
      {"other characters that begin like it", "\u00a9\u3001<? ?>", "{1:2+5 s0:0+2'<?' e0:3+2'?>'}"},
      {"half an opening", "<<p>< ?<", ""},
      {"half an opening before one", "<<? ?><", "{1:1+5 s0:0+2'<?' e0:3+2'?>'}"},
  };
  for (const Row& row : rows) EXPECT_EQ(tokensOf(row.text, rules), row.tokens) << row.what;
}

// What a pattern without operators matches is known from its text.
TEST(KorRegularExpressionRule, NamesItsOpeningWhereItsPatternIsPlainText) {
  struct Row {
    const char* pattern;
    const char* opening;
  };
  const Row rows[] = {{"<\\?", "<?"}, {"=", "="},  {"\\(", "("}, {"<\\d", ""}, {"\\w+", ""},
                      {"<?", ""},     {"<|>", ""}, {"a", ""},    {"", ""},     {"<\\", ""}};
  for (const Row& row : rows) {
    EXPECT_EQ(KorRegularExpressionRule::ruleWithPattern(row.pattern, classNamed('x'))->opening(), row.opening)
        << row.pattern;
  }
}

// A run of bytes that the rule asked first skips is passed at once; where another rule is asked before, none of them
// is.
TEST(RuleList, PassesWhatTheRuleThatIsAskedFirstSkips) {
  const Ref<KorScannerRule> word = KorWordRule::ruleForDictionary({"a"}, false, classNamed('w'));
  const Ref<KorScannerRule> tab = KorWordRule::ruleForDictionary({"\t"}, false, classNamed('t'));
  EXPECT_EQ(RuleList({KorWhitespaceRule::rule(), word}).skip(" \n\t a ", 0), 4U);
  EXPECT_EQ(RuleList({KorWhitespaceRule::rule(), word}).skip(" \n\t a ", 5), 6U);
  EXPECT_EQ(RuleList({tab, KorWhitespaceRule::rule(), word}).skip(" \n\t a ", 0), 0U);
  EXPECT_EQ(RuleList({word, KorDefaultScannerRule::ruleWithTokenClass(nullptr)}).skip("b ca", 0), 3U);
  EXPECT_EQ(RuleList({word, KorDefaultScannerRule::ruleWithTokenClass(nullptr)}).skip("b c", 0), 3U);
}

// A host's rule that says that it skips more than it begins with.
class WrongRule final : public KorScannerRule {
 public:
  WrongRule() : KorScannerRule(nullptr) {}

  FirstBytes firstBytes() const override { return FirstBytes().set('a'); }
  FirstBytes skippedBytes() const override { return FirstBytes().set('a').set('z').set(0xFF); }
  bool match(ScanContext& /*context*/, std::uint32_t at, RuleMatch& match) const override {
    match = {at + 1, at, at + 1};
    return true;
  }
  const char* className() const override { return "WrongRule"; }
};

TEST(RuleList, PassesNothingThatARuleSkipsButDoesNotBeginWith) {
  const RuleList list({makeRef<WrongRule>()});
  EXPECT_EQ(list.skip("za", 0), 0U);
  EXPECT_EQ(
      RuleList({makeRef<WrongRule>(), KorWordRule::ruleForDictionary({"z"}, false, classNamed('w'))}).skip("az", 0),
      0U);
}

// A host's rule that matches what it is told.
class ToldRule final : public KorScannerRule {
 public:
  explicit ToldRule(RuleMatch told) : KorScannerRule(nullptr), told_(told) {}

  bool match(ScanContext& /*context*/, std::uint32_t /*at*/, RuleMatch& match) const override {
    match = told_;
    return true;
  }
  const char* className() const override { return "ToldRule"; }

 private:
  RuleMatch told_;
};

// A host's rule that says that it is a partition.
class WouldBePartition final : public KorScannerRule {
 public:
  WouldBePartition() : KorScannerRule(nullptr) {}

  bool makesCompoundTokens() const override { return true; }
  bool match(ScanContext& /*context*/, std::uint32_t at, RuleMatch& match) const override {
    match = {at + 1, at, at + 1};
    return true;
  }
  const char* className() const override { return "WouldBePartition"; }
};

TEST(Scanner, RefusesCompoundTokensOfWhatIsNoPartition) {
  EXPECT_EQ(raised([] { (void)tokensOf("a", {makeRef<WouldBePartition>()}); }),
            "NSInvalidArgumentException: A rule that makes compound tokens must be a partition");
}

TEST(RuleList, RefusesMatchesThatAreNoPartOfTheText) {
  const std::string text = "\u00e9ab";
  for (const RuleMatch match : {RuleMatch{5, 0, 4}, {1, 0, 1}, {4, 1, 4}, {4, 0, 1}, {2, 0, 4}, {4, 3, 2}}) {
    EXPECT_EQ(raised([&] { (void)tokensOf(text, {makeRef<ToldRule>(match)}); }),
              "NSRangeException: A rule's match at byte 0 up to " + std::to_string(match.end) + ", with a token from " +
                  std::to_string(match.tokenStart) + " to " + std::to_string(match.tokenEnd) +
                  ", is no part of a text of 4 bytes");
  }
}

// A rule whose recogniser ends behind one byte.
class ByteRule final : public KorScannerRule {
 public:
  ByteRule() : KorScannerRule(nullptr) {}

  bool match(ScanContext& /*context*/, std::uint32_t /*at*/, RuleMatch& /*match*/) const override { return false; }
  Recogniser recogniser() const override {
    return [](std::string_view /*text*/, std::uint32_t at, SearchMemo& /*memo*/) { return at + 1; };
  }
  const char* className() const override { return "ByteRule"; }
};

TEST(RuleList, RefusesARecogniserThatEndsWithinACharacter) {
  EXPECT_EQ(
      raised([] { (void)tokensOf("\u00e9", {makeRef<ByteRule>()}); }),
      "NSRangeException: A rule's match at byte 0 up to 1, with a token from 0 to 1, is no part of a text of 2 bytes");
}

TEST(PartitionRule, RefusesWhatARecogniserTellsThatIsNoPartOfTheText) {
  using Recognised = KorPartitionRule::Recognised;
  struct Row {
    KorPartitionRule::TokenRecogniser recogniser;
    const char* told;
  };
  const Row rows[] = {
      {[](std::string_view, std::uint32_t at, TokenSink&) {
         return Recognised{at + 100'000, true};
       },
       "up to 100001, with 0 tokens"},
      {[](std::string_view, std::uint32_t at, TokenSink&) {
         return Recognised{at - 1, false};
       },
       "up to 0, with 0 tokens"},
      {[](std::string_view, std::uint32_t at, TokenSink& tokens) {
         tokens.add(nullptr, at + 1, at + 2);
         return Recognised{at + 1, true};
       },
       "up to 2, with 1 tokens"},
      {[](std::string_view, std::uint32_t at, TokenSink& tokens) {
         tokens.add(nullptr, at + 1, at);
         return Recognised{at + 2, true};
       },
       "up to 3, with 1 tokens"},
      {[](std::string_view, std::uint32_t at, TokenSink& tokens) {
         tokens.add(nullptr, at + 1, at + 2);
         tokens.add(nullptr, at, at + 1);
         return Recognised{at + 2, true};
       },
       "up to 3, with 2 tokens"},
      {[](std::string_view, std::uint32_t at, TokenSink&) {
         return Recognised{at + 2, true};
       },
       "up to 3, with 0 tokens"},
      {[](std::string_view, std::uint32_t at, TokenSink& tokens) {
         tokens.add(nullptr, at + 1, at + 2);
         return Recognised{at + 3, true};
       },
       "up to 4, with 1 tokens"},
  };
  for (const Row& row : rows) {
    const Ref<KorPartitionRule> partition = KorPartitionRule::ruleWithBoundary(makeRef<ToldRule>(RuleMatch{1, 0, 1}));
    partition->setTokenRecogniser(row.recogniser);
    EXPECT_EQ(raised([&] { (void)tokensOf("ab\u00e9", {partition}); }),
              "NSRangeException: What a recogniser tells from byte 1 " + std::string(row.told) +
                  ", is no part of a text of 4 bytes");
  }
}

// Without a rule that takes what is left, a byte is passed over only by those that skip.
TEST(RuleList, StopsWhereARuleMakesTokensOrNoneMatches) {
  const Rules rules = {KorWhitespaceRule::rule(),
                       KorWordRule::ruleForDictionary({"\u00e9", "a"}, false, classNamed('w'))};
  EXPECT_EQ(tokensOf(" \u3000a \u00ea\u00e9 \u2003\u00e9", rules), "w1:2+1'a' w1:8+1'\u00e9'");
}

}  // namespace

}  // namespace tavlo::test
