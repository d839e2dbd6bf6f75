#pragma once

#include <string>

#include "Foundation/NSDictionary.h"
#include "Foundation/Value.h"
#include "Tool/JSONError.h"

namespace tavlo {

// The value that a JSON text (RFC 8259) stands for. Objects become dictionaries in the order of their members; of two
// members with one name the later value stands in the place of the first. A number without point and exponent that fits
// 64 bits, signed or unsigned, is that integer, every other one a double. A byte order mark at the start is skipped and
// counts as no column.
// Raises `JSONError` for what is no JSON, for numbers beyond the doubles, for lone surrogates, and for nesting deeper
// than 1,000.
Value readJSON(const std::string& text);

// The same for a text whose top level must be an object.
Ref<NSDictionary> readJSONObject(const std::string& text);

}  // namespace tavlo
