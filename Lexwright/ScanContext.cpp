#include "Lexwright/ScanContext.h"

#include <cstring>

namespace tavlo {

namespace {

// Whether one of the eight bytes is `byte`, for words without bytes beyond ASCII.
constexpr bool holdsByte(std::uint64_t word, unsigned char byte) noexcept {
  constexpr std::uint64_t kOnes = 0x0101010101010101U;
  const std::uint64_t difference = word ^ (kOnes * byte);
  return ((difference - kOnes) & ~difference & (kOnes * 0x80U)) != 0;
}

// The bytes up to the first one that is not ASCII or ends a line; eight at a time, as far as that goes.
std::size_t plainLength(std::string_view text) noexcept {
  constexpr std::uint64_t kHighBits = 0x8080808080808080U;
  std::size_t length = 0;
  for (std::uint64_t word = 0; length + sizeof word <= text.size(); length += sizeof word) {
    std::memcpy(&word, text.data() + length, sizeof word);
    if ((word & kHighBits) != 0 || holdsByte(word, '\n') || holdsByte(word, '\r')) break;
  }
  while (length < text.size() && static_cast<unsigned char>(text[length]) < 0x80 && text[length] != '\n' &&
         text[length] != '\r') {
    ++length;
  }
  return length;
}

}  // namespace

ScanCursor ScanContext::advanceFar(ScanCursor from, std::uint32_t byte) {
  const ScanCursor cursor = stream_.advance(from, byte);
  const std::size_t plain = plainLength(text().substr(byte));
  plainFrom_ = byte;
  plainTo_ = byte + static_cast<std::uint32_t>(plain);
  return cursor;
}

}  // namespace tavlo
