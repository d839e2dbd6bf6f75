#include <gtest/gtest.h>

#include "Tests/Differential/PlainExpressionParser.h"
#include "Tests/Differential/RandomText.h"
#include "Tests/Differential/WithoutAddresses.h"
#include "Tests/Source/KorTemplateParserSupport.h"

namespace tavlo::test {

namespace {

using Parser = KorTemplateParser;

struct Piece {
  const KorTokenClass* tokenClass;
  std::string text;
};

const std::vector<Piece>& operands() {
  static const std::vector<Piece> pieces = {
      {&Parser::NonIntegralNumericLiteral, "42"},
      {&Parser::NonIntegralNumericLiteral, "-2.5e3"},
      {&Parser::IntegralNumericLiteral, "0x1F"},
      {&Parser::IntegralNumericLiteral, "99999999999"},
      {&Parser::StringLiteral, "text"},
      {&Parser::StringLiteral, ""},
      {&Parser::RegexStringLiteral, "/a\\/b\\\\/"},
      {&Parser::BooleanKeyword, "TRUE"},
      {&Parser::BooleanKeyword, "false"},
      {&Parser::NullKeyword, "null"},
      {&Parser::IntrinsicVariable, "@@index"},
      {&Parser::Variable, "$a"},
      {&Parser::Variable, "$item.name"},
  };
  return pieces;
}

const std::vector<Piece>& strangers() {
  static const std::vector<Piece> pieces = {
      {&Parser::CharLiteral, "c"},     {&Parser::ArgumentSeparator, ","},
      {&Parser::ParenthesisEnd, ")"},  {&Parser::ParenthesisStart, "("},
      {&Parser::ControlKeyword, "if"}, {&Parser::BlockEndTag, "?>"},
      {&Parser::BlockStartTag, "<?"},  {&Parser::Token, "#"},
      {&Parser::Symbol, "f"},
  };
  return pieces;
}

const std::vector<Piece>& operators() {
  static const std::vector<Piece> pieces = [] {
    std::vector<Piece> all = {{&Parser::AssignmentOperator, "="}};
    for (const std::string& op : Parser::binaryOperators()) all.push_back({&Parser::BinaryOperator, op});
    return all;
  }();
  return pieces;
}

const Piece kOpen = {&Parser::ParenthesisStart, "("};
const Piece kClose = {&Parser::ParenthesisEnd, ")"};

// An expression without mistakes.
void appendExpression(Chooser& chooser, std::size_t depth, std::vector<Piece>& out) {
  for (std::size_t left = 1 + chooser.below(5); left > 0; --left) {
    const bool isDeep = depth > 0 && chooser.oneIn(3);
    if (isDeep && chooser.oneIn(2)) {
      out.push_back(kOpen);
      appendExpression(chooser, depth - 1, out);
      out.push_back(kClose);
    } else if (isDeep) {
      out.push_back({&Parser::Symbol, "f"});
      out.push_back(kOpen);
      for (std::size_t arguments = chooser.below(4); arguments > 0; --arguments) {
        appendExpression(chooser, depth - 1, out);
        if (arguments > 1) out.push_back({&Parser::ArgumentSeparator, ","});
      }
      out.push_back(kClose);
    } else {
      out.push_back(chooser.from(operands()));
    }
    if (left > 1) out.push_back(chooser.from(operators()));
  }
}

Piece anyPiece(Chooser& chooser) {
  switch (chooser.below(4)) {
    case 0:
      return chooser.from(operators());
    case 1:
      return chooser.from(operands());
    default:
      return chooser.from(strangers());
  }
}

void mutate(Chooser& chooser, std::vector<Piece>& pieces) {
  const auto at = pieces.begin() + static_cast<std::ptrdiff_t>(chooser.below(pieces.size()));
  switch (chooser.below(3)) {
    case 0:
      pieces.erase(at);
      break;
    case 1:
      *at = anyPiece(chooser);
      break;
    default:
      pieces.insert(at, anyPiece(chooser));
      break;
  }
}

// The pieces as a text, some on lines of their own, with a token for each.
struct Stream {
  std::string text;
  std::vector<KorToken> tokens;
};

Stream streamOf(Chooser& chooser, const std::vector<Piece>& pieces) {
  Stream stream;
  std::int32_t line = 0;
  for (const Piece& piece : pieces) {
    const bool breaks = chooser.oneIn(6);
    line += breaks ? 1 : 0;
    stream.text += breaks ? '\n' : ' ';
    stream.tokens.push_back(parsing::makeToken(*piece.tokenClass, static_cast<std::int32_t>(stream.text.size()),
                                               static_cast<std::int32_t>(piece.text.size()), line));
    stream.text += piece.text;
  }
  return stream;
}

// A tree by its description and its shape, or what was raised instead.
std::string outcomeOf(const Ref<KorTemplateExpression>& expression) {
  return withoutAddresses(expression->description()) + " " + parsing::shapeOf(expression);
}

std::string plainOutcome(const Stream& stream) {
  try {
    return outcomeOf(parsePlainly(stream.text, stream.tokens));
  } catch (const PlainError& error) {
    return error.name + ": " + error.reason;
  }
}

std::string outcome(const Stream& stream) {
  std::string result;
  const parsing::Raised raised = parsing::raisedBy(
      [&] { result = outcomeOf(Parser::parserForString(stream.text)->parseExpressionFromTokens(stream.tokens)); });
  return raised.name.empty() ? result : raised.text();
}

std::size_t countTrees(Chooser& chooser, const std::vector<Piece>& pieces) {
  const Stream stream = streamOf(chooser, pieces);
  const std::string expected = plainOutcome(stream);
  EXPECT_EQ(outcome(stream), expected) << readable(stream.text);
  return expected.starts_with("{") || expected.starts_with("<") ? 1 : 0;
}

TEST(ExpressionDifferential, ExpressionsWithoutMistakes) {
  Chooser chooser(11);
  std::size_t trees = 0;
  for (int time = 0; time < 10'000 && !testing::Test::HasFailure(); ++time) {
    std::vector<Piece> pieces;
    appendExpression(chooser, 3, pieces);
    trees += countTrees(chooser, pieces);
  }
  EXPECT_EQ(trees, 10'000U);
}

TEST(ExpressionDifferential, ExpressionsWithAFewMistakes) {
  Chooser chooser(12);
  std::size_t trees = 0;
  for (int time = 0; time < 20'000 && !testing::Test::HasFailure(); ++time) {
    std::vector<Piece> pieces;
    appendExpression(chooser, 3, pieces);
    for (std::size_t mistakes = 1 + chooser.below(3); mistakes > 0 && !pieces.empty(); --mistakes) {
      mutate(chooser, pieces);
    }
    trees += countTrees(chooser, pieces);
  }
  EXPECT_GT(trees, 500U);
}

TEST(ExpressionDifferential, AnyTokens) {
  Chooser chooser(13);
  std::size_t trees = 0;
  for (int time = 0; time < 20'000 && !testing::Test::HasFailure(); ++time) {
    std::vector<Piece> pieces;
    for (std::size_t left = chooser.below(9); left > 0; --left) pieces.push_back(anyPiece(chooser));
    trees += countTrees(chooser, pieces);
  }
  EXPECT_GT(trees, 100U);
}

// Every order of two and three operators.
TEST(ExpressionDifferential, AllOrdersOfThreeOperators) {
  Chooser chooser(14);
  const Piece operand = {&Parser::Variable, "$a"};
  for (const Piece& first : operators()) {
    for (const Piece& second : operators()) {
      EXPECT_EQ(countTrees(chooser, {operand, first, operand, second, operand}), 1U);
      for (const Piece& third : operators()) {
        EXPECT_EQ(countTrees(chooser, {operand, first, operand, second, operand, third, operand}), 1U);
      }
    }
  }
}

}  // namespace

}  // namespace tavlo::test
