#include <gtest/gtest.h>

#include <map>

#include "Tests/Source/KorTemplateParserSupport.h"

namespace tavlo::test::parsing {

namespace {

using Parser = KorTemplateParser;

// Equal to every operand of its own kind.
class Twin final : public KorTemplateExpression {
 public:
  explicit Twin(char letter) : letter_(letter) {}

  Value evaluateWithEnvironment(KorTemplateEnvironment* /*environment*/) override { return Value::null(); }
  Ref<KorTemplateExpression> copyWithZone(NSZone* /*zone*/) const override { return makeRef<Twin>(letter_); }
  bool isEqual(const NSObject& other, std::int32_t /*depth*/) const override {
    return dynamic_cast<const Twin*>(&other) != nullptr;
  }
  std::size_t hash() const override { return 1; }
  const char* className() const override { return "Twin"; }

 private:
  char letter_;
};

// A working list written as text: letters are operands (the same letter the same object, capitals twins that are equal
// to one another), everything else is an operator of one character.
class HandMadeList {
 public:
  explicit HandMadeList(const std::string& text) : parser_(Parser::parserForString(text)) {
    tokens_.reserve(text.size());
    for (std::size_t at = 0; at < text.size(); ++at) {
      const char letter = text[at];
      const bool isOperand = (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z');
      if (isOperand) {
        list_.push_back({operand(letter), nullptr});
      } else {
        tokens_.push_back(makeToken(Parser::BinaryOperator, static_cast<std::int32_t>(at), 1, 7));
        list_.push_back({nullptr, &tokens_.back()});
      }
    }
  }

  void promote(const char* op) { parser_->promoteExpressionsWithOperatorInArray(op, &list_); }

  std::string shape() const {
    std::string result;
    for (const KorWorkingItem& item : list_) {
      result += result.empty() ? "" : " ";
      if (item.expression == nullptr && item.operatorToken == nullptr) {
        result += "nothing";
      } else {
        result += item.expression != nullptr ? shapeOf(item.expression) : parser_->stringFromToken(item.operatorToken);
      }
    }
    return result;
  }

 private:
  Ref<KorTemplateExpression> operand(char letter) {
    Ref<KorTemplateExpression>& known = operands_[letter];
    if (known == nullptr && letter >= 'a')
      known = KorTemplateVariableExpression::expressionWithVariable(std::string(1, letter));
    if (known == nullptr) known = makeRef<Twin>(letter);
    return known;
  }

  Ref<KorTemplateParser> parser_;
  std::vector<KorToken> tokens_;
  std::map<char, Ref<KorTemplateExpression>> operands_;
  KorWorkingList list_;
};

TEST(KorTemplateParserPromotion, FoldsOneOperatorAndLeavesTheOthers) {
  struct Row {
    const char* list;
    const char* op;
    const char* shape;
  };
  const Row rows[] = {
      {"a+b", "+", "($a + $b)"},
      {"a+b+c", "+", "(($a + $b) + $c)"},
      {"a+b*c+d", "+", "($a + $b) * ($c + $d)"},
      {"a+b", "*", "$a + $b"},
      {"a", "+", "$a"},
      {"", "+", ""},
      {"ab", "+", "$a $b"},
      {"ab+cd", "+", "$a ($b + $c) $d"},
      {"a=b", "=", "($a = $b)"},
      {"a*+b", "-", "$a * + $b"},
  };
  for (const Row& row : rows) {
    HandMadeList list(row.list);
    list.promote(row.op);
    EXPECT_EQ(list.shape(), row.shape) << row.list << " by " << row.op;
  }
}

TEST(KorTemplateParserPromotion, RemovesEveryItemThatEqualsAnOperand) {
  struct Row {
    const char* what;
    const char* list;
    const char* op;
    const char* shape;
  };
  const Row rows[] = {
      {"the same operand on both sides", "a+a", "+", "($a + $a)"},
      {"the left operand again behind", "a+b*a", "+", "($a + $b) *"},
      {"the right operand again behind", "a+b*b", "+", "($a + $b) *"},
      {"the left operand again before", "a*a+b", "+", "* ($a + $b)"},
      {"an operand that stands twice in no occurrence", "a*a+b-c", "-", "$a * $a + ($b - $c)"},
      {"twins on both sides", "A+B", "+", "(Twin + Twin)"},
      {"a twin elsewhere", "A+b*C", "+", "(Twin + $b) *"},
      {"twins that are not touched", "A*B-c+d", "+", "Twin * Twin - ($c + $d)"},
  };
  for (const Row& row : rows) {
    HandMadeList list(row.list);
    list.promote(row.op);
    EXPECT_EQ(list.shape(), row.shape) << row.what;
  }
}

TEST(KorTemplateParserPromotion, WantsAnExpressionOnBothSidesAndLooksLeftFirst) {
  struct Row {
    const char* list;
    const char* op;
    const char* side;
  };
  const Row rows[] = {{"+a", "+", "left"},     {"a+", "+", "right"},     {"+", "+", "left"},     {"a*+b", "+", "left"},
                      {"a+*b", "+", "right"},  {"a+b++c", "+", "right"}, {"a=", "=", "right"},   {"a++b", "+", "right"},
                      {"A+B+C", "+", "right"}, {"+a*a", "+", "left"},    {"*a+a+", "+", "right"}};
  for (const Row& row : rows) {
    HandMadeList list(row.list);
    EXPECT_EQ(raisedBy([&] { list.promote(row.op); }).text(),
              syntaxError(7, "Expression required to " + std::string(row.side) + " of " + row.op + " operator"))
        << row.list;
  }
}

TEST(KorTemplateParserPromotion, LeavesEveryItemInItsPlaceWhereItFails) {
  struct Row {
    const char* what;
    const char* list;
    const char* op;
    const char* shape;  // of what was folded up to there, and of all that follows
  };
  const Row rows[] = {
      {"at once", "+a-b", "+", "+ $a - $b"},
      {"at once, without anything", "+", "+", "+"},
      {"behind others", "a-b*+c", "+", "$a - $b * + $c"},
      {"behind a fold", "a+b*+c", "+", "($a + $b) * + $c"},
      {"behind two folds", "a+b*c+d*+e-f", "+", "($a + $b) * ($c + $d) * + $e - $f"},
      {"behind folds that join", "a+b+c+*d", "+", "(($a + $b) + $c) + * $d"},
      {"at the end", "a+b*c+", "+", "($a + $b) * $c +"},
      {"where an operand stands twice", "a+b*a+", "+", "($a + $b) * +"},
  };
  for (const Row& row : rows) {
    HandMadeList list(row.list);
    EXPECT_EQ(raisedBy([&] { list.promote(row.op); }).name, "KorTemplateSyntaxErrorException") << row.what;
    EXPECT_EQ(list.shape(), row.shape) << row.what;
  }
}

TEST(KorTemplateParserPromotion, DoesNotTakeAnOperatorForALongerOne) {
  const Ref<KorTemplateParser> parser = Parser::parserForString("==");
  const KorToken equals = makeToken(Parser::BinaryOperator, 0, 2);
  KorWorkingList list = {{nullptr, &equals}};
  parser->promoteExpressionsWithOperatorInArray("=", &list);
  ASSERT_EQ(list.size(), 1U);
  EXPECT_EQ(list[0].operatorToken, &equals);
}

TEST(KorTemplateParserPromotion, RefusesATextThatIsNoOperatorOnlyWhereItFoldsOne) {
  HandMadeList without("a+b");
  EXPECT_EQ(raisedBy([&] { without.promote("?"); }).text(), "nothing raised");
  HandMadeList with("a?b");
  EXPECT_EQ(raisedBy([&] { with.promote("?"); }).text(), "NSInvalidArgumentException: Unrecognized operator");
}

}  // namespace

}  // namespace tavlo::test::parsing
