#pragma once

#include "Foundation/NSObject.h"
#include "Foundation/Text.h"

namespace tavlo {

// Where a running template writes to.
class KorTemplateStream : public NSObject {
 public:
  // Takes the text of one output statement, or of one diagnostic. The text is absent where a value was; it is good for
  // the call only.
  virtual void write(const Text& text) = 0;

  // Delivers what the stream has gathered so far. Called when an outermost execution ends, also by an exception, and
  // before a diagnostic is written; a stream that gathers nothing has nothing to do.
  virtual void flush() {}

  const char* className() const override { return "KorTemplateStream"; }

 protected:
  explicit KorTemplateStream(ObjectKind kind = ObjectKind::Other) : NSObject(kind) {}
};

}  // namespace tavlo
