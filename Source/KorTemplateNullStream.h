#pragma once

#include "Source/KorTemplateStream.h"

namespace tavlo {

// Drops what is written.
class KorTemplateNullStream final : public KorTemplateStream {
 public:
  // A fresh one at each call.
  static Ref<KorTemplateNullStream> nullStream() { return makeRef<KorTemplateNullStream>(); }

  void write(const Text& /*text*/) override {}

  const char* className() const override { return "KorTemplateNullStream"; }
};

}  // namespace tavlo
