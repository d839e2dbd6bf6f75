#pragma once

#include <cstdint>
#include <string_view>

namespace tavlo {

// What can be told of a pattern before the engine sees it. Every figure may be too large, none is too small.
struct PatternShape {
  // How deep groups, classes and quantifiers of quantifiers lie inside one another. The engine's compiler recurses as
  // deep. The count ends soon after `kCounted`.
  std::int32_t depth = 0;
  // How often the pattern calls one of its groups ("\g<name>"), and how deep the calls lie, all together: the compiler
  // follows calls as it does groups, and a group that is called twice it visits twice.
  std::int32_t calls = 0;
  std::int32_t depthOfCalls = 0;
  // The steps of the longest way through the pattern without a retry: those that depend on the text's length, a step
  // for each of its characters, and how often counted quantifiers repeat them.
  std::uint64_t loops = 0;
  std::uint64_t repetitions = 1;

  static constexpr std::int32_t kCounted = 200;

  [[gnu::visibility("hidden")]] static PatternShape of(std::string_view pattern);
};

}  // namespace tavlo
