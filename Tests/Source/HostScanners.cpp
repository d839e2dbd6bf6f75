#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Lexwright/KorDefaultScannerRule.h"
#include "Lexwright/KorPartitionRule.h"
#include "Lexwright/KorRegularExpressionRule.h"
#include "Lexwright/KorWhitespaceRule.h"
#include "Tests/Source/HostClasses.h"
#include "Tests/Source/KorTemplateParserSupport.h"

// Compiling from what a host's scanner and a host's rules find.
namespace tavlo::test::parsing {

namespace {

using Parser = KorTemplateParser;

// The engine's tokens, told by their positions in UTF-16 units alone, as a host's scanner may know them.
class PositionsAlone final : public KorRuleBasedScanner {
 public:
  explicit PositionsAlone(const std::string& text)
      : KorRuleBasedScanner(streamOver(text), &Parser::scannerRules()), scanner_(scannerOver(text)) {}

  const KorToken* nextToken() override {
    const KorToken* token = scanner_->nextToken();
    if (token == nullptr) return nullptr;
    block_ = static_cast<const KorCompoundToken&>(*token);
    forgetBytes(block_);
    for (KorToken& subtoken : block_.subtokens) forgetBytes(subtoken);
    return &block_;
  }

 private:
  static Ref<KorUnicharStream> streamOver(const std::string& text) {
    return KorUnicharStream::streamWithBuffer(KorStringBuffer::bufferFromString(NSString::stringWithUTF8(text)));
  }
  static void forgetBytes(KorToken& token) {
    token.byteOffset = 0;
    token.byteLength = 0;
  }

  Ref<KorRuleBasedScanner> scanner_;
  KorCompoundToken block_;
};

// The statements that a parser yields, or what it raises behind those before.
std::string statementsOf(KorTemplateParser& parser) {
  std::string result;
  const Raised raised = raisedBy([&] {
    while (const Ref<KorTemplateStatement> statement = parser.nextStatement()) result += shapeOf(statement) + "; ";
  });
  return result + raised.text();
}

const char* const kTexts[] = {
    "plain",
    "a<?= $x ?>b",
    "<?= $x ?><?= $y ?>",
    "\xC3\xA9<?= $x ?>\xF0\x9F\x98\x80<?= \"\xF0\x9F\x98\x80\" + $y ?>\xE2\x82\xAC",
    "\xF0\x9F\x98\x80\n<? $x = \"\" ?>\n\xC3\xA9<? f(\"\xC3\xA9\", \"\", /\xE2\x82\xAC\\/+/, 1.5, @@index) ?>",
    "<? if ($\xC3\xA9) ?>\xC3\xA9<? elseif ($b == \"\xC3\xA9\") ?>\xF0\x9F\x98\x80<? else ?>1<? endif ?>\xC3\xA9",
    "\xC3\xA9<? foreach ($e in $list) ?>\xC3\xA9<?= @@index ?>\xC3\xA9<? endforeach ?>",
    "\xC3\xA9<? function f($a, $b) ?>\xC3\xA9<? return $a + $b ?><? endfunction ?><?= f(\"\xC3\xA9\", true) ?>",
    "\xC3\xA9\n<?= 1 + \"\xC3\xA9\" 'a' ?>",
    "\xC3\xA9\n<? if $x ?>",
    "\xC3\xA9\n<? foreach ($e IN $x) ?>",
    "\xC3\xA9\n<?= \"\xC3\xA9\" +",
    "\xC3\xA9\n<? \"\xC3\xA9\" 1",
    "\xC3\xA9<?",
};

TEST(AHostsScanner, MayTellPositionsAlone) {
  for (const char* text : kTexts) {
    const Ref<KorTemplateParser> plain = Parser::parserForString(text);
    const Ref<KorTemplateParser> hosted = makeRef<KorTemplateParser>(
        NSString::stringWithUTF8(text), Ref<KorRuleBasedScanner>(makeRef<PositionsAlone>(text)));
    EXPECT_EQ(statementsOf(*hosted), statementsOf(*plain)) << text;
  }
}

// Takes words of one letter, the letter twice or more; everything else about it is left as it is for any rule.
class RepeatedLetterRule final : public KorScannerRule {
 public:
  explicit RepeatedLetterRule(char letter) : KorScannerRule(&Parser::Symbol), letter_(letter) {}
  bool match(ScanContext& context, std::uint32_t at, RuleMatch& match) const override {
    const std::string_view text = context.text();
    std::uint32_t end = at;
    while (end < text.size() && text[end] == letter_) ++end;
    match = {end, at, end};
    return end - at >= 2;
  }

