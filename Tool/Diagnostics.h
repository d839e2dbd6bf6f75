#pragma once

#include <cstdint>
#include <string_view>

#include "Tool/Failure.h"
#include "Tool/Statistics.h"

namespace tavlo {

enum class ErrorFormat : std::uint8_t { Text, JSON };

// Tells the caller of the program what went wrong: on standard error, each message at once and whole.
class Diagnostics {
 public:
  explicit Diagnostics(ErrorFormat format) noexcept : format_(format) {}

  // What a running template has written to its error stream.
  void writeDiagnostic(std::string_view text) const;
  // Where there is no memory to tell of the failure, that is told.
  void writeFailure(const Failure& failure) const noexcept;
  void writeOutOfMemory() const noexcept;
  void writeStatistics(const Statistics& statistics) const;

 private:
  ErrorFormat format_;
};

}  // namespace tavlo
