#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <limits>

#include "Tests/Source/KorTemplateParserSupport.h"

namespace tavlo::test::parsing {

namespace {

using Parser = KorTemplateParser;

TEST(KorTemplateParserTokens, ANewParserStandsBeforeTheText) {
  const Ref<KorTemplateParser> parser = Parser::parserForString("a<? 1 ?>");
  EXPECT_EQ(parser->inputString()->view(), "a<? 1 ?>");
  EXPECT_EQ(parser->currentBlockToken(), nullptr);
  EXPECT_EQ(parser->currentPosition(), 0);
  EXPECT_FALSE(parser->isParsingFunction());
}

TEST(KorTemplateParserTokens, KeepsTheStringThatItIsGiven) {
  const Ref<NSString> text = NSString::stringWithUTF8("abc");
  EXPECT_EQ(makeRef<KorTemplateParser>(text)->inputString(), text);
}

TEST(KorTemplateParserTokens, LineAndPositionAreTheTokensOwnWithoutABlock) {
  const Ref<KorTemplateParser> parser = Parser::parserForString("0123456789");
  const KorToken token = makeToken(Parser::Symbol, 3, 4, 2);
  EXPECT_EQ(parser->lineFromToken(&token), 2);
  EXPECT_EQ(parser->positionFromToken(&token), 3);
  EXPECT_EQ(parser->stringFromToken(&token), "3456");
}

TEST(KorTemplateParserTokens, LineAndPositionAddThoseOfTheCurrentBlock) {
  const Ref<KorTemplateParser> parser = Parser::parserForString("0123456789");
  const KorToken token = makeToken(Parser::Symbol, 3, 4, 2);
  KorCompoundToken block;
  block.line = 10;
  block.position = 2;
  block.length = 5;
  parser->setCurrentBlockToken(&block);
  EXPECT_EQ(parser->lineFromToken(&token), 12);
  EXPECT_EQ(parser->positionFromToken(&token), 5);
  EXPECT_EQ(parser->stringFromToken(&token), "5678");
  EXPECT_EQ(parser->lineFromToken(&block), 20) << "the block itself counts twice";
  EXPECT_EQ(parser->positionFromToken(&block), 4);
  EXPECT_EQ(parser->stringFromToken(&block), "45678");
  constexpr std::int32_t kLast = std::numeric_limits<std::int32_t>::max();
  block.line = block.position = kLast - 1;
  EXPECT_EQ(parser->lineFromToken(&block), kLast);
  EXPECT_EQ(parser->positionFromToken(&block), kLast);
  parser->setCurrentBlockToken(nullptr);
  EXPECT_EQ(parser->lineFromToken(&token), 2);
}

TEST(KorTemplateParserTokens, TextIsTheTemplatesOwn) {
  struct Row {
    const char* text;
    std::size_t index;
    const char* expected;
  };
  const Row rows[] = {
      {"<? $user.name ?>", 0, "$user.name"},
      {"a\n\n<? 1 @@index ?>", 1, "@@index"},
      {"<? EndIf ?>", 0, "EndIf"},
      {"<? \"a \\\" b\" ?>", 0, "a \\\" b"},
      {"<? \"\" ?>", 0, ""},
      {"<? 1 =~ /a\\/b/ ?>", 2, "/a\\/b/"},
      {"\xC3\xA9\xF0\x9F\x98\x80<? \"\xF0\x9F\x98\x80\" $\xC3\xA9 ?>", 0, "\xF0\x9F\x98\x80"},
      {"\xC3\xA9\xF0\x9F\x98\x80<? \"\xF0\x9F\x98\x80\" $\xC3\xA9 ?>", 1, "$\xC3\xA9"},
      {"\xC3\xA9\xF0\x9F\x98\x80<? \"\xF0\x9F\x98\x80\" $\xC3\xA9 ?>", 2, "?>"},
  };
  for (const Row& row : rows) {
    const AtFirstBlock at(row.text);
    EXPECT_EQ(at.parser().stringFromToken(&at.block().subtokens.at(row.index)), row.expected) << row.text;
  }
}

TEST(KorTemplateParserTokens, TextOfATokenMadeByHandIsFoundByItsPositionInUTF16Units) {
  const Ref<KorTemplateParser> parser = Parser::parserForString("\xC3\xA9\xF0\x90\x80\x80z\xE2\x82\xAC!");
  struct Row {
    std::int32_t position;
    std::int32_t length;
    const char* expected;
  };
  const Row rows[] = {{0, 1, "\xC3\xA9"}, {1, 2, "\xF0\x90\x80\x80"}, {3, 1, "z"}, {4, 1, "\xE2\x82\xAC"},
                      {5, 1, "!"},        {3, 3, "z\xE2\x82\xAC!"},   {6, 0, ""},  {0, 0, ""}};
  for (const Row& row : rows) {
    const KorToken token = makeToken(Parser::Symbol, row.position, row.length);
    EXPECT_EQ(parser->stringFromToken(&token), row.expected) << row.position << ", " << row.length;
  }
}

TEST(KorTemplateParserTokens, TextOutsideTheTemplateIsARangeFailure) {
  const Ref<KorTemplateParser> parser = Parser::parserForString("abc");
  const std::int32_t largest = std::numeric_limits<std::int32_t>::max();
  const KorToken tokens[] = {makeToken(Parser::Symbol, 2, 2), makeToken(Parser::Symbol, 4, 0),
                             makeToken(Parser::Symbol, -1, 1), makeToken(Parser::Symbol, 1, -1),
                             makeToken(Parser::Symbol, largest, largest)};
  for (const KorToken& token : tokens) {
    EXPECT_EQ(raisedBy([&] { (void)parser->stringFromToken(&token); }).name, "NSRangeException")
        << token.position << ", " << token.length;
  }
}

TEST(KorTemplateParserTokens, TheNextTokenOfAClassIgnoresBrackets) {
  const AtFirstBlock at("<?f(1, 2), 3?>");
  const KorTokenList tokens = at.inside();
  KorTokenEnumerator e(tokens);
  EXPECT_EQ(Parser::nextTokenWithClassInTokens(&Parser::ArgumentSeparator, &e), &tokens[3]);
  EXPECT_EQ(e.nextObject(), &tokens[4]) << "what was found is used up";
  EXPECT_EQ(Parser::nextTokenWithClassInTokens(&Parser::ArgumentSeparator, &e), &tokens[6]);
  EXPECT_EQ(Parser::nextTokenWithClassInTokens(&Parser::ArgumentSeparator, &e), nullptr);
  EXPECT_EQ(e.nextObject(), nullptr);
}

TEST(KorTemplateParserTokens, SearchingForAClassThatIsNotThereUsesUpTheTokens) {
  const AtFirstBlock at("<?1 2 3?>");
  const KorTokenList tokens = at.inside();
  ASSERT_EQ(tokens.size(), 3U);
  KorTokenEnumerator e(tokens);
  EXPECT_EQ(Parser::nextTokenWithClassInTokens(&Parser::Symbol, &e), nullptr);
  EXPECT_EQ(e.nextObject(), nullptr);
}

TEST(KorTemplateParserTokens, ListsAreCutAtAnIndex) {
  const std::vector<int> list = {1, 2, 3};
  struct Row {
    std::int32_t index;
    std::vector<int> from;
    std::vector<int> to;
  };
  const Row rows[] = {{0, {1, 2, 3}, {}}, {1, {2, 3}, {1}}, {3, {}, {1, 2, 3}}};
  for (const Row& row : rows) {
    const ListArgument<int> from = subarrayFromIndex(ListArgument<int>(list), row.index);
    const ListArgument<int> to = subarrayToIndex(ListArgument<int>(list), row.index);
    EXPECT_EQ(std::vector<int>(from.begin(), from.end()), row.from) << row.index;
    EXPECT_EQ(std::vector<int>(to.begin(), to.end()), row.to) << row.index;
    EXPECT_FALSE(from.isAbsent());
    EXPECT_FALSE(to.isAbsent());
  }
}

TEST(KorTemplateParserTokens, ListsAreNotCutOutsideThemselves) {
  const std::vector<int> list = {1, 2, 3};
  for (const std::int32_t index :
       {-1, 4, std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()}) {
    EXPECT_EQ(raisedBy([&] { (void)subarrayFromIndex(ListArgument<int>(list), index); }).name, "NSRangeException")
        << index;
    EXPECT_EQ(raisedBy([&] { (void)subarrayToIndex(ListArgument<int>(list), index); }).name, "NSRangeException")
        << index;
  }
}

struct CheckRow {
  const char* what;
  std::function<void()> body;
  const char* condition;
};

void expectFailedChecks(const std::vector<CheckRow>& rows) {
  for (const CheckRow& row : rows) EXPECT_EQ(raisedBy(row.body).text(), failedCheck(row.condition)) << row.what;
}

TEST(KorTemplateParserTokens, ChecksTheTextThatIsParsed) {
  expectFailedChecks({
      {"compile", [] { (void)KorTemplate::compile(nullptr); }, "templateString != nil"},
      {"parserForString", [] { (void)Parser::parserForString(nullptr); }, "string != nil"},
      {"a parser of its own", [] { (void)makeRef<KorTemplateParser>(Ref<NSString>()); }, "string != nil"},
      {"a parser over a scanner", [] { (void)makeRef<KorTemplateParser>(Ref<NSString>(), scannerOver("")); },
       "string != nil"},
  });
}

TEST(KorTemplateParserTokens, ChecksTheArgumentsOfTokenOperationsInOrder) {
  const Ref<KorTemplateParser> parser = Parser::parserForString("x");
  const KorTokenList nothing = std::span<const KorToken>();
  KorTokenEnumerator e(nothing);
  expectFailedChecks({
      {"lineFromToken", [&] { (void)parser->lineFromToken(nullptr); }, "token != nil"},
      {"positionFromToken", [&] { (void)parser->positionFromToken(nullptr); }, "token != nil"},
      {"stringFromToken", [&] { (void)parser->stringFromToken(nullptr); }, "token != nil"},
      {"no class", [&] { (void)Parser::nextTokenWithClassInTokens(nullptr, &e); }, "tokenClass != nil"},
      {"neither", [] { (void)Parser::nextTokenWithClassInTokens(nullptr, nullptr); }, "tokenClass != nil"},
      {"no tokens", [] { (void)Parser::nextTokenWithClassInTokens(&Parser::Symbol, nullptr); }, "e != nil"},
  });
}

TEST(KorTemplateParserTokens, ChecksTheArgumentsOfExpressionsInOrder) {
  const Ref<KorTemplateParser> parser = Parser::parserForString("x");
  KorWorkingList list;
  std::int32_t eaten = 0;
  const KorTokenList none = std::span<const KorToken>();
  expectFailedChecks({
      {"no tokens", [&] { (void)parser->parseExpressionFromTokens(nullptr); }, "tokens != nil"},
      {"no operator", [&] { parser->promoteExpressionsWithOperatorInArray(nullptr, &list); }, "op != nil"},
      {"no operator, no list", [&] { parser->promoteExpressionsWithOperatorInArray(nullptr, nullptr); }, "op != nil"},
      {"no list", [&] { parser->promoteExpressionsWithOperatorInArray("+", nullptr); }, "expressions != nil"},
      {"a call of no tokens", [&] { (void)parser->parseFunctionCallExpressionFromTokensTokensEaten(nullptr, &eaten); },
       "tokens != nil"},
      {"a call of no tokens, no counter",
       [&] { (void)parser->parseFunctionCallExpressionFromTokensTokensEaten(nullptr, nullptr); }, "tokens != nil"},
      {"a call without a counter",
       [&] { (void)parser->parseFunctionCallExpressionFromTokensTokensEaten(none, nullptr); }, "eaten != nil"},
      {"a call without its name", [&] { (void)parser->parseFunctionCallExpressionFromTokensTokensEaten(none, &eaten); },
       "token != nil"},
  });
}

TEST(KorTemplateParserTokens, ChecksTheBlockThatIsParsed) {
  const Ref<KorTemplateParser> parser = Parser::parserForString("x");
  const Ref<KorTemplateParser> without =
      makeRef<KorTemplateParser>(NSString::stringWithUTF8("x"), Ref<KorRuleBasedScanner>());
  const KorCompoundToken block;
  expectFailedChecks({
      {"output", [&] { (void)parser->parseOutputStatementForToken(nullptr); }, "token"},
      {"expression", [&] { (void)parser->parseExpressionStatementForToken(nullptr); }, "token != nil"},
      {"if", [&] { (void)parser->parseIfStatementForToken(nullptr); }, "token != nil"},
      {"elseif", [&] { (void)parser->parseElseIfStatementForToken(nullptr); }, "token != nil"},
      {"foreach", [&] { (void)parser->parseForEachStatementForToken(nullptr); }, "token != nil"},
      {"function", [&] { (void)parser->parseFunctionDefinitionStatementForToken(nullptr); }, "token != nil"},
      {"return", [&] { (void)parser->parseReturnStatementForToken(nullptr); }, "token != nil"},
      {"any", [&] { (void)parser->parseStatementForToken(nullptr); }, "token != nil"},
      {"any, no scanner", [&] { (void)without->parseStatementForToken(nullptr); }, "token != nil"},
      {"a block, no scanner", [&] { (void)without->parseStatementForToken(&block); }, "scanner != nil"},
  });
}

}  // namespace

}  // namespace tavlo::test::parsing
