#pragma once

#include <string>
#include <vector>

#include "Tests/Differential/PlainScanner.h"

namespace tavlo::test {

// The blocks of a text as the scanner of templates finds them, by its rules.
std::vector<PlainBlock> scanWithRules(const std::string& text);

}  // namespace tavlo::test
