#pragma once

namespace tavlo {

// The program `tavlo` with what main() is given; answers with its exit status.
int runProgram(int count, char** arguments) noexcept;

}  // namespace tavlo
