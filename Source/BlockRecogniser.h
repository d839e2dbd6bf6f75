#pragma once

#include <cstdint>
#include <string_view>

#include "Lexwright/KorPartitionRule.h"

#pragma GCC visibility push(hidden)

namespace tavlo {

// The fast path of a code block's rules together, for what most blocks are made of: tokens of ASCII text. What it
// cannot tell in a few steps, such as a regular expression literal, it leaves to the rules.
KorPartitionRule::Recognised recogniseBlockTokens(std::string_view text, std::uint32_t at, TokenSink& tokens);

}  // namespace tavlo

#pragma GCC visibility pop
