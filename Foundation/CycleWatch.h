#pragma once

#include <cstdint>

#pragma GCC visibility push(hidden)
namespace tavlo {

// Tells when a walk along a chain comes back to where it has been: by the places it remembers, each twice as many steps
// behind the one before (R. P. Brent, "An improved Monte Carlo factorization algorithm", 1980).
class CycleWatch {
 public:
  bool isBackAt(const void* place) noexcept {
    if (place == mark_) return true;
    if (++steps_ == nextMark_) {
      mark_ = place;
      nextMark_ *= 2;
    }
    return false;
  }

 private:
  const void* mark_ = nullptr;
  std::uint64_t steps_ = 0;
  std::uint64_t nextMark_ = 1;
};

}  // namespace tavlo
#pragma GCC visibility pop
