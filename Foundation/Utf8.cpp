#include "Foundation/Utf8.h"

#include <utf8proc.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>

#include "Foundation/NSException.h"

namespace tavlo {

std::size_t endOfASCII(std::string_view text, std::size_t offset) noexcept {
  constexpr std::uint64_t kHighBits = 0x8080808080808080U;
  std::array<std::uint64_t, 4> words{};
  for (; offset + sizeof words <= text.size(); offset += sizeof words) {
    std::memcpy(words.data(), text.data() + offset, sizeof words);
    if (((words[0] | words[1] | words[2] | words[3]) & kHighBits) != 0) break;
  }
  for (std::uint64_t word = 0; offset + sizeof word <= text.size(); offset += sizeof word) {
    std::memcpy(&word, text.data() + offset, sizeof word);
    if ((word & kHighBits) != 0) break;
  }
  while (offset < text.size() && static_cast<unsigned char>(text[offset]) < 0x80) ++offset;
  return offset;
}

std::optional<std::size_t> firstInvalidByte(std::string_view text) noexcept {
  std::size_t offset = endOfASCII(text, 0);
  while (offset < text.size()) {
    utf8proc_int32_t character = 0;
    const utf8proc_ssize_t length = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data()) + offset,
                                                     static_cast<utf8proc_ssize_t>(text.size() - offset), &character);
    if (length <= 0) return offset;
    offset = endOfASCII(text, offset + static_cast<std::size_t>(length));
  }
  return {};
}

void requireValidUTF8(std::string_view text) {
  if (const std::optional<std::size_t> offset = firstInvalidByte(text)) {
    NSException::raise(NSInvalidArgumentException, "Text is not valid UTF-8 at byte offset %d", *offset);
  }
}

std::string asValidUTF8(std::string_view text) {
  constexpr std::string_view kReplacement = "\xEF\xBF\xBD";
  std::string valid;
  while (const std::optional<std::size_t> offset = firstInvalidByte(text)) {
    valid.append(text.substr(0, *offset)).append(kReplacement);
    text.remove_prefix(*offset + 1);
  }
  return valid.append(text);
}

namespace {

// Whether a text of at most sixteen bytes, as names and keys are, is ASCII: by its first and its last word, which
// overlap where they must.
bool isShortASCII(std::string_view text) noexcept {
  const auto ends = [text](auto first) {
    auto last = first;
    std::memcpy(&first, text.data(), sizeof first);
    std::memcpy(&last, text.data() + text.size() - sizeof last, sizeof last);
    return std::uint64_t{first} | last;
  };
  constexpr std::uint64_t kHighBits = 0x8080808080808080U;
  if (text.size() >= sizeof(std::uint64_t)) return (ends(std::uint64_t{0}) & kHighBits) == 0;
  if (text.size() >= sizeof(std::uint32_t)) return (ends(std::uint32_t{0}) & kHighBits) == 0;
  return text.empty() || ((text.front() | text[text.size() / 2] | text.back()) & 0x80) == 0;
}

}  // namespace

std::size_t utf16Length(std::string_view text) noexcept {
  if (text.size() <= 2 * sizeof(std::uint64_t) && isShortASCII(text)) return text.size();
  const std::size_t ascii = endOfASCII(text, 0);
  std::size_t units = ascii;
  for (const char byte : text.substr(ascii)) {
    units += isContinuation(byte) ? 0U : 1U;
    units += static_cast<unsigned char>(byte) >= 0xF0 ? 1U : 0U;
  }
  return units;
}

CodePoint longCodePointAt(std::string_view text, std::size_t offset) noexcept {
  const auto byteAt = [&](std::size_t index) -> char32_t { return static_cast<unsigned char>(text[offset + index]); };
  const char32_t lead = byteAt(0);
  if (lead < 0xE0) return {((lead & 0x1F) << 6) | (byteAt(1) & 0x3F), 2};
  if (lead < 0xF0) return {((lead & 0x0F) << 12) | ((byteAt(1) & 0x3F) << 6) | (byteAt(2) & 0x3F), 3};
  return {((lead & 0x07) << 18) | ((byteAt(1) & 0x3F) << 12) | ((byteAt(2) & 0x3F) << 6) | (byteAt(3) & 0x3F), 4};
}

CodePoint longCodePointBefore(std::string_view text, std::size_t offset) noexcept {
  std::size_t start = offset - 1;
  while (start > 0 && isContinuation(text[start])) --start;
  return codePointAt(text, start);
}

void appendCodePoint(std::string& out, char32_t character) {
  utf8proc_uint8_t bytes[4];
  const utf8proc_ssize_t length = utf8proc_encode_char(static_cast<utf8proc_int32_t>(character), bytes);
  out.append(reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(length));
}

bool isLongWhiteSpace(char32_t character) noexcept {
  return std::ranges::find(kWhiteSpaceBeyondASCII, character) != std::end(kWhiteSpaceBeyondASCII);
}

std::string_view withoutLeadingWhiteSpace(std::string_view text) noexcept {
  for (CodePoint next = codePointAt(text, 0); next.byteLength != 0 && isWhiteSpace(next.value);
       next = codePointAt(text, 0)) {
    text.remove_prefix(next.byteLength);
  }
  return text;
}

}  // namespace tavlo
