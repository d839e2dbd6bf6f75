#pragma once

#include <cstdint>
#include <string_view>

#include "Lexwright/KorScannerRule.h"

#pragma GCC visibility push(hidden)

namespace tavlo {

// The fast paths of the scanner's patterns: each answers with the end of the match that begins at `at`, in bytes, or
// with `at` where there is none, exactly as its pattern does. All take time in proportion to what they look at.
namespace recognisers {

// "<\?"
std::uint32_t blockStart(std::string_view text, std::uint32_t at, SearchMemo& memo);
// "\?>"
std::uint32_t blockEnd(std::string_view text, std::uint32_t at, SearchMemo& memo);
// "/.*?(?<!\\)/(?=\s*(&&|\|\||==|!=|>|>=|<|<=|\)|,|$|\z|\?>))"
std::uint32_t regexLiteral(std::string_view text, std::uint32_t at, SearchMemo& memo);
// "(([+-]?(\d+)?\.(\d+)([eE]\d+)?)|([+-]?\d+\.?(\d+([eE]\d+)?)?))(?=\b)"
std::uint32_t nonIntegralNumber(std::string_view text, std::uint32_t at, SearchMemo& memo);
// "((0x[\da-fA-F]+)|([+-]?\d+))(?=\b)"
std::uint32_t integralNumber(std::string_view text, std::uint32_t at, SearchMemo& memo);
// "\$[\w\.@]+"
std::uint32_t variable(std::string_view text, std::uint32_t at, SearchMemo& memo);
// "@@[\w]+"
std::uint32_t intrinsicVariable(std::string_view text, std::uint32_t at, SearchMemo& memo);
// "\w+"
std::uint32_t word(std::string_view text, std::uint32_t at, SearchMemo& memo);
// Any one ASCII character; its rule asks only where that stands.
std::uint32_t oneCharacter(std::string_view text, std::uint32_t at, SearchMemo& memo);

// The bytes with which matches begin: those of `ascii`, and every byte of a longer character where that may be one.
FirstBytes startingWith(std::string_view ascii, bool orBeyondASCII = false);
// The bytes of word characters.
FirstBytes startingWithWord();

}  // namespace recognisers

}  // namespace tavlo

#pragma GCC visibility pop
