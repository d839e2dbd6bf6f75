#pragma once

#include <atomic>

#include "Foundation/NSObject.h"
#include "Foundation/Ref.h"

namespace tavlo {

// Asks executions to end. The host gives it to environments, of any threads, and keeps it; another thread may ask, and
// so may a signal handler, which holds the object's address.
class KorTemplateCancellation final : public NSObject {
 public:
  KorTemplateCancellation() : NSObject(ObjectKind::Other, Counting::Atomic) {}
  static Ref<KorTemplateCancellation> cancellation() { return makeRef<KorTemplateCancellation>(); }

  // From here on every execution in those environments ends with a `KorTemplateLimitException`, within a tenth of a
  // second, or half a second inside a search with a pattern. A single store that takes no lock.
  void cancel() noexcept { isCancelled_.store(true, std::memory_order_relaxed); }
  // Lets executions run again.
  void reset() noexcept { isCancelled_.store(false, std::memory_order_relaxed); }
  bool isCancelled() const noexcept { return isCancelled_.load(std::memory_order_relaxed); }

  bool canBeShared() const override { return true; }
  const char* className() const override;

 private:
  static_assert(std::atomic<bool>::is_always_lock_free);
  std::atomic<bool> isCancelled_{false};
};

}  // namespace tavlo
