#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "Source/KorTemplateConditionalStatement.h"
#include "Source/KorTemplateEnumerationStatement.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr int kAbsent = -1;

// Equal to every other node of its number.
class NumberedStatement final : public KorTemplateStatement {
 public:
  explicit NumberedStatement(int number) : number(number) {}
  void executeWithEnvironment(KorTemplateEnvironment* /*environment*/) override {}
  Ref<KorTemplateStatement> copyWithZone(NSZone* /*zone*/) const override { return makeRef<NumberedStatement>(number); }
  bool isEqual(const NSObject& other, std::int32_t /*depth*/) const override {
    const auto* statement = dynamic_cast<const NumberedStatement*>(&other);
    return statement != nullptr && statement->number == number;
  }
  std::size_t hash() const override { return static_cast<std::size_t>(number); }

  const int number;
};

class NumberedExpression final : public KorTemplateExpression {
 public:
  explicit NumberedExpression(int number) : number(number) {}
  Value evaluateWithEnvironment(KorTemplateEnvironment* /*environment*/) override { return number; }
  Ref<KorTemplateExpression> copyWithZone(NSZone* /*zone*/) const override {
    return makeRef<NumberedExpression>(number);
  }
  bool isEqual(const NSObject& other, std::int32_t /*depth*/) const override {
    const auto* expression = dynamic_cast<const NumberedExpression*>(&other);
    return expression != nullptr && expression->number == number;
  }
  std::size_t hash() const override { return static_cast<std::size_t>(number); }

  const int number;
};

// A new item each time, equal to all others of its number.
template <class Item>
Item itemOf(int number);
template <>
Ref<KorTemplateStatement> itemOf(int number) {
  return number == kAbsent ? nullptr : Ref<KorTemplateStatement>(makeRef<NumberedStatement>(number));
}
template <>
Ref<KorTemplateExpression> itemOf(int number) {
  return number == kAbsent ? nullptr : Ref<KorTemplateExpression>(makeRef<NumberedExpression>(number));
}
template <>
Name itemOf(int number) {
  return number == kAbsent ? Name() : Name(std::to_string(number));
}

int numberOf(const Ref<KorTemplateStatement>& item) {
  return as<NumberedStatement>(item).number;
}
int numberOf(const Ref<KorTemplateExpression>& item) {
  return as<NumberedExpression>(item).number;
}
int numberOf(const Name& item) {
  return std::stoi(std::string(item.view()));
}

// A node's list behind one face, whatever the list holds: items are numbers.
struct ListFace {
  const char* what;
  const char* absentItem;
  const char* insertBound;
  const char* removeBound;
  std::function<void(const std::vector<int>&)> set;
  std::function<void()> setAbsent;
  std::function<void()> setToItself;
  std::function<void(int, std::int32_t)> insert;
  std::function<void(std::int32_t)> removeAt;
  std::function<void(int)> add;
  std::function<void(int)> remove;
  std::function<void()> removeAll;
  std::function<std::vector<int>()> items;
};

// The node's methods by which its list is changed.
template <class Node, class Item>
struct Accessors {
  KorTemplateChildList<Item>& (Node::*list)() noexcept;
  void (Node::*set)(const ListArgument<Item>& value);
  void (Node::*insert)(const Item& item, std::int32_t index);
  void (Node::*removeAt)(std::int32_t index);
  void (Node::*add)(const Item& item);
  void (Node::*remove)(const Item& item);
  void (Node::*removeAll)();
};

template <class Node, class Item>
void addMethods(ListFace& face, const Ref<Node>& node, const Accessors<Node, Item>& methods) {
  face.set = [=](const std::vector<int>& numbers) {
    std::vector<Item> items;
    for (const int number : numbers) items.push_back(itemOf<Item>(number));
    ((*node).*methods.set)(items);
    items.clear();  // of no consequence for the node's list
  };
  face.setAbsent = [=] { ((*node).*methods.set)(nullptr); };
  face.setToItself = [=] { ((*node).*methods.set)(((*node).*methods.list)().items()); };
  face.insert = [=](int number, std::int32_t index) { ((*node).*methods.insert)(itemOf<Item>(number), index); };
  face.removeAt = [=](std::int32_t index) { ((*node).*methods.removeAt)(index); };
  face.add = [=](int number) { ((*node).*methods.add)(itemOf<Item>(number)); };
  face.remove = [=](int number) { ((*node).*methods.remove)(itemOf<Item>(number)); };
  face.removeAll = [=] { ((*node).*methods.removeAll)(); };
  // The list is the live one: asked for once, it shows every later change.
  face.items = [node, &list = ((*node).*methods.list)()] {
    std::vector<int> numbers;
    for (const Item& item : list) numbers.push_back(numberOf(item));
    return numbers;
  };
}

