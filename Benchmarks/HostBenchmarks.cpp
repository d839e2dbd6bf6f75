#include <benchmark/benchmark.h>

#include <charconv>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <mutex>
#include <stop_token>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "Benchmarks/Allocations.h"
#include "Foundation/HostObject.h"
#include "Foundation/LazyCollections.h"
#include "Source/KorTemplate.h"
#include "Source/KorTemplateEnvironment.h"
#include "Source/KorTemplateStringStream.h"
#include "Source/KorTemplateVariableExpression.h"

namespace tavlo::benchmarks {

namespace {

// A struct of a host.
struct Item {
  double worth() const { return price * static_cast<double>(stock); }

  std::string name;
  double price;
  std::int64_t stock;
};

void describeHostClass(HostClass<Item>& item) {
  item.name("Item").property("name", &Item::name).property("price", &Item::price).property("stock", &Item::stock);
  item.property("worth", &Item::worth);
}

constexpr std::size_t kItems = 100'000;
constexpr std::string_view kItemsTemplate =
    "<? foreach ($item in $items) ?><li><?= $item.name ?>: <?= $item.price ?> (<?= $item.stock ?>)</li>\n"
    "<? endforeach ?>";

std::vector<Item> makeItems() {
  std::vector<Item> items;
  items.reserve(kItems);
  for (std::size_t index = 0; index < kItems; ++index) {
    const std::size_t scattered = index * 2'654'435'761 % 9'999'991;
    items.push_back({"article number " + std::to_string(scattered), static_cast<double>(scattered % 100'000) / 100,
                     static_cast<std::int64_t>(scattered % 1000)});
  }
  return items;
}

template <class Number>
void append(std::string& out, Number number) {
  char digits[32];
  out.append(digits, std::to_chars(std::begin(digits), std::end(digits), number).ptr);
}

// What the template makes, written without it.
std::string renderItems(const std::vector<Item>& items, std::size_t capacity) {
  std::string out;
  out.reserve(capacity);
  for (const Item& item : items) {
    out += "<li>";
    out += item.name;
    out += ": ";
    append(out, item.price);
    out += " (";
    append(out, item.stock);
    out += ")</li>\n";
  }
  return out;
}

std::string_view renderByTemplate(KorTemplate& compiled, KorTemplateEnvironment& environment, std::size_t capacity) {
  const Ref<KorTemplateStringStream> output = KorTemplateStringStream::stringStream();
  output->buffer()->mutableText().reserve(capacity);
  environment.setOutputStream(output);
  compiled.executeWithEnvironment(&environment);
  return output->buffer()->mutableText().view();
}

void structsByTemplate(benchmark::State& state) {
  const std::vector<Item> items = makeItems();
  const std::string expected = renderItems(items, 0);
  const Ref<KorTemplate> compiled = KorTemplate::compile(kItemsTemplate);
  const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  environment->setGlobal("items", std::cref(items));
  if (renderByTemplate(*compiled, *environment, expected.size()) != expected) {
    return state.SkipWithError("the template and the hand-written program differ");
  }
  const std::uint64_t before = allocationCount();
  for (auto _ : state) benchmark::DoNotOptimize(renderByTemplate(*compiled, *environment, expected.size()));
  const auto allocations = static_cast<double>(allocationCount() - before) / static_cast<double>(state.iterations());
  state.counters["allocations_per_struct"] = allocations / kItems;
}

void structsByHand(benchmark::State& state) {
  const std::vector<Item> items = makeItems();
  const std::size_t size = renderItems(items, 0).size();
  for (auto _ : state) benchmark::DoNotOptimize(renderItems(items, size));
}

// What a template does at "$item.price", which lies in the object, and at "$item.worth", which a function of its
// answers.
void readProperty(benchmark::State& state, const char* path) {
  Item item{"Lamp", 9.5, 3};
  const Ref<KorTemplateEnvironment> environment = KorTemplateEnvironment::environment();
  environment->setGlobal("item", hostReference(item));
  const auto property = KorTemplateVariableExpression::expressionWithVariable(path);
  environment->enter([&] {
    if (Value::adopt(property->evaluate(*environment)).isNull()) state.SkipWithError("no such property");
    for (auto _ : state) benchmark::DoNotOptimize(Value::adopt(property->evaluate(*environment)));
  });
}

// In a program that has threads, as one that locks has: a second one waits meanwhile.
void lockMutex(benchmark::State& state) {
  const std::jthread other([](const std::stop_token& end) {
    while (!end.stop_requested()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  });
  std::mutex mutex;
  for (auto _ : state) {
    mutex.lock();
    benchmark::ClobberMemory();
    mutex.unlock();
  }
}

BENCHMARK(structsByTemplate);
BENCHMARK(structsByHand);
BENCHMARK_CAPTURE(readProperty, member, "item.price");
BENCHMARK_CAPTURE(readProperty, function, "item.worth");
BENCHMARK(lockMutex);

}  // namespace

}  // namespace tavlo::benchmarks
