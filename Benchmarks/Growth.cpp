#include "Benchmarks/Growth.h"

#include <valgrind/callgrind.h>

#include <algorithm>
#include <cstdio>
#include <exception>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

// Does each kind of work on inputs of three sizes, every one twice as large as the one before, and has valgrind note
// the instructions of each: tavlo_growth [NAME...]. Benchmarks/growth runs it.

namespace tavlo::benchmarks {

namespace {

void appendPieces(std::string& text, std::string_view piece, std::size_t pieces) {
  for (std::size_t number = 0; number < pieces; ++number) {
    for (const char character : piece) {
      if (character == '#') {
        text += std::to_string(number);
      } else {
        text += character;
      }
    }
  }
}

std::vector<GrowingWork> allWorks() {
  std::vector<GrowingWork> all;
  for (const auto part : {growingCompilations, growingRefusals, growingRenderings, growingFailures, growingPatterns,
                          growingValues, growingTexts, growingPaths, growingJSON}) {
    for (GrowingWork& work : part()) all.push_back(std::move(work));
  }
  return all;
}

void doOn(const GrowingWork& growing, std::size_t size, const std::string& label) {
  const Work work = growing.prepare(size);
  CALLGRIND_ZERO_STATS;
  work();
  CALLGRIND_DUMP_STATS_AT(label.c_str());
}

void doOnThreeSizes(const GrowingWork& growing) {
  growing.prepare(growing.size / 8)();  // what is made once is made now
  for (const std::size_t factor : {1, 2, 4}) {
    doOn(growing, factor * growing.size, std::string(growing.name) + '=' + std::to_string(factor * growing.size));
  }
}

int run(const std::vector<std::string_view>& names) {
  std::size_t done = 0;
  for (const GrowingWork& growing : allWorks()) {
    if (!names.empty() && std::find(names.begin(), names.end(), growing.name) == names.end()) continue;
    try {
      doOnThreeSizes(growing);
    } catch (const std::exception& exception) {
      std::fprintf(stderr, "%s: %s\n", growing.name, exception.what());
      return 1;
    }
    ++done;
  }
  if (names.empty() || done == names.size()) return 0;
  std::fputs("There is no work of that name; tavlo_growth --list has them all\n", stderr);
  return 1;
}

int list() {
  for (const GrowingWork& growing : allWorks()) std::puts(growing.name);
  return 0;
}

}  // namespace

std::string GrowingText::of(std::size_t pieces) const {
  std::string text = before;
  appendPieces(text, piece, pieces);
  text += middle;
  appendPieces(text, closing, closing[0] == '\0' ? 0 : pieces);
  return text += after;
}

}  // namespace tavlo::benchmarks

int main(int argc, char** argv) {
  const std::vector<std::string_view> names(argv + 1, argv + argc);
  if (names.size() == 1 && names[0] == "--list") return tavlo::benchmarks::list();
  return tavlo::benchmarks::run(names);
}
