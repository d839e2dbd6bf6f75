#include <benchmark/benchmark.h>

#include <string>

#include "Benchmarks/Allocations.h"
#include "Benchmarks/Fibonacci.h"
#include "Benchmarks/Rendering.h"
#include "Benchmarks/Table.h"
#include "Tests/Examples/Catalogue.h"

namespace tavlo::benchmarks {

namespace {

// Renders by the template, after a look whether that makes what the hand-written program makes.
void measure(benchmark::State& state, Rendering& rendering, const std::string& expected) {
  if (rendering.output() != expected) {
    state.SkipWithError("the template and the hand-written program differ");
    return;
  }
  for (auto _ : state) benchmark::DoNotOptimize(rendering.run(expected.capacity()));
}

void catalogueByTemplate(benchmark::State& state) {
  const test::Catalogue catalogue = test::makeCatalogue(1000);
  Rendering rendering(readSourceFile("Examples/catalogue/catalogue.tavlo"), test::catalogueAsJSON(catalogue));
  measure(state, rendering, test::renderCatalogue(catalogue));
}

void catalogueByHand(benchmark::State& state) {
  const test::Catalogue catalogue = test::makeCatalogue(1000);
  for (auto _ : state) benchmark::DoNotOptimize(test::renderCatalogue(catalogue));
}

void tableByTemplate(benchmark::State& state) {
  const Table table = makeTable(100, 100);
  Rendering rendering(kTableTemplate, tableAsJSON(table));
  measure(state, rendering, renderTable(table));
}

void tableByHand(benchmark::State& state) {
  const Table table = makeTable(100, 100);
  for (auto _ : state) benchmark::DoNotOptimize(renderTable(table));
}

// The allocations of one rendering, of which some are for the stream and its buffer, over its cells.
void tableAllocations(benchmark::State& state) {
  const Table table = makeTable(100, 100);
  const std::string expected = renderTable(table);
  Rendering rendering(kTableTemplate, tableAsJSON(table));
  rendering.run(expected.capacity());
  const std::uint64_t before = allocationCount();
  for (auto _ : state) benchmark::DoNotOptimize(rendering.run(expected.capacity()));
  const auto perRendering = static_cast<double>(allocationCount() - before) / static_cast<double>(state.iterations());
  state.counters["allocations"] = perRendering;
  state.counters["allocations_per_cell"] = perRendering / (100.0 * 100.0);
}

void fibonacciByTemplate(benchmark::State& state) {
  Rendering rendering(kFibonacciTemplate, "{}");
  measure(state, rendering, std::to_string(static_cast<int>(fibonacci(22))));
}

void fibonacciByHand(benchmark::State& state) {
  double number = 22;
  for (auto _ : state) {
    benchmark::DoNotOptimize(number);
    benchmark::DoNotOptimize(fibonacci(number));
  }
}

BENCHMARK(catalogueByTemplate);
BENCHMARK(catalogueByHand);
BENCHMARK(tableByTemplate);
BENCHMARK(tableByHand);
BENCHMARK(tableAllocations);
BENCHMARK(fibonacciByTemplate);
BENCHMARK(fibonacciByHand);

}  // namespace

}  // namespace tavlo::benchmarks
