#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Benchmarks/Growth.h"
#include "Foundation/LazyCollections.h"
#include "Foundation/NSArray.h"
#include "Foundation/NSDictionary.h"
#include "Foundation/NSString.h"
#include "Source/KorTemplate.h"
#include "Source/KorTemplateCallableFunction.h"
#include "Source/KorTemplateEnvironment.h"
#include "Source/KorTemplateLayer.h"
#include "Source/KorTemplateObserver.h"
#include "Source/KorTemplateProfile.h"
#include "Source/KorTemplateStringStream.h"

namespace tavlo::benchmarks {

namespace {

// A template that grows, or one of $list, which does; `prepare` may add to the environment.
struct RenderRow {
  const char* name;
  std::size_t size;
  GrowingText text;
  Value (*list)(std::size_t size) = nullptr;
  void (*prepare)(KorTemplateEnvironment& environment, std::size_t size) = nullptr;
  bool isWarm = false;  // whether the environment has done the same before, and keeps the scopes (1,024 at most)
};

Value numbers(std::size_t count) {
  std::vector<Value> elements;
  for (std::size_t number = 0; number < count; ++number) elements.emplace_back(number);
  return NSArray::arrayWithObjects(elements);
}

Value nestedLists(std::size_t depth) {
  Value value = 1;
  for (std::size_t level = 0; level < depth; ++level) value = NSArray::arrayWithObjects({value});
  return value;
}

Value texts(std::size_t count) {
  std::vector<Value> elements;
  for (std::size_t number = 0; number < count; ++number) elements.emplace_back("text " + std::to_string(number));
  return NSArray::arrayWithObjects(elements);
}

Value items(std::size_t count) {
  std::vector<Value> elements;
  for (std::size_t number = 0; number < count; ++number) {
    elements.emplace_back(
        NSDictionary::dictionaryWithEntries({{"name", "item " + std::to_string(number)}, {"price", number}}));
  }
  return NSArray::arrayWithObjects(elements);
}

Value dictionary(std::size_t count) {
  const Ref<NSMutableDictionary> entries = NSMutableDictionary::dictionary();
  for (std::size_t number = 0; number < count; ++number) {
    entries->setObjectForKey(number, "key " + std::to_string(number));
  }
  return entries;
}

Value longText(std::size_t count) {
  return std::string(count, 'a');
}

Value longTextOfAnyLanguage(std::size_t count) {
  return GrowingText{"", "ä€𝄞 "}.of(count);
}

Value numbersOfTheHost(std::size_t count) {
  return lazyList(std::vector<int>(count, 7));
}

void addGlobals(KorTemplateEnvironment& environment, std::size_t count) {
  for (std::size_t number = 0; number < count; ++number) environment.setGlobal("v" + std::to_string(number), number);
}

void addLayer(KorTemplateEnvironment& environment, std::size_t count) {
  const Ref<KorTemplateLayer> layer = KorTemplateLayer::layer();
  for (std::size_t number = 0; number < count; ++number) layer->setGlobal("v" + std::to_string(number), number);
  layer->share();
  environment.setLayer(layer);
}

void addFunctions(KorTemplateEnvironment& environment, std::size_t count) {
  for (std::size_t number = 0; number < count; ++number) {
    environment.setFunction("f" + std::to_string(number), [](int value) { return value; });
  }
}

void addObserver(KorTemplateEnvironment& environment, std::size_t /*count*/) {
  const Ref<KorTemplateObserver> observer = KorTemplateObserver::observer();
  observer->setPolicy(KorTemplateUndefinedPolicy::Warn);
  environment.setObserver(observer);
}

void addProfile(KorTemplateEnvironment& environment, std::size_t /*count*/) {
  environment.setProfile(KorTemplateProfile::profile());
}

void askForPlaces(KorTemplateEnvironment& environment, std::size_t /*count*/) {
  environment.setDiagnosticCallback([](const KorTemplateFailure& failure) { (void)failure.text(); });
}

Work rendering(const RenderRow& row, std::size_t size, bool hasDiagnostics) {
  const Ref<KorTemplate> compiled = KorTemplate::compile(row.text.of(row.list == nullptr ? size : 0));
  const auto environment = KorTemplateEnvironment::environment();
  if (row.list != nullptr) environment->setGlobal("list", row.list(size));
  environment->setGlobal("one", 1);
  environment->setGlobal("depth", size);
  if (row.prepare != nullptr) row.prepare(*environment, size);
  const Work work = [=] {
    const auto diagnostics = KorTemplateStringStream::stringStream();
    environment->setErrorStream(diagnostics);
    environment->setOutputStream(KorTemplateStringStream::stringStream());
    compiled->executeWithEnvironment(environment.get());
    if (diagnostics->buffer()->string().empty() == hasDiagnostics) throw std::runtime_error("has other diagnostics");
  };
  if (row.isWarm) work();
  return work;
}

std::vector<GrowingWork> worksOn(const std::vector<RenderRow>& rows, bool haveDiagnostics) {
  std::vector<GrowingWork> works;
  for (const RenderRow& row : rows) {
    works.push_back({row.name, row.size, [=](std::size_t size) { return rendering(row, size, haveDiagnostics); }});
  }
  return works;
}

std::vector<RenderRow> templates() {
  return {
      {"render: text", 100'000, {"", "x"}},
      {"render: blocks", 2'500, {"", "<?= $one ?>,"}},
      {"render: ifs side by side", 1'500, {"", "<? if ($one > 1) ?>x<? else ?>y<? endif ?>"}},
      {"render: elseifs", 4'000, {"<? if ($one > 1) ?>", "<? elseif ($one > 2) ?>x", "<? else ?>y<? endif ?>"}},
      {"render: a chain of sums", 5'000, {"<?= 1", " + 1", " ?>"}},
      {"render: a chain of all operators", 500, {"<?= 1", " + 1 * 2 - $one / 3 % 2 == 3 && $one < 4 || $one", " ?>"}},
      {"render: a concatenation that is written", 2'500, {"<?= \"a\"", " + \"text\"", " ?>"}},
      {"render: a concatenation that is kept", 2'500, {"<? $x = \"a\"", " + \"text\"", " ?>"}},
      {"render: a concatenation of numbers", 2'500, {"<? $x = \"a\"", " + $one", " ?>"}},
      {"render: a concatenation in any language", 2'500, {"<? $x = \"ä\"", " + \"𝄞\"", " ?>"}},
      {"render: nested parentheses", 240, {"<?= ", "(1 + ", "1", ")", " ?>"}},
      {"render: nested ifs", 240, {"", "<? if ($one) ?>", "x", "<? endif ?>"}},
      {"render: nested ifs with variables",
       240,
       {"<? $x = 1 ?>", "<? if ($x) ?><? $x = 1 ?>", "<?= $x ?>", "<? endif ?>"}},
      {"render: nested loops",
       240,
       {"", "<? foreach ($i in $i) ?>", "x", "<? endforeach ?>"},
       nullptr,
       [](auto& environment, auto depth) { environment.setGlobal("i", nestedLists(depth)); }},
      {"render: definitions", 1'000, {"", "<? function f#($a) ?><? return $a ?><? endfunction ?><? f#(1) ?>"}},
      {"render: arguments",
       1'000,
       {"<? function f($a", ", $b#", ") ?><? return $a ?><? endfunction ?><?= f(1", ", $one", ") ?>"}},
      {"render: assignments of many names", 1'500, {"", "<? $name# = 1 ?>"}},
      {"render: globals of many names", 1'500, {"", "<?= $v# ?>"}, nullptr, addGlobals},
      {"render: globals of a layer", 1'500, {"", "<?= $v# ?>"}, nullptr, addLayer},
      {"render: functions of many names", 1'000, {"", "<?= f#(1) ?>"}, nullptr, addFunctions},
  };
}

std::vector<RenderRow> lists() {
  return {
      {"render: a loop", 5'000, {"<? foreach ($i in $list) ?>x<? endforeach ?>"}, numbers},
      {"render: a loop with what it holds", 2'500, {"<? foreach ($i in $list) ?><?= $i ?>,<? endforeach ?>"}, numbers},
      {"render: a loop over texts", 2'500, {"<? foreach ($i in $list) ?><?= $i ?>,<? endforeach ?>"}, texts},
      {"render: a loop over a dictionary",
       2'500,
       {"<? foreach ($i in $list) ?><?= $i ?>,<? endforeach ?>"},
       dictionary},
      {"render: a loop over a host's list",
       2'500,
       {"<? foreach ($i in $list) ?><?= $i ?>,<? endforeach ?>"},
       numbersOfTheHost},
      {"render: a loop with paths", 2'500, {"<? foreach ($i in $list) ?><?= $i.name ?><? endforeach ?>"}, items},
      {"render: a loop with variables",
       1'500,
       {"<? foreach ($i in $list) ?><? $a = $i ?><? $b = ($a + 1) ?><? endforeach ?>"},
       numbers},
      {"render: a loop with concatenations",
       1'500,
       {"<? foreach ($i in $list) ?><? $a = \"a\" + $i + \"b\" ?><? endforeach ?>"},
       numbers},
      {"render: a loop with searches",
       1'000,
       {"<? foreach ($i in $list) ?><? if ($i =~ /[a-z]+ 7/) ?>x<? endif ?><? endforeach ?>"},
       texts},
      {"render: a loop with calls",
       1'000,
       {"<? function f($a) ?><? return $a ?><? endfunction ?><? foreach ($i in $list) ?><?= f($i) ?><? endforeach ?>"},
       numbers},
      {"render: functions inside one another",
       120,
       {"<? function f($n) ?><? if ($n > 0) ?><? f($n - 1) ?><? endif ?><? endfunction ?><? f($depth) ?>"},
       nullptr,
       nullptr,
       true},
      {"render: a list", 2'500, {"<?= $list ?>"}, texts},
      {"render: a dictionary", 1'500, {"<?= $list ?>"}, dictionary},
      {"render: the length of a text in any language",
       5'000,
       {"<?= $list.length ?><?= $list.length ?><?= $list.length ?>"},
       longTextOfAnyLanguage},
      {"render: a comparison of long texts",
       100'000,
       {"<? if ($list + \"a\" == $list + \"b\") ?>x<? endif ?>"},
       longText},
      {"render: an equality of lists", 5'000, {"<? if ($list == $list) ?>x<? endif ?>"}, numbers},
  };
}

std::vector<RenderRow> failingTemplates() {
  const char* const failing = "<? function f() ?><? return 1 / 0 ?><? endfunction ?>";
  return {
      {"fail: calls side by side", 300, {failing, "x\n<? f() ?>"}},
      {"fail: calls side by side, asked for their places", 300, {failing, "x\n<? f() ?>"}, nullptr, askForPlaces},
      {"fail: calls on a long line, asked for their places", 300, {failing, "x <? f() ?>"}, nullptr, askForPlaces},
      {"fail: undefined variables, observed", 300, {"", "x\n<?= $unknown ?>"}, nullptr, addObserver},
      {"fail: undefined variables on a long line, observed", 300, {"", "x <?= $unknown ?>"}, nullptr, addObserver},
      {"fail: undefined keys in a loop, observed",
       300,
       {"<? foreach ($i in $list) ?><?= $i.unknown ?><? endforeach ?>"},
       items,
       addObserver},
      {"fail: calls inside one another that raise",
       240,
       {"<? function g() ?><? return 1 / 0 ?><? endfunction ?>"
        "<? function f($n) ?><? if ($n > 0) ?><? f($n - 1) ?><? endif ?><? g() ?><? endfunction ?><? f($depth) ?>"}},
  };
}

std::vector<RenderRow> profiledTemplates() {
  return {
      {"profile: statements side by side", 1'000, {"", "x\n<? $a = 1 ?>"}, nullptr, addProfile},
      {"profile: a loop", 1'000, {"<? foreach ($i in $list) ?><?= $i ?>\n<? endforeach ?>"}, numbers, addProfile},
      {"profile: functions inside one another",
       240,
       {"<? function f($n) ?><? if ($n > 0) ?><? f($n - 1) ?><? endif ?><? endfunction ?><? f($depth) ?>"},
       nullptr,
       addProfile},
  };
}

}  // namespace

std::vector<GrowingWork> growingRenderings() {
  std::vector<GrowingWork> works = worksOn(templates(), false);
  for (auto& rows : {lists(), profiledTemplates()}) {
    for (GrowingWork& work : worksOn(rows, false)) works.push_back(std::move(work));
  }
  return works;
}

std::vector<GrowingWork> growingFailures() {
  return worksOn(failingTemplates(), true);
}

}  // namespace tavlo::benchmarks
