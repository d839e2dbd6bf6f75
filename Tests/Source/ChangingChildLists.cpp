#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "Source/KorTemplateConditionalStatement.h"
#include "Tests/Source/HostClasses.h"

// Lists that a host's code changes while the engine walks or shortens them.
namespace tavlo::test {

namespace {

using testing::ElementsAre;
using testing::UnorderedElementsAreArray;

// A statement with a name, equal to what the host says, that runs the host's code when it is compared and when it ends.
class MeddlingStatement final : public KorTemplateStatement {
 public:
  explicit MeddlingStatement(std::string name) : name(std::move(name)) {}
  ~MeddlingStatement() override {
    if (onEnd) onEnd();
  }
  void executeWithEnvironment(KorTemplateEnvironment* /*environment*/) override {}
  Ref<KorTemplateStatement> copyWithZone(NSZone* /*zone*/) const override { return makeRef<MeddlingStatement>(name); }
  bool isEqual(const NSObject& other, std::int32_t /*depth*/) const override {
    const std::string before = name;
    if (onComparison) onComparison();
    EXPECT_EQ(name, before);  // still there
    const auto* statement = dynamic_cast<const MeddlingStatement*>(&other);
    return statement != nullptr && statement->name == name;
  }

  const std::string name;
  std::function<void()> onComparison;
  std::function<void()> onEnd;
};

Ref<MeddlingStatement> named(const std::string& name) {
  return makeRef<MeddlingStatement>(name + " of a length that no small buffer has room for");
}

// The first letters of the statements' names.
std::string lettersOf(KorTemplate& owner) {
  std::string letters;
  for (const Ref<KorTemplateStatement>& statement : owner.statements()) {
    letters += as<MeddlingStatement>(statement).name.front();
  }
  return letters;
}

// A template of three statements, a, b and c, the first of which is for the host to meddle with.
struct ThreeStatements {
  ThreeStatements() {
    for (const char* name : {"a", "b", "c"}) owner->addStatement(named(name));
  }
  MeddlingStatement& at(std::int32_t index) const { return as<MeddlingStatement>(owner->statements()[index]); }

  Ref<KorTemplate> owner = makeRef<KorTemplate>();
};

TEST(ChildListsThatChange, AreSearchedAsFarAsTheyGo) {
  struct Row {
    const char* what;
    std::function<void(KorTemplate&)> meddle;
    const char* left;
    bool found;
  };
  const Row rows[] = {
      {"cleared", [](KorTemplate& owner) { owner.removeAllStatements(); }, "", false},
      {"shortened", [](KorTemplate& owner) { owner.removeObjectFromStatementsAtIndex(0); }, "b", true},
      {"set anew",
       [](KorTemplate& owner) {
         owner.setStatements({named("x"), named("c"), named("y")});
       },
       "xy", true},
      {"lengthened",
       [](KorTemplate& owner) {
         for (int number = 0; number < 100; ++number) owner.addStatement(named("d"));
         while (owner.statements().count() > 3) owner.removeObjectFromStatementsAtIndex(3);
       },
       "ab", true},
  };
  for (const Row& row : rows) {
    const ThreeStatements three;
    bool meddled = false;
    three.at(0).onComparison = [&] {
      if (!std::exchange(meddled, true)) row.meddle(*three.owner);
    };
    const Ref<KorTemplateStatement> wanted = named("c");
    const std::string raised = raisedBy([&] { three.owner->removeStatement(wanted); });
    EXPECT_TRUE(meddled) << row.what;
    EXPECT_EQ(raised, row.found ? "nothing" : failedCheck("index >= 0 && index < [statements count]")) << row.what;
    EXPECT_EQ(lettersOf(*three.owner), row.left) << row.what;
  }
}

// What a statement that ends does to the list it was taken from finds that list without it.
TEST(ChildListsThatChange, HaveLetGoOfAStatementBeforeItEnds) {
  struct Row {
    const char* what;
    std::function<void(KorTemplate&)> shorten;
    const char* seen;  // by the statement that ends
    const char* left;  // behind what it adds
  };
  const Row rows[] = {
      {"removed at an index", [](KorTemplate& owner) { owner.removeObjectFromStatementsAtIndex(0); }, "bc", "bcdddd"},
      {"removed by equality", [](KorTemplate& owner) { owner.removeStatement(named("a")); }, "bc", "bcdddd"},
      {"removed with all others", [](KorTemplate& owner) { owner.removeAllStatements(); }, "", "dddd"},
      {"replaced with all others", [](KorTemplate& owner) { owner.setStatements({named("x")}); }, "x", "xdddd"},
  };
  for (const Row& row : rows) {
    const ThreeStatements three;
    std::string seen = "nothing";
    three.at(0).onEnd = [&] {
      seen = lettersOf(*three.owner);
      for (int time = 0; time < 4; ++time) three.owner->addStatement(named("d"));
    };
    row.shorten(*three.owner);
    EXPECT_EQ(seen, row.seen) << row.what;
    EXPECT_EQ(lettersOf(*three.owner), row.left) << row.what;
  }
}

TEST(ChildListsThatChange, LetAStatementThatEndsTakeTheRest) {
  const ThreeStatements three;
  three.at(1).onEnd = [&] { three.owner->removeAllStatements(); };
  three.owner->removeObjectFromStatementsAtIndex(1);
  EXPECT_EQ(lettersOf(*three.owner), "");
}

// Ending one after another, each takes the next.
TEST(ChildListsThatChange, LetEachStatementThatEndsTakeTheNext) {
  const Ref<KorTemplate> owner = makeRef<KorTemplate>();
  int ended = 0;
  for (int number = 0; number < 10; ++number) {
    const Ref<MeddlingStatement> statement = named("a");
    statement->onEnd = [&] {
      ++ended;
      if (owner->statements().count() > 0) owner->removeObjectFromStatementsAtIndex(0);
    };
    owner->addStatement(statement);
  }
  owner->removeObjectFromStatementsAtIndex(5);
  EXPECT_EQ(ended, 10);
  EXPECT_EQ(owner->statements().count(), 0);
}

// A function that runs the host's code when it is compared, and is equal to every other.
class MeddlingFunction final : public KorTemplateFunction {
 public:
  explicit MeddlingFunction(std::function<void()> onComparison) : onComparison_(std::move(onComparison)) {}
  Value invokeWithEnvironment(KorTemplateEnvironment* /*environment*/, ListArgument<Value> /*arguments*/) override {
    return NSNull::null();
  }
  bool isEqual(const NSObject& /*other*/, std::int32_t /*depth*/) const override {
    onComparison_();
    return isEqual_;
  }

