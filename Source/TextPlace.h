#pragma once

#include <cstddef>
#include <string_view>

namespace tavlo {

// Where something stands in a text: line and column from 1, the column in Unicode characters; offset and length in
// bytes.
struct TextPlace {
  std::size_t line = 1;
  std::size_t column = 1;
  std::size_t offset = 0;
  std::size_t length = 1;

  // The place of a byte of the text, which need not be valid UTF-8. Lines end with "\n", "\r\n" or a lone "\r".
  static TextPlace inText(std::string_view text, std::size_t offset, std::size_t length = 1);
};

// The line that holds the byte, without its end.
std::string_view lineAround(std::string_view text, std::size_t offset);

}  // namespace tavlo
