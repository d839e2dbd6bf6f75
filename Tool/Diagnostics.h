#pragma once

#include <cstdint>
#include <string_view>

#include "Tool/Failure.h"

namespace tavlo {

enum class ErrorFormat : std::uint8_t { Text, JSON };

// Tells the caller of the program what went wrong: on standard error, each message at once and whole.
class Diagnostics {
 public:
  explicit Diagnostics(ErrorFormat format) noexcept : format_(format) {}

  // What a running template has written to its error stream.
  void writeDiagnostic(std::string_view text) const;
  void writeFailure(const Failure& failure) const;

 private:
  ErrorFormat format_;
};

}  // namespace tavlo
