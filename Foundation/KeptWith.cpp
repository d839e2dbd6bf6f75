#include "Foundation/KeptWith.h"

#include "Foundation/HostContext.h"
#include "Foundation/HostInstance.h"

namespace tavlo {

namespace {

[[gnu::tls_model("initial-exec")]] constinit thread_local const KeptWith* latest = nullptr;

}  // namespace

KeptWith::KeptWith(const NSObject* holder, const HostContext* context) noexcept
    : holder_(holder), context_(context), outer_(latest) {
  latest = this;
}

KeptWith::~KeptWith() {
  latest = outer_;
}

std::shared_ptr<const void> KeptWith::owner() {
  if (latest == nullptr) return {};
  return latest->context_ != nullptr ? latest->context_->owner() : HostInstance::ownerOf(latest->holder_);
}

bool KeptWith::canBeShared() {
  if (latest == nullptr) return true;
  if (latest->context_ != nullptr) return latest->context_->canBeShared();
  const NSObject* const holder = latest->holder_;
  if (holder == nullptr || holder->kind() != ObjectKind::HostObject) return true;
  return static_cast<const HostInstance*>(holder)->table().canBeShared();
}

}  // namespace tavlo
