#pragma once

#include "Source/KorTemplateStream.h"
#include "Tool/Diagnostics.h"

namespace tavlo {

// The error stream of a template that the program runs; an absent text reads "(null)".
class DiagnosticStream final : public KorTemplateStream {
 public:
  // The diagnostics must outlive the stream.
  explicit DiagnosticStream(const Diagnostics& diagnostics) : diagnostics_(diagnostics) {}
  static Ref<DiagnosticStream> diagnosticStream(const Diagnostics& diagnostics) {
    return makeRef<DiagnosticStream>(diagnostics);
  }

  void write(const Text& text) override { diagnostics_.writeDiagnostic(text.isAbsent() ? "(null)" : text.view()); }

  const char* className() const override { return "DiagnosticStream"; }

 private:
  const Diagnostics& diagnostics_;
};

}  // namespace tavlo
