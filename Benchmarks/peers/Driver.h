#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace tavlo::compare {

// One workload that is ready to be measured. What it has not is empty.
struct Workload {
  std::function<void()> run;            // does it once
  std::function<std::string()> output;  // does it once, and answers what that wrote
  std::function<double()> memory;       // how many bytes what it compiled occupies for each byte of its text
};

// Makes a workload of that name; raises a std::exception where there is none.
using Prepare = std::function<Workload(std::string_view name)>;

// Answers the commands that come on standard input, a line each, until it ends:
//
//   run WORKLOAD COUNT     seconds on the clock and of the processor, for doing it once
//   output WORKLOAD FILE   "done", when the output is in the file
//   memory WORKLOAD        bytes
//
// What fails is answered with "error" and the reason. The workload of the last command is kept.
int serve(const Prepare& prepare);

// The bytes that are allocated in this process, in its heap and beside it.
std::uint64_t allocatedBytes();

// Makes whole files into texts, and texts into files; both raise std::runtime_error.
std::string readFile(const std::string& path);
void writeFile(const std::string& path, std::string_view text);

}  // namespace tavlo::compare
