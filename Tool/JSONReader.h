#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>

#include "Foundation/NSDictionary.h"
#include "Foundation/Value.h"

namespace tavlo {

// Where something stands in a text: line and column from 1, the column in Unicode characters; offset in bytes.
struct TextPlace {
  std::size_t line = 1;
  std::size_t column = 1;
  std::size_t offset = 0;
};

// The place of a byte of the text. Lines end with "\n", "\r\n" or a lone "\r".
TextPlace placeInText(std::string_view text, std::size_t offset);

// Text that is not the JSON that is asked for.
class JSONError : public std::runtime_error {
 public:
  JSONError(const std::string& reason, const TextPlace& place) : std::runtime_error(reason), place_(place) {}

  const TextPlace& place() const noexcept { return place_; }

 private:
  TextPlace place_;
};

// The value that a JSON text (RFC 8259) stands for. Objects become dictionaries in the order of their members; of two
// members with one name the later value stands in the place of the first. A number without point and exponent that fits
// 64 bits, signed or unsigned, is that integer, every other one a double. A byte order mark at the start is skipped.
// Raises `JSONError` for what is no JSON, for numbers beyond the doubles, for lone surrogates, and for nesting deeper
// than 1,000.
Value readJSON(std::string_view text);

// The same for a text whose top level must be an object.
Ref<NSDictionary> readJSONObject(std::string_view text);

}  // namespace tavlo
