#include <gtest/gtest.h>

#include "Tests/Source/KorTemplateParserSupport.h"

namespace tavlo::test::parsing {

namespace {

using Parser = KorTemplateParser;

struct ExpressionRow {
  const char* text;
  const char* shape;
};

void expectExpressions(const std::vector<ExpressionRow>& rows) {
  for (const ExpressionRow& row : rows) EXPECT_EQ(shapeOfExpression(row.text), row.shape) << row.text;
}

TEST(KorTemplateParserExpressions, ReadOperands) {
  expectExpressions({
      {"42", "42"},
      {"+7", "7"},
      {"-7", "-7"},
      {"2.5e3", "2500"},
      {".5", "0.5"},
      {"-.25", "-0.25"},
      {"0x10", "int 0"},
      {"0x1F", "int 0"},
      {"\"a\"", "\"a\""},
      {"\"\"", "\"\""},
      {"\"a\\n\\\"b\"", "\"a\\n\\\"b\""},
      {"true", "true"},
      {"TRUE", "true"},
      {"True", "true"},
      {"false", "false"},
      {"FALSE", "false"},
      {"null", "null"},
      {"NULL", "null"},
      {"$a", "$a"},
      {"$item.name", "$item.name"},
      {"$list.@count", "$list.@count"},
      {"@@index", "$@@index"},
      {"/a\\/b/", "/a/b/"},
      {"/a\\\\\\/b\\/c/", "/a\\\\/b/c/"},
      {"//", "//"},
  });
}

TEST(KorTemplateParserExpressions, ReadCalls) {
  expectExpressions({
      {"f()", "f()"},
      {"f(1)", "f(1)"},
      {"f(1, g(2, 3), (4 + 5))", "f(1, g(2, 3), (4 + 5))"},
      {"f(1 + 2, $a == 3)", "f((1 + 2), ($a == 3))"},
      {"f((1))", "f(1)"},
      {"f(g())", "f(g())"},
      {"f(1) + f(2)", "(f(1) + f(2))"},
      {"in(1)", "in(1)"},
      {"f ( 1 )", "f(1)"},
  });
}

TEST(KorTemplateParserExpressions, FoldByPrecedenceAndFromTheLeft) {
  expectExpressions({
      {"1 + 2 * 3", "(1 + (2 * 3))"},
      {"10 - 2 + 3", "(10 - (2 + 3))"},
      {"10 - 2 - 3", "((10 - 2) - 3)"},
      {"8 / 2 * 2", "(8 / (2 * 2))"},
      {"7 % 4 * 2", "((7 % 4) * 2)"},
      {"2 * 7 % 4", "(2 * (7 % 4))"},
      {"$a < 1 == 0", "($a < (1 == 0))"},
      {"$a || $b && $c", "($a || ($b && $c))"},
      {"$x = 1 + 2", "(($x = 1) + 2)"},
      {"$x = (1 + 2)", "($x = (1 + 2))"},
      {"$a = $b = 3", "(($a = $b) = 3)"},
      {"(1 + 2) * 3", "((1 + 2) * 3)"},
      {"((1))", "1"},
      {"1 + 2 - 3 + 4", "((1 + 2) - (3 + 4))"},
      {"$a =~ /b/ && $c", "(($a =~ /b/) && $c)"},
  });
}

TEST(KorTemplateParserExpressions, EveryOperatorIsALevelOfItsOwn) {
  std::vector<std::string> levels = {"="};
  const std::vector<std::string>& operators = Parser::binaryOperators();
  levels.insert(levels.end(), operators.begin(), operators.end());
  for (std::size_t tight = 0; tight < levels.size(); ++tight) {
    for (std::size_t loose = tight; loose < levels.size(); ++loose) {
      const std::string& one = levels[tight];
      const std::string& other = levels[loose];
      EXPECT_EQ(shapeOfExpression("$a " + one + " $b " + other + " $c"), "(($a " + one + " $b) " + other + " $c)");
      if (tight == loose) continue;
      EXPECT_EQ(shapeOfExpression("$a " + other + " $b " + one + " $c"), "($a " + other + " ($b " + one + " $c))");
    }
  }
}

TEST(KorTemplateParserExpressions, ReadBoundedIntegersFromTokensMadeByHand) {
  struct Row {
    const char* text;
    const char* shape;
  };
  const Row rows[] = {{"2147483647", "int 2147483647"},
                      {"2147483648", "int 2147483647"},
                      {"-2147483648", "int -2147483648"},
                      {"-2147483649", "int -2147483648"},
                      {"99999999999999999999", "int 2147483647"},
                      {"+12", "int 12"},
                      {"12ab", "int 12"},
                      {"0x1F", "int 0"}};
  for (const Row& row : rows) {
    const Ref<KorTemplateParser> parser = Parser::parserForString(row.text);
    const auto length = static_cast<std::int32_t>(std::string_view(row.text).size());
    const KorToken token = makeToken(Parser::IntegralNumericLiteral, 0, length);
    EXPECT_EQ(shapeOf(parser->parseExpressionFromTokens({token})), row.shape) << row.text;
  }
}

TEST(KorTemplateParserExpressions, ABooleanTokenOfAnyOtherTextIsFalse) {
  const Ref<KorTemplateParser> parser = Parser::parserForString("trueyesTrUe");
  EXPECT_EQ(shapeOf(parser->parseExpressionFromTokens({makeToken(Parser::BooleanKeyword, 0, 4)})), "true");
  EXPECT_EQ(shapeOf(parser->parseExpressionFromTokens({makeToken(Parser::BooleanKeyword, 4, 3)})), "false");
  EXPECT_EQ(shapeOf(parser->parseExpressionFromTokens({makeToken(Parser::BooleanKeyword, 7, 4)})), "true");
}

TEST(KorTemplateParserExpressions, NumbersAreDoublesAndHexadecimalTextIsAnInteger) {
  const auto kindOf = [](const char* text) {
    const Ref<KorTemplateExpression> expression = AtFirstBlock("<?" + std::string(text) + "?>").expression();
    return dynamic_cast<KorTemplateLiteralExpression&>(*expression).literal().kind();
  };
  EXPECT_EQ(kindOf("42"), ValueKind::Double);
  EXPECT_EQ(kindOf("4.5"), ValueKind::Double);
  EXPECT_EQ(kindOf("0x10"), ValueKind::Signed);
  EXPECT_EQ(kindOf("true"), ValueKind::Boolean);
}

TEST(KorTemplateParserExpressions, ACallTellsHowManyTokensItHasEaten) {
  struct Row {
    const char* text;
    std::int32_t eaten;
    const char* shape;
  };
  const Row rows[] = {{"f() + 1", 2, "f()"}, {"f(1, (2)) g(3)", 7, "f(1, 2)"}, {"f(1))", 3, "f(1)"}};
  for (const Row& row : rows) {
    const AtFirstBlock at("<?" + std::string(row.text) + "?>");
    std::int32_t eaten = 0;
    const auto call = at.parser().parseFunctionCallExpressionFromTokensTokensEaten(at.inside(), &eaten);
    EXPECT_EQ(eaten, row.eaten) << row.text;
    EXPECT_EQ(shapeOf(Ref<KorTemplateExpression>(call)), row.shape) << row.text;
  }
}

TEST(KorTemplateParserExpressions, ACallTellsHowManyTokensItHasEatenAlsoWhereAnArgumentIsWrong) {
  struct Row {
    const char* text;
    std::int32_t eaten;
  };
  const Row rows[] = {{"f(1 2) + 3", 4}, {"f(1, )", 4}, {"f(1", -1}, {"f 1", -1}};
  for (const Row& row : rows) {
    const AtFirstBlock at("<?" + std::string(row.text) + "?>");
    std::int32_t eaten = -1;
    EXPECT_ANY_THROW(at.parser().parseFunctionCallExpressionFromTokensTokensEaten(at.inside(), &eaten)) << row.text;
    EXPECT_EQ(eaten, row.eaten) << row.text;
  }
}

TEST(KorTemplateParserExpressions, AnAssignmentTokenIsAnOperatorByItsText) {
  const Ref<KorTemplateParser> parser = Parser::parserForString("1+2");
  const std::vector<KorToken> tokens = {makeToken(Parser::NonIntegralNumericLiteral, 0, 1),
                                        makeToken(Parser::AssignmentOperator, 1, 1),
                                        makeToken(Parser::NonIntegralNumericLiteral, 2, 1)};
  EXPECT_EQ(shapeOf(parser->parseExpressionFromTokens(tokens)), "(1 + 2)");
}

TEST(KorTemplateParserExpressions, AnOperatorTokenOfNoOperatorsTextIsNeverFolded) {
  const Ref<KorTemplateParser> parser = Parser::parserForString("1?2");
  const std::vector<KorToken> tokens = {makeToken(Parser::NonIntegralNumericLiteral, 0, 1),
                                        makeToken(Parser::BinaryOperator, 1, 1, 4),
                                        makeToken(Parser::NonIntegralNumericLiteral, 2, 1, 5)};
  EXPECT_EQ(raisedBy([&] { (void)parser->parseExpressionFromTokens(tokens); }).text(),
            syntaxError(5, "Invalid expression"));
}

TEST(KorTemplateParserExpressions, TheParityOfTheListDecidesTheMessage) {
  struct Row {
    const char* text;
    const char* message;
  };
  const Row rows[] = {
      {"'a'", "'a'. Expected literal, variable or sub-expression"},
      {"1 'a'", "'a'. Expected operator"},
      {"1 2 'a'", "'a'. Expected literal, variable or sub-expression"},
      {"1 + 'a'", "'a'. Expected literal, variable or sub-expression"},
      {"+ 'a'", "'a'. Expected operator"},
      {"(1 + 2) #", "'#'. Expected operator"},
      {"(2, 3)", "','. Expected operator"},
      {"(1 2, 3)", "','. Expected literal, variable or sub-expression"},
      {")", "')'. Expected literal, variable or sub-expression"},
      {"1 if", "'if'. Expected operator"},
      {"f(1) , 2", "','. Expected operator"},
      {"$", "'$'. Expected literal, variable or sub-expression"},
      {"1 \xF0\x9F\x98\x80", "'\xF0\x9F\x98\x80'. Expected operator"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(raisedBy([&] { (void)shapeOfExpression(row.text); }).text(), syntaxError(1, row.message)) << row.text;
  }
}

TEST(KorTemplateParserExpressions, AMissingTokenFailsTheCheckOfTheLineLookup) {
  for (const char* text : {"", "f(1,)", "f(,1)", "f(1,,2)", "f(,)", "f", "1 + f", "(f)", "f(g)", "$a = f"}) {
    EXPECT_EQ(raisedBy([&] { (void)shapeOfExpression(text); }).text(), failedCheck("token != nil")) << text;
  }
}

TEST(KorTemplateParserExpressions, TheFirstErrorIsTheOneThatIsMetFirst) {
  struct Row {
    const char* text;
    const char* message;
  };
  const Row rows[] = {
      {"+ (1", "Missing closing parenthesis"},
      {"() + ()", "Empty parenthesis"},
      {"f(+) (1", "Expression required to left of + operator"},
      {"(1 2) + #", "Invalid expression"},
      {"1 - - 2 * * 3", "Expression required to right of * operator"},
      {"1 + = 2", "Expression required to left of = operator"},
      {"- 1 + 2 +", "Expression required to right of + operator"},
      {"* $a %", "Expression required to right of % operator"},
      {"f 1 + (", "Function call missing opening parenthesis for argument list"},
      {"f(1, (2)", "Function call missing closing parenthesis for argument list"},
      {"f((1)", "Function call missing closing parenthesis for argument list"},
      {"((1)", "Missing closing parenthesis"},
      {"(f 1", "Missing closing parenthesis"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(raisedBy([&] { (void)shapeOfExpression(row.text); }).text(), syntaxError(1, row.message)) << row.text;
  }
}

TEST(KorTemplateParserExpressions, AFailedExpressionLeavesNothingBehind) {
  const AtFirstBlock bad("<? 1 + 2 + (3 * (4 'x')) ?>");
  const AtFirstBlock good("<? 5 ?>");
  EXPECT_EQ(raisedBy([&] { (void)bad.expression(); }).text(), syntaxError(1, "'x'. Expected operator"))
      << "the list of the innermost parentheses counts";
  bad.parser().setCurrentBlockToken(nullptr);
  const KorToken five = makeToken(Parser::NonIntegralNumericLiteral, 3, 1);
  EXPECT_EQ(shapeOf(bad.parser().parseExpressionFromTokens({five})), "1");
  EXPECT_EQ(shapeOf(good.expression()), "5");
}

TEST(KorTemplateParserExpressions, APatternThatDoesNotCompileIsRefused) {
  const Raised raised = raisedBy([] { (void)shapeOfExpression("$a =~ /(/"); });
  EXPECT_EQ(raised.name, "NSInvalidArgumentException");
  EXPECT_NE(raised.reason.find("/(/"), std::string::npos) << raised.reason;
}

}  // namespace

}  // namespace tavlo::test::parsing
