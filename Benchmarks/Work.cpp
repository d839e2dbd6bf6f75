#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Benchmarks/Allocations.h"
#include "Benchmarks/Rendering.h"
#include "Benchmarks/Table.h"
#include "Benchmarks/TemplateText.h"
#include "Foundation/HostObject.h"
#include "Foundation/LazyCollections.h"
#include "Source/KorTemplate.h"
#include "Source/KorTemplateCallableFunction.h"
#include "Source/KorTemplateExternalFunction.h"
#include "Tests/Examples/Catalogue.h"
#include "Tool/JSONReader.h"

// Small versions of what the benchmarks time, for counting what they cost: tavlo_work NAME TIMES does the work that
// often and prints how many allocations that took. Benchmarks/counts runs it.

namespace tavlo::benchmarks {

namespace {

// What is done over and over, with all that it needs.
using Work = std::function<void()>;

Work rendering(std::string_view text, const std::string& data) {
  const auto rendering = std::make_shared<Rendering>(text, data);
  return [rendering] { (void)rendering->run(1 << 16); };
}

Work compileText() {
  return [text = makeTemplateText(16)] { (void)KorTemplate::compile(text); };
}

Work readJSON() {
  return [text = test::catalogueAsJSON(test::makeCatalogue(100))] { (void)readJSONObject(text); };
}

Work renderTableOfNumbers() {
  return rendering(kTableTemplate, tableAsJSON(makeTable(20, 20)));
}

Work renderCatalogue() {
  return rendering(readSourceFile("Examples/catalogue/catalogue.tavlo"),
                   test::catalogueAsJSON(test::makeCatalogue(20)));
}

Work renderTeams() {
  return rendering(
      readSourceFile("Benchmarks/peers/templates/tavlo/teams.tavlo"),
      R"({"title": "The league", "teams": [{"name": "Anchors", "score": 42}, {"name": "Bells", "score": 37},
                       {"name": "Clocks", "score": 31}, {"name": "Drums", "score": 19}]})");
}

Work callTemplateFunction() {
  return rendering(
      "<? function fib($n) ?><? if ($n < 2) ?><? return $n ?><? endif ?>"
      "<? return fib($n - 1) + fib($n - 2) ?><? endfunction ?><?= fib(10) ?>",
      "{}");
}

Work failInFunction() {
  return rendering("<? function f($n) ?><? return $n / 0 ?><? endfunction ?><?= f(1) ?>", "{}");
}

Work renderOnce() {
  return [] {
    const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
    static const Ref<KorTemplate> page = KorTemplate::compile("Dear <?= $name ?>,");
    environment->setGlobal("name", "Ada");
    page->executeWithEnvironment(environment.get());
  };
}

// A host's struct, with what a template reads and calls.
struct Item {
  double priceFor(double count) const { return price * count; }

  std::string name;
  double price;
};

void describeHostClass(HostClass<Item>& item) {
  item.name("Item").property("name", &Item::name).property("price", &Item::price).method("priceFor:", &Item::priceFor);
}

Work readStructs() {
  const auto items = std::make_shared<std::vector<Item>>(100, Item{"Lamp", 9.5});
  const auto page =
      KorTemplate::compile("<? foreach ($i in $items) ?><?= $i.name ?> <?= $i.price ?>\n<? endforeach ?>");
  const auto environment = KorTemplateEnvironment::environment();
  environment->setGlobal("items", std::ref(*items));
  return [items, page, environment] {
    environment->setOutputStream(KorTemplateStringStream::stringStream());
    page->executeWithEnvironment(environment.get());
  };
}

Work callHost() {
  const auto item = std::make_shared<Item>(Item{"Lamp", 9.5});
  const auto environment = KorTemplateEnvironment::environment();
  environment->setGlobal("numbers", std::vector<double>(100, 2.5));
  environment->setFunction("sum", [](double left, double right) { return left + right; });
  environment->setFunctionForName(KorTemplateExternalFunction::functionWithSelectorTarget("priceFor:", *item), "price");
  const auto page =
      KorTemplate::compile("<? foreach ($n in $numbers) ?><? sum($n, 1) ?><? price($n) ?><? endforeach ?>");
  return [item, page, environment] { page->executeWithEnvironment(environment.get()); };
}

struct NamedWork {
  const char* name;
  Work (*prepare)();
};

constexpr NamedWork kWorks[] = {
    {"compile-16KB", compileText},         {"read-json-100-products", readJSON},
    {"table-20x20", renderTableOfNumbers}, {"catalogue-20-products", renderCatalogue},
    {"teams-page", renderTeams},           {"fib-10", callTemplateFunction},
    {"failing-call", failInFunction},      {"fresh-environment", renderOnce},
    {"100-structs", readStructs},          {"100-calls-of-the-host", callHost},
};

int run(std::string_view name, std::uint64_t times) {
  for (const NamedWork& named : kWorks) {
    if (named.name != name) continue;
    const Work work = named.prepare();
    work();  // what is made once is made now
    const std::uint64_t before = allocationCount();
    for (std::uint64_t time = 0; time < times; ++time) work();
    std::printf("%llu\n", static_cast<unsigned long long>(allocationCount() - before));
    return 0;
  }
  std::fprintf(stderr, "There is no work named %s\n", std::string(name).c_str());
  return 1;
}

int list() {
  for (const NamedWork& named : kWorks) std::puts(named.name);
  return 0;
}

}  // namespace

}  // namespace tavlo::benchmarks

int main(int argc, char** argv) {
  if (argc == 2 && std::string_view(argv[1]) == "--list") return tavlo::benchmarks::list();
  std::uint64_t times = 0;
  const bool isNumber = argc == 3 && std::from_chars(argv[2], argv[2] + std::strlen(argv[2]), times).ec == std::errc();
  if (!isNumber) {
    std::fputs("tavlo_work NAME TIMES, or tavlo_work --list\n", stderr);
    return 1;
  }
  return tavlo::benchmarks::run(argv[1], times);
}
