#pragma once

#include <limits>

namespace tavlo::test {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNotANumber = std::numeric_limits<double>::quiet_NaN();

}  // namespace tavlo::test
