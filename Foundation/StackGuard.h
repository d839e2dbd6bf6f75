#pragma once

#include <cstdint>

#include "Foundation/KorTemplateLimits.h"

namespace tavlo {

// About where the running function's part of the stack ends. Asking for the function's frame instead would make the
// compiler keep a register for it.
[[gnu::always_inline]] inline std::uintptr_t stackAddress() noexcept {
#if defined(__x86_64__)
  std::uintptr_t address = 0;
  asm volatile("mov %%rsp, %0" : "=r"(address));
  return address;
#else
  return reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
#endif
}

// Keeps recursion away from the end of the running thread's stack. Made where an execution enters, asked where it
// recurses: one comparison a time.
class StackGuard {
 public:
  // A guard for the calling thread that wants `bytesLeft` bytes left. Where the thread runs on a stack that the system
  // does not know, it lets everything pass.
  static StackGuard forThisThread(std::uint64_t bytesLeft);

  // Whether the calling thread has as much room left as limits leave by default; not where its stack is unknown or
  // cannot be asked for.
  [[gnu::visibility("hidden")]] static bool isFarFromTheEnd() noexcept;

  // Some execution may want so many bytes left, from here on.
  [[gnu::visibility("hidden")]] static void noteLimit(std::uint64_t bytesLeft) noexcept;

  // A guard that refuses everything below the address; for tests.
  static StackGuard withFloor(std::uintptr_t floor, std::uint64_t bytesLeft) { return {floor, bytesLeft}; }

  // Raises `KorTemplateLimitException` when less is left.
  [[gnu::always_inline]] void check() const {
    if (stackAddress() < floor_) [[unlikely]]
      fail();
  }

  StackGuard() = default;

 private:
  StackGuard(std::uintptr_t floor, std::uint64_t bytesLeft) : floor_(floor), bytesLeft_(bytesLeft) {}
  [[noreturn]] void fail() const;

  std::uintptr_t floor_ = 0;
  std::uint64_t bytesLeft_ = 0;
};

// Raises when recursion that has no environment at hand comes too near the end of the running thread's stack: there
// must be left what the limits of the thread's execution say, the default at least, and `more` bytes.
void checkStack(std::uint64_t more = 0);

}  // namespace tavlo