template <class Node, class Item>
ListFace faceOf(const char* what, const char* absentItem, const char* insertBound, const char* removeBound,
                const Ref<Node>& node, const Accessors<Node, Item>& methods) {
  ListFace face{what, absentItem, insertBound, removeBound, {}, {}, {}, {}, {}, {}, {}, {}, {}};
  addMethods(face, node, methods);
  return face;
}

std::vector<ListFace> templateAndCallFaces() {
  using Template = KorTemplate;
  using Call = KorTemplateFunctionCallExpression;
  return {
      faceOf("the statements of a template", "statement != nil", "index >= 0 && index <= [statements count]",
             "index >= 0 && index < [statements count]", makeRef<Template>(),
             Accessors<Template, Ref<KorTemplateStatement>>{
                 &Template::statements, &Template::setStatements, &Template::insertObjectInStatementsAtIndex,
                 &Template::removeObjectFromStatementsAtIndex, &Template::addStatement, &Template::removeStatement,
                 &Template::removeAllStatements}),
      faceOf("the arguments of a call", "argumentExpression != nil",
             "index >= 0 && index <= [argumentExpressions count]", "index >= 0 && index < [argumentExpressions count]",
             makeRef<Call>(),
             Accessors<Call, Ref<KorTemplateExpression>>{
                 &Call::argumentExpressions, &Call::setArgumentExpressions,
                 &Call::insertObjectInArgumentExpressionsAtIndex, &Call::removeObjectFromArgumentExpressionsAtIndex,
                 &Call::addArgumentExpression, &Call::removeArgumentExpression, &Call::removeAllArgumentExpressions}),
  };
}

std::vector<ListFace> functionFaces() {
  using Function = KorTemplateInternalFunction;
  return {
      faceOf("the parameters of a function", "argument != nil", "index >= 0 && index <= [arguments count]",
             "index >= 0 && index < [arguments count]", makeRef<Function>(),
             Accessors<Function, Name>{&Function::arguments, &Function::setArguments,
                                       &Function::insertObjectInArgumentsAtIndex,
                                       &Function::removeObjectFromArgumentsAtIndex, &Function::addArgument,
                                       &Function::removeArgument, &Function::removeAllArguments}),
      faceOf("the statements of a function", "statement != nil", "index >= 0 && index <= [statements count]",
             "index >= 0 && index < [statements count]", makeRef<Function>(),
             Accessors<Function, Ref<KorTemplateStatement>>{
                 &Function::statements, &Function::setStatements, &Function::insertObjectInStatementsAtIndex,
                 &Function::removeObjectFromStatementsAtIndex, &Function::addStatement, &Function::removeStatement,
                 &Function::removeAllStatements}),
  };
}

