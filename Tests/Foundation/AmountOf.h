#pragma once

#include <cstdlib>
#include <string>

namespace tavlo::test {

// How much a test does: what the environment variable says, and otherwise as much as that, or as that where threads are
// watched.
inline int amountOf(const char* variable, int plain, [[maybe_unused]] int watched) {
  const char* const text = std::getenv(variable);
#if defined(__SANITIZE_THREAD__)
  plain = watched;
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
  plain = watched;
#endif
#endif
  return text == nullptr ? plain : std::stoi(text);
}

}  // namespace tavlo::test
