#pragma once

#include <cstddef>

#include "Source/KorTemplate.h"

namespace tavlo::fuzz {

// The most steps that running a template may take, when no collection has more than `elements` elements and functions
// may run `depth` deep inside one another. Very large rather than too small.
double estimateWork(KorTemplate& compiled, std::size_t elements, int depth);

}  // namespace tavlo::fuzz
