#pragma once

#include <atomic>
#include <mutex>

namespace tavlo {

// Does something once for all threads; where that raises, nothing is done yet and the next one tries. Unlike
// std::call_once, whose exceptions pass through a C function of the system's: that needs memory for the first of them,
// and ends the process where there is none.
class Once {
 public:
  template <class Body>
  void run(const Body& body) {
    if (isDone_.load(std::memory_order_acquire)) return;
    const std::lock_guard lock(mutex_);
    if (isDone_.load(std::memory_order_relaxed)) return;
    body();
    isDone_.store(true, std::memory_order_release);
  }

 private:
  std::mutex mutex_;
  std::atomic<bool> isDone_{false};
};

}  // namespace tavlo
