#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tavlo {

// The line of the text that holds the byte, and a line with a caret below that byte, each ended with "\n". The caret
// stands right wherever the terminal puts its tabs, and below characters of any width. Control characters and bytes
// that are no UTF-8 are shown as U+FFFD; a very long line is cut around the caret.
std::string excerptAround(std::string_view text, std::size_t offset);

}  // namespace tavlo
