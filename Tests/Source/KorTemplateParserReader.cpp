#include <gtest/gtest.h>

#include "Source/KorTemplateEnvironment.h"
#include "Source/KorTemplateStringStream.h"
#include "Tests/Source/KorTemplateParserSupport.h"

namespace tavlo::test::parsing {

namespace {

using Parser = KorTemplateParser;

TEST(KorTemplateParserReader, TurnsTextAndBlocksIntoStatements) {
  expectShapes({
      {"", ""},
      {"plain", "out \"plain\""},
      {" \n ", "out \" \n \""},
      {"a<?= $x ?>b", "out \"a\"; out $x; out \"b\""},
      {"<?= 1 ?><?= 2 ?>", "out 1; out 2"},
      {"<?= 1 ?> <?= 2 ?>", "out 1; out \" \"; out 2"},
      {"<?= 1 ?>\n", "out 1; out \"\n\""},
      {"<? $x = 1 ?>", "do ($x = 1)"},
      {"<?f()?>", "do f()"},
      {"<?=1?>", "out 1"},
      {"< ? ?> <", "out \"< ? ?> <\""},
      {"\xF0\x9F\x98\x80<?=1?>\xC3\xA9", "out \"\xF0\x9F\x98\x80\"; out 1; out \"\xC3\xA9\""},
      {"<? ENDIF ?>", "block ENDIF absent"},
      {"<? EndForEach and \"more\" # ?>", "block EndForEach absent"},
      {"<? else ?><? endif ?><? endfunction ?>", "block else absent; block endif absent; block endfunction absent"},
      {"<? else", "block else absent"},
      {"<? elseif ($a) ?>", "block elseif $a"},
      {"<? ELSEIF ($a) ?>", "block elseif $a"},
      {"<? return ?>", "return absent"},
  });
}

TEST(KorTemplateParserReader, RefusesABlockThatIsNotClosed) {
  for (const char* text : {"<? $x = 1", "a<? 1", "<? f()", "<? \"?>\"", "<? #"}) {
    EXPECT_EQ(raisedBy([&] { (void)KorTemplate::compile(text); }).name, "NSRangeException") << text;
  }
}

TEST(KorTemplateParserReader, RefusesABlockOfNothingAtAll) {
  for (const char* text : {"<?", "a<?", "<? ", "<?\n\t "}) {
    EXPECT_EQ(raisedBy([&] { (void)KorTemplate::compile(text); }).name, "NSRangeException") << text;
  }
}

TEST(KorTemplateParserReader, ABlockOfOnlyItsTagsHasNoExpression) {
  for (const char* text : {"<?"
                           "?>",
                           "<? ?>", "<?=?>", "<?= ?>"}) {
    EXPECT_EQ(raisedBy([&] { (void)KorTemplate::compile(text); }).text(), failedCheck("token != nil")) << text;
  }
}

TEST(KorTemplateParserReader, GoesForwardAndStaysAtTheEnd) {
  const Ref<KorTemplateParser> parser = Parser::parserForString("ab<?= 1 ?>\xC3\xA9\xF0\x9F\x98\x80");
  EXPECT_EQ(shapeOf(parser->nextStatement()), "out \"ab\"");
  EXPECT_EQ(parser->currentPosition(), 2);
  ASSERT_NE(parser->currentBlockToken(), nullptr);
  EXPECT_EQ(parser->currentBlockToken()->position, 2);
  EXPECT_EQ(shapeOf(parser->nextStatement()), "out 1");
  EXPECT_EQ(parser->currentPosition(), 10);
  EXPECT_EQ(shapeOf(parser->nextStatement()), "out \"\xC3\xA9\xF0\x9F\x98\x80\"");
  EXPECT_EQ(parser->currentPosition(), 13);
  EXPECT_EQ(parser->currentBlockToken(), nullptr);
  for (int time = 0; time < 3; ++time) EXPECT_EQ(parser->nextStatement(), nullptr);
  EXPECT_EQ(parser->currentPosition(), 13);
}

TEST(KorTemplateParserReader, ClosingKeywordWithoutItsOpeningFailsOnlyWhenItRuns) {
  const Ref<KorTemplate> compiled = KorTemplate::compile("a<? ENDIF ?>b");
  const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  const Ref<KorTemplateStringStream> output = KorTemplateStringStream::stringStream();
  environment->setOutputStream(output);
  EXPECT_EQ(raisedBy([&] { compiled->executeWithEnvironment(environment.get()); }).text(),
            "NSInternalInconsistencyException: KorTemplateBlockStatement should never be executed");
  EXPECT_EQ(output->buffer()->string(), "a");
}

// Answers with the tokens of a list, whatever the text.
class ListedTokens final : public KorRuleBasedScanner {
 public:
  explicit ListedTokens(std::vector<const KorToken*> tokens)
      : KorRuleBasedScanner(
            KorUnicharStream::streamWithBuffer(KorStringBuffer::bufferFromString(NSString::stringWithUTF8(""))),
            &KorTemplateParser::scannerRules()),
        tokens_(std::move(tokens)) {}

  const KorToken* nextToken() override { return next_ < tokens_.size() ? tokens_[next_++] : nullptr; }

