#pragma once

#include <cstdint>

namespace tavlo {

// A stretch of a template's text, in bytes. Without a length: nowhere.
struct SourceRange {
  std::uint32_t offset = 0;
  std::uint32_t length = 0;

  bool isKnown() const noexcept { return length != 0; }
};

}  // namespace tavlo
