#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "Foundation/HostMethodTable.h"
#include "Foundation/HostObject.h"
#include "Foundation/NSArray.h"
#include "Source/KorTemplateExternalFunction.h"
#include "Source/NSInvocation+Conversion.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

struct Corner {
  int x = 0;
  int y = 0;
};

// What a host offers to templates; it keeps what it was called with.
struct Desk {
  int lastInt = -1;
  double lastDouble = -1;
  Value lastObject = "unset";
  const char* lastText = "unset";
  Corner lastCorner{-1, -1};
  std::string lastWords = "unset";
  int calls = 0;

  double add(int left, double right) {
    ++calls;
    lastInt = left;
    lastDouble = right;
    return left + right;
  }
  void take(const Value& object) {
    ++calls;
    lastObject = object;
  }
  void takeText(const char* text, int number) {
    lastText = text;
    lastInt = number;
  }
  void takeCorner(Corner corner) { lastCorner = corner; }
  void takeChanged(int& number) { lastInt = number; }
  std::string takeWords(std::string_view words) {
    lastWords = words;
    return lastWords + "!";
  }
  bool isOpen() const { return true; }
  bool isShut() const { return false; }
  Value nothing() const { return {}; }
  Ref<NSArray> noList() const { return {}; }
  Value null() const { return Value::null(); }
  Corner corner() const { return {1, 2}; }
  const char* characters() const { return "characters"; }
  Ref<NSArray> list() const { return NSArray::arrayWithObjects({1, 2}); }
  std::size_t count(const Ref<NSArray>& list) const { return list == nullptr ? 99 : list->elements().size(); }
  std::size_t length(const NSString& text) const { return text.length(); }
  bool isNone(const NSString* text) const { return text == nullptr; }
  int none() const { return 0; }

  void takeClass(const ClassReference& /*reference*/) { ++calls; }
  void takeSelector(const Selector& /*selector*/) { ++calls; }
  void takeCharacters(char* /*characters*/) { ++calls; }
  void takeLong(long double /*number*/) { ++calls; }
  void takeTruth(bool truth) { lastInt = truth ? 1 : 0; }
  ClassReference ownClass() {
    ++calls;
    return {};
  }
  Selector ownSelector() {
    ++calls;
    return {};
  }
  char* ownCharacters() {
    ++calls;
    return nullptr;
  }
  long double ownLong() {
    ++calls;
    return 1;
  }
  bool ownTruth() {
    ++calls;
    return true;
  }
  void refuse() { throw NSException("Refusal", "not today"); }
};

