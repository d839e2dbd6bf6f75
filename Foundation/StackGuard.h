#pragma once

#include <cstdint>

#include "Foundation/KorTemplateLimits.h"

namespace tavlo {

// Keeps recursion away from the end of the running thread's stack. Made where an execution enters, asked where it
// recurses: one comparison a time.
class StackGuard {
 public:
  // A guard for the calling thread that wants `bytesLeft` bytes left. Where the thread runs on a stack that the system
  // does not know, it lets everything pass.
  static StackGuard forThisThread(std::uint64_t bytesLeft);

  // A guard that refuses everything below the address; for tests.
  static StackGuard withFloor(std::uintptr_t floor, std::uint64_t bytesLeft) { return {floor, bytesLeft}; }

  // Raises `KorTemplateLimitException` when less is left.
  [[gnu::always_inline]] void check() const {
    if (reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0)) < floor_) [[unlikely]]
      fail();
  }

  StackGuard() = default;

 private:
  StackGuard(std::uintptr_t floor, std::uint64_t bytesLeft) : floor_(floor), bytesLeft_(bytesLeft) {}
  [[noreturn]] void fail() const;

  std::uintptr_t floor_ = 0;
  std::uint64_t bytesLeft_ = 0;
};

// Raises when recursion that has no environment at hand comes too near the end of the running thread's stack.
void checkStack();

}  // namespace tavlo
