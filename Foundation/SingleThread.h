#pragma once

#include <memory>  // whose shared pointers ask the same

namespace tavlo {

// Whether the process has had one thread so far, as the standard library knows it, which counts the references of its
// own shared pointers by that: then nothing has to be counted atomically.
[[gnu::always_inline]] inline bool isSingleThreaded() noexcept {
#if defined(_GLIBCXX_RELEASE) && _GLIBCXX_RELEASE >= 11
  return __gnu_cxx::__is_single_threaded();
#else
  return false;
#endif
}

}  // namespace tavlo
