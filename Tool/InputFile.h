#pragma once

#include <string>

namespace tavlo {

// The name that stands for standard input, and where text is written to for standard output.
inline constexpr const char* kStandardStream = "-";

// The whole content of a file, or of standard input. Throws `Failure` when it cannot be read.
std::string readFile(const std::string& path);

}  // namespace tavlo
