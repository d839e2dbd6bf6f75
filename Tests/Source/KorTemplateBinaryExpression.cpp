#include "Source/KorTemplateBinaryExpression.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

#include "Foundation/Description.h"
#include "Foundation/NSArray.h"
#include "Foundation/NSDate.h"
#include "Foundation/NSDictionary.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

namespace {

using testing::ElementsAre;

constexpr KorTemplateOperator kUnknown = static_cast<KorTemplateOperator>(15);

// Equal to nothing but what the host says, and free to do anything meanwhile.
class TouchyObject final : public NSObject {
 public:
  explicit TouchyObject(std::function<void()> touched) : touched_(std::move(touched)) {}
  const char* className() const override { return "TouchyObject"; }
  bool isEqual(const NSObject& /*other*/, std::int32_t /*depth*/) const override { return touch(); }
  std::optional<bool> isLessThan(const Value& /*other*/) const override { return touch(); }
  std::optional<bool> isGreaterThan(const Value& /*other*/) const override { return touch(); }
  void describe(Description& out) const override {
    touch();
    out.part("touchy");
  }

 private:
  bool touch() const {
    touched_();
    return alive_;
  }
  std::function<void()> touched_;
  bool alive_ = true;
};

struct OperatorRow {
  Value left;
  KorTemplateOperator op;
  Value right;
  const char* outcome;  // the text of the result, or what is raised
};

std::string outcomeOf(const OperatorRow& row, KorTemplateEnvironment* environment) {
  Value result;
  const std::string raised = raisedBy(
      [&] { result = binary(row.op, literal(row.left), literal(row.right))->evaluateWithEnvironment(environment); });
  return raised == "nothing" ? result.description() : raised;
}

template <std::size_t count>
void expectOutcomes(const OperatorRow (&rows)[count]) {
  const Stage stage;
  for (const OperatorRow& row : rows) {
    EXPECT_EQ(outcomeOf(row, stage.get()), row.outcome)
        << row.left.description() << " operator " << row.op << " " << row.right.description();
  }
}

Value null() {
  return NSNull::null();
}

Value date(double seconds) {
  return NSDate::dateWithTimeIntervalSince1970(seconds);
}

TEST(KorTemplateBinaryExpression, StartsWithNullOperands) {
  const Stage stage;
  for (const Ref<KorTemplateBinaryExpression>& node :
       {makeRef<KorTemplateBinaryExpression>(KorTemplateOperatorAdd),
        KorTemplateBinaryExpression::expressionWithOperator(KorTemplateOperatorAdd)}) {
    EXPECT_EQ(node->op(), KorTemplateOperatorAdd);
    EXPECT_TRUE(as<KorTemplateLiteralExpression>(node->leftOperand()).literal().isNull());
    EXPECT_TRUE(as<KorTemplateLiteralExpression>(node->rightOperand()).literal().isNull());
    EXPECT_EQ(node->evaluateWithEnvironment(stage.get()).description(), "<null><null>");
  }
}

TEST(KorTemplateBinaryExpression, Adds) {
  const OperatorRow rows[] = {
      {2, KorTemplateOperatorAdd, 3, "5"},
      {1, KorTemplateOperatorAdd, true, "2"},
      {0.5, KorTemplateOperatorAdd, 1, "1.5"},
      {"a", KorTemplateOperatorAdd, 1, "a1"},
      {1, KorTemplateOperatorAdd, "a", "1a"},
      {"a", KorTemplateOperatorAdd, "b", "ab"},
      {"1", KorTemplateOperatorAdd, "2", "12"},
      {NSNull::null(), KorTemplateOperatorAdd, 1, "<null>1"},
      {date(0), KorTemplateOperatorAdd, 60, "1970-01-01 00:01:00 +0000"},
      {date(0), KorTemplateOperatorAdd, "x", "1970-01-01 00:00:00 +0000x"},
      {60, KorTemplateOperatorAdd, date(0), "601970-01-01 00:00:00 +0000"},
      {NSArray::array(), KorTemplateOperatorAdd, "", "(\n)"},
  };
  expectOutcomes(rows);
}

TEST(KorTemplateBinaryExpression, SubtractsMultipliesAndDivides) {
  const OperatorRow rows[] = {
      {2, KorTemplateOperatorSubtract, 3, "-1"},
      {date(60), KorTemplateOperatorSubtract, 60, "1970-01-01 00:00:00 +0000"},
      {60, KorTemplateOperatorSubtract, date(0),
       "NSGenericException: Can't subtract operands of type NSNumber and NSDate"},
      {date(0), KorTemplateOperatorSubtract, date(0),
       "NSGenericException: Can't subtract operands of type NSDate and NSDate"},
      {"a", KorTemplateOperatorSubtract, null(),
       "NSGenericException: Can't subtract operands of type NSString and NSNull"},
      {4, KorTemplateOperatorMultiply, 2.5, "10"},
      {"4", KorTemplateOperatorMultiply, 2,
       "NSGenericException: Can't multiply operands of type NSString and NSNumber"},
      {7, KorTemplateOperatorDivide, 2, "3.5"},
      {1, KorTemplateOperatorDivide, 0, "NSGenericException: Divide by zero"},
      {1, KorTemplateOperatorDivide, 0.0, "NSGenericException: Divide by zero"},
      {1, KorTemplateOperatorDivide, -0.0, "NSGenericException: Divide by zero"},
      {1, KorTemplateOperatorDivide, false, "NSGenericException: Divide by zero"},
      {1, KorTemplateOperatorDivide, std::numeric_limits<double>::quiet_NaN(), "nan"},
      {"a", KorTemplateOperatorDivide, 0, "NSGenericException: Can't divide operands of type NSString and NSNumber"},
      {0, KorTemplateOperatorDivide, "0", "NSGenericException: Can't divide operands of type NSNumber and NSString"},
  };
  expectOutcomes(rows);
}

// Whether a name in a scope of many is found quickly hangs on its hash.
TEST(KorTemplateBinaryExpression, RaisesForADivisionByZeroHoweverTheNumbersAreFound) {
  const Stage stage;
  for (int name = 0; name < 20; ++name) stage.set(("v" + std::to_string(name)).c_str(), name);
  for (const char* name : {"a", "b", "c", "d", "e", "f", "g", "h"}) {
    stage.set(name, 0);
    EXPECT_EQ(raisedBy([&] { stage.run(std::string("<? if (1) ?><?= $v1 / $") + name + " ?><? endif ?>"); }),
              "NSGenericException: Divide by zero");
  }
}

TEST(KorTemplateBinaryExpression, TakesRemainders) {
  const OperatorRow rows[] = {
      {7, KorTemplateOperatorModulo, 2, "1"},
      {7.9, KorTemplateOperatorModulo, 2, "1"},
      {-7, KorTemplateOperatorModulo, 3, "-1"},
      {7, KorTemplateOperatorModulo, -3, "1"},
      {7, KorTemplateOperatorModulo, 0, "NSGenericException: Divide by zero"},
      {5, KorTemplateOperatorModulo, 0.5, "NSGenericException: Divide by zero"},
      {std::numeric_limits<std::int32_t>::min(), KorTemplateOperatorModulo, -1, "0"},
      {"a", KorTemplateOperatorModulo, NSNull::null(),
       "NSGenericException: Can't perform modulo on value of type NSString. NSNumber required."},
      {5, KorTemplateOperatorModulo, NSNull::null(),
       "NSGenericException: Can't perform modulo on value of type NSNull. NSNumber required."},
      {"a", KorTemplateOperatorModulo, 0,
       "NSGenericException: Can't perform modulo on value of type NSString. NSNumber required."},
  };
  expectOutcomes(rows);
}

TEST(KorTemplateBinaryExpression, GivesNumbersOfTheRightKind) {
  const auto node = makeRef<KorTemplateBinaryExpression>(KorTemplateOperatorAdd);
  EXPECT_EQ(node->operatorAdd(2, 3).kind(), ValueKind::Double);
  EXPECT_EQ(node->operatorSubtract(2, 3).kind(), ValueKind::Double);
  EXPECT_EQ(node->operatorMultiply(2, 3).kind(), ValueKind::Double);
  EXPECT_EQ(node->operatorDivide(4, 2).kind(), ValueKind::Double);
  EXPECT_EQ(node->operatorModulo(7.0, 2.0).kind(), ValueKind::Signed);
  const Stage stage;
  const Value sum = binary(KorTemplateOperatorAdd, literal(2), literal(3))->evaluateWithEnvironment(stage.get());
  EXPECT_EQ(sum.kind(), ValueKind::Double);
  const Value rest =
      binary(KorTemplateOperatorModulo, literal(7.0), literal(2.0))->evaluateWithEnvironment(stage.get());
  EXPECT_EQ(rest.kind(), ValueKind::Signed);
}

TEST(KorTemplateBinaryExpression, ComparesForEquality) {
  const OperatorRow rows[] = {
      {1, KorTemplateOperatorEquals, 1.0, "1"},
      {1, KorTemplateOperatorEquals, true, "1"},
      {1, KorTemplateOperatorEquals, "1", "0"},
      {"a", KorTemplateOperatorEquals, "A", "0"},
      {"a", KorTemplateOperatorEquals, "a", "1"},
      {NSNull::null(), KorTemplateOperatorEquals, NSNull::null(), "1"},
      {NSNull::null(), KorTemplateOperatorEquals, 0, "0"},
      {NSNull::null(), KorTemplateOperatorNotEquals, 0, "1"},
      {1, KorTemplateOperatorNotEquals, 1.0, "0"},
      {NSArray::arrayWithObjects({1}), KorTemplateOperatorEquals, NSArray::arrayWithObjects({1.0}), "1"},
  };
  expectOutcomes(rows);
}

TEST(KorTemplateBinaryExpression, Orders) {
  const OperatorRow rows[] = {
      {1, KorTemplateOperatorLessThan, 2, "1"},
      {"a", KorTemplateOperatorLessThan, "b", "1"},
      {date(1), KorTemplateOperatorGreaterThan, date(0), "1"},
      {2, KorTemplateOperatorLessThanOrEqualTo, 2, "1"},
      {2, KorTemplateOperatorLessThanOrEqualTo, 1, "0"},
      {2, KorTemplateOperatorGreaterThanOrEqualTo, 2, "1"},
      {1, KorTemplateOperatorGreaterThanOrEqualTo, 2, "0"},
      {null(), KorTemplateOperatorLessThan, null(), "NSGenericException: <null> does not implement isLessThan:"},
      {1, KorTemplateOperatorLessThan, "2", "NSGenericException: 1 does not implement isLessThan:"},
      {"x", KorTemplateOperatorGreaterThan, 2, "NSGenericException: x does not implement isGreaterThan:"},
      {null(), KorTemplateOperatorLessThanOrEqualTo, null(),
       "NSGenericException: <null> does not implement isLessThan:"},
      {null(), KorTemplateOperatorGreaterThanOrEqualTo, null(),
       "NSGenericException: <null> does not implement isGreaterThan:"},
  };
  expectOutcomes(rows);
}

TEST(KorTemplateBinaryExpression, MatchesInTheOrderOfItsTests) {
  const Value regex = KorRegex::compileExpression("b");
  const OperatorRow rows[] = {
      {"abc", KorTemplateOperatorMatches, regex, "1"},
      {"acd", KorTemplateOperatorMatches, regex, "0"},
      {null(), KorTemplateOperatorMatches, regex, "0"},
      {null(), KorTemplateOperatorMatches, 5, "0"},
      {"abc", KorTemplateOperatorMatches, null(), "0"},
      {5, KorTemplateOperatorMatches, regex, "NSGenericException: Left side of match operator is 5. String expected"},
      {5, KorTemplateOperatorMatches, null(), "NSGenericException: Left side of match operator is 5. String expected"},
      {"abc", KorTemplateOperatorMatches, 5,
       "NSGenericException: Right side of match operator is abc. Regular expression expected"},
      {"abc", KorTemplateOperatorMatches, "b",
       "NSGenericException: Right side of match operator is abc. Regular expression expected"},
  };
  expectOutcomes(rows);
}

TEST(KorTemplateBinaryExpression, JoinsTruths) {
  const OperatorRow rows[] = {
      {true, KorTemplateOperatorAnd, "x", "1"}, {true, KorTemplateOperatorAnd, "", "0"},
      {0, KorTemplateOperatorAnd, true, "0"},   {0, KorTemplateOperatorOr, "", "0"},
      {"x", KorTemplateOperatorOr, false, "1"}, {NSNull::null(), KorTemplateOperatorOr, 5, "1"},
  };
  expectOutcomes(rows);
  const Stage stage;
  for (const OperatorRow& row : rows) {
    const Value truth = binary(row.op, literal(row.left), literal(row.right))->evaluateWithEnvironment(stage.get());
    EXPECT_TRUE(truth.isIdenticalTo(row.outcome[0] == '1' ? KorYES : KorNO));
  }
}

TEST(KorTemplateBinaryExpression, AnswersWithTheSharedTruths) {
  const auto node = makeRef<KorTemplateBinaryExpression>(KorTemplateOperatorEquals);
  EXPECT_TRUE(node->operatorEquals(1, 1).isIdenticalTo(KorYES));
  EXPECT_TRUE(node->operatorNotEquals(1, 1).isIdenticalTo(KorNO));
  EXPECT_TRUE(node->operatorLessThan(1, 2).isIdenticalTo(KorYES));
  EXPECT_TRUE(node->operatorGreaterThan(1, 2).isIdenticalTo(KorNO));
  EXPECT_TRUE(node->operatorLessThanOrEqualTo(1, 1).isIdenticalTo(KorYES));
  EXPECT_TRUE(node->operatorGreaterThanOrEqualTo(1, 1).isIdenticalTo(KorYES));
  EXPECT_TRUE(node->operatorMatches("a", KorRegex::compileExpression("a")).isIdenticalTo(KorYES));
  EXPECT_TRUE(node->operatorAnd(1, 5).isIdenticalTo(KorYES));
  EXPECT_TRUE(node->operatorOr(0, "").isIdenticalTo(KorNO));
}

TEST(KorTemplateBinaryExpression, NeverSkipsItsRightSide) {
  const Stage stage;
  stage.run("<? false && ($x = 1) ?><? true || ($y = 2) ?><?= $x ?><?= $y ?>");
  EXPECT_EQ(stage.text(), "12");
}

TEST(KorTemplateBinaryExpression, EvaluatesLeftBeforeRight) {
  const Stage stage;
  stage.run("<?= ($a = \"1\") + ($a + \"2\") ?>");
  EXPECT_EQ(stage.text(), "112");
}

TEST(KorTemplateBinaryExpression, HoldsALeftValueThatItsRightSideReplaces) {
  const Stage stage;
  stage.set("a", "long enough to live on the heap, certainly");
  stage.run("<?= $a + ($a = \"b\") ?>");
  EXPECT_EQ(stage.text(), "long enough to live on the heap, certainlyb");
}

TEST(KorTemplateBinaryExpression, HoldsValuesThatTheirOwnComparisonReplaces) {
  for (const char* text : {"<?= $a == $b ?>", "<?= $a < $b ?>", "<?= $a >= $b ?>", "<?= $a + $b ?>", "<?= $b + $a ?>",
                           "<?= $a != $b ?>", "<?= \"x\" + $a ?>"}) {
    const Stage stage;
    for (const char* name : {"a", "b"}) {
      stage.set(name, makeRef<TouchyObject>([environment = stage.get()] {
                  environment->setValueForGlobalVariableWithName(NSNull::null(), "a");
                  environment->setValueForGlobalVariableWithName(NSNull::null(), "b");
                }));
    }
    stage.run(text);
    EXPECT_EQ(stage.output->writes.size(), 1u) << text;
    EXPECT_TRUE(stage.global("a").isNull()) << text;
  }
}

TEST(KorTemplateBinaryExpression, DescribesItsLeftSideFirst) {
  struct Row {
    const char* text;
    const char* order;
  };
  const Row rows[] = {
      {"<?= $l + $r ?>", "lr"},        {"<?= $r + $l ?>", "rl"},         {"<?= $l + $l ?>", "ll"},
      {"<?= $l + $r + $l ?>", "lrl"},  {"<?= $l + ($r + $l) ?>", "rll"}, {"<?= \"x\" + $l + $r ?>", "lr"},
      {"<?= $l + 1 + $r ?>", "lr"},    {"<?= $list + $r ?>", "lr"},      {"<?= $l + $list ?>", "ll"},
      {"<?= ($a = $l) + $r ?>", "lr"}, {"<?= $o.l + $o.r ?>", "lr"},     {"<?= f($l) + f($r) ?>", "lr"},
  };
  for (const Row& row : rows) {
    const Stage stage;
    std::string order;
    for (const char* name : {"l", "r"}) {
      stage.set(name, makeRef<TouchyObject>([&order, name] { order += name; }));
    }
    stage.set("list", NSArray::arrayWithObjects({stage.global("l")}));
    stage.set("o", NSDictionary::dictionaryWithEntries({{"r", stage.global("r")}, {"l", stage.global("l")}}));
    stage.define("f", [](KorTemplateEnvironment*, ListArgument<Value> arguments) -> Value { return arguments[0]; });
    stage.run(row.text);
    EXPECT_EQ(order, row.order) << row.text;
  }
  std::string order;
  const Value left = makeRef<TouchyObject>([&order] { order += "l"; });
  const Value right = makeRef<TouchyObject>([&order] { order += "r"; });
  const auto node = makeRef<KorTemplateBinaryExpression>(KorTemplateOperatorAdd);
  EXPECT_EQ(node->operatorAdd(left, right).description(), "touchytouchy");
  EXPECT_EQ(order, "lr");
}

// The text that the left description has given, though the right one changes what it was taken from.
TEST(KorTemplateBinaryExpression, JoinsTheTextsThatItsSidesHadWhenTheyWereDescribed) {
  const Stage stage;
  const Ref<NSMutableArray> list = NSMutableArray::array();
  list->addObject(1);
  stage.set("list", list);
  stage.set("o", makeRef<TouchyObject>([&] { list->removeAllObjects(); }));
  stage.run("<?= $list + $o ?>|<?= $o + $list ?>");
  EXPECT_EQ(stage.text(), "(\n    1\n)touchy|touchy(\n)");
}

TEST(KorTemplateBinaryExpression, ChecksForAbsentOperandsAfterBothEvaluationsLeftFirst) {
  const Stage stage;
  const std::string left = failedAssertion("Binary expression: left expression returned nil");
  const std::string right = failedAssertion("Binary expression: right expression returned nil");
  for (std::int32_t op = -1; op <= 15; ++op) {
    int evaluations = 0;
    const auto absent = makeRef<HostExpression>([&](KorTemplateEnvironment*) {
      ++evaluations;
      return Value();
    });
    const auto outcome = [&](const Ref<KorTemplateExpression>& one, const Ref<KorTemplateExpression>& other) {
      const auto node = binary(static_cast<KorTemplateOperator>(op), one, other);
      return raisedBy([&] { (void)node->evaluateWithEnvironment(stage.get()); });
    };
    EXPECT_EQ(outcome(absent, absent), left) << op;
    EXPECT_EQ(evaluations, 2) << op;
    EXPECT_EQ(outcome(absent, literal(1)), left) << op;
    EXPECT_EQ(outcome(literal(1), absent), right) << op;
    const Ref<KorTemplateExpression> emptied = literal(1);
    as<KorTemplateLiteralExpression>(emptied).setLiteral({});
    EXPECT_EQ(outcome(emptied, literal(1)), left) << op;
    EXPECT_EQ(outcome(literal(1), emptied), right) << op;
  }
}

TEST(KorTemplateBinaryExpression, YieldsNullForAnUnknownOperatorAfterBothEvaluations) {
  const Stage stage;
  for (const std::int32_t op : {15, -1, std::numeric_limits<std::int32_t>::max()}) {
    const auto node = binary(kUnknown, assignment("x", op), assignment("y", op));
    node->setOperator(static_cast<KorTemplateOperator>(op));
    EXPECT_TRUE(node->evaluateWithEnvironment(stage.get()).isNull()) << op;
    EXPECT_EQ(stage.global("x").intValue(), op);
    EXPECT_EQ(stage.global("y").intValue(), op);
  }
}

TEST(KorTemplateBinaryExpression, AssignsInTheCurrentFrameAndYieldsTheRightValue) {
  const Stage stage;
  const Value object = makeRef<HostObject>();
  const Value result = assignment("x", object)->evaluateWithEnvironment(stage.get());
  EXPECT_TRUE(result.isIdenticalTo(object));
  EXPECT_TRUE(stage.global("x").isIdenticalTo(object));
  stage.run("<? @@index = 5 ?><?= @@index ?>");
  EXPECT_EQ(stage.text(), "5");
}

TEST(KorTemplateBinaryExpression, TestsTheNodeOfAnAssignmentAndReportsTheLeftValue) {
  struct Row {
    const char* text;
    const char* reason;
  };
  const Row rows[] = {
      {"<? ($a + 1) = 2 ?>", "Left side of assignment operator is 6. Variable name expected"},
      {"<? 5 = 2 ?>", "Left side of assignment operator is 5. Variable name expected"},
      {"<? $a + 1 = 2 ?>", "Left side of assignment operator is 1. Variable name expected"},
      {"<? \"b\" = 2 ?>", "Left side of assignment operator is b. Variable name expected"},
      {"<? null = 2 ?>", "Left side of assignment operator is <null>. Variable name expected"},
  };
  for (const Row& row : rows) {
    const Stage stage;
    stage.set("a", 5);
    EXPECT_EQ(raisedBy([&] { stage.run(row.text); }), std::string("NSGenericException: ") + row.reason) << row.text;
    EXPECT_EQ(stage.global("a").description(), "5") << row.text;
    EXPECT_THAT(stage.environment->globalVariableNames(), ElementsAre(Name("a"))) << row.text;
  }
}

TEST(KorTemplateBinaryExpression, AssignsTheFirstOfAChainAndThenRaises) {
  const Stage stage;
  stage.set("b", 2);
  EXPECT_EQ(raisedBy([&] { stage.run("<? $a = $b = 3 ?>"); }),
            "NSGenericException: Left side of assignment operator is 2. Variable name expected");
  EXPECT_EQ(stage.global("a").description(), "2");
  EXPECT_EQ(stage.global("b").description(), "2");
}

TEST(KorTemplateBinaryExpression, AssignsNowhereWithoutAFrame) {
  const Stage stage;
  for (const Ref<KorTemplateStack>& stack : {KorTemplateStack::stack(), Ref<KorTemplateStack>()}) {
    stage.environment->setStack(stack);
    EXPECT_EQ(assignment("x", 3)->evaluateWithEnvironment(stage.get()).description(), "3");
  }
  const Ref<KorTemplateBinaryExpression> node = makeRef<KorTemplateBinaryExpression>(KorTemplateOperatorAssignment);
  node->setLeftOperand(variable("x"));
  EXPECT_EQ(node->operatorAssignment(1, 2, nullptr).description(), "2");
}

TEST(KorTemplateBinaryExpression, CopiesBothOperands) {
  const auto original = binary(KorTemplateOperatorAdd, literal("l"), literal("r"));
  const Ref<KorTemplateExpression> copied = original->copyWithZone();
  auto& copy = as<KorTemplateBinaryExpression>(copied);
  EXPECT_EQ(copy.op(), KorTemplateOperatorAdd);
  EXPECT_NE(copy.leftOperand(), original->leftOperand());
  EXPECT_NE(copy.rightOperand(), original->rightOperand());
  as<KorTemplateLiteralExpression>(copy.rightOperand()).setLiteral("x");
  const Stage stage;
  EXPECT_EQ(original->evaluateWithEnvironment(stage.get()).description(), "lr");
  EXPECT_EQ(copy.evaluateWithEnvironment(stage.get()).description(), "lx");
}

TEST(KorTemplateBinaryExpression, FindsNothingEqualToAnAbsentValue) {
  const KorTemplateBinaryExpression node(KorTemplateOperatorEquals);
  EXPECT_TRUE(node.operatorEquals(Value(), Value()).isIdenticalTo(KorNO));
  EXPECT_TRUE(node.operatorNotEquals(Value(), Value()).isIdenticalTo(KorYES));
}

}  // namespace

}  // namespace tavlo::test
