#pragma once

#include <cstddef>
#include <string_view>

#pragma GCC visibility push(hidden)
namespace tavlo {

// The size of "[:alpha:]" or "[:^alpha:]", in bytes, with which the text begins; 0 where it begins with none of those
// that the engine knows.
inline std::size_t sizeOfPOSIXBracket(std::string_view text) noexcept {
  constexpr std::string_view kNames[] = {"alnum", "alpha", "ascii", "blank", "cntrl", "digit", "graph",
                                         "lower", "print", "punct", "space", "upper", "word",  "xdigit"};
  if (!text.starts_with("[:")) return 0;
  const std::size_t start = text.starts_with("[:^") ? 3 : 2;
  for (const std::string_view name : kNames) {
    const std::string_view rest = text.substr(start);
    if (rest.starts_with(name) && rest.substr(name.size()).starts_with(":]")) return start + name.size() + 2;
  }
  return 0;
}

}  // namespace tavlo
#pragma GCC visibility pop
