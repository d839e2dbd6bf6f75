#pragma once

#include <cstdint>

namespace tavlo::benchmarks {

// How often this program has asked `operator new`, in any of its forms, for memory.
std::uint64_t allocationCount() noexcept;

}  // namespace tavlo::benchmarks
