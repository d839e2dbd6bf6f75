#pragma once

#include <string>

namespace tavlo::test {

// How a command of the shell ended, and what it wrote to standard output and standard error together.
struct CommandResult {
  int status = -1;  // 0 where it succeeded
  std::string output;
};

CommandResult runCommand(const std::string& command);

// A text as one word of a shell's command.
std::string quoted(const std::string& word);

}  // namespace tavlo::test
