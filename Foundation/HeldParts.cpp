#include "Foundation/HeldParts.h"

namespace tavlo {

namespace {

constinit thread_local HeldParts* collectingParts = nullptr;

}  // namespace

HeldParts* HeldParts::exchange(HeldParts* parts) noexcept {
  return std::exchange(collectingParts, parts);
}

void HeldParts::hold(const Value& part) {
  if (collectingParts == nullptr || collectingParts->execution_ != WorkMeter::Scope::latest()) return;
  collectingParts->parts_.push_back(part);
}

}  // namespace tavlo
