#include "Foundation/WorkMeter.h"

#include <utility>

namespace tavlo {

namespace {

constinit thread_local WorkMeter* meterOfThread = nullptr;
constinit thread_local WorkMeter::Scope* latestScope = nullptr;

}  // namespace

WorkMeter* WorkMeter::ofThread() noexcept {
  return meterOfThread;
}

WorkMeter::Scope::Scope(WorkMeter& meter) noexcept : meter_(&meter), outer_(std::exchange(latestScope, this)) {
  meterOfThread = meter_;
}

const WorkMeter::Scope* WorkMeter::Scope::latest() noexcept {
  return latestScope;
}

WorkMeter::Scope::~Scope() {
  Scope** scope = &latestScope;
  while (*scope != nullptr && *scope != this) scope = &(*scope)->outer_;
  if (*scope != nullptr) *scope = outer_;
  meterOfThread = latestScope == nullptr ? nullptr : latestScope->meter_;
}

}  // namespace tavlo
