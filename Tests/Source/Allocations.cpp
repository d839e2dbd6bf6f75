#include "Tests/Memory/FailingMemory.h"

#ifndef TAVLO_MEMORY_IS_HIDDEN

#include <gtest/gtest.h>
#include <malloc.h>

#include <cstdint>
#include <cstdio>
#include <new>
#include <optional>
#include <string>
#include <string_view>

#include "Foundation/HostMethodTable.h"
#include "Foundation/LazyCollections.h"
#include "Foundation/NSArray.h"
#include "Foundation/NSDictionary.h"
#include "Source/ArgumentStorage.h"
#include "Source/KorTemplateCallableFunction.h"
#include "Source/KorTemplateExternalFunction.h"
#include "Source/KorTemplateStringStream.h"
#include "Tests/Foundation/HostShop.h"
#include "Tests/Source/HostClasses.h"

namespace tavlo::test {

namespace {

// Takes every write without keeping it.
class CountingStream final : public KorTemplateStream {
 public:
  void write(const Text& text) override {
    ++writes;
    bytes += text.view().size();
  }
  std::uint64_t writes = 0;
  std::uint64_t bytes = 0;
};

Value listOf(int count) {
  std::vector<Value> elements;
  for (int number = 0; number < count; ++number) {
    elements.push_back(NSDictionary::dictionaryWithEntries({{"n", number}, {"name", "Ann"}}));
  }
  return NSArray::arrayWithObjects(elements);
}

// How many allocations one run over the list makes.
std::uint64_t allocationsOf(const Stage& stage, KorTemplate& compiled, const Value& list) {
  stage.set("list", list);
  const std::uint64_t before = allocationsMade();
  compiled.executeWithEnvironment(stage.get());
  return allocationsMade() - before;
}

TEST(Allocations, AreCounted) {
  const std::uint64_t before = allocationsMade();
  const Ref<HostObject> object = makeRef<HostObject>();
  EXPECT_EQ(allocationsMade(), before + 1);
}

TEST(Allocations, AreNotMadePerIterationOnceWarm) {
  struct Row {
    const char* what;
    const char* body;
  };
  const Row rows[] = {
      {"an iteration", ""},
      {"a literal text", "text that is too long for any small buffer"},
      {"the index", "<?= @@index ?>"},
      {"a path", "<?= $e.name ?><?= $e.n ?>"},
      {"a path to nothing", "<?= $e.missing ?><?= $none.x ?>"},
      {"a string's property", "<?= $e.name.length ?>"},
      {"a branch", "<? if ($e.n > 5) ?>a<? elseif ($e.n == 3) ?>b<? else ?>c<? endif ?>"},
      {"an assignment", "<? $x = $e.n ?><? $y = $x ?>"},
      {"an assignment in a branch", "<? if (true) ?><? $x = 1 ?><? endif ?>"},
      {"arithmetic", "<?= ($e.n * 2 + 1) % 7 - 1 ?>"},
      {"a double", "<?= $e.n / 3 ?>"},
      {"logic", "<? if ($e.n < 3 && $e.n != 2 || false) ?>x<? endif ?>"},
      {"a call", "<? f($e.n, $e) ?>"},
      {"the value of a call", "<?= g($e.name) ?>"},
      {"a recursive call", "<? r(3) ?>"},
      {"a host's function", "<?= h($e.n) ?>"},
      {"a host's callable", "<?= add($e.n, 2) ?><? take($e.name) ?>"},
      {"an unknown function", "<?= unknown($e.n) ?>"},
      {"a nested loop", "<? foreach ($i in $small) ?><?= $i ?><? endforeach ?>"},
      {"a dictionary's loop", "<? foreach ($v in $e) ?><?= $v ?><? endforeach ?>"},
      {"a definition", "<? function d() ?>d<? endfunction ?><? d() ?>"},
      {"a match", "<? if ($e.name =~ /n+$/) ?>m<? endif ?>"},
  };
  const Value few = listOf(10);
  const Value many = listOf(1010);
  for (const Row& row : rows) {
    const Stage stage;
    const Ref<CountingStream> stream = makeRef<CountingStream>();
    stage.environment->setOutputStream(stream);
    stage.set("small", NSArray::arrayWithObjects({1, 2}));
    stage.environment->setFunction("add", [](double left, int right) { return left + right; });
    stage.environment->setFunction("take", [](std::string_view text, std::optional<int>) { return text.size(); });
    stage.define("h", [](KorTemplateEnvironment*, ListArgument<Value> arguments) -> Value { return arguments[0]; });
    stage.run(
        "<? function f($a, $b) ?><? $c = $a ?><? endfunction ?><? function g($a) ?><? return $a ?><? endfunction ?>"
        "<? function r($n) ?><? if ($n > 0) ?><? r($n - 1) ?><? endif ?><? endfunction ?>");
    const Ref<KorTemplate> compiled =
        KorTemplate::compile("<? foreach ($e in $list) ?>" + std::string(row.body) + "<? endforeach ?>");
    (void)allocationsOf(stage, *compiled, many);
    (void)allocationsOf(stage, *compiled, few);
    const std::uint64_t forFew = allocationsOf(stage, *compiled, few);
    EXPECT_EQ(allocationsOf(stage, *compiled, many), forFew) << row.what;
  }
}

TEST(Allocations, AreNotMadeByAWarmExecution) {
  const Stage stage;
  const Ref<CountingStream> stream = makeRef<CountingStream>();
  stage.environment->setOutputStream(stream);
  const Value list = listOf(10);
  const Ref<KorTemplate> compiled = KorTemplate::compile(
      "a<? foreach ($e in $list) ?><? if ($e.n > 5) ?><?= $e.name ?><? endif ?><?= f($e.n) ?><? endforeach ?>");
  stage.run("<? function f($n) ?><? return $n + 1 ?><? endfunction ?>");
  for (int time = 0; time < 3; ++time) (void)allocationsOf(stage, *compiled, list);
  EXPECT_EQ(allocationsOf(stage, *compiled, list), 0u);
  EXPECT_EQ(stream->writes, 4u * 15);
}

// An object with methods that allocate nothing themselves.
class Calculator final : public NSObject {
 public:
  double add(int left, double right) const { return left + right; }
  Value pick(const Value& first, const Value& /*second*/) const { return first; }
  std::size_t length(std::string_view text) const { return text.size(); }
  const char* className() const override { return "Calculator"; }
  BoundMethod methodForSelector(const Selector& selector) const override {
    static const HostMethodTable methods = HostMethodTable()
                                               .add<Calculator>("add:to:", &Calculator::add)
                                               .add<Calculator>("pick:of:", &Calculator::pick)
                                               .add<Calculator>("length:", &Calculator::length);
    return methods.find(selector, *this);
  }
};

// The table of names grows with the names that are there, not with those that have been.
TEST(Allocations, OfANameIsOneHoweverManyAreGone) {
  const auto makeAndDrop = [](int count) {
    for (int number = 0; number < count; ++number) {
      char text[16];
      const Name name =
          std::string_view(text, static_cast<std::size_t>(std::snprintf(text, sizeof text, "n%d", number)));
    }
  };
  makeAndDrop(1000);  // each part of the table has its first size
  const std::uint64_t before = allocationsMade();
  makeAndDrop(20'000);
  EXPECT_EQ(allocationsMade() - before, 20'000U);
}

TEST(Allocations, AreNotMadeByCallsOfABoundMethod) {
  const Stage stage;
  const Ref<CountingStream> stream = makeRef<CountingStream>();
  stage.environment->setOutputStream(stream);
  const Ref<Calculator> calculator = makeRef<Calculator>();
  const auto bind = [&](const Name& name, const Selector& selector) {
    stage.environment->setFunctionForName(KorTemplateExternalFunction::functionWithSelectorTarget(selector, calculator),
                                          name);
  };
  bind("add", "add:to:");
  bind("pick", "pick:of:");
  bind("length", "length:");
  const Value list = listOf(10);
  const Ref<KorTemplate> compiled = KorTemplate::compile(
      "<? foreach ($e in $list) ?><?= add($e.n, 2.5) ?><?= pick($e.name, $e) ?><?= length($e.name) ?>"
      "<? endforeach ?>");
  (void)allocationsOf(stage, *compiled, list);
  EXPECT_EQ(allocationsOf(stage, *compiled, list), 0u);
  EXPECT_EQ(stream->bytes, 2u * ((8 * 3 + 2 * 4) + 10 * 3 + 10));
}

TEST(Allocations, OfAStringStreamAreThoseOfItsBuffer) {
  const Stage stage;
  const Ref<KorTemplateStringStream> stream = KorTemplateStringStream::stringStream();
  stage.environment->setOutputStream(stream);
  stream->buffer()->mutableText().reserve(100'000);
  const Value list = listOf(1000);
  const Ref<KorTemplate> compiled =
      KorTemplate::compile("<? foreach ($e in $list) ?><?= $e.n ?>,<?= $e.name ?>;<? endforeach ?>");
  (void)allocationsOf(stage, *compiled, list);
  (void)allocationsOf(stage, *compiled, list);
  EXPECT_EQ(allocationsOf(stage, *compiled, list), 0u);
}

TEST(Allocations, AreNotMadeForWhatAHostsObjectsAnswer) {
  struct Row {
    const char* what;
    const char* body;
  };
  const Row rows[] = {
      {"a text", "<?= $p.name ?>"},
      {"a view", "<?= $p.code ?>"},
      {"an optional text", "<?= $p.note ?>"},
      {"a double", "<?= $p.price ?>"},
      {"an integer", "<?= $p.stock ?>"},
      {"a boolean", "<? if ($p.isCheap) ?>cheap<? endif ?>"},
      {"arithmetic", "<?= $p.stock * $p.price ?>"},
      {"a key that is not known", "<?= $p.unknown ?>"},
      {"a variable that keeps the element", "<? $kept = $p ?><?= $kept.name ?>"},
  };
  const auto productsOf = [](std::size_t count) {
    return std::vector<Product>(count, Product{.name = "a name that is longer than any short text", .note = "note"});
  };
  const std::vector<Product> few = productsOf(10);
  const std::vector<Product> many = productsOf(1010);
  for (const Row& row : rows) {
    const Stage stage;
    const Ref<CountingStream> stream = makeRef<CountingStream>();
    stage.environment->setOutputStream(stream);
    const Ref<KorTemplate> compiled =
        KorTemplate::compile("<? foreach ($p in $list) ?>" + std::string(row.body) + "<? endforeach ?>");
    (void)allocationsOf(stage, *compiled, lazyList(many));
    (void)allocationsOf(stage, *compiled, lazyList(few));
    const std::uint64_t forFew = allocationsOf(stage, *compiled, lazyList(few));
    EXPECT_EQ(allocationsOf(stage, *compiled, lazyList(many)), forFew) << row.what;
  }
}

// Whether the body runs out of memory where the allocation behind the next `count` ones fails, and no other.
template <class Body>
bool runsOutOfMemory(std::int64_t count, Body&& body) {
  const FailingMemory memory(count, Failing::Once);
  try {
    std::forward<Body>(body)();
    return false;
  } catch (const std::bad_alloc&) {
    return true;
  }
}

TEST(FailedAllocations, LeaveTheStorageOfArgumentsAsItWas) {
  constexpr std::size_t kCounts[] = {4, 255, 300, 1, 1000};
  for (std::int64_t count = 0; count < 8; ++count) {
    ArgumentStorage storage;
    Value* const first = storage.reserve(2);
    first[0] = "kept";
    for (const std::size_t size : kCounts) {
      Value* values = nullptr;
      if (runsOutOfMemory(count, [&] { values = storage.reserve(size); })) values = storage.reserve(size);
      values[0] = size;
      values[size - 1] = size;
      EXPECT_TRUE(values[0].isNumber());
      Value* const above = storage.reserve(1);
      EXPECT_TRUE(above->isAbsent());
      storage.release(above, 1);
      storage.release(values, size);
    }
    EXPECT_EQ(first[0].description(), "kept") << count;
    storage.release(first, 2);
  }
}

TEST(FailedAllocations, LeaveTheStorageOfArgumentsUsableThoughNothingFollows) {
  ArgumentStorage storage;
  EXPECT_TRUE(runsOutOfMemory(0, [&] { (void)storage.reserve(1); }));
  EXPECT_TRUE(runsOutOfMemory(1, [&] { (void)storage.reserve(1); }));
  Value* const first = storage.reserve(200);
  EXPECT_TRUE(runsOutOfMemory(0, [&] { (void)storage.reserve(200); }));
  EXPECT_TRUE(runsOutOfMemory(1, [&] { (void)storage.reserve(200); }));
  first[199] = 1;
  storage.release(first, 200);
  Value* const again = storage.reserve(200);
  EXPECT_EQ(again, first);
  EXPECT_TRUE(again[199].isAbsent());
  storage.release(again, 200);
}

// A template that makes calls of few and of many arguments, scopes, loops, texts and definitions.
std::string demandingTemplate() {
  std::string parameters;
  std::string values;
  for (int number = 0; number < 300; ++number) {
    parameters += " $p" + std::to_string(number);
    values += (number > 0 ? ", " : "") + std::string("$i + ") + std::to_string(number);
  }
  return "<? function many(" + parameters + ") ?><? return $p0 + $p299 ?><? endfunction ?>" +
         "<? function four($a, $b, $c, $d) ?><? return $a + ($b + ($c + $d)) ?><? endfunction ?>" +
         "<? foreach ($i in $list) ?><? if ($i.n > 1) ?><? $i = ($i.n) ?>" + "<?= many(" + values + ") ?>," +
         "<? $text = four($i, four(\"b\", $i, \"c\", four(1, 2, 3, 4)), \"d\", \"a text beyond small buffers\") ?>" +
         "<?= $text ?>;<? endif ?><? endforeach ?>";
}

// Whichever allocation of a run fails, the run ends there, and the environment serves the next one.
TEST(FailedAllocations, EndARunAndNoMore) {
  const Ref<KorTemplate> compiled = KorTemplate::compile(demandingTemplate());
  const Value list = listOf(4);
  std::string expected;
  {
    const Stage stage;
    stage.set("list", list);
    compiled->executeWithEnvironment(stage.get());
    expected = stage.text();
  }
  ASSERT_NE(expected.find("a text beyond small buffers"), std::string::npos);
  std::int64_t count = 0;
  for (bool fails = true; fails; ++count) {
    const Stage stage;
    const Ref<CountingStream> stream = makeRef<CountingStream>();
    stage.environment->setOutputStream(stream);
    stage.set("list", list);
    fails = runsOutOfMemory(count, [&] { compiled->executeWithEnvironment(stage.get()); });
    ASSERT_EQ(stage.depth(), 1) << count;
    ASSERT_EQ(stage.diagnostics(), "") << count;
    stage.environment->setOutputStream(stage.output);
    compiled->executeWithEnvironment(stage.get());
    ASSERT_EQ(stage.text(), expected) << count;
    ASSERT_EQ(stage.depth(), 1) << count;
  }
  EXPECT_GT(count, 20);
}

TEST(FailedAllocations, EndACompilationAndNoMore) {
  const std::string text = demandingTemplate() + "<? \"b\" =~ /a+/ ?>";
  const std::int32_t statements = KorTemplate::compile(text)->statements().count();
  // Every allocation of the first ones, and some of those that follow.
  std::int64_t step = 1;
  for (std::int64_t count = 0;; count += step) {
    Ref<KorTemplate> compiled;
    if (!runsOutOfMemory(count, [&] { compiled = KorTemplate::compile(text); })) break;
    EXPECT_EQ(compiled, nullptr) << count;
    if (count > 300) step = 17;
  }
  EXPECT_EQ(KorTemplate::compile(text)->statements().count(), statements);
}

// What appending leaves behind while a text grows is no variable's to keep.
TEST(Allocations, OfTextsThatVariablesKeepHoldNoSpareRoom) {
  const Stage stage;
  stage.set("a", std::string(10'000, 'a'));
  stage.run("<? $joined = ($a + \"b\") ?><? $grown = ($a + $a + \"b\" + $a + \"c\") ?><? $again = ($grown + \"d\") ?>");
  for (const char* name : {"joined", "grown", "again"}) {
    const Value text = stage.global(name);
    ASSERT_TRUE(text.isString()) << name;
    EXPECT_LT(malloc_usable_size(const_cast<NSString*>(text.string())), text.string()->byteLength() + 256) << name;
  }
  EXPECT_EQ(stage.global("again").string()->byteLength(), 30'003U);
}

}  // namespace

}  // namespace tavlo::test

#endif