std::vector<ListFace> controlFaces() {
  using If = KorTemplateConditionalStatement;
  using Loop = KorTemplateEnumerationStatement;
  using Methods = Accessors<If, Ref<KorTemplateStatement>>;
  return {
      faceOf("the true statements of a conditional", "trueStatement != nil",
             "index >= 0 && index <= [trueStatements count]", "index >= 0 && index < [trueStatements count]",
             makeRef<If>(),
             Methods{&If::trueStatements, &If::setTrueStatements, &If::insertObjectInTrueStatementsAtIndex,
                     &If::removeObjectFromTrueStatementsAtIndex, &If::addTrueStatement, &If::removeTrueStatement,
                     &If::removeAllTrueStatements}),
      faceOf("the false statements of a conditional", "falseStatement != nil",
             "index >= 0 && index <= [falseStatements count]", "index >= 0 && index < [falseStatements count]",
             makeRef<If>(),
             Methods{&If::falseStatements, &If::setFalseStatements, &If::insertObjectInFalseStatementsAtIndex,
                     &If::removeObjectFromFalseStatementsAtIndex, &If::addFalseStatement, &If::removeFalseStatement,
                     &If::removeAllFalseStatements}),
      faceOf("the statements of a loop", "loopStatement != nil", "index >= 0 && index <= [loopStatements count]",
             "index >= 0 && index < [loopStatements count]", makeRef<Loop>(),
             Accessors<Loop, Ref<KorTemplateStatement>>{
                 &Loop::loopStatements, &Loop::setLoopStatements, &Loop::insertObjectInLoopStatementsAtIndex,
                 &Loop::removeObjectFromLoopStatementsAtIndex, &Loop::addLoopStatement, &Loop::removeLoopStatement,
                 &Loop::removeAllLoopStatements}),
  };
}

// Every child list of every node, on nodes of their own.
std::vector<ListFace> allLists() {
  std::vector<ListFace> faces = templateAndCallFaces();
  for (const std::vector<ListFace>& more : {functionFaces(), controlFaces()}) {
    faces.insert(faces.end(), more.begin(), more.end());
  }
  return faces;
}

TEST(ChildLists, StartEmpty) {
  for (const ListFace& face : allLists()) EXPECT_THAT(face.items(), IsEmpty()) << face.what;
}

TEST(ChildLists, AddPutsAtTheEnd) {
  for (const ListFace& face : allLists()) {
    face.add(1);
    face.add(2);
    EXPECT_THAT(face.items(), ElementsAre(1, 2)) << face.what;
  }
}

TEST(ChildLists, InsertPutsBeforeTheIndexUpToTheEnd) {
  for (const ListFace& face : allLists()) {
    face.insert(1, 0);
    face.insert(2, 1);
    face.insert(3, 1);
    face.insert(4, 0);
    EXPECT_THAT(face.items(), ElementsAre(4, 1, 3, 2)) << face.what;
  }
}

TEST(ChildLists, SetReplacesTheItemsByACopyOfTheList) {
  for (const ListFace& face : allLists()) {
    face.add(7);
    face.set({1, 2, 3});
    EXPECT_THAT(face.items(), ElementsAre(1, 2, 3)) << face.what;
    face.set({});
    EXPECT_THAT(face.items(), IsEmpty()) << face.what;
  }
}

TEST(ChildLists, SetToItsOwnItemsChangesNothing) {
  for (const ListFace& face : allLists()) {
    face.set({1, 2, 3});
    face.setToItself();
    EXPECT_THAT(face.items(), ElementsAre(1, 2, 3)) << face.what;
  }
}

TEST(ChildLists, RemoveAtTakesTheItemAtTheIndex) {
  for (const ListFace& face : allLists()) {
    face.set({1, 2, 3});
    face.removeAt(1);
    EXPECT_THAT(face.items(), ElementsAre(1, 3)) << face.what;
    face.removeAt(1);
    face.removeAt(0);
    EXPECT_THAT(face.items(), IsEmpty()) << face.what;
  }
}

TEST(ChildLists, RemoveTakesTheFirstEqualItem) {
  for (const ListFace& face : allLists()) {
    face.set({1, 2, 1, 2});
    face.remove(2);
    EXPECT_THAT(face.items(), ElementsAre(1, 1, 2)) << face.what;
  }
}

TEST(ChildLists, RemoveAllLeavesNothingAndMayBeRepeated) {
  for (const ListFace& face : allLists()) {
    face.set({1, 2, 1});
    face.removeAll();
    EXPECT_THAT(face.items(), IsEmpty()) << face.what;
    face.removeAll();
    EXPECT_THAT(face.items(), IsEmpty()) << face.what;
  }
}

TEST(ChildLists, RefuseAbsentLists) {
  for (const ListFace& face : allLists()) {
    face.set({1, 2});
    EXPECT_EQ(raisedBy(face.setAbsent), failedCheck("value != nil")) << face.what;
    EXPECT_THAT(face.items(), ElementsAre(1, 2)) << face.what;
  }
}

