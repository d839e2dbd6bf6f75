#include <benchmark/benchmark.h>
#include <rapidjson/document.h>

#include <algorithm>
#include <cstdint>
#include <string>

#include "Benchmarks/TemplateText.h"
#include "Source/KorTemplate.h"
#include "Tests/Examples/Catalogue.h"
#include "Tool/JSONReader.h"

namespace tavlo::benchmarks {

namespace {

constexpr std::size_t kJSONSize = 133'000;
constexpr std::size_t kLargeJSONSize = 40'000'000;

void countBytes(benchmark::State& state, const std::string& text) {
  state.SetBytesProcessed(static_cast<std::int64_t>(text.size()) * state.iterations());
  state.counters["bytes"] = static_cast<double>(text.size());
}

// The share of literal text, which the generated templates promise to be two thirds.
double textShare(const std::string& text) {
  std::size_t literal = 0;
  std::size_t at = 0;
  while (at < text.size()) {
    const std::size_t block = std::min(text.find("<?", at), text.size());
    literal += block - at;
    const std::size_t end = text.find("?>", block);
    at = end == std::string::npos ? text.size() : end + 2;
  }
  return static_cast<double>(literal) / static_cast<double>(text.size());
}

void compileTemplate(benchmark::State& state, std::size_t kilobytes) {
  const std::string text = makeTemplateText(kilobytes);
  for (auto _ : state) benchmark::DoNotOptimize(KorTemplate::compile(text));
  countBytes(state, text);
  state.counters["text_share"] = textShare(text);
}

std::string catalogueJSON(std::size_t size) {
  constexpr std::size_t kBytesOfProduct = 220;  // or more
  std::size_t products = size / kBytesOfProduct / 20 * 10;
  std::string text;
  while (text.size() < size) text = test::catalogueAsJSON(test::makeCatalogue(products += 10 + products / 20));
  return text;
}

void parseJSON(benchmark::State& state, std::size_t size) {
  const std::string text = catalogueJSON(size);
  for (auto _ : state) {
    rapidjson::Document document;
    document.Parse(text.c_str(), text.size());
    if (document.HasParseError()) state.SkipWithError("the generated JSON does not parse");
    benchmark::DoNotOptimize(document);
  }
  countBytes(state, text);
}

// The program's own reader, of the values that a template works on.
void readData(benchmark::State& state, std::size_t size) {
  const std::string text = catalogueJSON(size);
  for (auto _ : state) benchmark::DoNotOptimize(readJSONObject(text));
  countBytes(state, text);
}

BENCHMARK_CAPTURE(compileTemplate, 1KB, 1);
BENCHMARK_CAPTURE(compileTemplate, 1MB, 1024);
BENCHMARK_CAPTURE(parseJSON, 133KB, kJSONSize);
BENCHMARK_CAPTURE(readData, 133KB, kJSONSize);
BENCHMARK_CAPTURE(parseJSON, 40MB, kLargeJSONSize);
BENCHMARK_CAPTURE(readData, 40MB, kLargeJSONSize);

}  // namespace

}  // namespace tavlo::benchmarks
