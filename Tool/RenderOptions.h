#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Foundation/KorTemplateLimits.h"

namespace tavlo {

// What the command `render` is asked to do.
struct RenderOptions {
  // A global that the command line itself defines.
  struct Definition {
    std::string name;
    std::string text;
    bool isJSON = false;  // the text is the value as JSON, otherwise it is the value
  };

  std::string templateFile;
  std::vector<std::string> dataFiles;
  std::vector<Definition> definitions;
  std::optional<std::string> outputFile;  // absent: standard output
  KorTemplateLimits limits;
  bool showsStatistics = false;            // what the run took goes to standard error
  std::optional<std::string> profileFile;  // where the time went, as folded stacks; absent: nobody asks
};

}  // namespace tavlo
