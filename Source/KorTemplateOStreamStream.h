#pragma once

#include <iosfwd>
#include <string>

#include "Source/KorTemplateStream.h"

namespace tavlo {

// Writes to a stream of the standard library, which gathers by itself and is flushed when this one is: before a
// diagnostic and when an execution has ended, whichever way.
//
// Where the stream has failed, before or by a write, `KorTemplateWriteException` is raised; a stream that raises
// exceptions of its own raises those.
class KorTemplateOStreamStream final : public KorTemplateStream {
 public:
  // The stream must outlive this one; `name` is what messages call it.
  explicit KorTemplateOStreamStream(std::ostream& stream, std::string name = "the output stream");
  static Ref<KorTemplateOStreamStream> streamWithOStream(std::ostream& stream) {
    return makeRef<KorTemplateOStreamStream>(stream);
  }

  // Raises `NSInvalidArgumentException` for an absent text.
  void write(const Text& text) override;
  void flush() override;

  const char* className() const override { return "KorTemplateOStreamStream"; }

 private:
  void requireGood() const;

  std::ostream& stream_;
  std::string name_;
};

}  // namespace tavlo
