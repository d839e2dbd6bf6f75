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

std::string printable(std::string_view text, LineBreaks lineBreaks) {
  std::string shown;
  while (!text.empty()) {
    const PrintableCharacter next = PrintableCharacter::firstOf(text);
    const bool isKept = lineBreaks == LineBreaks::Kept && text.front() == '\n';
    shown += isKept ? std::string_view("\n") : next.shown;
    text.remove_prefix(next.byteLength);
  }
  return shown;
}

}  // namespace tavlo