 private:
  char letter_;
};

TEST(AHostsRule, CutsTokensBesideTheEngines) {
  const auto block =
      KorPartitionRule::ruleWithBoundary(KorRegularExpressionRule::ruleWithPattern("<\\?", &Parser::BlockStartTag));
  block->setSkipBoundary(true);
  block->setClosingClass(&Parser::BlockEndTag);
  block->addRule(KorWhitespaceRule::rule());
  block->addRule(KorRegularExpressionRule::ruleWithPattern("\\?>", &Parser::BlockEndTag));
  block->addRule(makeRef<RepeatedLetterRule>('x'));
  block->addRule(KorRegularExpressionRule::ruleWithPattern("\\(", &Parser::ParenthesisStart));
  block->addRule(KorRegularExpressionRule::ruleWithPattern("\\)", &Parser::ParenthesisEnd));
  block->addRule(KorRegularExpressionRule::ruleWithPattern("=", &Parser::AssignmentOperator));
  block->addRule(KorDefaultScannerRule::ruleWithTokenClass(&Parser::Token));
  const std::vector<Ref<KorScannerRule>> rules = {KorWhitespaceRule::rule(), block,
                                                  KorDefaultScannerRule::ruleWithTokenClass(nullptr)};
  const Ref<NSString> text = NSString::stringWithUTF8("\xC3\xA9 <?= xxx() ?>\xF0\x9F\x98\x80<? x ?>");
  const Ref<KorRuleBasedScanner> scanner = KorRuleBasedScanner::scannerForStream(
      KorUnicharStream::streamWithBuffer(KorStringBuffer::bufferFromString(text)), rules);
  const Ref<KorTemplateParser> parser = makeRef<KorTemplateParser>(text, scanner);
  EXPECT_EQ(statementsOf(*parser), "out \"\xC3\xA9 \"; out xxx(); out \"\xF0\x9F\x98\x80\"; " +
                                       syntaxError(1, "'x'. Expected literal, variable or sub-expression"));
}

TEST(TokensMadeByHand, HaveTheirTextWhereTheirPositionsSay) {
  const Ref<KorTemplateParser> parser = Parser::parserForString("\xF0\x9F\x98\x80$\xC3\xA9+\"\xC3\xA9\"");
  struct Row {
    const KorTokenClass* tokenClass;
    std::int32_t position;
    std::int32_t length;
  };
  const Row rows[] = {{&Parser::Variable, 2, 2}, {&Parser::BinaryOperator, 4, 1}, {&Parser::StringLiteral, 6, 1}};
  std::vector<KorToken> tokens;
  for (const Row& row : rows) {
    KorToken& token = tokens.emplace_back();
    token.tokenClass = row.tokenClass;
    token.position = row.position;
    token.length = row.length;
  }
  EXPECT_EQ(shapeOf(parser->parseExpressionFromTokens(tokens)), "($\xC3\xA9 + \"\xC3\xA9\")");
  EXPECT_EQ(parser->stringFromToken(&tokens[0]), "$\xC3\xA9");
  EXPECT_EQ(shapeOf(parser->parseExpressionFromTokens(KorTokenList(tokens).span().last(1))), "\"\xC3\xA9\"");
}

TEST(TokensMadeByHand, AreOutOfRangeWhereAVariableHasNoText) {
  KorToken token;
  token.tokenClass = &Parser::Variable;
  token.position = 1;
  const Ref<KorTemplateParser> parser = Parser::parserForString("$x");
  EXPECT_EQ(raisedBy([&] { (void)parser->parseExpressionFromTokens(std::vector<KorToken>{token}); }).text(),
            "NSRangeException: Index 1 is beyond a list of 0 elements");
}

TEST(HostScanners, OverALongerTextYieldLiteralTextThatEndsWithTheText) {
  const Ref<KorTemplateParser> parser =
      makeRef<KorTemplateParser>(NSString::stringWithUTF8("short"), scannerOver(std::string(5000, 'a') + "<?= 1 ?>"));
  const Ref<KorTemplateStatement> statement = parser->nextStatement();
  EXPECT_EQ(shapeOf(statement), "out \"short\"");
  const Stage stage;
  statement->executeWithEnvironment(stage.get());
  EXPECT_EQ(stage.text(), "short");
}

TEST(HostScanners, OverALongerTextFailOutOfRangeBehindTheText) {
  const Ref<KorTemplateParser> parser =
      makeRef<KorTemplateParser>(NSString::stringWithUTF8("ab<?= 1"), scannerOver("ab<?= 1 ?>cdefghi<?= 2 ?>"));
  EXPECT_THAT(statementsOf(*parser), testing::HasSubstr("NSRangeException"));
}

}  // namespace

}  // namespace tavlo::test::parsing
