#include "Foundation/KeptWith.h"

#include <utility>

#include "Foundation/HostInstance.h"

namespace tavlo {

namespace {

[[gnu::tls_model("initial-exec")]] constinit thread_local const NSObject* latestHolder = nullptr;

}  // namespace

KeptWith::KeptWith(const NSObject* holder) noexcept : outer_(std::exchange(latestHolder, holder)) {}

KeptWith::~KeptWith() {
  latestHolder = outer_;
}

std::shared_ptr<const void> KeptWith::owner() {
  return HostInstance::ownerOf(latestHolder);
}

bool KeptWith::canBeShared() {
  if (latestHolder == nullptr || latestHolder->kind() != ObjectKind::HostObject) return true;
  return static_cast<const HostInstance*>(latestHolder)->table().canBeShared();
}

}  // namespace tavlo
