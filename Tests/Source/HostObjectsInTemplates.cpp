#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Foundation/LazyCollections.h"
#include "Foundation/NSArray.h"
#include "Tests/Foundation/HostShop.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

namespace {

// What a template writes that reads `x`.
std::string rendered(const Value& x, const std::string& text) {
  const Stage stage;
  stage.set("x", x);
  stage.run(text);
  return stage.text() + stage.diagnostics();
}

std::vector<Product> products() {
  return {Product{.name = "Lamp", .price = 9.5, .stock = 3, .tags = {"new"}},
          Product{.name = "Chair", .price = 20, .stock = 0, .tags = {}},
          Product{.name = "Desk", .price = 70.5, .stock = 1, .tags = {"new", "old"}}};
}

struct RenderRow {
  const char* text;
  const char* output;
};

TEST(AHostsObject, IsReadByPaths) {
  YoungMaker maker("Acme");
  Product product{.name = "Lamp", .price = 9.5, .stock = 3, .tags = {"new", "red"}, .note = "late", .maker = &maker};
  const RenderRow rows[] = {
      {"<?= $x.name ?>|<?= $x.price ?>|<?= $x.stock ?>|<?= $x.isCheap ?>", "Lamp|9.5|3|1"},
      {"<?= $x.code ?><?= $x.label ?><?= $x.note ?>", "LLamp!late"},
      // Read as the class that the pointer says.
      {"<?= $x.maker.name ?> <?= $x.maker.founded ?> <?= $x.maker.isListed ?>", "Acme 2020 "},
      {"<?= $x.tags ?>", "(\n    new,\n    red\n)"},
      {"<?= $x.tags.@count ?><?= $x.tags.length ?>", "2(\n    3,\n    3\n)"},
      {"<? foreach ($t in $x.tags) ?><?= @@index ?><?= $t ?><? endforeach ?>", "0new1red"},
      {"<?= $x.name + $x.stock ?><?= $x.stock + 1 ?><?= $x.name.length ?>", "Lamp344"},
      {"<? if ($x.isCheap && $x.name == \"Lamp\") ?>yes<? endif ?>", "yes"},
      {"<? if ($x.name =~ /^L/) ?>yes<? endif ?>", "yes"},
      {"<?= $x.unknown ?><?= $x.unknown.more ?><?= $x.maker.unknown ?><?= $x.name.unknown ?>", ""},
      {"<? $m = $x.maker ?><?= $m.name ?><? if ($m == $x.maker) ?>same<? endif ?>", "Acmesame"},
  };
  for (const RenderRow& row : rows) EXPECT_EQ(rendered(hostReference(product), row.text), row.output) << row.text;
  EXPECT_EQ(rendered(hostReference(maker), "<?= $x.name ?> <?= $x.founded ?> <?= $x.isListed ?>"), "Acme 2020 0");
  product.note.reset();
  product.maker = nullptr;
  EXPECT_EQ(rendered(hostReference(product), "<?= $x.note ?><?= $x.maker ?><?= $x.maker.name ?>"), "");
}

TEST(ALazyList, IsWalkedByALoop) {
  std::vector<Product> all = products();
  const RenderRow rows[] = {
      {"<? foreach ($p in $x) ?><?= @@index ?><?= $p.name ?> <?= $p.price ?>,<? endforeach ?>",
       "0Lamp 9.5,1Chair 20,2Desk 70.5,"},
      {"<? foreach ($p in $x) ?><? foreach ($t in $p.tags) ?><?= $p.name ?>:<?= $t ?> <? endforeach ?><? endforeach ?>",
       "Lamp:new Desk:new Desk:old "},
      {"<? foreach ($p in $x) ?><? $kept = $p ?><? $name = $kept.name ?><?= $name ?><? endforeach ?><?= $kept ?>",
       "LampChairDesk"},
      {"<? foreach ($p in $x) ?><? foreach ($q in $x) ?><? if ($p == $q) ?>=<? else ?>.<? endif ?><? endforeach ?>"
       "<? endforeach ?>",
       "=...=...="},
      {"<?= $x.@sum.price ?> <?= $x.@count ?> <?= $x.@max.stock ?>", "100 3 3"},
      {"<? function f($l) ?><? foreach ($p in $l) ?><? if ($p.stock == 0) ?><? return $p ?><? endif ?><? endforeach ?>"
       "<? endfunction ?><? $found = f($x) ?><?= $found.name ?>",
       "Chair"},
  };
  for (const RenderRow& row : rows) EXPECT_EQ(rendered(lazyList(all), row.text), row.output) << row.text;
}

TEST(AnElement, ThatIsKeptStaysWhatItIs) {
  std::vector<Product> all = products();
  const Stage stage;
  const Ref<NSMutableArray> kept = NSMutableArray::array();
  stage.define("keep", [&](KorTemplateEnvironment*, ListArgument<Value> arguments) -> Value {
    kept->addObject(arguments[0]);
    return NSNull::null();
  });
  stage.set("x", lazyList(all));
  stage.run("<? foreach ($p in $x) ?><? if (@@index != 1) ?><? keep($p) ?><? endif ?><?= $p.name ?><? endforeach ?>");
  EXPECT_EQ(stage.text(), "LampChairDesk");
  ASSERT_EQ(kept->count(), 2U);
  EXPECT_EQ(hostObject<Product>((*kept)[0]), &all[0]);
  EXPECT_EQ(hostObject<Product>((*kept)[1]), &all[2]);
}

TEST(AListThatChanges, IsWalkedToItsEndOfThatMoment) {
  std::vector<Product> all = products();
  const Stage stage;
  stage.define("grow", [&](auto&&...) -> Value {
    if (all.size() < 6) all.push_back(Product{.name = "more" + std::to_string(all.size())});
    return NSNull::null();
  });
  stage.define("clear", [&](auto&&...) -> Value {
    all.clear();
    all.shrink_to_fit();
    return NSNull::null();
  });
  stage.set("x", lazyList(all));
  stage.run("<? foreach ($p in $x) ?><?= $p.name ?> <? grow() ?><? endforeach ?>");
  EXPECT_EQ(stage.text(), "Lamp Chair Desk more3 more4 more5 ");
  stage.run("<? foreach ($p in $x) ?>once<? clear() ?><? endforeach ?><?= $x.@count ?>");
  EXPECT_EQ(stage.text(), "Lamp Chair Desk more3 more4 more5 once0");
}

TEST(ALazyDictionary, IsReadByPathsAndLoops) {
  std::map<std::string, Product> all{{"lamp", Product{.name = "Lamp", .stock = 3}}, {"desk", Product{.name = "Desk"}}};
  EXPECT_EQ(rendered(lazyDictionary(all), "<?= $x.lamp.name ?><?= $x.lamp.stock ?><?= $x.chair ?><?= $x.@count ?>"),
            "Lamp32");
  EXPECT_EQ(rendered(lazyDictionary(all), "<? foreach ($p in $x) ?><?= $p.name ?> <? endforeach ?>"), "Desk Lamp ");
}

TEST(ALazySequence, EndsWithTheLoopThatReadsIt) {
  int made = 0;
  const Stage stage;
  stage.set("x", lazySequence([&made] { return made < 5 ? std::optional<int>(++made) : std::nullopt; }));
  stage.run(
      "<? function first($s) ?><? foreach ($n in $s) ?><? return $n ?><? endforeach ?><? endfunction ?>"
      "<?= first($x) ?>|<?= first($x) ?>|<? foreach ($n in $x) ?><?= $n ?><? endforeach ?>|"
      "<? foreach ($n in $x) ?><?= $n ?><? endforeach ?>");
  EXPECT_EQ(stage.text(), "1|2|345|");
}

struct Faulty {
  std::string text = "ab\xC3";
};
[[noreturn]] int raiseUndefined(const Faulty& /*object*/) {
  throw NSException(NSUndefinedKeyException, "no");
}
void describeHostClass(HostClass<Faulty>& faulty) {
  faulty.name("Faulty")
      .property("text", &Faulty::text)
      .property("generic", [](const Faulty&) -> int { throw NSException(NSGenericException, "broken"); })
      .property("standard", [](const Faulty&) -> int { throw std::runtime_error("out of order"); })
      .property("foreign", [](const Faulty&) -> int { throw 5; })
      .property("undefined", raiseUndefined)
      .property("undefinedText", [](const Faulty& each) -> std::string_view {
        if (!each.text.empty()) raiseUndefined(each);
        return each.text;
      });
}

// What running the text raises, and whether the stage can be used afterwards.
std::string failure(const std::string& text) {
  Faulty faulty;
  const Stage stage;
  stage.set("x", hostReference(faulty));
  std::string what = "nothing";
  try {
    what = raisedBy([&] { stage.run("before" + text + "after"); });
  } catch (const std::exception& exception) {
    what = exception.what();
  } catch (int number) {
    what = std::to_string(number);
  }
  EXPECT_EQ(stage.depth(), 1) << text;
  stage.run("again");
  return what + "|" + stage.text() + "|" + stage.diagnostics();
}

TEST(AnExceptionOfAProperty, PassesAsOthersDo) {
  const RenderRow rows[] = {
      {"<?= $x.generic ?>", "NSGenericException: broken|beforeagain|"},
      {"<? if (true) ?><?= $x.generic + 1 ?><? endif ?>", "NSGenericException: broken|beforeagain|"},
      {"<?= $x.standard ?>", "out of order|beforeagain|"},
      {"<? $y = $x.standard ?>", "out of order|beforeagain|"},
      {"<?= $x.foreign ?>", "5|beforeagain|"},
      {"<?= $x.undefined ?>", "nothing|beforeafteragain|"},
      {"<?= $x.undefinedText ?>", "nothing|beforeafteragain|"},
      {"<? function f($o) ?><?= $o.generic ?><? endfunction ?><? f($x) ?>", "nothing|beforeafteragain|broken"},
      {"<? function f($o) ?><?= $o.standard ?><? endfunction ?><? f($x) ?>", "nothing|beforeafteragain|out of order"},
      {"<? function f($o) ?><?= $o.foreign ?><? endfunction ?><? f($x) ?>", "5|beforeagain|"},
  };
  for (const RenderRow& row : rows) EXPECT_EQ(failure(row.text), row.output) << row.text;
  EXPECT_TRUE(failure("<?= $x.text ?>").starts_with("NSInvalidArgumentException: ")) << failure("<?= $x.text ?>");
}

struct Owned {
  explicit Owned(int& alive) : alive_(&alive) { ++*alive_; }
  Owned(const Owned&) = delete;
  Owned& operator=(const Owned&) = delete;
  ~Owned() { --*alive_; }

