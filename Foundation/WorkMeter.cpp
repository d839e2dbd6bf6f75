#include "Foundation/WorkMeter.h"

#include <utility>

namespace tavlo {

namespace {

constinit thread_local WorkMeter* meterOfThread = nullptr;

}  // namespace

WorkMeter* WorkMeter::ofThread() noexcept {
  return meterOfThread;
}

WorkMeter* WorkMeter::exchange(WorkMeter* meter) noexcept {
  return std::exchange(meterOfThread, meter);
}

}  // namespace tavlo
