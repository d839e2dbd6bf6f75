#pragma once

#include <atomic>
#include <cstdint>

namespace tavlo {

// How often memory was asked for, while that is counted; main.cpp replaces what counts it.
class Allocations {
 public:
  static void startCounting() noexcept { areCounted_.store(true, std::memory_order_relaxed); }
  static std::uint64_t count() noexcept { return count_.load(std::memory_order_relaxed); }
  static void noteOne() noexcept {
    if (areCounted_.load(std::memory_order_relaxed)) count_.fetch_add(1, std::memory_order_relaxed);
  }

 private:
  inline static std::atomic<bool> areCounted_{false};
  inline static std::atomic<std::uint64_t> count_{0};
};

}  // namespace tavlo
