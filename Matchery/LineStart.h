#pragma once

#include <bitset>
#include <cstddef>
#include <cstring>
#include <optional>
#include <string_view>

namespace tavlo {

// What is known of a pattern that matches at the starts of lines only ("^(GET|PUT) "): the bytes that its matches begin
// with. Most texts that do not match are told by their first byte, without a search.
class LineStart {
 public:
  // Absent where the pattern may match elsewhere, may match nothing, or is not that simple. The pattern must be one
  // that compiles; groups in it cost as much stack as they are nested deep.
  [[gnu::visibility("hidden")]] static std::optional<LineStart> of(std::string_view pattern);

  // Whether a line of the text begins with one of the bytes.
  bool mayMatch(std::string_view text) const noexcept {
    for (std::size_t at = 0; at < text.size();) {
      if (firstBytes_.test(static_cast<unsigned char>(text[at]))) return true;
      const void* const feed = std::memchr(text.data() + at, '\n', text.size() - at);
      if (feed == nullptr) return false;
      at = static_cast<std::size_t>(static_cast<const char*>(feed) - text.data()) + 1;
    }
    return false;
  }

 private:
  class Reader;

  std::bitset<256> firstBytes_;
};

}  // namespace tavlo
