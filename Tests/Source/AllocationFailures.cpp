#include "Tests/Memory/FailingMemory.h"

#ifndef TAVLO_MEMORY_IS_HIDDEN

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "Foundation/LazyCollections.h"
#include "Foundation/NSArray.h"
#include "Foundation/NSDate.h"
#include "Foundation/NSDictionary.h"
#include "Foundation/NSSet.h"
#include "Matchery/KorRegex.h"
#include "Source/KorTemplateCallableFunction.h"
#include "Source/KorTemplateProfile.h"
#include "Source/KorTemplateRendering.h"
#include "Source/KorTemplateStringStream.h"
#include "Tests/Foundation/HostShop.h"
#include "Tests/Foundation/Raised.h"
#include "Tests/Memory/FailingWork.h"
#include "Tests/Source/HostClasses.h"
#include "Tests/Source/SmallThread.h"

namespace tavlo::test {

namespace {

struct TemplateRow {
  const char* what;
  const char* text;
};

// Together they use the whole language.
const TemplateRow kTemplates[] = {
    {"text",
     "A text that is longer than what any small buffer holds, \u00e9\u4e16\U0001F600.\r\n<?= \"and \\\"escapes\\\"\" ?>"
     "<? \"a note\" ?><?= 42 ?>,<?= -2.5 ?>,<?= 1.5e3 ?>,<?= true ?>,<?= null ?>\n"},
    {"key paths",
     "<?= $pet.owner.name ?>,<?= $items.name ?>,<?= $items.@sum.price ?>,<?= $items.@avg.price ?>,"
     "<?= $items.@max.price ?>,<?= $items.@min.name ?>,<?= $items.@unionOfObjects.kind ?>,"
     "<?= $items.@distinctUnionOfObjects.kind ?>,<?= $items.@unionOfArrays.tags ?>,"
     "<?= $items.@distinctUnionOfArrays.tags ?>,<?= $items.@count ?>,<?= $pet.missing.x ?>"},
    {"texts and their keys",
     "<?= $name.uppercaseString ?>,<?= $name.lowercaseString ?>,<?= $phrase.capitalizedString ?>,<?= $phrase.length ?>,"
     "<?= $weight.doubleValue ?>,<?= $weight.intValue ?>,<?= $list.description ?>"},
    {"operators",
     "<?= 1 + 2 * 3 - 4 / 5 ?>,<?= 7 % 4 ?>,<?= $list == $other ?>,<?= $name != \"Eve\" ?>,<?= $name < $phrase ?>,"
     "<?= 2 >= 2 && 1 <= 0 || 3 > 2 ?>,<?= ($pet.age + 1) * (2 + 3) ?>,<?= $set == $set ?>"},
    {"concatenation",
     "<? $long = ($phrase + \", \" + $name + \" and \" + $pet.age + $list + null + true) ?><?= $long ?>"
     "<? $twice = ($long + $long) ?><?= $twice + $twice + \".\" ?><?= $pet + \"\" ?>"},
    {"regular expressions",
     "<? if ($phrase =~ /^d(e|a)+r\\b/) ?>greets<? endif ?><?= $name =~ /(?i)^ADA$/ ?><? $p = /(?<x>\\w+) "
     "\\k<x>|[^a-c]+$/ ?>"
     "<?= $p ?>,<?= $phrase =~ $p ?>,<?= $phrase =~ /(a|b|ab)*c{2,3}(?=x)/ ?>,<?= $long =~ "
     "/(?:(?:ab){1,1000}c){1,1000}|b$/ ?>"},
    {"choices",
     "<? if ($pet.age > 10) ?>old<? elseif ($pet.age > 5) ?>grown<? elseif ($pet.age == 4) ?><? $x = $name ?>four<?= "
     "$x ?>"
     "<? else ?>young<? endif ?><? if ($none) ?>no<? else ?><? if (\"\") ?>no<? else ?>yes<? endif ?><? endif ?>"},
    {"loops",
     "<? foreach ($item in $items) ?><?= @@index + 1 ?>. <?= $item.name ?><? foreach ($tag in $item.tags) ?>"
     "<? $joined = ($tag + @@index) ?> <?= $joined ?><? endforeach ?>\n<? endforeach ?>"
     "<? foreach ($value in $pet) ?><?= $value ?>;<? endforeach ?><? foreach ($n in $set) ?><?= $n ?><? endforeach ?>"
     "<? foreach ($n in null) ?>never<? endforeach ?>"},
    {"functions",
     "<? function f($n) ?><? if ($n < 2) ?><? return 1 ?><? endif ?><? return $n * f($n - 1) ?><? endfunction ?>"
     "<? function many($a, $b, $c, $d, $e) ?><? return $a + $b + $c + $d + $e + \" in a long text of many parts\" ?>"
     "<? endfunction ?><?= f(6) ?>,<?= many(\"a\", many(1, 2, 3, 4, 5), $name, $pet.age, \"e\") ?>"
     "<? function outer() ?><? function inner($t) ?>[<?= $t ?>]<? endfunction ?><? inner(\"deep\") ?><? endfunction ?>"
     "<? outer() ?><? foreach ($n in $list) ?><?= f($n) ?><? endforeach ?>seen<? return ?>not seen"},
    {"errors inside functions",
     "<? function half($n) ?>a<? $scope = $n ?><? if (true) ?><? return $n / 2 ?><? endif ?><? endfunction ?>"
     "[<?= half(\"x\") ?>][<?= half(1, 2) ?>][<?= half(3) ?>][<?= host(\"a host's text that is long enough\") ?>]"
     "[<?= unknown(1) ?>][<?= add(\"a\", 2) ?>][<?= fail() ?>]"},
    {"dates and objects",
     "<?= $date ?>,<?= $date.timeIntervalSince1970 ?>,<?= $date == $date ?>,<?= $product.name ?>,<?= $product.price ?>,"
     "<?= $product.note ?>,<? foreach ($p in $products) ?><?= $p.name ?><?= total($p) ?>;<? endforeach ?>,"
     "<?= add(2, 3) ?>,<?= $products.@sum.price ?>,<?= joined($words) ?>"},
    {"nesting",
     "<? function walk($v, $d) ?><? if ($d < 4) ?><? foreach ($e in $v) ?><? if (@@index >= 0) ?>(<?= walk($list, $d + "
     "1) ?>"
     "<? $k = (\"level \" + $d + \" of the walk\") ?><? $l = $k ?>)<? endif ?><? endforeach ?><? endif ?>"
     "<? return ((((($d + 1)))) * (2)) ?><? endfunction ?><?= walk($one, 3) ?><?= $nested ?>"},
};

Value dictionary(std::initializer_list<std::pair<std::string_view, Value>> entries) {
  const Ref<NSMutableDictionary> result = NSMutableDictionary::dictionary();
  for (const auto& [key, value] : entries) result->setObjectForKey(value, NSString::stringWithUTF8(key));
  return result;
}

Value item(const char* name, const char* kind, const Value& price) {
  return dictionary(
      {{"name", name}, {"kind", kind}, {"price", price}, {"tags", NSArray::arrayWithObjects({kind, name})}});
}

// A host's data and functions, for all of the templates.
class Host {
 public:
  void setUp(const Stage& stage) const {
    stage.set("name", "Ada");
    stage.set("phrase", "dear ada lovelace, who wrote of \u00c9tudes");
    stage.set("weight", " 42.5kg");
    stage.set("long", std::string(40, 'a') + "b");
    stage.set("list", list_);
    stage.set("other", NSArray::arrayWithObjects({1, 2, 3}));
    stage.set("one", NSArray::arrayWithObjects({1}));
    stage.set("set", NSSet::setWithObjects({"one text", 2}));
    stage.set("pet", dictionary({{"kind", "cat"}, {"age", 4}, {"owner", dictionary({{"name", "Ada"}})}}));
    stage.set("items", NSArray::arrayWithObjects({item("Tea", "drink", 3.5), item("Rye", "bread", 4)}));
    stage.set("nested", NSArray::arrayWithObjects({list_, dictionary({{"a key", list_}}), Value::null()}));
    stage.set("date", NSDate::dateWithTimeIntervalSince1970(1'000'000'000));
    KorTemplateEnvironment& environment = *stage.environment;
    environment.setGlobal("product", std::cref(products_.front()));
    environment.setGlobal("products", std::cref(products_));
    environment.setGlobal("words", std::cref(words_));
    environment.setFunction("total", [](const Product& product) { return product.price * product.stock; });
    environment.setFunction("add", [](double left, int right) { return left + right; });
    environment.setFunction("joined", [](const std::vector<std::string>& words) { return words.at(0) + words.at(1); });
    environment.setFunction("fail", []() -> int { throw std::runtime_error("a reason that is no short text"); });
    stage.define("host", [](KorTemplateEnvironment*, ListArgument<Value> arguments) -> Value {
      return Value(std::string(arguments[0].description()) + "!");
    });
  }

 private:
  Value list_ = NSArray::arrayWithObjects({1, 2, 3});
  std::vector<Product> products_{Product{.name = "a name that is longer than any short text", .note = "note"},
                                 Product{.name = "Rope", .price = 12.5}};
  std::vector<std::string> words_{"word", "another word, a longer one"};
};

void forget(const Stage& stage) {
  stage.output->writes.clear();
  stage.errors->writes.clear();
}

// What the template does with memory enough: what it writes, and its diagnostics.
std::string written(const Stage& stage) {
  return stage.text() + '|' + stage.diagnostics();
}

std::string expectedOf(const Host& host, KorTemplate& compiled) {
  const Stage stage;
  host.setUp(stage);
  compiled.executeWithEnvironment(stage.get());
  return written(stage);
}

TEST(AllocationFailures, EndAnExecutionAndNoMore) {
  const Host host;
  for (const TemplateRow& row : kTemplates) {
    const Ref<KorTemplate> compiled = KorTemplate::compile(row.text);
    const std::string expected = expectedOf(host, *compiled);
    FailingWork(row.what).check([&](std::int64_t count, Failing failing) {
      const Stage stage;
      host.setUp(stage);
      const Outcome outcome = runWith(count, failing, [&] { compiled->executeWithEnvironment(stage.get()); });
      EXPECT_EQ(stage.depth(), 1);
      EXPECT_TRUE(outcome.isOutOfMemory || written(stage) == expected) << written(stage);
      forget(stage);
      compiled->executeWithEnvironment(stage.get());
      EXPECT_EQ(written(stage), expected);
      EXPECT_EQ(stage.depth(), 1);
      return outcome.hasFailed;
    });
    if (HasFailure()) return;
  }
}

// What raises a syntax error where there is memory enough, and what fails in other ways.
const TemplateRow kBroken[] = {
    {"an expression without an operator", "a\n<? if ($a) ?>\n<?= 1 2 ?><? endif ?>"},
    {"an unfinished block", "a long text before the block of code <?= $name"},
    {"a pattern that does not compile", "<? $a =~ /(unclosed [group/ ?>"},
    {"an error deep inside", "<? function f($a) ?><? foreach ($b in $a) ?><?= (1 + (2 * (3 - f(1, 2, \"x\" # )))) ?>"},
};

std::string raisedByCompiling(const char* text) {
  return raisedBy([&] { (void)KorTemplate::compile(text); });
}

TEST(AllocationFailures, EndACompilationAndNoMore) {
  const Host host;
  std::vector<TemplateRow> rows(std::begin(kTemplates), std::end(kTemplates));
  rows.insert(rows.end(), std::begin(kBroken), std::end(kBroken));
  for (const TemplateRow& row : rows) {
    const std::string raised = raisedByCompiling(row.text);
    FailingWork(row.what).check([&](std::int64_t count, Failing failing) {
      std::string raisedNow = "nothing";
      const Outcome outcome = runWith(count, failing, [&] {
        try {
          (void)KorTemplate::compile(row.text);
        } catch (const NSException& exception) {
          FailingMemory::end();
          raisedNow = exception.name() + ": " + exception.description();
        }
      });
      EXPECT_TRUE(outcome.isOutOfMemory || raisedNow == raised) << raisedNow;
      EXPECT_EQ(raisedByCompiling(row.text), raised);
      return outcome.hasFailed;
    });
    if (HasFailure()) return;
  }
}

// The calls that answer results turn every exception of the family std::exception into one.
TEST(AllocationFailures, AreResultsWhereThoseAreAskedFor) {
  for (const TemplateRow& row : {kTemplates[0], kTemplates[3], kTemplates[8], kBroken[0]}) {
    KorTemplateData data{{"name", "Ada"}, {"phrase", "dear"}, {"list", Value::null()}};
    const auto outcomeOf = [&] {
      const KorTemplateResult<std::string> result = tryRender(row.text, data);
      return result ? *result : result.failure().name() + ": " + result.failure().reason();
    };
    const std::string expected = outcomeOf();
    FailingWork(row.what).check([&](std::int64_t count, Failing failing) {
      std::string told;
      const Outcome outcome = runWith(count, failing, [&] {
        const KorTemplateResult<std::string> result = tryRender(row.text, data);
        FailingMemory::end();
        told = result ? *result : result.failure().name() + ": " + result.failure().reason();
      });
      EXPECT_TRUE(outcome.isOutOfMemory || told.starts_with("std::bad_alloc: ") || told == expected) << told;
      EXPECT_EQ(outcomeOf(), expected);
      return outcome.hasFailed;
    });
    if (HasFailure()) return;
  }
}

// A pattern that takes so much that it is searched with under a clock.
TEST(AllocationFailures, EndASearchAndNoMore) {
  const Ref<NSString> subject = NSString::stringWithUTF8(std::string(40, 'a') + "b");
  FailingWork("a search").check([&](std::int64_t count, Failing failing) {
    Ref<KorRegex> pattern;
    bool isFound = false;
    const auto search = [&] {
      if (pattern == nullptr) pattern = KorRegex::compileExpression("(?:(?:ab){1,1000}c){1,1000}|b$");
      isFound = pattern->matchesString(*subject);
    };
    const Outcome outcome = runWith(count, failing, search);
    EXPECT_TRUE(outcome.isOutOfMemory || isFound);
    search();
    EXPECT_TRUE(isFound);
    return outcome.hasFailed;
  });
}

// What a thread makes for itself, when it is used first, may fail as well; the guard of its stack is there all the
// same.
TEST(AllocationFailures, EndTheFirstExecutionOfAThreadAndNoMore) {
  const Host host;
  for (const Failing failing : {Failing::Once, Failing::ForGood}) {
    bool fails = true;
    for (std::int64_t count = 0; fails && !HasFailure(); ++count) {
      SCOPED_TRACE(count);
      runOnSmallThread([&] {
        const Outcome outcome = runWith(count, failing, [&] {
          const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
          KorTemplate::compile("<? $x = \"ab\" ?><?= $x =~ /^(?:ab)+$/ ?>")->executeWithEnvironment(environment.get());
        });
        fails = outcome.hasFailed;
        const Stage stage;
        stage.environment->setLimits({.functionDepth = 1'000'000});
        const auto recurse = [&] {
          stage.run("<? function f($n) ?><? return f($n + 1) ?><? endfunction ?><? f(1) ?>");
        };
        EXPECT_EQ(limitReached(recurse), KorTemplateLimit::Stack);
      });
    }
  }
}

std::string globalAt(int index) {
  return "name" + std::to_string(index);
}

// The functions with these numbers are there, and no others.
void expectFunctions(const KorTemplateEnvironment& environment, int first, int end) {
  ASSERT_EQ(environment.functionNames().size(), static_cast<std::size_t>(end - first));
  for (int index = first; index < end; ++index) EXPECT_NE(environment.functionForName(globalAt(index)), nullptr);
  EXPECT_EQ(environment.functionForName("unknown"), nullptr);
}

void expectGlobals(const KorTemplateEnvironment& environment, int count) {
  ASSERT_EQ(environment.globalVariableNames().size(), static_cast<std::size_t>(count));
  for (int index = 0; index < count; ++index) {
    EXPECT_EQ(environment.valueForGlobalVariableWithName(globalAt(index)).intValue(), index);
  }
  EXPECT_TRUE(environment.valueForGlobalVariableWithName("unknown").isAbsent());
}

struct NamedEnvironment {
  explicit NamedEnvironment(int count) {
    for (int index = 0; index < count; ++index) add(index, globalAt(index));
  }
  void add(int index, const Name& name) const {
    environment->setGlobal(name, index);
    environment->setFunctionForName(function, name);
  }

  Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  Ref<KorTemplateFunction> function = callableFunction("function", [] { return 1; });
};

// From 9 names on they are hashed; the table grows at 17, 33 and 65.
TEST(AllocationFailures, LeaveAnEnvironmentWithoutTheNameThatWasToBeSet) {
  for (int count = 7; count <= 70; ++count) {
    for (const bool isFunction : {false, true}) {
      bool hasFailed = true;
      for (std::int64_t allocation = 0; hasFailed; ++allocation) {
        SCOPED_TRACE(std::to_string(count) + " names, allocation " + std::to_string(allocation));
        const NamedEnvironment named(count);
        const Name name(globalAt(count));
        const Outcome outcome = runWith(allocation, Failing::ForGood, [&] {
          if (isFunction) {
            named.environment->setFunctionForName(named.function, name);
          } else {
            named.environment->setGlobal(name, count);
          }
        });
        if (outcome.isOutOfMemory) {
          expectFunctions(*named.environment, 0, count);
          expectGlobals(*named.environment, count);
        }
        named.add(count, name);
        expectFunctions(*named.environment, 0, count + 1);
        expectGlobals(*named.environment, count + 1);
        if (HasFailure()) return;
        hasFailed = outcome.hasFailed;
      }
    }
  }
}

TEST(AllocationFailures, LeaveAResetToBeMadeAgain) {
  FailingWork("reset").check([](std::int64_t count, Failing failing) {
    const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
    environment->setGlobal("a", 1);
    const Outcome outcome = runWith(count, failing, [&] { environment->reset(); });
    if (outcome.isOutOfMemory) environment->reset();
    EXPECT_NE(environment->outputStream(), nullptr);
    EXPECT_NE(environment->errorStream(), nullptr);
    EXPECT_TRUE(environment->globalVariableNames().empty());
    return outcome.hasFailed;
  });
}

TEST(AllocationFailures, LeaveTheFunctionsThatWereNotRemoved) {
  for (int count = 7; count <= 70; ++count) {
    SCOPED_TRACE(count);
    const NamedEnvironment named(count);
    for (int first = 0; first < count; ++first) {
      const Name name(globalAt(first));
      (void)runWith(0, Failing::ForGood, [&] { named.environment->removeFunctionForName(name); });
      expectFunctions(*named.environment, first + 1, count);
      if (HasFailure()) return;
    }
  }
}

}  // namespace

}  // namespace tavlo::test

#endif
