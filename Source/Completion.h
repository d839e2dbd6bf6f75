#pragma once

#include "Foundation/RawValue.h"
#include "Foundation/Value.h"

namespace tavlo {

// How a statement ended: it went on, or it returned with a value. In two registers, like the value; whoever receives a
// returned value passes it on or adopts it.
class [[nodiscard]] Completion {
 public:
  static constexpr Completion wentOn() noexcept { return Completion(RawValue::nothing()); }
  static constexpr Completion returned(RawValue value) noexcept { return Completion(value); }

  constexpr bool isReturn() const noexcept { return !raw_.isNothing(); }
  // The returned value, with its reference.
  constexpr RawValue value() const noexcept { return raw_; }

 private:
  constexpr explicit Completion(RawValue raw) noexcept : raw_(raw) {}

  RawValue raw_;
};

}  // namespace tavlo
