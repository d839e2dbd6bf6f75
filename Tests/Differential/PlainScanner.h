#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Lexwright/KorTokenClass.h"

namespace tavlo::test {

// A token as the tests compare it, its place counted as a KorToken counts it.
struct PlainToken {
  const KorTokenClass* tokenClass = nullptr;
  std::int32_t line = 0;
  std::int32_t position = 0;
  std::int32_t length = 0;
  std::uint32_t byteOffset = 0;
  std::uint32_t byteLength = 0;

  friend bool operator==(const PlainToken&, const PlainToken&) = default;
};

struct PlainBlock {
  PlainToken whole;
  std::vector<PlainToken> subtokens;

  friend bool operator==(const PlainBlock&, const PlainBlock&) = default;
};

// The blocks of a text, found the slow way: at every place every rule is tried in turn, every pattern is matched by the
// regular expression engine over the whole text, and nothing is remembered from one place to the next.
std::vector<PlainBlock> scanPlainly(std::string_view text);

// The blocks, a line each, for messages.
std::string describe(const std::vector<PlainBlock>& blocks);

}  // namespace tavlo::test
