#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tavlo::test {

// The piece that many times in a row.
inline std::string repeated(std::string_view piece, std::size_t times) {
  std::string text;
  text.reserve(piece.size() * times);
  for (std::size_t time = 0; time < times; ++time) text += piece;
  return text;
}

}  // namespace tavlo::test