 private:
  std::function<void()> onComparison_;
  bool isEqual_ = true;
};

TEST(AFunctionTableThatChanges, NamesWhatIsThereAtEachStep) {
  struct Row {
    const char* what;
    std::function<void(KorTemplateEnvironment&)> meddle;  // at the first comparison
    std::vector<Name> names;
  };
  const Row rows[] = {
      {"cleared",
       [](KorTemplateEnvironment& environment) {
         for (const Name& name : environment.functionNames()) environment.removeFunctionForName(name);
       },
       {"f0"}},
      {"lengthened",
       [](KorTemplateEnvironment& environment) {
         const Ref<KorTemplateFunction> known = environment.functionForName("f1");
         for (const char* name : {"g0", "g1", "g2", "g3", "g4", "g5", "g6", "g7", "g8", "g9"}) {
           environment.setFunctionForName(known, name);
         }
       },
       {"f0", "f1", "f2", "g0", "g1", "g2", "g3", "g4", "g5", "g6", "g7", "g8", "g9"}},
      {"filled with others",
       [](KorTemplateEnvironment& environment) {
         for (const char* name : {"f0", "f1", "f2"}) {
           environment.setFunctionForName(KorTemplateInternalFunction::function(), name);
         }
       },
       {"f0"}},
  };
  for (const Row& row : rows) {
    const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
    bool meddled = false;
    for (const char* name : {"f0", "f1", "f2"}) {
      environment->setFunctionForName(makeRef<MeddlingFunction>([&] {
                                        if (!std::exchange(meddled, true)) row.meddle(*environment);
                                      }),
                                      name);
    }
    const Ref<KorTemplateFunction> wanted = KorTemplateInternalFunction::function();
    EXPECT_THAT(environment->namesForFunction(wanted), UnorderedElementsAreArray(row.names)) << row.what;
    EXPECT_TRUE(meddled) << row.what;
    for (const Name& name : environment->functionNames()) environment->removeFunctionForName(name);
  }
}

TEST(AFunctionTableThatChanges, IsClearedOfWhatIsStillThere) {
  const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  for (const char* name : {"f0", "f1", "f2"}) {
    environment->setFunctionForName(makeRef<MeddlingFunction>([&] { environment->removeFunctionForName("f1"); }), name);
  }
  environment->setFunctionForName(KorTemplateInternalFunction::function(), "other");
  environment->removeFunction(KorTemplateInternalFunction::function());
  EXPECT_THAT(environment->functionNames(), ElementsAre(Name("other")));
}

// A host's node that changes the list it is copied from.
class ShrinkingStatement final : public KorTemplateStatement {
 public:
  explicit ShrinkingStatement(std::function<void()> copied) : copied_(std::move(copied)) {}
  void executeWithEnvironment(KorTemplateEnvironment* /*environment*/) override {}
  Ref<KorTemplateStatement> copyWithZone(NSZone* /*zone*/) const override {
    const std::function<void()> copied = copied_;
    copied();
    return makeRef<HostStatement>([](KorTemplateEnvironment*) {});
  }

 private:
  std::function<void()> copied_;
};

TEST(ListsThatShrink, AreCopiedAsFarAsTheyGo) {
  const Ref<KorTemplate> whole = makeRef<KorTemplate>();
  whole->addStatement(makeRef<ShrinkingStatement>([&] { whole->removeAllStatements(); }));
  for (int index = 0; index < 3; ++index) whole->addStatement(makeRef<HostStatement>([](KorTemplateEnvironment*) {}));
  const Ref<KorTemplateStatement> copy = whole->copyWithZone();
  EXPECT_EQ(static_cast<KorTemplate&>(*copy).statements().count(), 1);

  const Ref<KorTemplateConditionalStatement> branch = makeRef<KorTemplateConditionalStatement>();
  branch->addFalseStatement(makeRef<ShrinkingStatement>([&] { branch->removeAllFalseStatements(); }));
  branch->addFalseStatement(makeRef<HostStatement>([](KorTemplateEnvironment*) {}));
  const Ref<KorTemplateStatement> branchCopy = branch->copyWithZone();
  EXPECT_EQ(static_cast<KorTemplateConditionalStatement&>(*branchCopy).falseStatements().count(), 1);
}

}  // namespace

}  // namespace tavlo::test
