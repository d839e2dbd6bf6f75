#pragma once

#include <optional>
#include <string>
#include <string_view>

#pragma GCC visibility push(hidden)

namespace tavlo {

// A pattern that the engine compiles, which matches as `pattern` does and calls out (see the engine's "(?{...})") so
// often that from one call to the next, or to the next retry, it does no more than go through the text once: at every
// place where it tries to match, before every loop, alternative and reference to a group, and at both ends of what a
// group repeats. A call never stands between parts that the engine would treat as one. Absent where the pattern has
// something whose parts are not told apart here: extended mode, comments, conditions, absent operators, callouts, "\R",
// control characters.
std::optional<std::string> watchedPattern(std::string_view pattern);

}  // namespace tavlo

#pragma GCC visibility pop
