#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "Foundation/Once.h"

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

// The places of bytes of one text, for who asks for many: the first answer costs the whole text, every further one a
// short stretch of it. Any number of threads may ask.
class TextPlaces {
 public:
  // The same place as `TextPlace::inText` gives; `text` is the same at each call.
  TextPlace placeIn(std::string_view text, std::size_t offset, std::size_t length) const;

 private:
  // The place of every so many-th byte; none of a text that is shorter.
  static constexpr std::size_t kBytesOfMark = 1024;

  mutable Once marked_;
  mutable std::vector<TextPlace> marks_;
};

// The line that holds the byte, without its end.
std::string_view lineAround(std::string_view text, std::size_t offset);

}  // namespace tavlo
