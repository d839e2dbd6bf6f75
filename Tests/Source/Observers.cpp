#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Foundation/NSArray.h"
#include "Foundation/NSDictionary.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// An object with one property that has no value.
class EmptyObject final : public NSObject {
 public:
  const char* className() const override { return "EmptyObject"; }
  bool findValueForKey(const NSString& key, Value& value) const override {
    value = Value();
    return key.view() == "empty";
  }
};

// An object that raises for every key.
class RaisingObject final : public NSObject {
 public:
  const char* className() const override { return "RaisingObject"; }
  Value valueForKey(const NSString& key) const override {
    NSException::raise(NSUndefinedKeyException, "no %@", key.view());
  }
};

struct ObservedStage : Stage {
  ObservedStage() {
    environment->setObserver(observer);
    set("d", NSDictionary::dictionaryWithEntries({{"k", 1}, {"n", NSNull::null()}}));
    set("list", NSArray::arrayWithObjects({NSDictionary::dictionary()}));
    set("empty", makeRef<EmptyObject>());
    set("raising", makeRef<RaisingObject>());
    set("text", "abc");
    set("one", 1);
    observer->setCallback([this](const KorTemplateObservation& seen) {
      static constexpr const char* kKinds[] = {"variable", "key", "function"};
      observed.push_back(std::string(kKinds[static_cast<std::size_t>(seen.kind)]) + " " + seen.name);
    });
  }

  Ref<KorTemplateObserver> observer = KorTemplateObserver::observer();
  std::vector<std::string> observed;
};

TEST(AnObserver, HearsOfWhatIsNotDefined) {
  struct Row {
    const char* text;
    std::vector<std::string> observed;
  };
  const Row rows[] = {
      {"<?= $x ?>", {"variable $x"}},
      {"<?= @@index ?>", {"variable @@index"}},
      {"<?= $x.a.b ?>", {"variable $x"}},
      {"<?= $d.k ?><?= $one ?><?= $d.n ?>", {}},
      {"<?= $d.m ?>", {"key $d.m"}},
      {"<?= $d.k.z ?>", {"key $d.k.z"}},
      {"<?= $d.n.z ?>", {"key $d.n.z"}},
      {"<?= $d.m.z ?>", {"key $d.m.z"}},
      {"<?= $empty.empty ?>", {}},
      {"<?= $empty.full ?>", {"key $empty.full"}},
      {"<?= $raising.a ?>", {"key $raising.a"}},
      {"<?= $text.length ?><?= $text.size ?>", {"key $text.size"}},
      {"<?= $list.@count ?><?= $list.@sum.a ?>", {}},
      {"<?= f($x) ?>", {"function f"}},
      {"<? $x = 1 ?><?= $x ?>", {}},
      {"<? $x = $y ?><?= $x ?>", {"variable $y"}},
      {"<? if ($x) ?><? endif ?>", {"variable $x"}},
      {"<? if ($x == null) ?>a<? endif ?>", {"variable $x"}},
      {"<? foreach ($e in $x) ?><? endforeach ?>", {"variable $x"}},
      {"<? foreach ($e in $list) ?><?= @@index ?><? endforeach ?>", {}},
      {"<? function g($p) ?><? return $q ?><? endfunction ?><? g($r) ?>", {"variable $r", "variable $q"}},
      {"<?= $text + $x ?>", {"variable $x"}},
      {"<?= $one + $x ?>", {"variable $x"}},
      {"<?= \"a\" + $text + $x + $y ?>", {"variable $x", "variable $y"}},
      {"<?= $x + $y ?>", {"variable $x", "variable $y"}},
      {"<?= $x =~ /a/ ?>", {"variable $x"}},
  };
  for (const Row& row : rows) {
    ObservedStage stage;
    const Stage plain;
    for (const Name& name : stage.environment->globalVariableNames()) plain.set(name, stage.global(name));
    stage.run(row.text);
    plain.run(row.text);
    EXPECT_EQ(stage.observed, row.observed) << row.text;
    EXPECT_EQ(stage.observer->count(), row.observed.size()) << row.text;
    EXPECT_EQ(stage.text(), plain.text()) << row.text;
    EXPECT_THAT(stage.errors->writes, IsEmpty()) << row.text;
  }
}

TEST(AnObserver, IsNotThereUnlessItIsAskedFor) {
  const Stage stage;
  EXPECT_EQ(stage.environment->observer(), nullptr);
}

TEST(AnObserver, CountsByKind) {
  const Stage stage;
  const Ref<KorTemplateObserver> observer = KorTemplateObserver::observer();
  stage.environment->setObserver(observer);
  stage.set("d", NSDictionary::dictionary());
  stage.run("<?= $x ?><?= $x ?><?= $d.k ?><? f() ?><? f() ?><? f() ?>");
  EXPECT_EQ(observer->count(KorTemplateUndefined::Variable), 2U);
  EXPECT_EQ(observer->count(KorTemplateUndefined::Key), 1U);
  EXPECT_EQ(observer->count(KorTemplateUndefined::Function), 3U);
  EXPECT_EQ(observer->count(), 6U);
  observer->resetCounts();
  EXPECT_EQ(observer->count(), 0U);
  stage.environment->setObserver(nullptr);
  stage.run("<?= $x ?>");
  EXPECT_EQ(observer->count(), 0U);
}

