#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Tool/Diagnostics.h"
#include "Tool/RenderOptions.h"

namespace tavlo {

// What the program is asked to do.
struct CommandLine {
  std::optional<std::string> information;  // a text that is asked for: help, or the version; nothing else is done then
  RenderOptions render;

  // Reads the arguments, without the program's own name. Throws `Failure` for wrong usage.
  static CommandLine parse(const std::vector<std::string>& arguments);

  // The form in which errors are asked for, also by arguments that are wrong otherwise.
  static ErrorFormat errorFormatOf(const std::vector<std::string>& arguments);
};

}  // namespace tavlo
