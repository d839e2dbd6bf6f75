#pragma once

#include <string>
#include <vector>

namespace tavlo {

// The program `tavlo` with the arguments that follow its name; answers with its exit status.
int runProgram(const std::vector<std::string>& arguments);

}  // namespace tavlo
