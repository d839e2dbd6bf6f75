#include <gtest/gtest.h>

#include "Tests/Source/KorTemplateParserSupport.h"

namespace tavlo::test::parsing {

namespace {

struct TokenRow {
  const char* inside;  // of a block
  const char* tokens;  // without the closing tag
};

void expectTokens(const std::vector<TokenRow>& rows) {
  for (const TokenRow& row : rows) {
    const std::string expected = row.tokens;
    EXPECT_EQ(tokensOf("<?" + std::string(row.inside) + "?>"),
              expected + (expected.empty() ? "" : " ") + "BlockEndTag:?>")
        << row.inside;
  }
}

TEST(ScannerTokens, Numbers) {
  expectTokens({
      {"42", "NonIntegralNumericLiteral:42"},
      {"2.5e3", "NonIntegralNumericLiteral:2.5e3"},
      {"2.5E3", "NonIntegralNumericLiteral:2.5E3"},
      {"-5", "NonIntegralNumericLiteral:-5"},
      {"+5", "NonIntegralNumericLiteral:+5"},
      {".5", "NonIntegralNumericLiteral:.5"},
      {"-.5", "NonIntegralNumericLiteral:-.5"},
      {"- 5", "BinaryOperator:- NonIntegralNumericLiteral:5"},
      {"--5", "BinaryOperator:- NonIntegralNumericLiteral:-5"},
      {"5.", "NonIntegralNumericLiteral:5 Token:."},
      {"5.x", "NonIntegralNumericLiteral:5. Symbol:x"},
      {"1.5.2", "NonIntegralNumericLiteral:1.5 NonIntegralNumericLiteral:.2"},
      {"1.5x", "NonIntegralNumericLiteral:1. Symbol:5x"},
      {"12e5", "NonIntegralNumericLiteral:12e5"},
      {"1e5", "Symbol:1e5"},
      {"1.5e", "NonIntegralNumericLiteral:1. Symbol:5e"},
      {"1.5e+3", "NonIntegralNumericLiteral:1. Symbol:5e NonIntegralNumericLiteral:+3"},
      {"0x1F", "IntegralNumericLiteral:0x1F"},
      {"0x1g", "Symbol:0x1g"},
      {"0X1F", "Symbol:0X1F"},
      {"-0x1F", "BinaryOperator:- IntegralNumericLiteral:0x1F"},
      {"12ab", "Symbol:12ab"},
      {"12_", "Symbol:12_"},
      {"$a-1", "Variable:$a NonIntegralNumericLiteral:-1"},
      {"$a - 1", "Variable:$a BinaryOperator:- NonIntegralNumericLiteral:1"},
      {"1-1", "NonIntegralNumericLiteral:1 NonIntegralNumericLiteral:-1"},
      {"\xD9\xA3\xD9\xA4", "NonIntegralNumericLiteral:\xD9\xA3\xD9\xA4"},
      {"3\xC3\xA9", "Symbol:3\xC3\xA9"},
  });
}

TEST(ScannerTokens, TextLiterals) {
  expectTokens({
      {"\"a\"", "StringLiteral:a"},
      {"\"\"", "StringLiteral:"},
      {"'a'", "CharLiteral:a"},
      {"''", "CharLiteral:"},
      {"'\"'", "CharLiteral:\""},
      {"\"'\"", "StringLiteral:'"},
      {"\"a\\\"b\"", "StringLiteral:a\\\"b"},
      {"'a\\'b'", "CharLiteral:a\\'b"},
      {"\"a\\\\\" 1 \"", "StringLiteral:a\\\\\" 1 "},
      {"\"a ?> b\"", "StringLiteral:a ?> b"},
      {"\"a\"b", "StringLiteral:a Symbol:b"},
      {"\"a\nb\"", "Token:\" Symbol:a Symbol:b Token:\""},
      {"\"a\rb\"", "Token:\" Symbol:a Symbol:b Token:\""},
      {"\"a\xE2\x80\xA8\x62\"", "StringLiteral:a\xE2\x80\xA8\x62"},
      {"'a", "Token:' Symbol:a"},
      {"\\\"\"", "Token:\\ StringLiteral:"},
      {"\"/a/\"", "StringLiteral:/a/"},
  });
}

TEST(ScannerTokens, RegularExpressionsAndDivisions) {
  expectTokens({
      {"/a/", "RegexStringLiteral:/a/"},
      {"//", "RegexStringLiteral://"},
      {"/a?>b/", "RegexStringLiteral:/a?>b/"},
      {"/a\\/b/", "RegexStringLiteral:/a\\/b/"},
      {"/a/ && 1", "RegexStringLiteral:/a/ BinaryOperator:&& NonIntegralNumericLiteral:1"},
      {"/a/ || 1", "RegexStringLiteral:/a/ BinaryOperator:|| NonIntegralNumericLiteral:1"},
      {"/a/ == 1", "RegexStringLiteral:/a/ BinaryOperator:== NonIntegralNumericLiteral:1"},
      {"/a/ != 1", "RegexStringLiteral:/a/ BinaryOperator:!= NonIntegralNumericLiteral:1"},
      {"/a/<1", "RegexStringLiteral:/a/ BinaryOperator:< NonIntegralNumericLiteral:1"},
      {"/a/>=1", "RegexStringLiteral:/a/ BinaryOperator:>= NonIntegralNumericLiteral:1"},
      {"/a/)", "RegexStringLiteral:/a/ ParenthesisEnd:)"},
      {"/a/, 1", "RegexStringLiteral:/a/ ArgumentSeparator:, NonIntegralNumericLiteral:1"},
      {"/a/\n1", "RegexStringLiteral:/a/ NonIntegralNumericLiteral:1"},
      {"/a/ \n 1", "RegexStringLiteral:/a/ NonIntegralNumericLiteral:1"},
      {"/a/ 1 /b/", "RegexStringLiteral:/a/ 1 /b/"},
      {"$a / 2 / $b", "Variable:$a BinaryOperator:/ NonIntegralNumericLiteral:2 BinaryOperator:/ Variable:$b"},
      {"1 /a/ 1", "NonIntegralNumericLiteral:1 BinaryOperator:/ Symbol:a BinaryOperator:/ NonIntegralNumericLiteral:1"},
      {"/a\n/", "BinaryOperator:/ Symbol:a BinaryOperator:/"},
      {"10 / (4 / 2)",
       "NonIntegralNumericLiteral:10 BinaryOperator:/ ParenthesisStart:( NonIntegralNumericLiteral:4 "
       "BinaryOperator:/ NonIntegralNumericLiteral:2 ParenthesisEnd:)"},
      {"10 / f(4 /) ", "NonIntegralNumericLiteral:10 RegexStringLiteral:/ f(4 / ParenthesisEnd:)"},
  });
}

TEST(ScannerTokens, Words) {
  expectTokens({
      {"in", "Symbol:in"},
      {"TRUE", "BooleanKeyword:TRUE"},
      {"false", "BooleanKeyword:false"},
      {"Null", "NullKeyword:Null"},
      {"ENDIF", "ControlKeyword:ENDIF"},
      {"elseif", "ControlKeyword:elseif"},
      {"else if", "ControlKeyword:else ControlKeyword:if"},
      {"iffy", "Symbol:iffy"},
      {"trueValue", "Symbol:trueValue"},
      {"nulls", "Symbol:nulls"},
      {"if_", "Symbol:if_"},
      {"if1", "Symbol:if1"},
      {"if\xC3\xA9", "Symbol:if\xC3\xA9"},
      {"\xC3\xA9if", "Symbol:\xC3\xA9if"},
      {"if\xCC\x81", "Symbol:if\xCC\x81"},
      {"el\xC5\xBF\x65", "Symbol:el\xC5\xBF\x65"},
      {"if(", "ControlKeyword:if ParenthesisStart:("},
      {"1.if", "NonIntegralNumericLiteral:1. ControlKeyword:if"},
      {"_", "Symbol:_"},
      {"\xE6\xBC\xA2", "Symbol:\xE6\xBC\xA2"},
  });
}

TEST(ScannerTokens, Variables) {
  expectTokens({
      {"$user.name", "Variable:$user.name"},
      {"$list.@count", "Variable:$list.@count"},
      {"$if", "Variable:$if"},
      {"$a.", "Variable:$a."},
      {"$.", "Variable:$."},
      {"$1", "Variable:$1"},
      {"$\xC3\xA9", "Variable:$\xC3\xA9"},
      {"$", "Token:$"},
      {"$$a", "Token:$ Variable:$a"},
      {"$a$b", "Variable:$a Variable:$b"},
      {"@@index", "IntrinsicVariable:@@index"},
      {"@@a.b", "IntrinsicVariable:@@a Token:. Symbol:b"},
      {"@@", "Token:@ Token:@"},
      {"@@@a", "Token:@ IntrinsicVariable:@@a"},
      {"@a", "Token:@ Symbol:a"},
  });
}

TEST(ScannerTokens, OperatorsAndPunctuation) {
  expectTokens({
      {"=", "AssignmentOperator:="},
      {"==", "BinaryOperator:=="},
      {"===", "BinaryOperator:== AssignmentOperator:="},
      {"=~", "BinaryOperator:=~"},
      {"<= < >= >", "BinaryOperator:<= BinaryOperator:< BinaryOperator:>= BinaryOperator:>"},
      {"=<", "AssignmentOperator:= BinaryOperator:<"},
      {"!= !", "BinaryOperator:!= Token:!"},
      {"&& &", "BinaryOperator:&& Token:&"},
      {"||||", "BinaryOperator:|| BinaryOperator:||"},
      {"|", "Token:|"},
      {"% * + -", "BinaryOperator:% BinaryOperator:* BinaryOperator:+ BinaryOperator:-"},
      {"(,)", "ParenthesisStart:( ArgumentSeparator:, ParenthesisEnd:)"},
      {"#", "Token:#"},
      {"##", "Token:# Token:#"},
      {"\xF0\x9F\x98\x80", "Token:\xF0\x9F\x98\x80"},
      {"? >", "Token:? BinaryOperator:>"},
      {"<?", "BinaryOperator:< Token:?"},
  });
}

TEST(ScannerTokens, WhiteSpaceIsWhatUnicodeCallsIt) {
  for (const char* space :
       {" ", "\t", "\n", "\v", "\f", "\r", "\r\n", "\xC2\x85", "\xC2\xA0", "\xE1\x9A\x80", "\xE2\x80\x80",
        "\xE2\x80\xA8", "\xE2\x80\xA9", "\xE2\x80\xAF", "\xE2\x81\x9F", "\xE3\x80\x80"}) {
    expectTokens({{("a" + std::string(space) + "b").c_str(), "Symbol:a Symbol:b"}});
  }
  for (const char* other : {"\xE2\x80\x8B", "\xEF\xBB\xBF"}) {  // of no width, and no white space
    expectTokens({{other, ("Token:" + std::string(other)).c_str()}});
  }
}

}  // namespace

}  // namespace tavlo::test::parsing
