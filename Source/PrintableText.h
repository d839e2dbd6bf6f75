#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tavlo {

// A character of a text as a terminal may show it: itself, or U+FFFD for a control character and for a byte that is no
// UTF-8. Tabs stay.
struct PrintableCharacter {
  std::string_view shown;
  std::size_t byteLength;  // in the text
  std::size_t width;       // in columns; 1 for a tab

  // Of the text's beginning; the text is not empty.
  static PrintableCharacter firstOf(std::string_view text);
};

enum class LineBreaks { Replaced, Kept };

// The text as a terminal may show it; `lineBreaks` tells what becomes of "\n".
std::string printable(std::string_view text, LineBreaks lineBreaks = LineBreaks::Replaced);

}  // namespace tavlo
