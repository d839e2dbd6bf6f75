#pragma once

#include <cstddef>
#include <string>

namespace tavlo::benchmarks {

// A made-up template of exactly that many kilobytes (1,024 bytes): two thirds of it literal text, 14 blocks a kilobyte,
// among them outputs, conditions, a loop, an assignment and a call. It is the same at every call, and no two kilobytes
// of it are alike.
std::string makeTemplateText(std::size_t kilobytes);

}  // namespace tavlo::benchmarks
