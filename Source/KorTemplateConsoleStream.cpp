#include "Source/KorTemplateConsoleStream.h"

#include <cstdio>
#include <string>

namespace tavlo {

void KorTemplateConsoleStream::write(const Text& text) {
  std::string line(text.isAbsent() ? "(null)" : text.view());
  line += '\n';
  std::fwrite(line.data(), 1, line.size(), stderr);
}

}  // namespace tavlo
