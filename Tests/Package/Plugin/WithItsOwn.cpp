#include <string>

#include "Foundation/NSString.h"
#include "Source/KorTemplate.h"

// A plug-in that has the library within it, from the archive.
extern "C" [[gnu::visibility("default")]] bool tavloCompiles(int blocks);
bool tavloCompiles(int blocks) {
  std::string text;
  for (int block = 0; block < blocks; ++block) text += "<? $variable" + std::to_string(block) + " = $other + 1 ?>";
  return tavlo::KorTemplate::compile(text) != nullptr;
}