  std::string name = "a text that is longer than any short one";
  std::function<void()> onRead;
  std::string_view read() const {
    if (onRead) onRead();
    return name;
  }

 private:
  int* alive_;
};
void describeHostClass(HostClass<Owned>& owned) {
  owned.name("Owned").property("name", &Owned::name).property("read", &Owned::read);
}

TEST(AnOwnedObject, LivesAsLongAsAnEnvironmentOrATemplateHoldsIt) {
  int alive = 0;
  {
    const Ref<KorTemplate> outer = KorTemplate::compile("<?= $x.name ?>");
    {
      const Stage stage;
      stage.set("x", hostShared(std::make_shared<Owned>(alive)));
      outer->executeWithEnvironment(stage.get());
      outer->executeWithEnvironment(stage.get());
      EXPECT_EQ(stage.text().size(), 80U);
      EXPECT_EQ(alive, 1);
      stage.set("x", 1);
      EXPECT_EQ(alive, 0);
    }
    const Ref<KorTemplate> holding = templateOf({output(literal(hostShared(std::make_shared<Owned>(alive))))});
    EXPECT_EQ(alive, 1);
    const Stage stage;
    holding->executeWithEnvironment(stage.get());
    EXPECT_TRUE(stage.text().starts_with("<Owned: 0x"));
  }
  EXPECT_EQ(alive, 0);
}

TEST(AnOwnedObject, MayBeLetGoOfByItsOwnGetter) {
  for (const char* text : {"<?= $x.read ?>", "<?= $x.read + \"\" ?>", "<? $y = $x.read ?><?= $y ?>"}) {
    int alive = 0;
    const Stage stage;
    auto owned = std::make_shared<Owned>(alive);
    owned->onRead = [&stage] { stage.set("x", 1); };
    stage.set("x", hostShared(std::move(owned)));
    stage.run(text);
    EXPECT_EQ(stage.text(), "a text that is longer than any short one") << text;
    EXPECT_EQ(alive, 0) << text;
  }
}

TEST(AnOwnedObject, MayBeLetGoOfByTheStreamThatItIsWrittenTo) {
  int alive = 0;
  const Stage stage;
  stage.set("x", hostShared(std::make_shared<Owned>(alive)));
  stage.output->onWrite = [&](const Text&) { stage.set("x", 1); };
  stage.run("<?= $x.name ?>");
  EXPECT_EQ(stage.text(), "a text that is longer than any short one");
  EXPECT_EQ(alive, 0);
}

TEST(AnOwnedList, LivesAsLongAsTheLoopOverIt) {
  int alive = 0;
  const Stage stage;
  auto list = std::make_shared<std::vector<std::unique_ptr<Owned>>>();
  for (int number = 0; number < 3; ++number) list->push_back(std::make_unique<Owned>(alive));
  stage.set("x", lazyList(list));
  list = nullptr;
  stage.define("drop", [&](auto&&...) -> Value {
    stage.set("x", 1);
    return NSNull::null();
  });
  stage.run("<? foreach ($o in $x) ?><? drop() ?><?= $o.name.length ?> <? endforeach ?>");
  EXPECT_EQ(stage.text(), "40 40 40 ");
  EXPECT_EQ(alive, 0);
}

TEST(SharedObjects, AreReadByManyThreads) {
  const auto all = std::make_shared<const std::vector<Product>>(products());
  const Value list = lazyList(all);
  list.share();
  const Ref<KorTemplate> compiled =
      KorTemplate::compile("<? foreach ($p in $x) ?><?= $p.name ?><?= $p.price ?><? $k = $p ?><? endforeach ?>");
  std::vector<std::thread> threads;
  std::vector<std::string> outputs(4);
  for (std::string& output : outputs) {
    threads.emplace_back([&] {
      const Stage stage;
      stage.set("x", list);
      for (int round = 0; round < 50; ++round) compiled->executeWithEnvironment(stage.get());
      output = stage.text().substr(0, 22);
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (const std::string& output : outputs) EXPECT_EQ(output, "Lamp9.5Chair20Desk70.5");
}

}  // namespace

}  // namespace tavlo::test