 private:
  std::vector<const KorToken*> tokens_;
  std::size_t next_ = 0;
};

Ref<KorTemplateParser> parserOver(const char* text, std::vector<const KorToken*> tokens) {
  return makeRef<KorTemplateParser>(NSString::stringWithUTF8(text),
                                    Ref<KorRuleBasedScanner>(makeRef<ListedTokens>(std::move(tokens))));
}

KorCompoundToken makeBlock(std::int32_t position, std::int32_t length, std::int32_t line,
                           std::vector<KorToken> subtokens) {
  KorCompoundToken block;
  static_cast<KorToken&>(block) = makeToken(Parser::Token, position, length, line);
  block.isCompound = true;
  block.subtokens = std::move(subtokens);
  return block;
}

TEST(KorTemplateParserReader, RefusesABlockBeforeTheTextThatIsReadAlready) {
  const KorCompoundToken first = makeBlock(0, 4, 1, {makeToken(Parser::ControlKeyword, 0, 4)});
  const KorCompoundToken overlapping = makeBlock(3, 4, 1, {});
  const Ref<KorTemplateParser> parser = parserOver("elsewhere", {&first, &overlapping});
  EXPECT_EQ(shapeOf(parser->nextStatement()), "block else absent");
  EXPECT_EQ(raisedBy([&] { (void)parser->nextStatement(); }).text(),
            "NSInternalInconsistencyException: Position is not located at start of current token");
}

TEST(KorTemplateParserReader, RefusesATokenThatIsNoBlock) {
  const KorToken plain = makeToken(Parser::Symbol, 2, 3);
  const Ref<KorTemplateParser> parser = parserOver("elsewhere", {&plain});
  EXPECT_EQ(shapeOf(parser->nextStatement()), "out \"el\"");
  EXPECT_EQ(raisedBy([&] { (void)parser->nextStatement(); }).text(),
            "NSInternalInconsistencyException: Expected compound token");
}

TEST(KorTemplateParserReader, LooksAtThePlaceOfATokenBeforeItsKind) {
  const KorCompoundToken first = makeBlock(0, 4, 1, {makeToken(Parser::ControlKeyword, 0, 4)});
  const KorToken plain = makeToken(Parser::Symbol, 1, 3);
  const Ref<KorTemplateParser> parser = parserOver("elsewhere", {&first, &plain});
  (void)parser->nextStatement();
  EXPECT_EQ(raisedBy([&] { (void)parser->nextStatement(); }).text(),
            "NSInternalInconsistencyException: Position is not located at start of current token");
}

TEST(KorTemplateParserReader, RefusesAControlKeywordThatItDoesNotKnow) {
  KorToken then = makeToken(Parser::ControlKeyword, 0, 4);
  then.byteOffset = 1;
  const KorCompoundToken block = makeBlock(1, 4, 3, {then});
  const Ref<KorTemplateParser> parser = parserOver("/then", {&block});
  EXPECT_EQ(shapeOf(parser->nextStatement()), "out \"/\"");
  const Raised raised = raisedBy([&] { (void)parser->nextStatement(); });
  EXPECT_EQ(raised.text(), syntaxError(6, "'then'. Unexpected control keyword")) << "the block's line counts twice";
  EXPECT_EQ(raised.place.offset, 1U);
  EXPECT_EQ(raised.place.length, 4U);
}

TEST(KorTemplateParserReader, ParsesABlockThatIsHandedToItDirectly) {
  const AtFirstBlock at("<?= 1 + 2 ?>");
  EXPECT_EQ(shapeOf(at.parser().parseStatementForToken(&at.block())), "out (1 + 2)");
  EXPECT_EQ(shapeOf(at.parser().parseOutputStatementForToken(&at.block())), "out (1 + 2)");
  const AtFirstBlock plain("<? f() ?>");
  EXPECT_EQ(shapeOf(plain.parser().parseExpressionStatementForToken(&plain.block())), "do f()");
}

TEST(KorTemplateParserReader, AnOutputBlockDropsItsLastTokenWhateverItIs) {
  const Ref<KorTemplateParser> parser = Parser::parserForString("=1?>2");
  const KorCompoundToken block =
      makeBlock(0, 5, 1,
                {makeToken(Parser::AssignmentOperator, 0, 1), makeToken(Parser::NonIntegralNumericLiteral, 1, 1),
                 makeToken(Parser::BlockEndTag, 2, 2), makeToken(Parser::NonIntegralNumericLiteral, 4, 1)});
  EXPECT_EQ(raisedBy([&] { (void)parser->parseOutputStatementForToken(&block); }).text(),
            syntaxError(0, "'?>'. Expected operator"));
  EXPECT_EQ(raisedBy([&] { (void)parser->parseExpressionStatementForToken(&block); }).text(),
            syntaxError(0, "Expression required to left of = operator"))
      << "an expression block ends at its first closing tag";
}

TEST(KorTemplateParserReader, HasOneStatementForEachOfManyBlocks) {
  std::string text;
  for (int block = 0; block < 1000; ++block) text += "x<?= 1 ?>";
  EXPECT_EQ(KorTemplate::compile(text)->statements().count(), 2000);
}

}  // namespace

}  // namespace tavlo::test::parsing
