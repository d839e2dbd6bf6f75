#include "Source/PrintableText.h"

#include <utf8proc.h>

namespace tavlo {

PrintableCharacter PrintableCharacter::firstOf(std::string_view text) {
  constexpr std::string_view kReplacement = "\xEF\xBF\xBD";
  utf8proc_int32_t character = 0;
  const utf8proc_ssize_t read = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                                                 static_cast<utf8proc_ssize_t>(text.size()), &character);
  if (read <= 0) return {kReplacement, 1, 1};
  const auto length = static_cast<std::size_t>(read);
  if (character == '\t') return {text.substr(0, length), length, 1};
  if (utf8proc_category(character) == UTF8PROC_CATEGORY_CC) return {kReplacement, length, 1};
  return {text.substr(0, length), length, static_cast<std::size_t>(utf8proc_charwidth(character))};
}

namespace {

// How many bytes the text begins with that are shown as they are: valid characters, none of which controls anything.
std::size_t sizeShownAsItIs(std::string_view text) {
  constexpr utf8proc_int32_t kBehindControls = 0xA0;
  std::size_t size = 0;
  while (size < text.size()) {
    const auto byte = static_cast<unsigned char>(text[size]);
    if (byte >= ' ' && byte < '\x7f') {
      ++size;
      continue;
    }
    utf8proc_int32_t character = 0;
    const utf8proc_ssize_t read = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data() + size),
                                                   static_cast<utf8proc_ssize_t>(text.size() - size), &character);
    if (read <= 0 || character < kBehindControls) break;
    size += static_cast<std::size_t>(read);
  }
  return size;
}

}  // namespace

std::string printable(std::string_view text, LineBreaks lineBreaks) {
  std::string shown;
  shown.reserve(text.size());
  while (true) {
    const std::size_t size = sizeShownAsItIs(text);
    shown += text.substr(0, size);
    text.remove_prefix(size);
    if (text.empty()) break;
    const PrintableCharacter next = PrintableCharacter::firstOf(text);
    const bool isKept = lineBreaks == LineBreaks::Kept && text.front() == '\n';
    shown += isKept ? std::string_view("\n") : next.shown;
    text.remove_prefix(next.byteLength);
  }
  return shown;
}

}  // namespace tavlo