TEST(ChildLists, RefuseAbsentItems) {
  for (const ListFace& face : allLists()) {
    face.set({1, 2});
    EXPECT_EQ(raisedBy([&] { face.add(kAbsent); }), failedCheck(face.absentItem)) << face.what;
    EXPECT_EQ(raisedBy([&] { face.insert(kAbsent, 0); }), failedCheck(face.absentItem)) << face.what;
    EXPECT_EQ(raisedBy([&] { face.remove(kAbsent); }), failedCheck(face.absentItem)) << face.what;
    EXPECT_THAT(face.items(), ElementsAre(1, 2)) << face.what;
  }
}

TEST(ChildLists, CheckTheItemBeforeTheIndex) {
  for (const ListFace& face : allLists()) {
    EXPECT_EQ(raisedBy([&] { face.insert(kAbsent, 5); }), failedCheck(face.absentItem)) << face.what;
  }
}

TEST(ChildLists, RefuseToInsertOutsideTheList) {
  for (const ListFace& face : allLists()) {
    face.set({1, 2});
    for (const std::int32_t index :
         {-1, 3, std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()}) {
      EXPECT_EQ(raisedBy([&] { face.insert(9, index); }), failedCheck(face.insertBound)) << face.what << " " << index;
    }
    EXPECT_THAT(face.items(), ElementsAre(1, 2)) << face.what;
  }
}

TEST(ChildLists, RefuseToAnswerFromOutsideTheList) {
  const Ref<KorTemplate> owner = templateOf({output("x")});
  for (const std::int32_t index : {-1, 1, 7}) {
    EXPECT_EQ(raisedBy([&] { (void)owner->statements().at(index); }),
              "NSRangeException: Index " + std::to_string(index) + " is beyond a list of 1 elements");
  }
}

TEST(ChildLists, RefuseToRemoveOutsideTheList) {
  for (const ListFace& face : allLists()) {
    EXPECT_EQ(raisedBy([&] { face.removeAt(0); }), failedCheck(face.removeBound)) << face.what;
    face.set({1, 2});
    for (const std::int32_t index :
         {-1, 2, std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()}) {
      EXPECT_EQ(raisedBy([&] { face.removeAt(index); }), failedCheck(face.removeBound)) << face.what << " " << index;
    }
    EXPECT_THAT(face.items(), ElementsAre(1, 2)) << face.what;
  }
}

TEST(ChildLists, FailTheIndexCheckForAnItemThatIsNotThere) {
  for (const ListFace& face : allLists()) {
    EXPECT_EQ(raisedBy([&] { face.remove(1); }), failedCheck(face.removeBound)) << face.what;
    face.set({1, 2});
    EXPECT_EQ(raisedBy([&] { face.remove(3); }), failedCheck(face.removeBound)) << face.what;
    EXPECT_THAT(face.items(), ElementsAre(1, 2)) << face.what;
  }
}

TEST(ChildLists, ShareTheItemsThatTheyAreSetTo) {
  const Ref<KorTemplateStatement> statement = output("x");
  const Ref<KorTemplate> owner = makeRef<KorTemplate>();
  std::vector<Ref<KorTemplateStatement>> source = {statement};
  owner->setStatements(source);
  source.push_back(output("y"));
  ASSERT_EQ(owner->statements().count(), 1);
  EXPECT_EQ(owner->statements()[0], statement);
  EXPECT_EQ(source.size(), 2u);
}

TEST(ChildLists, TakeAnItemOutOfTheirOwnList) {
  const Ref<KorTemplate> owner = templateOf({output("x"), output("y")});
  owner->insertObjectInStatementsAtIndex(owner->statements()[1], 0);
  EXPECT_EQ(owner->statements()[0], owner->statements()[2]);
  owner->removeStatement(owner->statements()[2]);
  ASSERT_EQ(owner->statements().count(), 2);
  EXPECT_EQ(as<KorTemplateLiteralExpression>(as<KorTemplateOutputStatement>(owner->statements()[1]).expression())
                .literal()
                .description(),
            "y");
}

}  // namespace

}  // namespace tavlo::test
