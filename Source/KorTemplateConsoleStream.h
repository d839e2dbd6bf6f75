#pragma once

#include "Source/KorTemplateStream.h"

namespace tavlo {

// Writes each text to standard error, on a line of its own; an absent one as "(null)".
class KorTemplateConsoleStream final : public KorTemplateStream {
 public:
  // A fresh one at each call.
  static Ref<KorTemplateConsoleStream> consoleStream() { return makeRef<KorTemplateConsoleStream>(); }

  void write(const Text& text) override;

  const char* className() const override { return "KorTemplateConsoleStream"; }
};

}  // namespace tavlo
