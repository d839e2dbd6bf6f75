#pragma once

#include <chrono>
#include <cstdint>

namespace tavlo {

// What a run of the program took.
struct Statistics {
  using Duration = std::chrono::steady_clock::duration;

  Duration read{};                // data and template, and making globals of the data
  Duration compile{};             // the template
  Duration render{};              // and writing what comes out
  std::uint64_t steps = 0;        // of the execution, as limits count them
  std::uint64_t output = 0;       // bytes
  std::uint64_t allocations = 0;  // of memory, from the beginning on
  std::uint64_t peakMemory = 0;   // of the process, in KiB
};

}  // namespace tavlo
