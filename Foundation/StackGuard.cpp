#include "Foundation/StackGuard.h"

#include <pthread.h>

namespace tavlo {

namespace {

struct StackBounds {
  std::uintptr_t low = 0;
  std::uintptr_t high = 0;
};

StackBounds askForBounds() {
  StackBounds bounds;
  pthread_attr_t attributes;
  if (pthread_getattr_np(pthread_self(), &attributes) != 0) return bounds;
  void* address = nullptr;
  std::size_t size = 0;
  if (pthread_attr_getstack(&attributes, &address, &size) == 0) {
    bounds.low = reinterpret_cast<std::uintptr_t>(address);
    bounds.high = bounds.low + size;
  }
  pthread_attr_destroy(&attributes);
  return bounds;
}

// Asked for once a thread: for the main thread the system reads a file to answer.
const StackBounds& boundsOfThisThread() {
  thread_local const StackBounds bounds = askForBounds();
  return bounds;
}

}  // namespace

StackGuard StackGuard::forThisThread(std::uint64_t bytesLeft) {
  const StackBounds& bounds = boundsOfThisThread();
  const auto here = stackAddress();
  if (here < bounds.low || here >= bounds.high) return {0, bytesLeft};
  return {bounds.low + bytesLeft, bytesLeft};
}

void StackGuard::fail() const {
  raiseLimit(KorTemplateLimit::Stack, bytesLeft_);
}

void checkStack() {
  StackGuard::forThisThread(KorTemplateLimits{}.stackLeft).check();
}

}  // namespace tavlo
