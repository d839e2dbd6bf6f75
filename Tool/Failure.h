#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Source/TextPlace.h"

namespace tavlo {

// The exit statuses of the program.
enum class ExitStatus : std::uint8_t { Rendered = 0, TemplateFailed = 1, Unusable = 2 };

// Why the program ends short of success. It is thrown, and is no `std::exception`, so that no function call of a
// running template takes it for a failure of the function.
struct Failure {
  ExitStatus status = ExitStatus::TemplateFailed;
  std::string name;
  std::string reason;
  std::string file;                  // as it was named by the caller
  std::optional<std::int32_t> line;  // as a syntax error gives it
  std::optional<TextPlace> place;    // where it truly is in the file
  std::string excerpt;               // of the file, around the place

  // Wrong usage; the command line is what is at fault.
  static Failure ofUsage(const std::string& reason);
  // A file that cannot be read, or whose content cannot be used.
  static Failure ofInput(const std::string& file, const std::string& reason);
  // A file that cannot be written.
  static Failure ofOutput(const std::string& file, const std::string& reason);

  // The same failure with its place in the file's text.
  Failure at(std::string_view text, const TextPlace& where) const;
};

// Thrown when the reader of what is written has gone away. Like `Failure` it is no `std::exception`.
struct ReaderWentAway {};

// The text of an error number of the system.
std::string textOfSystemError(int number);

// Throws what stands for text that could not be written to the file: `ReaderWentAway`, or else `Failure`.
[[noreturn]] void raiseUndelivered(int errorNumber, const std::string& file);

}  // namespace tavlo
