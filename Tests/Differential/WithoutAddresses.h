#pragma once

#include <string>

namespace tavlo::test {

// The text with each address of an object, as in "<NAME: 0x1234>", as its number in the order in which they appear, so
// that the descriptions of two trees of the same shape read the same. Other text stays, whatever it looks like.
std::string withoutAddresses(const std::string& description);

}  // namespace tavlo::test
