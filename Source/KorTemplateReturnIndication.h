#pragma once

#include "Foundation/NSException.h"
#include "Foundation/Value.h"

namespace tavlo {

// The signal of a return, with the returned value, on its way to the function's invocation or to the template. The
// engine's own statements answer with a `Completion` instead; this one travels where a host's code stands in between.
class [[gnu::visibility("default")]] KorTemplateReturnIndication : public NSException {
 public:
  // The value may be absent.
  explicit KorTemplateReturnIndication(const Value& returnValue);
  KorTemplateReturnIndication(const KorTemplateReturnIndication&) noexcept = default;
  KorTemplateReturnIndication& operator=(const KorTemplateReturnIndication&) noexcept = default;
  ~KorTemplateReturnIndication() override;

  // The value may not be absent.
  static KorTemplateReturnIndication indicationWithReturnValue(const Value& returnValue);

  const Value& returnValue() const noexcept {
    return returnValue_;
  }
  void setReturnValue(const Value& value) {
    returnValue_ = value;
  }

 private:
  Value returnValue_;
};

}  // namespace tavlo
