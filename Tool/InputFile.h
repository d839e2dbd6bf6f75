#pragma once

#include <cstddef>
#include <limits>
#include <string>

namespace tavlo {

// The name that stands for standard input, and where text is written to for standard output.
inline constexpr const char* kStandardStream = "-";

// The whole content of a file, or of standard input; of what has more than `most` bytes at least one byte more than
// that, and not much more, for who refuses it. Throws `Failure` when it cannot be read.
std::string readFile(const std::string& path, std::size_t most = std::numeric_limits<std::size_t>::max());

}  // namespace tavlo
