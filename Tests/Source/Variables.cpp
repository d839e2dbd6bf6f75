#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "Foundation/NSArray.h"
#include "Foundation/NSDate.h"
#include "Foundation/NSDictionary.h"
#include "Source/KorTemplateConditionalStatement.h"
#include "Source/KorTemplateRegexExpression.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

namespace {

// An object whose properties are computed by the host.
class PropertyObject final : public NSObject {
 public:
  explicit PropertyObject(std::function<Value(std::string_view)> property) : property_(std::move(property)) {}
  Value valueForKey(const NSString& key) const override { return property_(key.view()); }

 private:
  std::function<Value(std::string_view)> property_;
};

TEST(KorTemplateVariableExpression, SplitsItsTextAtTheFirstPoint) {
  struct Row {
    const char* variable;
    Name root;
    Name path;
  };
  const Row rows[] = {
      {"a", {}, {}},   {"@@index", {}, {}}, {"", {}, {}},  {"a.b", "a", "b"},   {"a.b.c", "a", "b.c"},
      {".a", "", "a"}, {"a.", "a", ""},     {".", "", ""}, {"a..b", "a", ".b"}, {"l.@count", "l", "@count"},
  };
  for (const Row& row : rows) {
    const Ref<KorTemplateVariableExpression> changed = makeRef<KorTemplateVariableExpression>(Name("old.path"));
    changed->setVariable(row.variable);
    for (const Ref<KorTemplateVariableExpression>& expression :
         {changed, makeRef<KorTemplateVariableExpression>(Name(row.variable)),
          KorTemplateVariableExpression::expressionWithVariable(row.variable)}) {
      EXPECT_EQ(expression->variable(), Name(row.variable)) << row.variable;
      EXPECT_EQ(expression->rootName(), row.root) << row.variable;
      EXPECT_EQ(expression->keyPath(), row.path) << row.variable;
    }
  }
}

TEST(KorTemplateVariableExpression, JoinsItsNameWhenSomebodyAsks) {
  const auto expression = makeRef<KorTemplateVariableExpression>(Name("a"), std::string_view("b.c"));
  EXPECT_EQ(expression->rootName(), Name("a"));
  EXPECT_EQ(expression->keyPath(), Name("b.c"));
  std::vector<std::thread> threads;
  std::atomic<int> same = 0;
  for (int number = 0; number < 4; ++number) {
    threads.emplace_back([&] { same += expression->variable() == Name("a.b.c") ? 1 : 0; });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(same, 4);
  const Ref<KorTemplateExpression> copied =
      makeRef<KorTemplateVariableExpression>(Name(""), std::string_view())->copyWithZone();
  EXPECT_EQ(as<KorTemplateVariableExpression>(copied).variable(), Name("."));
  expression->setVariable("x");
  EXPECT_EQ(expression->variable(), Name("x"));
}

TEST(KorTemplateVariableExpression, TakesThreeTextsUnsplit) {
  const Stage stage;
  stage.set("a.b", "whole");
  stage.set("r", NSDictionary::dictionaryWithEntries({{"k", "path"}}));
  struct Row {
    Name root;
    Name path;
    const char* text;
  };
  const Row rows[] = {{{}, {}, "whole"}, {"r", {}, "whole"}, {{}, "k", "whole"}, {"r", "k", "path"}};
  for (const Row& row : rows) {
    const auto expression = makeRef<KorTemplateVariableExpression>(Name("a.b"), row.root, row.path);
    EXPECT_EQ(expression->evaluateWithEnvironment(stage.get()).description(), row.text);
    const Ref<KorTemplateExpression> copied = expression->copyWithZone();
    const auto& copy = as<KorTemplateVariableExpression>(copied);
    EXPECT_EQ(copy.variable(), Name("a.b"));
    EXPECT_EQ(copy.rootName(), row.root);
    EXPECT_EQ(copy.keyPath(), row.path);
  }
}

TEST(KorTemplateVariableExpression, ReadsVariablesAndPaths) {
  const Stage stage;
  stage.set("x", "global");
  stage.set("n", NSNull::null());
  stage.set("user",
            NSDictionary::dictionaryWithEntries({{"name", "Ann"}, {"", "empty key"}, {"list", NSNull::null()}}));
  stage.set("list", NSArray::arrayWithObjects({1, 2, 3}));
  stage.set("host", makeRef<HostObject>());
  stage.set("", "no name");
  struct Row {
    const char* variable;
    const char* text;
  };
  const Row rows[] = {
      {"x", "global"},           {"unset", "<null>"},      {"@@index", "<null>"},  {"n", "<null>"},
      {"", "no name"},           {"user.name", "Ann"},     {"user.age", "<null>"}, {"user.", "empty key"},
      {"user.list.x", "<null>"}, {"unset.name", "<null>"}, {"n.name", "<null>"},   {"list.@count", "3"},
      {"host.name", "<null>"},   {"x.length", "6"},        {"x.", "<null>"},       {"X", "<null>"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(variable(row.variable)->evaluateWithEnvironment(stage.get()).description(), row.text) << row.variable;
  }
}

TEST(KorTemplateVariableExpression, AnswersItsTwoLookUpsAlone) {
  const Stage stage;
  stage.set("a.b", "dotted");
  stage.set("user", NSDictionary::dictionaryWithEntries({{"name", "Ann"}}));
  const auto any = KorTemplateVariableExpression::expressionWithVariable("other");
  EXPECT_EQ(any->variableWithName("a.b", stage.get()).description(), "dotted");
  EXPECT_TRUE(any->variableWithName("unset", stage.get()).isNull());
  EXPECT_EQ(any->variableWithKeyPathInObjectWithName("name", "user", stage.get()).description(), "Ann");
  EXPECT_TRUE(any->variableWithKeyPathInObjectWithName("age", "user", stage.get()).isNull());
  EXPECT_TRUE(any->variableWithKeyPathInObjectWithName("name", "unset", stage.get()).isNull());
  stage.environment->setStack(nullptr);
  EXPECT_TRUE(any->variableWithName("a.b", stage.get()).isNull());
  EXPECT_TRUE(any->variableWithKeyPathInObjectWithName("name", "user", stage.get()).isNull());
}

TEST(KorTemplateVariableExpression, PrefersTheNearestFrame) {
  const Stage stage;
  stage.set("x", "global");
  const Ref<KorTemplateStackFrame> frame = KorTemplateStackFrame::stackFrame();
  stage.environment->stack()->push(frame);
  EXPECT_EQ(variable("x")->evaluateWithEnvironment(stage.get()).description(), "global");
  frame->setValueForVariableWithName("near", "x");
  EXPECT_EQ(variable("x")->evaluateWithEnvironment(stage.get()).description(), "near");
}

TEST(KorTemplateVariableExpression, NeverFindsWhatIsAssignedToADottedName) {
  const Stage stage;
  stage.set("a", NSDictionary::dictionaryWithEntries({{"b", "entry"}}));
  stage.run("<? $a.b = 1 ?><?= $a.b ?>");
  EXPECT_EQ(stage.text(), "entry");
  EXPECT_EQ(stage.global("a.b").description(), "1");
}

TEST(KorTemplateVariableExpression, KnowsAnUndefinedKeyByTheNameOfTheException) {
  const Stage stage;
  struct Row {
    const char* what;
    std::function<Value(std::string_view)> property;
    const char* outcome;
  };
  const Row rows[] = {
      {"the system's own", [](std::string_view) -> Value { throw NSException(NSUndefinedKeyException, "no"); },
       "nothing"},
      {"the name, spelt by the host",
       [](std::string_view) -> Value { throw NSException(std::string("NSUndefined") + "KeyException"); }, "nothing"},
      {"another name", [](std::string_view) -> Value { throw NSException("Boom", "bang"); }, "Boom: bang"},
      {"another case", [](std::string_view) -> Value { throw NSException("nsundefinedkeyexception", "no"); },
       "nsundefinedkeyexception: no"},
  };
  for (const Row& row : rows) {
    stage.set("o", makeRef<PropertyObject>(row.property));
    Value result = "untouched";
    EXPECT_EQ(raisedBy([&] { result = variable("o.p")->evaluateWithEnvironment(stage.get()); }), row.outcome)
        << row.what;
    EXPECT_EQ(result.isNull(), std::string(row.outcome) == "nothing") << row.what;
  }
}

TEST(KorTemplateVariableExpression, TakesAnAbsentPropertyForNull) {
  const Stage stage;
  stage.set("o", makeRef<PropertyObject>([](std::string_view) { return Value(); }));
  EXPECT_TRUE(variable("o.p")->evaluateWithEnvironment(stage.get()).isNull());
  EXPECT_TRUE(variable("o.p.q")->evaluateWithEnvironment(stage.get()).isNull());
}

TEST(KorTemplateVariableExpression, HoldsARootThatItsPropertyLetsGoOf) {
  const Stage stage;
  stage.set("o", makeRef<PropertyObject>([&](std::string_view key) -> Value {
              stage.set("o", NSNull::null());
              return std::string(key) + " of the last one";
            }));
  EXPECT_EQ(variable("o.p")->evaluateWithEnvironment(stage.get()).description(), "p of the last one");
  EXPECT_TRUE(stage.global("o").isNull());
}

TEST(KorTemplateRegexExpression, YieldsTheVeryRegexWithAndWithoutEnvironment) {
  const Stage stage;
  const Ref<KorRegex> regex = KorRegex::compileExpression("a+");
  for (const Ref<KorTemplateRegexExpression>& expression :
       {makeRef<KorTemplateRegexExpression>(regex), KorTemplateRegexExpression::expressionWithRegex(regex)}) {
    EXPECT_EQ(expression->regex(), regex);
    EXPECT_TRUE(expression->evaluateWithEnvironment(nullptr).isIdenticalTo(regex));
    EXPECT_TRUE(expression->evaluateWithEnvironment(stage.get()).isIdenticalTo(regex));
    const Ref<KorTemplateExpression> copy = expression->copyWithZone();
    EXPECT_NE(copy, Ref<KorTemplateExpression>(expression));
    EXPECT_EQ(as<KorTemplateRegexExpression>(copy).regex(), regex);
    const Ref<KorRegex> other = KorRegex::compileExpression("b");
    expression->setRegex(other);
    EXPECT_EQ(expression->regex(), other);
    EXPECT_EQ(as<KorTemplateRegexExpression>(copy).regex(), regex);
  }
}

TEST(KorTemplateRegexExpression, CompilesItsPattern) {
  EXPECT_EQ(KorTemplateRegexExpression::expressionWithRegexString("a/b")->regex()->description(), "/a/b/");
  EXPECT_THAT(raisedBy([] { (void)KorTemplateRegexExpression::expressionWithRegexString("(a"); }),
              testing::AllOf(testing::StartsWith("NSInvalidArgumentException: "), testing::HasSubstr("(a")));
}

TEST(ConvertToBool, OfEveryKindOfValue) {
  struct Row {
    const char* what;
    Value value;
    bool truth;
  };
  const Row rows[] = {
      {"absent", {}, false},
      {"null", NSNull::null(), false},
      {"false", false, false},
      {"true", true, true},
      {"0", 0, false},
      {"0.0", 0.0, false},
      {"-0.0", -0.0, false},
      {"1", 1, true},
      {"-1", -1, true},
      {"a small fraction", 0.1, true},
      {"the empty text", "", false},
      {"the text 0", "0", true},
      {"the text false", "false", true},
      {"a space", " ", true},
      {"an empty list", NSArray::array(), true},
      {"an empty dictionary", NSDictionary::dictionary(), true},
      {"a date", NSDate::dateWithTimeIntervalSince1970(0), true},
      {"a regular expression", KorRegex::compileExpression(""), true},
      {"a host's object", makeRef<HostObject>(), true},
  };
  for (const Row& row : rows) EXPECT_EQ(convertToBool(row.value), row.truth) << row.what;
}

}  // namespace

}  // namespace tavlo::test
