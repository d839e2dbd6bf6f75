#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace tavlo::benchmarks {

// What is done once, with all that it needs.
using Work = std::function<void()>;

// Work on an input of any size, of which it should take as many instructions as the input is large.
struct GrowingWork {
  const char* name;
  std::size_t size;  // the least of those that are compared
  std::function<Work(std::size_t size)> prepare;
};

std::vector<GrowingWork> growingCompilations();
std::vector<GrowingWork> growingRefusals();
std::vector<GrowingWork> growingRenderings();
std::vector<GrowingWork> growingFailures();
std::vector<GrowingWork> growingPatterns();
std::vector<GrowingWork> growingValues();
std::vector<GrowingWork> growingTexts();
std::vector<GrowingWork> growingPaths();
std::vector<GrowingWork> growingJSON();

// A text of as many pieces as asked for: `before`, `piece` again and again, `middle`, `closing` as often, `after`. Each
// "#" of a piece stands for its number.
struct GrowingText {
  const char* before;
  const char* piece = "";
  const char* middle = "";
  const char* closing = "";
  const char* after = "";

  std::string of(std::size_t pieces) const;
};

}  // namespace tavlo::benchmarks
