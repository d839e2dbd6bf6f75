#include "Foundation/TextBuffer.h"

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <utility>

namespace tavlo {

void TextBuffer::appendGrowing(std::string_view text) {
  const Bytes old = grow(capacityFor(text.size()));
  append(text);
}

void TextBuffer::makeRoom(std::size_t size) {
  (void)grow(capacityFor(size));
}

TextBuffer::Bytes TextBuffer::grow(std::size_t capacity) {
  Bytes bytes = std::make_unique_for_overwrite<char[]>(capacity);  // NOLINT(*-avoid-c-arrays)
  if (size_ > 0) std::memcpy(bytes.get(), bytes_.get(), size_);
  capacity_ = capacity;
  return std::exchange(bytes_, std::move(bytes));
}

// Doubled, so that the cost of growing is in proportion to the text.
std::size_t TextBuffer::capacityFor(std::size_t more) const {
  constexpr std::size_t kLeast = 256;
  constexpr std::size_t kMost = std::numeric_limits<std::ptrdiff_t>::max();
  if (more > kMost - size_) throw std::length_error("a text is longer than memory can be");
  return std::max({size_ + more, std::min(capacity_, kMost / 2) * 2, kLeast});
}

}  // namespace tavlo
