#pragma once

#include <string>

namespace tavlo::test {

// The text with each address in it as its number in the order in which they appear, so that the descriptions of two
// trees of the same shape read the same.
std::string withoutAddresses(const std::string& description);

}  // namespace tavlo::test
