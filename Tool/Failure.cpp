#include "Tool/Failure.h"

#include <cerrno>
#include <system_error>

#include "Source/SourceExcerpt.h"

namespace tavlo {

Failure Failure::ofUsage(const std::string& reason) {
  return {ExitStatus::Unusable, "usage", reason, "tavlo", {}, {}, {}};
}

Failure Failure::ofInput(const std::string& file, const std::string& reason) {
  return {ExitStatus::Unusable, "input", reason, file, {}, {}, {}};
}

Failure Failure::ofOutput(const std::string& file, const std::string& reason) {
  return {ExitStatus::Unusable, "output", reason, file, {}, {}, {}};
}

Failure Failure::at(std::string_view text, const TextPlace& where) const {
  Failure placed = *this;
  placed.place = where;
  placed.excerpt = excerptAround(text, where.offset);
  return placed;
}

std::string textOfSystemError(int number) {
  return std::generic_category().message(number);
}

void raiseUndelivered(int errorNumber, const std::string& file) {
  if (errorNumber == EPIPE) throw ReaderWentAway();
  throw Failure::ofOutput(file, "The text cannot be written: " + textOfSystemError(errorNumber));
}

}  // namespace tavlo
