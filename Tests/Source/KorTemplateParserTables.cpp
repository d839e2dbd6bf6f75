#include <gtest/gtest.h>

#include <set>

#include "Lexwright/KorPartitionRule.h"
#include "Lexwright/RuleList.h"
#include "Tests/Source/KorTemplateParserSupport.h"

namespace tavlo::test::parsing {

namespace {

TEST(KorTemplateParserTables, OperatorsStandInTheOrderOfTheirPrecedence) {
  const std::vector<std::string> expected = {
      "%", "*", "/", "+", "-", "==", "!=", "=~", "<", ">", "<=", ">=", "&&", "||"};
  EXPECT_EQ(KorTemplateParser::binaryOperators(), expected);
}

TEST(KorTemplateParserTables, ControlKeywordsStandInOrder) {
  const std::vector<std::string> expected = {"if",         "elseif",   "else",        "endif", "foreach",
                                             "endforeach", "function", "endfunction", "return"};
  EXPECT_EQ(KorTemplateParser::controlKeywords(), expected);
}

TEST(KorTemplateParserTables, HaveNineteenDistinctTokenClasses) {
  std::set<const KorTokenClass*> distinct;
  for (const NamedTokenClass& row : namedTokenClasses()) distinct.insert(row.tokenClass);
  EXPECT_EQ(namedTokenClasses().size(), 19U);
  EXPECT_EQ(distinct.size(), 19U);
}

TEST(KorTemplateParserTables, ShareOneClosureOfParentheses) {
  const KorTemplateClosure& closure = KorTemplateParser::parenthesisClosure();
  EXPECT_EQ(closure.startClass(), &KorTemplateParser::ParenthesisStart);
  EXPECT_EQ(closure.endClass(), &KorTemplateParser::ParenthesisEnd);
  EXPECT_EQ(&closure, &KorTemplateParser::parenthesisClosure());
}

TEST(KorTemplateParserTables, HaveThreeScannerRulesOfWhichTheSecondMakesBlocks) {
  const std::vector<Ref<KorScannerRule>>& rules = KorTemplateParser::scannerRules().rules();
  ASSERT_EQ(rules.size(), 3U);
  for (const Ref<KorScannerRule>& rule : rules) EXPECT_EQ(rule->tokenClass(), nullptr);
  EXPECT_FALSE(rules[0]->makesCompoundTokens());
  EXPECT_TRUE(rules[1]->makesCompoundTokens());
  EXPECT_FALSE(rules[2]->makesCompoundTokens());
}

TEST(KorTemplateParserTables, AreBuiltOnce) {
  const auto* operators = &KorTemplateParser::binaryOperators();
  const auto* keywords = &KorTemplateParser::controlKeywords();
  const auto* rules = &KorTemplateParser::scannerRules();
  KorTemplateParser::initialize();
  (void)KorTemplateParser::parserForString("x");
  EXPECT_EQ(&KorTemplateParser::binaryOperators(), operators);
  EXPECT_EQ(&KorTemplateParser::controlKeywords(), keywords);
  EXPECT_EQ(&KorTemplateParser::scannerRules(), rules);
}

struct OperatorRow {
  const char* text;
  std::int32_t value;
};

TEST(KorTemplateParserTables, MapEveryOperatorToItsValue) {
  const OperatorRow rows[] = {{"=", 0}, {"==", 1}, {"!=", 2}, {"=~", 3}, {"<", 4},  {">", 5},   {"<=", 6}, {">=", 7},
                              {"+", 8}, {"-", 9},  {"*", 10}, {"/", 11}, {"%", 12}, {"&&", 13}, {"||", 14}};
  for (const OperatorRow& row : rows) EXPECT_EQ(KorTemplateParser::operatorForString(row.text), row.value) << row.text;
}

TEST(KorTemplateParserTables, RefuseEveryOtherTextAsAnOperator) {
  for (const char* text : {"**", "", " ", "= ", " =", "===", "&", "|", "!", "~", "=<", "and", "\xEF\xBC\x9D"}) {
    EXPECT_EQ(raisedBy([&] { (void)KorTemplateParser::operatorForString(text); }).text(),
              "NSInvalidArgumentException: Unrecognized operator")
        << text;
  }
  EXPECT_EQ(raisedBy([] { (void)KorTemplateParser::operatorForString(nullptr); }).text(),
            "NSInvalidArgumentException: Unrecognized operator");
  EXPECT_EQ(raisedBy([] { (void)KorTemplateParser::operatorForString(std::string("=\0", 2)); }).text(),
            "NSInvalidArgumentException: Unrecognized operator");
}

}  // namespace

}  // namespace tavlo::test::parsing
