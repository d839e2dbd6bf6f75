#include <benchmark/benchmark.h>

#include <cstddef>
#include <string>
#include <string_view>

#include "Benchmarks/Rendering.h"
#include "Benchmarks/Table.h"
#include "Benchmarks/TemplateText.h"
#include "Source/KorTemplate.h"

namespace tavlo::benchmarks {

// Each workload runs on three inputs, every one twice as large as the one before: what grows faster than its input
// shows in the ratios.

namespace {

std::string repeated(std::string_view piece, std::size_t count) {
  std::string out;
  for (std::size_t index = 0; index < count; ++index) out += piece;
  return out;
}

std::string chainOf(std::string_view operand, std::string_view op, std::size_t operators) {
  return "<?= " + std::string(operand) + repeated(std::string(op) + std::string(operand), operators) + " ?>";
}

void compileAgain(benchmark::State& state, const std::string& text) {
  for (auto _ : state) benchmark::DoNotOptimize(KorTemplate::compile(text));
}

void renderAgain(benchmark::State& state, std::string_view text, std::string_view data) {
  Rendering rendering(text, data);
  const std::size_t capacity = rendering.output().size();
  for (auto _ : state) benchmark::DoNotOptimize(rendering.run(capacity));
}

std::size_t sizeOf(const benchmark::State& state) {
  return static_cast<std::size_t>(state.range(0));
}

void compileKilobytes(benchmark::State& state) {
  compileAgain(state, makeTemplateText(sizeOf(state)));
}

void renderRows(benchmark::State& state) {
  renderAgain(state, kTableTemplate, tableAsJSON(makeTable(sizeOf(state), 100)));
}

void compileSums(benchmark::State& state) {
  compileAgain(state, chainOf("1", " + ", sizeOf(state)));
}

void runSums(benchmark::State& state) {
  renderAgain(state, chainOf("1", " + ", sizeOf(state)), "{}");
}

void runConcatenations(benchmark::State& state) {
  renderAgain(state, chainOf("$word", " + ", sizeOf(state)), R"({"word": "abc"})");
}

void compileMixedOperators(benchmark::State& state) {
  compileAgain(state, "<?= 1" + repeated(" * 2 + 3 - 4 < 5 && 6", sizeOf(state) / 5) + " ?>");
}

void compileParentheses(benchmark::State& state) {
  compileAgain(state, "<?= " + repeated("(", sizeOf(state)) + "1" + repeated(" + 1)", sizeOf(state)) + " ?>");
}

void runParentheses(benchmark::State& state) {
  renderAgain(state, "<?= " + repeated("(", sizeOf(state)) + "1" + repeated(" + 1)", sizeOf(state)) + " ?>", "{}");
}

BENCHMARK(compileKilobytes)->Arg(128)->Arg(256)->Arg(512);
BENCHMARK(renderRows)->Arg(100)->Arg(200)->Arg(400);
BENCHMARK(compileSums)->Arg(5'000)->Arg(10'000)->Arg(20'000);
BENCHMARK(runSums)->Arg(5'000)->Arg(10'000)->Arg(20'000);
BENCHMARK(runConcatenations)->Arg(5'000)->Arg(10'000)->Arg(20'000);
BENCHMARK(compileMixedOperators)->Arg(5'000)->Arg(10'000)->Arg(20'000);
BENCHMARK(compileParentheses)->Arg(200)->Arg(400)->Arg(800);
BENCHMARK(runParentheses)->Arg(200)->Arg(400)->Arg(800);

}  // namespace

}  // namespace tavlo::benchmarks
