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

// The place of a byte of the text, which is not before the place that is known.
TextPlace movedTo(TextPlace place, std::string_view text, std::size_t offset) {
  for (; place.offset < offset; ++place.offset) {
    const char character = text[place.offset];
    const bool isHalf = character == '\r' && text.substr(place.offset + 1).starts_with('\n');
    if (character == '\n' || (character == '\r' && !isHalf)) {
      ++place.line;
      place.column = 1;
    } else if ((static_cast<unsigned char>(character) & 0xC0) != 0x80) {
      ++place.column;
    }
  }
  return place;
}

}  // namespace

TextPlace TextPlace::inText(std::string_view text, std::size_t offset, std::size_t length) {
  TextPlace place = movedTo({}, text, std::min(offset, text.size()));
  place.length = length;
  return place;
}

TextPlace TextPlaces::placeIn(std::string_view text, std::size_t offset, std::size_t length) const {
  marked_.run([&] {
    marks_.clear();  // of an attempt that ran out of memory
    marks_.reserve(text.size() / kBytesOfMark + 1);
    marks_.push_back({});
    for (std::size_t at = kBytesOfMark; at <= text.size(); at += kBytesOfMark) {
      marks_.push_back(movedTo(marks_.back(), text, at));
    }
  });
  offset = std::min(offset, text.size());
  TextPlace place = movedTo(marks_[offset / kBytesOfMark], text, offset);
  place.length = length;
  return place;
}

std::string_view lineAround(std::string_view text, std::size_t offset) {
  offset = std::min(offset, text.size());
  const std::size_t start = startOfLine(text, offset);
  return text.substr(start, text.find_first_of(kLineBreaks, start) - start);
}

}  // namespace tavlo
