#pragma once

#include <cstdint>

#include "Matchery/KorRegex.h"

namespace tavlo {

// The kinds of the engine's own nodes and streams, so that hot paths ask a byte instead of a virtual function. They
// follow the kinds of the layers below.
inline constexpr auto kLiteralKind = static_cast<ObjectKind>(static_cast<std::uint8_t>(kRegexKind) + 1);
inline constexpr auto kVariableKind = static_cast<ObjectKind>(static_cast<std::uint8_t>(kRegexKind) + 2);
inline constexpr auto kRegexExpressionKind = static_cast<ObjectKind>(static_cast<std::uint8_t>(kRegexKind) + 3);
inline constexpr auto kBinaryKind = static_cast<ObjectKind>(static_cast<std::uint8_t>(kRegexKind) + 4);
inline constexpr auto kConditionalKind = static_cast<ObjectKind>(static_cast<std::uint8_t>(kRegexKind) + 5);
inline constexpr auto kBlockKind = static_cast<ObjectKind>(static_cast<std::uint8_t>(kRegexKind) + 6);
inline constexpr auto kStringStreamKind = static_cast<ObjectKind>(static_cast<std::uint8_t>(kRegexKind) + 7);
inline constexpr auto kFileDescriptorStreamKind = static_cast<ObjectKind>(static_cast<std::uint8_t>(kRegexKind) + 12);
inline constexpr auto kOutputKind = static_cast<ObjectKind>(static_cast<std::uint8_t>(kRegexKind) + 8);
inline constexpr auto kReturnKind = static_cast<ObjectKind>(static_cast<std::uint8_t>(kRegexKind) + 9);
inline constexpr auto kInternalFunctionKind = static_cast<ObjectKind>(static_cast<std::uint8_t>(kRegexKind) + 10);
// Every other node of the engine: known to count atomically.
inline constexpr auto kNodeKind = static_cast<ObjectKind>(static_cast<std::uint8_t>(kRegexKind) + 11);

}  // namespace tavlo
