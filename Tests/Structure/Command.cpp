#include "Tests/Structure/Command.h"

#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <stdexcept>

namespace tavlo::test {

CommandResult runCommand(const std::string& command) {
  FILE* pipe = popen((command + " 2>&1").c_str(), "r");
  if (pipe == nullptr) throw std::runtime_error("cannot run " + command);
  CommandResult result;
  std::array<char, 4096> buffer;
  while (const std::size_t size = std::fread(buffer.data(), 1, buffer.size(), pipe)) {
    result.output.append(buffer.data(), size);
  }
  const int status = pclose(pipe);
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return result;
}

std::string quoted(const std::string& word) {
  std::string result = "'";
  for (const char letter : word) {
    if (letter == '\'') {
      result += "'\\''";
    } else {
      result += letter;
    }
  }
  return result + "'";
}

}  // namespace tavlo::test
