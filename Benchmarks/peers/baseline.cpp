#include <rapidjson/document.h>

#include <charconv>
#include <iostream>
#include <iterator>
#include <memory>
#include <stdexcept>

#include "Benchmarks/Fibonacci.h"
#include "Benchmarks/Table.h"
#include "Benchmarks/peers/Driver.h"
#include "Benchmarks/peers/Letters.h"
#include "Tests/Examples/Catalogue.h"

// What every engine is compared with, written by hand:
//
//   compare_baseline                            answers commands: Driver.h
//   compare_baseline generate FOLDER LETTERS    writes the data of all workloads
//   compare_baseline letters DATA OUTPUT        reads, renders and writes the letters

namespace tavlo::compare {

namespace {

std::string textOfJSON() {
  constexpr std::size_t kSize = 133'000;
  std::string text;
  for (std::size_t products = 500; text.size() < kSize; products += 5) {
    text = test::catalogueAsJSON(test::makeCatalogue(products));
  }
  return text;
}

void parse(const std::string& text) {
  rapidjson::Document document;
  document.Parse(text.c_str(), text.size());
  if (document.HasParseError()) throw std::runtime_error("the generated JSON does not parse");
}

std::string fibonacciText() {
  volatile double number = 22;  // so that the compiler does not know it
  char digits[32];
  const auto end = std::to_chars(std::begin(digits), std::end(digits), benchmarks::fibonacci(number));
  return std::string(digits, end.ptr) + "\n";
}

Workload making(std::function<std::string()> make) {
  return {.run =
              [make] {
                const std::string text = make();
                asm volatile("" : : "r"(text.data()) : "memory");  // somebody may look at it
              },
          .output = make,
          .memory = {}};
}

Workload table(std::size_t rows) {
  return making([data = benchmarks::makeTable(rows, 100)] { return benchmarks::renderTable(data); });
}

Workload prepare(std::string_view name) {
  if (name == "table") return table(100);
  if (name == "table-10000") return table(10'000);
  if (name == "teams") return making([league = makeLeague()] { return renderLeague(league); });
  if (name == "catalogue") {
    return making([catalogue = test::makeCatalogue(1000)] { return test::renderCatalogue(catalogue); });
  }
  if (name == "fib") return making(fibonacciText);
  if (name == "json") return {.run = [text = textOfJSON()] { parse(text); }, .output = {}, .memory = {}};
  throw std::runtime_error("no such workload: " + std::string(name));
}

void generate(const std::string& folder, std::size_t letters) {
  writeFile(folder + "/table.json", benchmarks::tableAsJSON(benchmarks::makeTable(100, 100)));
  writeFile(folder + "/table-10000.json", benchmarks::tableAsJSON(benchmarks::makeTable(10'000, 100)));
  writeFile(folder + "/teams.json", leagueAsJSON(makeLeague()));
  writeFile(folder + "/catalogue.json", test::catalogueAsJSON(test::makeCatalogue(1000)));
  writeFile(folder + "/fib.json", "{}\n");
  writeFile(folder + "/json.json", textOfJSON());
  writeFile(folder + "/letters.json", lettersAsJSON(makeLetters(letters)));
}

int run(const std::vector<std::string>& arguments) {
  if (arguments.empty()) return serve(prepare);
  if (arguments.size() == 3 && arguments[0] == "generate") {
    generate(arguments[1], std::stoul(arguments[2]));
    return 0;
  }
  if (arguments.size() == 3 && arguments[0] == "letters") {
    writeFile(arguments[2], renderLetters(lettersFromJSON(readFile(arguments[1]))));
    return 0;
  }
  std::cerr << "usage: compare_baseline [generate FOLDER LETTERS | letters DATA OUTPUT]\n";
  return 2;
}

}  // namespace

}  // namespace tavlo::compare

int main(int argc, char** argv) {
  try {
    return tavlo::compare::run({argv + 1, argv + argc});
  } catch (const std::exception& error) {
    std::cerr << error.what() << "\n";
    return 1;
  }
}
