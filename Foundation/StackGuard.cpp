#include "Foundation/StackGuard.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <limits>
#include <new>

#include "Foundation/WorkMeter.h"

namespace tavlo {

namespace {

struct StackBounds {
  std::uintptr_t low = 0;
  std::uintptr_t high = 0;
};

// Raises `std::bad_alloc` where there is no memory for asking: a thread without bounds would never be guarded. Without
// the system's file there are none for the main thread.
StackBounds askForBounds() {
  StackBounds bounds;
  pthread_attr_t attributes;
  const int error = pthread_getattr_np(pthread_self(), &attributes);
  if (error != 0) {
    if (error == ENOMEM || ::access("/proc/self/maps", R_OK) == 0) throw std::bad_alloc();
    return bounds;
  }
  void* address = nullptr;
  std::size_t size = 0;
  if (pthread_attr_getstack(&attributes, &address, &size) == 0) {
    bounds.low = reinterpret_cast<std::uintptr_t>(address);
    bounds.high = bounds.low + size;
  }
  pthread_attr_destroy(&attributes);
  return bounds;
}

[[gnu::tls_model("initial-exec")]] constinit thread_local StackBounds knownBounds;
[[gnu::tls_model("initial-exec")]] constinit thread_local bool areBoundsKnown = false;

// The most that the limits of any environment want left.
constinit std::atomic<std::uint64_t> mostBytesLeft{KorTemplateLimits{}.stackLeft};

// Asked for once a thread: for the main thread the system reads a file to answer.
const StackBounds& boundsOfThisThread() {
  if (!areBoundsKnown) [[unlikely]] {
    knownBounds = askForBounds();
    areBoundsKnown = true;
  }
  return knownBounds;
}

}  // namespace

StackGuard StackGuard::forThisThread(std::uint64_t bytesLeft) {
  bytesLeft = std::max(bytesLeft, KorTemplateLimits::kLeastStackLeft);
  const StackBounds& bounds = boundsOfThisThread();
  const auto here = stackAddress();
  if (here < bounds.low || here >= bounds.high) return {0, bytesLeft};
  return {bytesLeft < bounds.high - bounds.low ? bounds.low + bytesLeft : bounds.high, bytesLeft};
}

bool StackGuard::isFarFromTheEnd() noexcept {
  try {
    const StackBounds& bounds = boundsOfThisThread();
    const auto here = stackAddress();
    return here >= bounds.low && here < bounds.high && here - bounds.low > KorTemplateLimits{}.stackLeft;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

void StackGuard::fail() const {
  raiseLimit(KorTemplateLimit::Stack, bytesLeft_);
}

void StackGuard::noteLimit(std::uint64_t bytesLeft) noexcept {
  std::uint64_t most = mostBytesLeft.load(std::memory_order_relaxed);
  while (bytesLeft > most && !mostBytesLeft.compare_exchange_weak(most, bytesLeft, std::memory_order_relaxed)) {
  }
}

void checkStack(std::uint64_t more) {
  // Far more is left nearly always; a stack that the system does not know is none of a thread's.
  const std::uint64_t most = mostBytesLeft.load(std::memory_order_relaxed);
  const std::uint64_t left = stackAddress() - knownBounds.low;
  if (areBoundsKnown && left > most && left - most > more) [[likely]]
    return;
  const WorkMeter* const meter = WorkMeter::ofThread();
  const std::uint64_t bytesLeft = std::max(meter == nullptr ? 0 : meter->stackLeft(), KorTemplateLimits{}.stackLeft);
  constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();
  StackGuard::forThisThread(bytesLeft < kMost - more ? bytesLeft + more : kMost).check();
}

}  // namespace tavlo
