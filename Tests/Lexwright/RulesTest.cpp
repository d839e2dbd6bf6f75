#include <gtest/gtest.h>

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Foundation/NSString.h"
#include "Lexwright/KorDefaultScannerRule.h"
#include "Lexwright/KorPartitionRule.h"
#include "Lexwright/KorRegularExpressionRule.h"
#include "Lexwright/KorTextLiteralRule.h"
#include "Lexwright/KorWhitespaceRule.h"
#include "Lexwright/KorWordRule.h"
#include "Tests/Foundation/Raised.h"
#include "Tests/Lexwright/ScanText.h"

namespace tavlo::test {

namespace {

using std::string_view_literals::operator""sv;

Ref<KorScannerRule> skipAll() {
  return KorDefaultScannerRule::ruleWithTokenClass(nullptr);
}
Ref<KorScannerRule> eachCharacter() {
  return KorDefaultScannerRule::ruleWithTokenClass(classNamed('d'));
}

struct ScanRow {
  const char* what;
  std::string_view text;
  const char* tokens;
};

void expectTokens(const Rules& rules, std::span<const ScanRow> rows) {
  for (const ScanRow& row : rows) EXPECT_EQ(tokensOf(row.text, rules), row.tokens) << row.what;
}

TEST(KorDefaultScannerRule, TakesOneCharacterAtATime) {
  const ScanRow rows[] = {
      {"nothing", "", ""},
      {"letters", "ab", "d1:0+1'a' d1:1+1'b'"},
      {"a whole pair", "\U0001f600x", "d1:0+2'\U0001f600' d1:2+1'x'"},
      {"two and three bytes", "\u00e9\u20ac", "d1:0+1'\u00e9' d1:1+1'\u20ac'"},
      {"a letter and its mark", "e\u0301", "d1:0+1'e' d1:1+1'\u0301'"},
      {"both halves of a line break", "\r\nx", "d1:0+1'\r' d2:1+1'\n' d2:2+1'x'"},
  };
  expectTokens({eachCharacter()}, rows);
}

TEST(KorDefaultScannerRule, WithoutAClassSkips) {
  const ScanRow rows[] = {{"letters", "abc", ""}, {"pairs", "\U0001f600\U0001f600", ""}};
  expectTokens({skipAll()}, rows);
}

TEST(KorWhitespaceRule, SkipsRunsOfUnicodeWhiteSpace) {
  const ScanRow rows[] = {
      {"all of it", " \t\n\v\f\r\u0085\u00a0\u1680\u2000\u200a\u2028\u2029\u202f\u205f\u3000x", "d3:16+1'x'"},
      {"no white space", "\u200bx", "d1:0+1'\u200b' d1:1+1'x'"},
      {"between characters", "a  b", "d1:0+1'a' d1:3+1'b'"},
      {"at the end", "a \n", "d1:0+1'a'"},
      {"alone", " \n ", ""},
  };
  expectTokens({KorWhitespaceRule::rule(), eachCharacter()}, rows);
}

TEST(KorRegularExpressionRule, TakesTheMatchThatBeginsAtThePlace) {
  const Rules rules = {pattern("a+", 'a'), pattern("(?<=x)b", 'b'), pattern("^c", 'c'), pattern("z*", 'z'),
                       eachCharacter()};
  const ScanRow rows[] = {
      {"the whole match", "aaa", "a1:0+3'aaa'"},
      {"look-behind", "xb", "d1:0+1'x' b1:1+1'b'"},
      {"look-behind that refuses", "yb", "d1:0+1'y' d1:1+1'b'"},
      {"the start of a line", "c\ncc", "c1:0+1'c' d1:1+1'\n' c2:2+1'c' d2:3+1'c'"},
      {"a match of no characters counts as none", "yzzy", "d1:0+1'y' z1:1+2'zz' d1:3+1'y'"},
  };
  expectTokens(rules, rows);
}

TEST(KorRegularExpressionRule, WithoutAClassSkips) {
  const ScanRow rows[] = {{"a comment", "a#xyz\nb", "d1:0+1'a' d1:5+1'\n' d2:6+1'b'"}};
  expectTokens({KorRegularExpressionRule::ruleWithPattern("#.*", nullptr), eachCharacter()}, rows);
}

TEST(KorRegularExpressionRule, CompilesItsPatternWhenItIsFirstNeeded) {
  const Ref<KorRegularExpressionRule> rule = KorRegularExpressionRule::ruleWithPattern("(", classNamed('a'));
  EXPECT_EQ(rule->pattern(), "(");
  EXPECT_EQ(tokensOf("", {rule}), "");
  EXPECT_EQ(raisedName([&] { (void)tokensOf("x", {rule}); }), "NSInvalidArgumentException");
  EXPECT_EQ(raised([] { (void)KorRegularExpressionRule::ruleWithPattern(nullptr, nullptr); }),
            "NSInternalInconsistencyException: Invalid parameter not satisfying: pattern != nil");
}

// One that fails where it is asked for its first bytes.
class FailingRule final : public KorScannerRule {
 public:
  FailingRule() : KorScannerRule(nullptr) {}
  bool match(ScanContext& /*context*/, std::uint32_t /*at*/, RuleMatch& /*match*/) const override { return false; }
  FirstBytes firstBytes() const override { NSException::raise(NSGenericException, "unknown"); }
};

TEST(RuleList, StaysAsItWasWhereARuleFails) {
  RuleList list({pattern("x", 'x')});
  const std::vector<Ref<KorScannerRule>> failing{pattern("y", 'y'), makeRef<FailingRule>()};
  EXPECT_EQ(raised([&] { list.add(failing); }), "NSGenericException: unknown");
  EXPECT_EQ(list.rules().size(), 1U);
  list.add({pattern("z", 'z')});
  EXPECT_EQ(tokensOf("xyz", list.rules()), tokensOf("xyz", {pattern("x", 'x'), pattern("z", 'z')}));
}

std::uint32_t takeTwo(std::string_view text, std::uint32_t at, SearchMemo& /*memo*/) {
  return at + 2 <= text.size() ? at + 2 : at;
}

TEST(KorRegularExpressionRule, AsksItsRecogniserInThePatternsPlaceWhereThatIsOn) {
  const Rules rules = {KorRegularExpressionRule::ruleWithPattern("x", classNamed('x'), takeTwo, FirstBytes().set('x')),
                       eachCharacter()};
  EXPECT_EQ(tokensOf("axyx", rules), "d1:0+1'a' x1:1+2'xy' d1:3+1'x'");
  KorRegularExpressionRule::setRecognisersEnabled(false);
  EXPECT_EQ(tokensOf("axyx", rules), "d1:0+1'a' x1:1+1'x' d1:2+1'y' x1:3+1'x'");
  KorRegularExpressionRule::setRecognisersEnabled(true);
  EXPECT_EQ(tokensOf("axyx", rules), "d1:0+1'a' x1:1+2'xy' d1:3+1'x'");
}

struct LiteralRow {
  const char* what;
  const char* open;
  const char* close;
  char escape;
  bool multiline;
  bool quoted;
  std::string_view text;
  std::string_view tokens;
};

TEST(KorTextLiteralRule, TakesWhatStandsBetweenItsSequences) {
  const LiteralRow rows[] = {
      {"a plain one", "\"", "\"", '\\', false, false, "\"ab\"", "l1:1+2'ab'"},
      {"an empty one", "\"", "\"", '\\', false, false, "\"\"", "l1:1+0''"},
      {"with the sequences", "\"", "\"", '\\', false, true, "\"ab\"", "l1:0+4'\"ab\"'"},
      {"an empty one with the sequences", "\"", "\"", '\\', false, true, "\"\"x", "l1:0+2'\"\"' d1:2+1'x'"},
      {"two of them", "\"", "\"", '\\', false, false, "\"a\"\"b\"", "l1:1+1'a' l1:4+1'b'"},
      {"an escaped close", "\"", "\"", '\\', false, false, "\"a\\\"b\"", "l1:1+4'a\\\"b'"},
      {"two escapes do not cancel out", "\"", "\"", '\\', false, false, "\"a\\\\\"b\"", "l1:1+5'a\\\\\"b'"},
      {"two escapes and no other close", "\"", "\"", '\\', false, false, "\"a\\\\\"",
       "d1:0+1'\"' d1:1+1'a' d1:2+1'\\' d1:3+1'\\' d1:4+1'\"'"},
      {"an escape before something else", "\"", "\"", '\\', false, false, "\"\\n\"", "l1:1+2'\\n'"},
      {"another escape", "\"", "\"", '^', false, false, "\"a^\"\\\"", "l1:1+4'a^\"\\'"},
      {"no escape", "\"", "\"", '\0', false, false, "\"a\\\"b", "l1:1+2'a\\' d1:4+1'b'"},
      {"no escape, and a NUL inside", "\"", "\"", '\0', false, false, "\"\0\"b"sv, "l1:1+1'\0' d1:3+1'b'"sv},
      {"never closed", "\"", "\"", '\\', false, false, "\"a", "d1:0+1'\"' d1:1+1'a'"},
      {"the open sequence alone", "\"", "\"", '\\', false, false, "\"", "d1:0+1'\"'"},
      {"a line feed inside", "\"", "\"", '\\', false, false, "\"\n\"", "d1:0+1'\"' d1:1+1'\n' d2:2+1'\"'"},
      {"a carriage return inside", "\"", "\"", '\\', false, false, "\"\r\"", "d1:0+1'\"' d1:1+1'\r' d2:2+1'\"'"},
      {"a line separator is no line break", "\"", "\"", '\\', false, false, "\"\u2028\"", "l1:1+1'\u2028'"},
      {"an escaped line feed breaks too", "\"", "\"", '\\', false, false, "\"\\\n\"",
       "d1:0+1'\"' d1:1+1'\\' d1:2+1'\n' d2:3+1'\"'"},
      {"over lines", "\"", "\"", '\\', true, false, "\"a\r\nb\"c", "l1:1+4'a\r\nb' d2:6+1'c'"},
      {"over lines, with the sequences", "\"", "\"", '\\', true, true, "x\n\"\n\"c",
       "d1:0+1'x' d1:1+1'\n' l2:2+3'\"\n\"' d3:5+1'c'"},
      {"over lines, never closed", "\"", "\"", '\\', true, false, "\"\n", "d1:0+1'\"' d1:1+1'\n'"},
      {"longer sequences", "<<", ">>", '\\', false, false, "<<a>b>>c", "l1:2+3'a>b' d1:7+1'c'"},
      {"longer sequences, covered", "<<", ">>", '\\', false, true, "<<a>>", "l1:0+5'<<a>>'"},
      {"half an open sequence", "<<", ">>", '\\', false, false, "<a>>", "d1:0+1'<' d1:1+1'a' d1:2+1'>' d1:3+1'>'"},
      {"half a close sequence", "<<", ">>", '\\', false, false, "<<a>", "d1:0+1'<' d1:1+1'<' d1:2+1'a' d1:3+1'>'"},
      {"an escaped longer close", "<<", ">>", '\\', false, false, "<<a\\>>>>", "l1:2+3'a\\>' d1:7+1'>'"},
      {"sequences that overlap", "/*", "*/", '\0', true, false, "/*/ */", "l1:2+2'/ '"},
      {"an open sequence inside", "<<", ">>", '\0', false, false, "<<a<<b>>", "l1:2+4'a<<b'"},
      {"beyond ASCII", "\u00ab", "\u00bb", '\\', false, false, "\u00ab\U0001f600\u00bb", "l1:1+2'\U0001f600'"},
      {"half a character of an open sequence", "\u00ab", "\u00bb", '\\', false, false, "\u00aa", "d1:0+1'\u00aa'"},
  };
  for (const LiteralRow& row : rows) {
    const Rules rules = {KorTextLiteralRule::ruleWithOpenSequence(row.open, row.close, row.escape, row.multiline,
                                                                  row.quoted, classNamed('l')),
                         eachCharacter()};
    EXPECT_EQ(tokensOf(row.text, rules), row.tokens) << row.what;
  }
}

TEST(KorTextLiteralRule, NeedsBothSequences) {
  EXPECT_EQ(raisedName([] { (void)KorTextLiteralRule::ruleWithOpenSequence("", "\"", 0, false, false, nullptr); }),
            "NSInternalInconsistencyException");
  EXPECT_EQ(raisedName([] { (void)KorTextLiteralRule::ruleWithOpenSequence("\"", "", 0, false, false, nullptr); }),
            "NSInternalInconsistencyException");
}

TEST(KorTextLiteralRule, WithoutAClassSkips) {
  const Rules rules = {KorTextLiteralRule::ruleWithOpenSequence("/*", "*/", '\0', true, false, nullptr),
                       eachCharacter()};
  EXPECT_EQ(tokensOf("a/*\n*/b", rules), "d1:0+1'a' d2:6+1'b'");
}

TEST(KorTextLiteralRule, TellsTwoRulesOfOneTextApart) {
  const Rules rules = {KorTextLiteralRule::ruleWithOpenSequence("\"", "\"", '\\', false, false, classNamed('a')),
                       KorTextLiteralRule::ruleWithOpenSequence("'", "'", '\\', false, false, classNamed('b')),
                       eachCharacter()};
  EXPECT_EQ(tokensOf("'\"' \"'\" '", rules), "b1:1+1'\"' d1:3+1' ' a1:5+1''' d1:7+1' ' d1:8+1'''");
}

TEST(KorWordRule, RefusesAWordThatIsNoUTF8) {
  EXPECT_THROW((void)KorWordRule::ruleForDictionary({"caf\xC3"}, false, nullptr), NSException);
}

struct WordRow {
  const char* what;
  std::vector<std::string> words;
  bool anyCase;
  std::string_view text;
  const char* tokens;
};

TEST(KorWordRule, TakesTheLongestEntry) {
  const std::vector<std::string> operators = {"<", "<=", "=", "==", "=~", "&&"};
  const WordRow rows[] = {
      {"the longest", operators, false, "<==", "w1:0+2'<=' w1:2+1'='"},
      {"a shorter one where the longer does not stand", operators, false, "<!", "w1:0+1'<' d1:1+1'!'"},
      {"the order of the entries does not count", {"<=", "<"}, false, "<=", "w1:0+2'<='"},
      {"no entry", operators, false, "&", "d1:0+1'&'"},
      {"operators need no boundary", operators, false, "a=b", "d1:0+1'a' w1:1+1'=' d1:2+1'b'"},
      {"a longer entry that is a word only in part",
       {"in", "in-out"},
       false,
       "in-outer in-",
       "w1:0+6'in-out' d1:6+1'e' d1:7+1'r' d1:8+1' ' w1:9+2'in' d1:11+1'-'"},
      {"a whole word", {"if"}, false, "if", "w1:0+2'if'"},
      {"a word between others", {"if"}, false, "(if)", "d1:0+1'(' w1:1+2'if' d1:3+1')'"},
      {"the start of a word", {"if"}, false, "ify", "d1:0+1'i' d1:1+1'f' d1:2+1'y'"},
      {"the end of a word", {"if"}, false, "xif", "d1:0+1'x' d1:1+1'i' d1:2+1'f'"},
      {"before a digit", {"if"}, false, "if1", "d1:0+1'i' d1:1+1'f' d1:2+1'1'"},
      {"behind an underscore", {"if"}, false, "_if", "d1:0+1'_' d1:1+1'i' d1:2+1'f'"},
      {"before a letter beyond ASCII", {"if"}, false, "if\u00e9", "d1:0+1'i' d1:1+1'f' d1:2+1'\u00e9'"},
      {"behind a letter beyond ASCII", {"if"}, false, "\u00e9if", "d1:0+1'\u00e9' d1:1+1'i' d1:2+1'f'"},
      {"before a symbol beyond ASCII", {"if"}, false, "if\u20ac", "w1:0+2'if' d1:2+1'\u20ac'"},
      {"an entry that is a word only in part", {"a-"}, false, "xa-y", "d1:0+1'x' w1:1+2'a-' d1:3+1'y'"},
      {"another case", {"if"}, false, "IF", "d1:0+1'I' d1:1+1'F'"},
      {"any case", {"if", "ELSE"}, true, "iF else ElSe", "w1:0+2'iF' d1:2+1' ' w1:3+4'else' d1:7+1' ' w1:8+4'ElSe'"},
      {"only ASCII letters fold", {"\u00e9"}, true, "\u00c9 \u00e9", "d1:0+1'\u00c9' d1:1+1' ' w1:2+1'\u00e9'"},
      {"the Kelvin sign is no k", {"k"}, true, "\u212a K", "d1:0+1'\u212a' d1:1+1' ' w1:2+1'K'"},
      {"no folding of other characters", {"@"}, true, "`@", "d1:0+1'`' w1:1+1'@'"},
      {"an empty entry never matches", {"", "a"}, false, "ba", "d1:0+1'b' d1:1+1'a'"},
      {"no entries", {}, false, "a", "d1:0+1'a'"},
      {"beyond ASCII",
       {"\U0001f600\U0001f601", "\U0001f600"},
       false,
       "\U0001f600\U0001f601\U0001f600",
       "w1:0+4'\U0001f600\U0001f601' w1:4+2'\U0001f600'"},
      {"cut short by the end", {"foreach"}, false, "fore", "d1:0+1'f' d1:1+1'o' d1:2+1'r' d1:3+1'e'"},
  };
  for (const WordRow& row : rows) {
    const Rules rules = {KorWordRule::ruleForDictionary(row.words, row.anyCase, classNamed('w')), eachCharacter()};
    EXPECT_EQ(tokensOf(row.text, rules), row.tokens) << row.what;
  }
}

TEST(KorPartitionRule, HoldsWhatItsRulesFindUpToTheClosingClass) {
  const Ref<KorPartitionRule> block = KorPartitionRule::ruleWithBoundary(pattern("<\\?", 's'));
  block->setSkipBoundary(true);
  block->setClosingClass(classNamed('e'));
  block->addRule(KorWhitespaceRule::rule());
  block->addRule(pattern("\\?>", 'e'));
  block->addRule(pattern("\\w+", 'w'));
  block->addRule(eachCharacter());
  const ScanRow rows[] = {
      {"no block", "abc", ""},
      {"a block", "<?a?>", "{1:0+5 w0:2+1'a' e0:3+2'?>'}"},
      {"text around it", "x<? a ?>y", "{1:1+7 w0:3+1'a' e0:5+2'?>'}"},
      {"an empty one",
       "<?"
       "?>",
       "{1:0+4 e0:2+2'?>'}"},
      {"two", "<?a?>\n<?b?>", "{1:0+5 w0:2+1'a' e0:3+2'?>'} {2:6+5 w0:2+1'b' e0:3+2'?>'}"},
      {"none that closes", "<?a ", "{1:0+4 w0:2+1'a'}"},
      {"the boundary at the end", "x<?", "{1:1+2}"},
      {"the boundary inside", "<?<?a?>", "{1:0+7 d0:2+1'<' d0:3+1'?' w0:4+1'a' e0:5+2'?>'}"},
      {"lines counted from the block", "\n\n<?a\nb\r\nc\rd?>",
       "{3:2+12 w0:2+1'a' w1:4+1'b' w2:7+1'c' w3:9+1'd' e3:10+2'?>'}"},
      {"units counted from the block", "\U0001f600<?\u00e9 \U0001f600a?>",
       "{1:2+9 w0:2+1'\u00e9' d0:4+2'\U0001f600' w0:6+1'a' e0:7+2'?>'}"},
      {"a close without a block", "?>", ""},
  };
  expectTokens({KorWhitespaceRule::rule(), block, skipAll()}, rows);
}

TEST(KorPartitionRule, KeepsItsBoundaryUnlessToldToSkipIt) {
  const Ref<KorPartitionRule> block = KorPartitionRule::ruleWithBoundary(pattern("<+", 's'));
  block->setClosingClass(classNamed('e'));
  block->addRule(pattern(">", 'e'));
  const ScanRow rows[] = {
      {"the boundary first", "x<<>", "{1:1+3 s0:0+2'<<' e0:2+1'>'}"},
      {"characters that no rule wants", "<\n\U0001f600>y", "{1:0+5 s0:0+1'<' e1:4+1'>'}"},
      {"never closed", "<ab", "{1:0+3 s0:0+1'<'}"},
  };
  expectTokens({block}, rows);
}

TEST(KorPartitionRule, WithoutAClosingClassGoesToTheEnd) {
  const Ref<KorPartitionRule> rest = KorPartitionRule::ruleWithBoundary(pattern("#", 's'));
  rest->addRule(pattern("\\w", 'w'));
  EXPECT_EQ(tokensOf("a#b\nc#", {rest}), "{1:1+5 s0:0+1'#' w0:1+1'b' w1:3+1'c'}");
}

TEST(KorPartitionRule, MayBeginWithALiteralOrAWord) {
  const Ref<KorPartitionRule> quoted = KorPartitionRule::ruleWithBoundary(
      KorTextLiteralRule::ruleWithOpenSequence("[", "]", '\0', false, false, classNamed('s')));
  quoted->setClosingClass(classNamed('e'));
  quoted->addRule(pattern(";", 'e'));
  const Ref<KorPartitionRule> worded =
      KorPartitionRule::ruleWithBoundary(KorWordRule::ruleForDictionary({"begin"}, true, classNamed('w')));
  worded->setSkipBoundary(true);
  worded->setClosingClass(classNamed('e'));
  worded->addRule(KorWordRule::ruleForDictionary({"end"}, true, classNamed('e')));
  EXPECT_EQ(tokensOf("x[ab]c;", {quoted, worded}), "{1:1+6 s0:1+2'ab' e0:5+1';'}");
  EXPECT_EQ(tokensOf("[ab Begin x END", {quoted, worded}), "{1:4+11 e0:8+3'END'}");
}

TEST(KorPartitionRule, RefusesWhatItCannotHold) {
  const Ref<KorPartitionRule> block = KorPartitionRule::ruleWithBoundary(pattern("a", 'a'));
  EXPECT_EQ(raisedName([&] { block->addRule(KorPartitionRule::ruleWithBoundary(pattern("b", 'b'))); }),
            "NSInvalidArgumentException");
  EXPECT_EQ(raisedName([&] { block->addRule(nullptr); }), "NSInternalInconsistencyException");
  EXPECT_EQ(raisedName([] { (void)KorPartitionRule::ruleWithBoundary(nullptr); }), "NSInternalInconsistencyException");
}

}  // namespace

}  // namespace tavlo::test
