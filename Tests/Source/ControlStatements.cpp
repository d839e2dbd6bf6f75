#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Foundation/NSArray.h"
#include "Foundation/NSDate.h"
#include "Foundation/NSDictionary.h"
#include "Foundation/NSSet.h"
#include "Source/KorTemplateConditionalStatement.h"
#include "Source/KorTemplateEnumerationStatement.h"
#include "Source/KorTemplateReturnIndication.h"
#include "Source/KorTemplateReturnStatement.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

namespace {

using testing::ElementsAre;

// Yields the given values and then nothing.
class CountedEnumerator final : public NSEnumerator {
 public:
  explicit CountedEnumerator(std::vector<Value> values) : values_(std::move(values)) {}
  Value nextObject() override { return next_ < values_.size() ? values_[next_++] : Value(); }

 private:
  std::vector<Value> values_;
  std::size_t next_ = 0;
};

class EnumerableObject final : public NSObject {
 public:
  EnumerableObject() = default;
  Ref<NSEnumerator> objectEnumerator() const override {
    ++asked;
    return makeRef<CountedEnumerator>(std::vector<Value>{"p", "q"});
  }
  mutable int asked = 0;
};

// Appends the depth of the stack to a list whenever it runs.
Ref<KorTemplateStatement> depthNote(std::vector<std::int32_t>& depths) {
  return makeRef<HostStatement>(
      [&depths](KorTemplateEnvironment* environment) { depths.push_back(environment->stack()->frames().count()); });
}

Ref<KorTemplateConditionalStatement> conditional(const Value& condition,
                                                 const std::vector<Ref<KorTemplateStatement>>& trueStatements,
                                                 const std::vector<Ref<KorTemplateStatement>>& falseStatements = {}) {
  const auto node = KorTemplateConditionalStatement::statementWithExpression(literal(condition));
  node->setTrueStatements(trueStatements);
  node->setFalseStatements(falseStatements);
  return node;
}

Ref<KorTemplateEnumerationStatement> loop(const Ref<KorTemplateExpression>& collection, const Name& name,
                                          const std::vector<Ref<KorTemplateStatement>>& statements) {
  const auto node = KorTemplateEnumerationStatement::statementWithExpressionLoopVariable(collection, name);
  node->setLoopStatements(statements);
  return node;
}

TEST(KorTemplateConditionalStatement, IsFreshOverFalse) {
  const Ref<KorTemplateConditionalStatement> fresh = makeRef<KorTemplateConditionalStatement>();
  EXPECT_TRUE(as<KorTemplateLiteralExpression>(fresh->expression()).literal().isIdenticalTo(KorNO));
}

TEST(KorTemplateConditionalStatement, RunsTheListThatTheConditionChooses) {
  struct Row {
    const char* what;
    Value condition;
    const char* text;
  };
  const Row rows[] = {
      {"true", true, "t"},
      {"false", false, "f"},
      {"null", NSNull::null(), "f"},
      {"the text 0", "0", "t"},
      {"the empty text", "", "f"},
      {"zero", 0.0, "f"},
      {"an empty list", NSArray::array(), "t"},
      {"a host's object", makeRef<HostObject>(), "t"},
  };
  for (const Row& row : rows) {
    const Stage stage;
    conditional(row.condition, {output("t")}, {output("f")})->executeWithEnvironment(stage.get());
    EXPECT_EQ(stage.text(), row.text) << row.what;
  }
}

TEST(KorTemplateConditionalStatement, RunsNothingBehindAStatementThatReturns) {
  const auto returning = [] {
    return makeRef<KorTemplateReturnStatement>(KorTemplateLiteralExpression::expressionWithLiteral(1));
  };
  const auto late = [] { return conditional(true, {output("late")}, {}); };
  for (const bool isElseif : {false, true}) {
    const Stage stage;
    const auto last = conditional(true, {output("a"), returning(), late()}, {});
    const Ref<KorTemplateConditionalStatement> statement =
        isElseif ? conditional(false, {}, {output("-"), late(), last}) : last;
    EXPECT_ANY_THROW(statement->executeWithEnvironment(stage.get())) << "it returns";
    EXPECT_EQ(stage.text(), isElseif ? "-latea" : "a");
  }
}

TEST(KorTemplateConditionalStatement, TakesAnAbsentConditionForFalse) {
  const Stage stage;
  const Ref<KorTemplateConditionalStatement> node = conditional(true, {output("t")}, {output("f")});
  node->setExpression(nothing());
  node->executeWithEnvironment(stage.get());
  node->setExpression(nullptr);
  node->executeWithEnvironment(stage.get());
  EXPECT_EQ(stage.text(), "ff");
}

TEST(KorTemplateConditionalStatement, OpensOneScopeForAListAndNoneForAnEmptyOne) {
  const Stage stage;
  std::vector<std::int32_t> depths;
  stage.environment->setStack(KorTemplateStack::stack());
  conditional(true, {depthNote(depths), depthNote(depths)})->executeWithEnvironment(stage.get());
  conditional(false, {}, {depthNote(depths)})->executeWithEnvironment(stage.get());
  EXPECT_THAT(depths, ElementsAre(1, 1, 1));
  // Without frames a pop would fail.
  EXPECT_EQ(raisedBy([&] {
              conditional(false, {output("x")})->executeWithEnvironment(stage.get());
              conditional(true, {}, {output("x")})->executeWithEnvironment(stage.get());
            }),
            "nothing");
  EXPECT_EQ(stage.depth(), 0);
}

TEST(KorTemplateConditionalStatement, EvaluatesItsConditionOutsideTheScope) {
  const Stage stage;
  const auto node = KorTemplateConditionalStatement::statementWithExpression(assignment("x", 1));
  node->addTrueStatement(evaluation(assignment("y", 2)));
  node->executeWithEnvironment(stage.get());
  EXPECT_TRUE(stage.environment->isGlobalVariableDefinedWithName("x"));
  EXPECT_FALSE(stage.environment->isGlobalVariableDefinedWithName("y"));
}

TEST(KorTemplateConditionalStatement, RunsAnElseifBodyTwoScopesDeep) {
  const Stage stage;
  std::vector<std::int32_t> depths;
  stage.define("depth", [&](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
    depths.push_back(environment->stack()->frames().count());
    return false;
  });
  stage.run(
      "<? if (depth()) ?><? elseif (false) ?><? elseif (true) ?><? depth() ?><? endif ?>"
      "<? if (false) ?><? elseif (true) ?><? depth() ?><? endif ?><? depth() ?>");
  EXPECT_THAT(depths, ElementsAre(1, 4, 3, 1));
}

TEST(KorTemplateConditionalStatement, RestoresTheDepthOnEveryExit) {
  const Stage stage;
  const auto raise = makeRef<HostStatement>([](KorTemplateEnvironment*) { throw NSException("Boom", "bang"); });
  const Ref<KorTemplateStatement> inner = conditional(true, {raise});
  EXPECT_EQ(raisedBy([&] { conditional(false, {}, {inner})->executeWithEnvironment(stage.get()); }), "Boom: bang");
  EXPECT_EQ(stage.depth(), 1);
  const auto returning = conditional(false, {}, {conditional(true, {KorTemplateReturnStatement::statement()})});
  EXPECT_EQ(raisedBy([&] { returning->executeWithEnvironment(stage.get()); }),
            "KorTemplateReturnIndication: KorTemplateReturnIndication");
  EXPECT_EQ(stage.depth(), 1);
  const auto foreign = makeRef<HostStatement>([](KorTemplateEnvironment*) { throw 42; });
  EXPECT_THROW(conditional(true, {foreign})->executeWithEnvironment(stage.get()), int);
  EXPECT_EQ(stage.depth(), 1);
}

TEST(KorTemplateConditionalStatement, CopiesConditionAndBothLists) {
  const Ref<KorTemplateConditionalStatement> original =
      conditional(true, {output("t")}, {output("f"), conditional(false, {}, {output("g")})});
  const Ref<KorTemplateStatement> copied = original->copyWithZone();
  auto& copy = as<KorTemplateConditionalStatement>(copied);
  EXPECT_NE(copy.expression(), original->expression());
  ASSERT_EQ(copy.trueStatements().count(), 1);
  ASSERT_EQ(copy.falseStatements().count(), 2);
  EXPECT_NE(copy.trueStatements()[0], original->trueStatements()[0]);
  EXPECT_NE(copy.falseStatements()[0], original->falseStatements()[0]);
  EXPECT_NE(copy.falseStatements()[1], original->falseStatements()[1]);
  copy.addTrueStatement(output("x"));
  as<KorTemplateConditionalStatement>(copy.falseStatements()[1]).removeAllFalseStatements();
  copy.setExpression(literal(false));
  const Stage stage;
  original->executeWithEnvironment(stage.get());
  copy.executeWithEnvironment(stage.get());
  original->setExpression(literal(false));
  original->executeWithEnvironment(stage.get());
  EXPECT_EQ(stage.text(), "tffg");
}

TEST(KorTemplateConditionalStatement, IsCopiedWhereAnElseifIsTheLastBranch) {
  const Ref<KorTemplateConditionalStatement> last = conditional(true, {output("last")});
  const Ref<KorTemplateConditionalStatement> original = conditional(false, {}, {conditional(false, {}, {last})});
  const Ref<KorTemplateStatement> copy = original->copyWithZone();
  last->removeAllTrueStatements();
  const Stage stage;
  copy->executeWithEnvironment(stage.get());
  EXPECT_EQ(stage.text(), "last");
}

TEST(KorTemplateEnumerationStatement, IsFreshOverNullWithTheVariableObject) {
  const Ref<KorTemplateEnumerationStatement> fresh = makeRef<KorTemplateEnumerationStatement>();
  EXPECT_TRUE(as<KorTemplateLiteralExpression>(fresh->expression()).literal().isNull());
  EXPECT_EQ(fresh->loopVariable(), Name("object"));
}

TEST(KorTemplateEnumerationStatement, BindsElementsAndCountsFromZero) {
  struct Row {
    const char* what;
    Value collection;
    const char* text;
  };
  const Row rows[] = {
      {"a list", NSArray::arrayWithObjects({"a", "b", NSNull::null()}), "0a1b2"},
      {"an empty list", NSArray::array(), ""},
      {"null", NSNull::null(), ""},
      {"a dictionary", NSDictionary::dictionaryWithEntries({{"k", "v"}, {"l", "w"}}), "0v1w"},
      {"a set", NSSet::setWithObjects({"m"}), "0m"},
      {"a host's object", makeRef<EnumerableObject>(), "0p1q"},
  };
  for (const Row& row : rows) {
    const Stage stage;
    loop(literal(row.collection), "e", {output(variable("@@index")), output(variable("e"))})
        ->executeWithEnvironment(stage.get());
    EXPECT_EQ(stage.text(), row.text) << row.what;
    EXPECT_EQ(stage.depth(), 1) << row.what;
  }
}

TEST(KorTemplateEnumerationStatement, RefusesWhatCannotBeEnumerated) {
  struct Row {
    Ref<KorTemplateExpression> collection;
    const char* reason;
  };
  const Row rows[] = {
      {literal("abc"), "NSString cannot be enumerated because it does not respond to objectEnumerator"},
      {literal(5), "NSNumber cannot be enumerated because it does not respond to objectEnumerator"},
      {literal(true), "NSNumber cannot be enumerated because it does not respond to objectEnumerator"},
      {literal(NSDate::dateWithTimeIntervalSince1970(0)),
       "NSDate cannot be enumerated because it does not respond to objectEnumerator"},
      {literal(makeRef<HostObject>()),
       "HostObject cannot be enumerated because it does not respond to objectEnumerator"},
      {nothing(), "(null) cannot be enumerated because it does not respond to objectEnumerator"},
      {nullptr, "(null) cannot be enumerated because it does not respond to objectEnumerator"},
  };
  for (const Row& row : rows) {
    const Stage stage;
    const Ref<KorTemplateEnumerationStatement> node = loop(row.collection, "e", {output("x")});
    EXPECT_EQ(raisedBy([&] { node->executeWithEnvironment(stage.get()); }),
              std::string("NSGenericException: ") + row.reason);
    EXPECT_TRUE(stage.output->writes.empty()) << row.reason;
  }
}

// How many scopes the next frame has served, itself counted: a frame that was popped serves the next scope.
std::uint64_t scopesOfNextFrame(const Stage& stage) {
  constexpr std::uint64_t kScopesOfAFrame = std::uint64_t{1} << 32;
  const Ref<KorTemplateStack>& stack = stage.environment->stack();
  const std::uint64_t scopes = stack->pushNew()->scope() % kScopesOfAFrame;
  stack->pop();
  return scopes;
}

TEST(KorTemplateEnumerationStatement, OpensNoScopeWhereThereIsNoElement) {
  const Ref<KorTemplateExpression> collections[] = {
      literal(NSArray::array()),          literal(NSNull::null()), literal(NSDictionary::dictionary()),
      literal(NSSet::setWithObjects({})), literal("text"),         nothing(),
  };
  for (const Ref<KorTemplateExpression>& collection : collections) {
    const Stage stage;
    const Ref<KorTemplateEnumerationStatement> node = loop(collection, "e", {output("x")});
    (void)raisedBy([&] { node->executeWithEnvironment(stage.get()); });
    EXPECT_EQ(scopesOfNextFrame(stage), 1U) << collection->description();
    EXPECT_EQ(stage.environment->stack()->frames().count(), 1) << collection->description();
    EXPECT_EQ(stage.text(), "") << collection->description();
  }
  const Stage stage;
  loop(literal(NSArray::arrayWithObjects({1})), "e", {})->executeWithEnvironment(stage.get());
  EXPECT_EQ(scopesOfNextFrame(stage), 2U);
}

TEST(KorTemplateEnumerationStatement, StoresTheIndexAfterTheElementAndBeforeThePush) {
  const Stage stage;
  loop(literal(NSArray::arrayWithObjects({"a", "b"})), "@@index", {output(variable("@@index"))})
      ->executeWithEnvironment(stage.get());
  EXPECT_EQ(stage.text(), "01");
}

TEST(KorTemplateEnumerationStatement, BindsTheIndexAsAnInteger) {
  const Stage stage;
  stage.set("list", NSArray::arrayWithObjects({1}));
  Value index;
  stage.define("note", [&](KorTemplateEnvironment*, ListArgument<Value> arguments) -> Value {
    index = arguments[0];
    return true;
  });
  stage.run("<? foreach ($e in $list) ?><? note(@@index) ?><? endforeach ?>");
  EXPECT_EQ(index.kind(), ValueKind::Signed);
}

TEST(KorTemplateEnumerationStatement, GivesEachIterationAFreshScope) {
  const Stage stage;
  stage.set("list", NSArray::arrayWithObjects({1, 2, 3}));
  stage.set("g", "global");
  stage.run("<? foreach ($e in $list) ?>[<?= $seen ?><?= $g ?>]<? $seen = $e ?><? $g = $e ?><? endforeach ?><?= $g ?>");
  EXPECT_EQ(stage.text(), "[global][global][global]global");
  EXPECT_FALSE(stage.environment->isGlobalVariableDefinedWithName("seen"));
  EXPECT_FALSE(stage.environment->isGlobalVariableDefinedWithName("e"));
}

TEST(KorTemplateEnumerationStatement, LetsAHostFunctionChangeAGlobalFromItsBody) {
  const Stage stage;
  stage.set("list", NSArray::arrayWithObjects({1, 2}));
  stage.define("setGlobal", [](KorTemplateEnvironment* environment, ListArgument<Value> arguments) -> Value {
    environment->setValueForGlobalVariableWithName(arguments[0], "g");
    return NSNull::null();
  });
  stage.run("<? foreach ($e in $list) ?><? setGlobal($e) ?><?= $g ?><? endforeach ?>");
  EXPECT_EQ(stage.text(), "12");
  EXPECT_EQ(stage.global("g").description(), "2");
}

TEST(KorTemplateEnumerationStatement, KeepsTheFramesThatAHostKeeps) {
  const Stage stage;
  stage.set("list", NSArray::arrayWithObjects({"a", "b"}));
  std::vector<Ref<KorTemplateStackFrame>> kept;
  stage.define("keep", [&](KorTemplateEnvironment* environment, ListArgument<Value>) -> Value {
    kept.push_back(environment->stack()->currentFrame());
    return NSNull::null();
  });
  stage.run(
      "<? foreach ($e in $list) ?><? $own = $e ?><? keep() ?><? endforeach ?><? foreach ($f in $list) ?><? endforeach "
      "?>");
  ASSERT_EQ(kept.size(), 2u);
  EXPECT_NE(kept[0], kept[1]);
  for (std::size_t index = 0; index < kept.size(); ++index) {
    EXPECT_EQ(kept[index]->parentFrame(), nullptr);
    EXPECT_EQ(kept[index]->valueForVariableWithName("own").description(), index == 0 ? "a" : "b");
    EXPECT_EQ(kept[index]->valueForVariableWithName("@@index").intValue(), static_cast<int>(index));
    EXPECT_FALSE(kept[index]->isVariableDefinedWithName("list"));
    EXPECT_FALSE(kept[index]->isVariableDefinedWithName("f"));
  }
}

TEST(KorTemplateEnumerationStatement, TakesCollectionAndEnumeratorOnce) {
  const Stage stage;
  const Ref<EnumerableObject> object = makeRef<EnumerableObject>();
  int evaluations = 0;
  const auto collection = makeRef<HostExpression>([&](KorTemplateEnvironment*) -> Value {
    ++evaluations;
    return object;
  });
  loop(collection, "e", {output(variable("e"))})->executeWithEnvironment(stage.get());
  EXPECT_EQ(stage.text(), "pq");
  EXPECT_EQ(evaluations, 1);
  EXPECT_EQ(object->asked, 1);
}

TEST(KorTemplateEnumerationStatement, HidesTheOuterIndexInANestedLoop) {
  const Stage stage;
  stage.set("list", NSArray::arrayWithObjects({1, 2}));
  stage.run(
      "<? foreach ($a in $list) ?><?= @@index ?>(<? foreach ($b in $list) ?><?= @@index ?><? endforeach ?>)<?= @@index "
      "?>"
      "<? endforeach ?>");
  EXPECT_EQ(stage.text(), "0(01)01(01)1");
}

TEST(KorTemplateEnumerationStatement, RestoresTheDepthOnEveryExit) {
  const Stage stage;
  const Ref<KorTemplateExpression> list = literal(NSArray::arrayWithObjects({1, 2}));
  const auto raise = makeRef<HostStatement>([](KorTemplateEnvironment*) { throw NSException("Boom", "bang"); });
  EXPECT_EQ(raisedBy([&] {
              loop(list, "e", {output("x"), raise})->executeWithEnvironment(stage.get());
            }),
            "Boom: bang");
  EXPECT_EQ(stage.depth(), 1);
  const auto returning = loop(list, "e", {output("y"), KorTemplateReturnStatement::statement()});
  EXPECT_THROW(returning->executeWithEnvironment(stage.get()), KorTemplateReturnIndication);
  EXPECT_EQ(stage.depth(), 1);
  EXPECT_EQ(stage.text(), "xy");
  const auto foreign = makeRef<HostStatement>([](KorTemplateEnvironment*) { throw 42; });
  EXPECT_THROW(loop(list, "e", {foreign})->executeWithEnvironment(stage.get()), int);
  EXPECT_EQ(stage.depth(), 1);
}

TEST(KorTemplateEnumerationStatement, WalksAListThatItsBodyChanges) {
  const Stage stage;
  const Ref<NSMutableArray> list = NSMutableArray::array();
  list->addObject(1);
  stage.set("list", list);
  stage.define("grow", [&](auto&&...) -> Value {
    if (list->count() < 3) list->addObject("more");
    stage.set("list", NSNull::null());  // the loop holds the list itself
    return NSNull::null();
  });
  stage.run("<? foreach ($e in $list) ?><? grow() ?><?= $e ?>,<? endforeach ?>");
  EXPECT_EQ(stage.text(), "1,more,more,");
}

TEST(KorTemplateEnumerationStatement, CopiesExpressionAndBodyAndKeepsTheVariable) {
  const auto original = loop(literal(NSArray::arrayWithObjects({1})), "e", {output(variable("e"))});
  const Ref<KorTemplateStatement> copied = original->copyWithZone();
  auto& copy = as<KorTemplateEnumerationStatement>(copied);
  EXPECT_NE(copy.expression(), original->expression());
  EXPECT_EQ(copy.loopVariable(), Name("e"));
  ASSERT_EQ(copy.loopStatements().count(), 1);
  EXPECT_NE(copy.loopStatements()[0], original->loopStatements()[0]);
  copy.addLoopStatement(output("x"));
  const Stage stage;
  original->executeWithEnvironment(stage.get());
  copy.executeWithEnvironment(stage.get());
  EXPECT_EQ(stage.text(), "11x");
}

}  // namespace

}  // namespace tavlo::test
