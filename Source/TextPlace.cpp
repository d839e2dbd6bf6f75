#include "Source/TextPlace.h"

#include <algorithm>

namespace tavlo {

namespace {

constexpr std::string_view kLineBreaks = "\r\n";

// The start of the line that holds the byte. The break that ends a line belongs to that line.
std::size_t startOfLine(std::string_view text, std::size_t offset) {
  // "\r\n" is one break, also for its second half.
  if (offset > 0 && offset < text.size() && text[offset] == '\n' && text[offset - 1] == '\r') --offset;
  const std::size_t before = offset == 0 ? std::string_view::npos : text.find_last_of(kLineBreaks, offset - 1);
  return before == std::string_view::npos ? 0 : before + 1;
}

}  // namespace

TextPlace TextPlace::inText(std::string_view text, std::size_t offset, std::size_t length) {
  offset = std::min(offset, text.size());
  const std::size_t start = startOfLine(text, offset);
  TextPlace place{1, 1, offset, length};
  for (std::size_t at = 0; at < start; ++at) {
    const bool isHalf = text[at] == '\r' && at + 1 < text.size() && text[at + 1] == '\n';
    if ((text[at] == '\n' || text[at] == '\r') && !isHalf) ++place.line;
  }
  for (std::size_t at = start; at < offset; ++at) {
    if ((static_cast<unsigned char>(text[at]) & 0xC0) != 0x80) ++place.column;
  }
  return place;
}

std::string_view lineAround(std::string_view text, std::size_t offset) {
  offset = std::min(offset, text.size());
  const std::size_t start = startOfLine(text, offset);
  return text.substr(start, text.find_first_of(kLineBreaks, start) - start);
}

}  // namespace tavlo
