#pragma once

#include <cstddef>
#include <string>

#include "Foundation/NSString.h"

namespace tavlo {

// The name that stands for standard input, and where text is written to for standard output.
inline constexpr const char* kStandardStream = "-";

// The whole content of a file, or of standard input, which may be endless. Throws `Failure` when it cannot be read, or
// has more than `most` bytes.
std::string readFile(const std::string& path, std::size_t most = NSString::kMaximumByteLength);

}  // namespace tavlo