void describeHostClass(HostClass<Desk>& desk) {
  desk.name("Desk")
      .method("add:to:", &Desk::add)
      .method("take:", &Desk::take)
      .method("takeText:number:", &Desk::takeText)
      .method("takeCorner:", &Desk::takeCorner)
      .method("takeChanged:", &Desk::takeChanged)
      .method("takeWords:", &Desk::takeWords)
      .method("isOpen", &Desk::isOpen)
      .method("isShut", &Desk::isShut)
      .method("nothing", &Desk::nothing)
      .method("noList", &Desk::noList)
      .method("null", &Desk::null)
      .method("corner", &Desk::corner)
      .method("characters", &Desk::characters)
      .method("list", &Desk::list)
      .method("count:", &Desk::count)
      .method("length:", &Desk::length)
      .method("isNone:", &Desk::isNone)
      .method("none", &Desk::none)
      .method("takeClass:", &Desk::takeClass)
      .method("takeSelector:", &Desk::takeSelector)
      .method("takeCharacters:", &Desk::takeCharacters)
      .method("takeLong:", &Desk::takeLong)
      .method("ownClass", &Desk::ownClass)
      .method("ownSelector", &Desk::ownSelector)
      .method("ownCharacters", &Desk::ownCharacters)
      .method("ownLong", &Desk::ownLong)
      .method("refuse", &Desk::refuse);
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// A desk whose methods templates call.
struct DeskStage : Stage {
  Ref<KorTemplateExternalFunction> bind(const Name& name, const Selector& selector) {
    const auto function = KorTemplateExternalFunction::functionWithSelectorTarget(selector, desk);
    environment->setFunctionForName(function, name);
    return function;
  }
  Value call(const Selector& selector, ListArgument<Value> arguments) {
    return bind("f", selector)->invokeWithEnvironment(get(), arguments);
  }
  std::string raisedByCall(const Selector& selector, ListArgument<Value> arguments) {
    return raisedBy([&] { (void)call(selector, arguments); });
  }

  Desk desk;
};

TEST(ExternalFunctions, PassNumbersFromATemplateAndTheResultBack) {
  DeskStage stage;
  stage.bind("add", "add:to:");
  stage.run("<?= add(3, 2.5) ?>");
  EXPECT_EQ(stage.text(), "5.5");
  EXPECT_EQ(stage.desk.lastInt, 3);
  EXPECT_EQ(stage.desk.lastDouble, 2.5);
  EXPECT_THAT(stage.errors->writes, IsEmpty());
}

TEST(ExternalFunctions, TurnAWrongTypeIntoADiagnostic) {
  DeskStage stage;
  stage.bind("add", "add:to:");
  stage.run("a<?= add(\"3\", 2.5) ?>b");
  EXPECT_EQ(stage.text(), "ab");
  EXPECT_EQ(stage.diagnostics(), "Incorrect type for int argument at index 2 of add:to:. NSNumber expected.");
  EXPECT_EQ(stage.desk.calls, 0);
}

TEST(ExternalFunctions, PassNullAsZeroOrAsNoObject) {
  DeskStage stage;
  stage.bind("add", "add:to:");
  stage.bind("take", "take:");
  stage.run("<?= add(null, null) ?><? take(null) ?>");
  EXPECT_EQ(stage.text(), "0");
  EXPECT_EQ(stage.desk.lastInt, 0);
  EXPECT_TRUE(stage.desk.lastObject.isAbsent());
}

TEST(ExternalFunctions, PassObjectsAsTheyAre) {
  DeskStage stage;
  for (const Value& value : {Value("text"), Value(4.5), Value(true), Value(NSArray::arrayWithObjects({1}))}) {
    EXPECT_TRUE(stage.call("take:", {value}).isNull());
    EXPECT_TRUE(stage.desk.lastObject.isIdenticalTo(value)) << value.description();
  }
}

struct CountRow {
  const char* selector;
  std::vector<Value> arguments;
  const char* reason;
};

TEST(ExternalFunctions, RefuseAWrongNumberOfValues) {
  const CountRow rows[] = {
      {"take:", {1, 2}, "take:. Incorrect number of arguments: 2 supplied, 1 expected."},
      {"take:", {}, "take:. Incorrect number of arguments: 0 supplied, 1 expected."},
      {"add:to:", {1}, "add:to:. Incorrect number of arguments: 1 supplied, 2 expected."},
      {"none", {Value::null()}, "none. Incorrect number of arguments: 1 supplied, 0 expected."},
  };
  DeskStage stage;
  for (const CountRow& row : rows) {
    EXPECT_EQ(stage.raisedByCall(row.selector, row.arguments), std::string("NSGenericException: ") + row.reason);
  }
  EXPECT_EQ(stage.desk.calls, 0);
}

struct ResultRow {
  const char* selector;
  Value result;
};

TEST(ExternalFunctions, MakeValuesOfResults) {
  const ResultRow rows[] = {
      {"isOpen", 1},
      {"isShut", 0},
      {"nothing", Value::null()},
      {"noList", Value::null()},
      {"null", Value::null()},
      {"corner", Value::null()},
      {"characters", Value::null()},
      {"list", NSArray::arrayWithObjects({1, 2})},
      {"none", 0},
  };
  DeskStage stage;
  for (const ResultRow& row : rows) {
    const Value result = stage.call(row.selector, {});
    EXPECT_EQ(result.kind(), row.result.kind()) << row.selector;
    EXPECT_TRUE(result.isEqual(row.result)) << row.selector << ": " << result.description();
  }
  stage.bind("open", "isOpen");
  stage.run("<?= open() ?>");
  EXPECT_EQ(stage.text(), "1");
}

TEST(ExternalFunctions, LeaveParametersOfSeveralCharactersAsTheyAre) {
  DeskStage stage;
  EXPECT_TRUE(stage.call("takeText:number:", {"ignored", 5}).isNull());
  EXPECT_EQ(stage.desk.lastText, nullptr);
  EXPECT_EQ(stage.desk.lastInt, 5);
  EXPECT_TRUE(stage.call("takeCorner:", {5}).isNull());
  EXPECT_EQ(stage.desk.lastCorner.x, 0);
  EXPECT_TRUE(stage.call("takeChanged:", {5}).isNull());
  EXPECT_EQ(stage.desk.lastInt, 0);

  const auto corner = stage.bind("corner", "takeCorner:");
  corner->invocation()->setArgument(Corner{7, 8}, 2);
  stage.run("<? corner(\"ignored\") ?>");
  EXPECT_EQ(stage.desk.lastCorner.y, 8);
  EXPECT_THAT(stage.errors->writes, IsEmpty());
}

TEST(ExternalFunctions, TakeAndMakeTexts) {
  DeskStage stage;
  EXPECT_EQ(stage.call("takeWords:", {"größer"}).description(), "größer!");
  EXPECT_EQ(stage.desk.lastWords, "größer");
  EXPECT_EQ(stage.call("takeWords:", {Value::null()}).description(), "!");
  EXPECT_EQ(
      stage.raisedByCall("takeWords:", {5}),
      "NSInvalidArgumentException: takeWords:: incorrect object at index 2: NSNumber supplied, NSString expected.");
}

struct ClassRow {
  const char* what;
  const char* selector;
  Value argument;
  const char* outcome;  // the result, or what is raised
};

TEST(ExternalFunctions, RefuseObjectsOfAnotherClassThanTheMethodTakes) {
  const ClassRow rows[] = {
      {"a list", "count:", NSArray::arrayWithObjects({1, 2, 3}), "3"},
      {"no list", "count:", Value::null(), "99"},
      {"a text for a list", "count:", "text",
       "count:: incorrect object at index 2: NSString supplied, NSArray expected."},
      {"a number for a list", "count:", 5, "count:: incorrect object at index 2: NSNumber supplied, NSArray expected."},
      {"a text by reference", "length:", "text", "4"},
      {"no text by reference", "length:", Value::null(),
       "length:: incorrect object at index 2: (null) supplied, NSString expected."},
      {"a list for a text", "length:", NSArray::array(),
       "length:: incorrect object at index 2: NSArray supplied, NSString expected."},
      {"no text by pointer", "isNone:", Value::null(), "1"},
      {"a text by pointer", "isNone:", "text", "0"},
      {"an object for a text", "isNone:", makeRef<HostObject>(),
       "isNone:: incorrect object at index 2: HostObject supplied, NSString expected."},
  };
  DeskStage stage;
  for (const ClassRow& row : rows) {
    stage.bind("f", row.selector);
    stage.set("argument", row.argument);
    const Ref<KorTemplateStringStream> text = KorTemplateStringStream::stringStream();
    stage.environment->setOutputStream(text);
    stage.environment->setErrorStream(text);
    stage.run("<?= f($argument) ?>");
    EXPECT_EQ(Value(text->buffer()).description(), row.outcome) << row.what;
  }
}

struct UnsupportedRow {
  const char* selector;
  Value argument;
  const char* className;
};

TEST(ExternalFunctions, RefuseUnsupportedArgumentTypesEvenForNull) {
  const UnsupportedRow rows[] = {
      {"takeClass:", "text", "NSString"},
      {"takeClass:", Value::null(), "(null)"},
      {"takeClass:", 1, "NSNumber"},
      {"takeSelector:", NSArray::array(), "NSArray"},
      {"takeSelector:", Value::null(), "(null)"},
      {"takeCharacters:", "text", "NSString"},
      {"takeLong:", 1.5, "NSNumber"},
      {"takeLong:", makeRef<HostObject>(), "HostObject"},
  };
  DeskStage stage;
  for (const UnsupportedRow& row : rows) {
    EXPECT_EQ(stage.raisedByCall(row.selector, {row.argument}),
              std::string("NSInvalidArgumentException: ") + row.selector +
                  ": unsupported argument type: " + row.className + " at index 2");
  }
  EXPECT_EQ(stage.desk.calls, 0);
}

TEST(ExternalFunctions, RefuseUnsupportedReturnTypesWhenTheMethodHasRun) {
  DeskStage stage;
  int calls = 0;
  for (const char* const selector : {"ownClass", "ownSelector", "ownCharacters", "ownLong"}) {
    EXPECT_EQ(stage.raisedByCall(selector, {}),
              std::string("NSInvalidArgumentException: ") + selector + ": unsupported return type");
    EXPECT_EQ(stage.desk.calls, ++calls) << selector;
  }
}

// An object whose methods have encodings that are written by hand.
class HandWritten final : public NSObject {
 public:
  explicit HandWritten(Desk& desk) {
    const auto add = [&](const char* selector, auto function, const Ref<NSMethodSignature>& signature) {
      methods_.addMethod(selector, HostMethod::of<HandWritten>(function).withSignature(signature));
    };
    add(
        "takeTruth:", [&desk](HandWritten&, bool truth) { desk.takeTruth(truth); },
        NSMethodSignature::signatureWithTypes("v", {"B"}));
    add(
        "ownTruth", [&desk](HandWritten&) { return desk.ownTruth(); }, NSMethodSignature::signatureWithTypes("B", {}));
    methods_.addMethod("void:", HostMethod(NSMethodSignature::signatureWithTypes("v", {"v"}),
                                           [&desk](void*, NSInvocation&) { ++desk.calls; }));
    methods_.addMethod("text", HostMethod(NSMethodSignature::signatureWithTypes("@", {}),
                                          [](void*, NSInvocation& call) { call.setReturnValue(Value("by hand")); }));
  }
  const char* className() const override { return "HandWritten"; }
  BoundMethod methodForSelector(const Selector& selector) const override { return methods_.find(selector, *this); }

 private:
  HostMethodTable methods_;
};

TEST(ExternalFunctions, RefuseTheSeparateBooleanTypeAndTheVoidOne) {
  DeskStage stage;
  const Ref<HandWritten> target = makeRef<HandWritten>(stage.desk);
  const auto call = [&](const Selector& selector, ListArgument<Value> arguments) {
    return KorTemplateExternalFunction::functionWithSelectorTarget(selector, target)
        ->invokeWithEnvironment(stage.get(), arguments);
  };
  EXPECT_EQ(raisedBy([&] { (void)call("takeTruth:", {true}); }),
            "NSInvalidArgumentException: takeTruth:: unsupported argument type: NSNumber at index 2");
  EXPECT_EQ(raisedBy([&] { (void)call("takeTruth:", {Value::null()}); }),
            "NSInvalidArgumentException: takeTruth:: unsupported argument type: (null) at index 2");
  EXPECT_EQ(raisedBy([&] { (void)call("void:", {1}); }),
            "NSInvalidArgumentException: void:: unsupported argument type: NSNumber at index 2");
  EXPECT_EQ(stage.desk.calls, 0);
  EXPECT_EQ(raisedBy([&] { (void)call("ownTruth", {}); }),
            "NSInvalidArgumentException: ownTruth: unsupported return type");
  EXPECT_EQ(stage.desk.calls, 1);
  EXPECT_EQ(call("text", {}).description(), "by hand");
}

TEST(ExternalFunctions, RefuseASelectorThatTheTargetHasNotWhenTheyAreMade) {
  DeskStage stage;
  for (const char* const selector : {"missing:", "add:", "add:to", ""}) {
    EXPECT_EQ(raisedBy([&] { stage.bind("f", selector); }),
              std::string("NSInvalidArgumentException: Failed to obtain methodSignature for ") + selector);
  }
  EXPECT_EQ(
      raisedBy([&] { (void)KorTemplateExternalFunction::functionWithSelectorOwning("x", makeRef<HostObject>()); }),
      "NSInvalidArgumentException: Failed to obtain methodSignature for x");
  EXPECT_EQ(stage.environment->functionForName("f"), nullptr);
  EXPECT_NO_THROW(stage.bind("f", "takeClass:"));
  EXPECT_NO_THROW(stage.bind("f", "ownClass"));
}

TEST(ExternalFunctions, CheckTheirPreconditions) {
  DeskStage stage;
  using Function = KorTemplateExternalFunction;
  const Ref<NSObject> nobody;
  const auto function = stage.bind("f", "none");
  struct Row {
    std::string text;
    std::string expected;
  };
  const Row rows[] = {
      {raisedBy([] { (void)makeRef<Function>(); }),
       failedAssertion("Default [KorTemplateExternalFunction init] should not be used")},
      {raisedBy([] { (void)makeRef<Function>(Ref<NSInvocation>()); }), failedCheck("theInvocation != nil")},
      {raisedBy([] { (void)Function::functionWithInvocation(nullptr); }), failedCheck("invocation != nil")},
      {raisedBy([&] { function->setInvocation(nullptr); }), failedCheck("value != nil")},
      {raisedBy([&] { (void)Function::functionWithSelectorTarget(Selector(), nobody); }),
       failedCheck("selector != nil")},
      {raisedBy([&] { (void)Function::functionWithSelectorTarget("f", nobody); }), failedCheck("target != nil")},
      {raisedBy([&] { (void)Function::functionWithSelectorTarget("f", nullptr); }), failedCheck("target != nil")},
      {raisedBy([&] { (void)Function::functionWithSelectorTarget(nullptr, stage.desk); }),
       failedCheck("selector != nil")},
      {raisedBy([&] { (void)Function::functionWithSelectorOwning("f", nobody); }), failedCheck("target != nil")},
      {raisedBy([] { (void)Function::functionWithSelectorOwning("f", std::shared_ptr<Desk>()); }),
       failedCheck("target != nil")},
      {raisedBy([] { (void)Function::functionWithSelectorOwning("f", std::unique_ptr<Desk>()); }),
       failedCheck("target != nil")},
      {raisedBy([&] { (void)function->invokeWithEnvironment(nullptr, {}); }), failedCheck("environment != nil")},
      {raisedBy([&] { (void)function->invokeWithEnvironment(stage.get(), nullptr); }), failedCheck("args != nil")},
      {raisedBy([&] { setObjectForArgumentAtIndex(*function->invocation(), 1, 1); }), failedCheck("index >= 2")},
      {raisedBy([&] { setObjectForArgumentAtIndex(*function->invocation(), 1, -3); }), failedCheck("index >= 2")},
  };
  for (const Row& row : rows) EXPECT_EQ(row.text, row.expected);
}

TEST(ExternalFunctions, KeepPositionsSetBeforeAFailure) {
  DeskStage stage;
  const auto add = stage.bind("f", "add:to:");
  EXPECT_EQ(add->invokeWithEnvironment(stage.get(), {1, 2}).description(), "3");
  EXPECT_EQ(raisedBy([&] {
              (void)add->invokeWithEnvironment(stage.get(), {10, "x"});
            }),
            "NSGenericException: Incorrect type for double argument at index 3 of add:to:. NSNumber expected.");
  EXPECT_EQ(stage.desk.calls, 1);
  EXPECT_EQ(add->invocation()->getArgument<int>(2), 10);
  EXPECT_EQ(add->invocation()->getArgument<double>(3), 2);
}

TEST(ExternalFunctions, HaveAnInvocationThatCanBeReplaced) {
  DeskStage stage;
  const auto function = stage.bind("f", "add:to:");
  EXPECT_EQ(function->invocation()->selector(), Selector("add:to:"));
  EXPECT_STREQ(function->className(), "KorTemplateExternalFunction");
  function->setInvocation(stage.bind("g", "none")->invocation());
  EXPECT_EQ(function->invokeWithEnvironment(stage.get(), {}).description(), "0");
  function->setInvocation(function->invocation());
  EXPECT_EQ(function->invokeWithEnvironment(stage.get(), {}).description(), "0");

  const Ref<NSInvocation> made =
      NSInvocation::invocationWithMethodSignature(NSMethodSignature::signatureOf<Value, int>());
  const auto overIt = KorTemplateExternalFunction::functionWithInvocation(made);
  EXPECT_EQ(overIt->invocation(), made);
  EXPECT_TRUE(overIt->invokeWithEnvironment(stage.get(), {1}).isNull());  // without a target
  EXPECT_EQ(raisedBy([&] { (void)overIt->invokeWithEnvironment(stage.get(), {}); }),
            "NSGenericException: (null). Incorrect number of arguments: 0 supplied, 1 expected.");
}

TEST(ExternalFunctions, PassOnWhatTheMethodRaises) {
  DeskStage stage;
  EXPECT_EQ(stage.raisedByCall("refuse", {}), "Refusal: not today");
  stage.bind("refuse", "refuse");
  stage.run("a<?= refuse() ?>b");
  EXPECT_EQ(stage.text(), "ab");
  EXPECT_THAT(stage.errors->writes, ElementsAre("not today"));
}

TEST(ExternalFunctions, EvaluateTheirArgumentsBeforeTheySetAny) {
  DeskStage stage;
  stage.bind("add", "add:to:");
  stage.run("<?= add(add(1, 2), add(add(3, 4), 5)) ?>");
  EXPECT_EQ(stage.text(), "15");
  EXPECT_EQ(stage.desk.calls, 4);
}

TEST(HostClass, RefusesASelectorWithAnotherNumberOfArguments) {
  HostClass<Desk> description;
  EXPECT_EQ(raisedBy([&] { description.method("add:", &Desk::add); }),
            "NSInvalidArgumentException: add:: the selector names 1 arguments by its colons, the method takes 2");
  Desk desk;
  EXPECT_FALSE(hostReference(desk).object()->respondsToSelector("add:"));
  EXPECT_TRUE(hostReference(desk).object()->respondsToSelector("add:to:"));
}

}  // namespace

}  // namespace tavlo::test