// Where it only counts, long names are not gone through.
TEST(AnObserver, TakesNoStepsToCount) {
  std::uint64_t steps[2] = {};
  for (const bool isObserved : {false, true}) {
    const Stage stage;
    if (isObserved) stage.environment->setObserver(KorTemplateObserver::observer());
    stage.run("<?= $" + std::string(10'000, 'a') + " ?>");
    steps[isObserved ? 1 : 0] = stage.environment->stepsTaken();
  }
  EXPECT_EQ(steps[1], steps[0]);
}

TEST(AnObserver, WarnsOnTheErrorStream) {
  const Stage stage;
  const Ref<KorTemplateObserver> observer = KorTemplateObserver::observer();
  observer->setPolicy(KorTemplateUndefinedPolicy::Warn);
  observer->setPolicy(KorTemplateUndefined::Key, KorTemplateUndefinedPolicy::Count);
  stage.environment->setObserver(observer);
  stage.set("d", NSDictionary::dictionary());
  const Ref<KorTemplate> page = KorTemplate::compile("a<?= $x ?>\n<?= $d.k ?><?= f() ?>b", {.name = "page"});
  page->executeWithEnvironment(stage.get());
  EXPECT_THAT(stage.errors->writes,
              ElementsAre("Undefined variable \"$x\" at page:1:2", "Undefined function \"f\" at page:2:12"));
  EXPECT_EQ(stage.text(), "a\nb");
}

TEST(AnObserver, FailsWithNameAndPlace) {
  struct Row {
    KorTemplateUndefined kind;
    const char* text;
    const char* raised;
  };
  const Row rows[] = {
      {KorTemplateUndefined::Variable, "a\n<?= $x ?>b", "Undefined variable \"$x\" at page:2:1"},
      {KorTemplateUndefined::Key, "a<?= $one.k ?>b", "Undefined key \"$one.k\" at page:1:2"},
      {KorTemplateUndefined::Function, "a<?= f() ?>b", "Undefined function \"f\" at page:1:2"},
  };
  for (const Row& row : rows) {
    const Stage stage;
    stage.set("one", 1);
    const Ref<KorTemplateObserver> observer = KorTemplateObserver::observer();
    observer->setPolicy(row.kind, KorTemplateUndefinedPolicy::Fail);
    stage.environment->setObserver(observer);
    const Ref<KorTemplate> page = KorTemplate::compile(row.text, {.name = "page"});
    EXPECT_EQ(raisedBy([&] { page->executeWithEnvironment(stage.get()); }),
              std::string("NSGenericException: ") + row.raised);
    EXPECT_EQ(stage.text().front(), 'a') << row.text;
    EXPECT_EQ(stage.text().find('b'), std::string::npos) << row.text;
    EXPECT_EQ(stage.depth(), 1) << row.text;
  }
}

TEST(AnObserver, KnowsTheCallsUnderWay) {
  const Stage stage;
  const Ref<KorTemplateObserver> observer = KorTemplateObserver::observer();
  std::vector<std::string> calls;
  observer->setCallback([&](const KorTemplateObservation& seen) {
    for (const KorTemplateCall& call : seen.trace.calls) {
      calls.push_back(std::string(call.functionName()) + "@" + call.place().description());
    }
  });
  stage.environment->setObserver(observer);
  const Ref<KorTemplate> page =
      KorTemplate::compile("<? function f() ?><?= $x ?><? endfunction ?>\n<? f() ?>", {.name = "page"});
  page->executeWithEnvironment(stage.get());
  EXPECT_THAT(calls, ElementsAre("f@page:2:1"));
}

TEST(AnObserver, MayDefineWhatIsMissingForTheNextTime) {
  const Stage stage;
  const Ref<KorTemplateObserver> observer = KorTemplateObserver::observer();
  observer->setCallback([&](const KorTemplateObservation& seen) {
    stage.set(seen.name.substr(1), "found");
    stage.set("text", std::string("changed"));  // what the expression has read before is still good
    stage.environment->setObserver(nullptr);
  });
  stage.environment->setObserver(observer);
  stage.set("text", std::string("first"));
  stage.run("<?= $text + \":\" + ($text + $x) ?>,<?= $x ?>");
  EXPECT_EQ(stage.text(), "first:first<null>,found");
}

TEST(AnObserver, RaisesFromItsCallbackWhatItLikes) {
  const ObservedStage stage;
  stage.observer->setCallback([](const KorTemplateObservation& seen) { throw NSException("Missing", seen.name); });
  EXPECT_EQ(raisedBy([&] { stage.run("a<?= $x ?>b"); }), "Missing: $x");
  EXPECT_EQ(stage.text(), "a");
}

}  // namespace

}  // namespace tavlo::test
