#pragma once

#include <memory>

#include "Foundation/HostInstance.h"
#include "Foundation/Ref.h"

namespace tavlo {

// Where a reference to a part of something comes from: who keeps that, and which object may serve for it.
class HostContext {
 public:
  // A part of an object.
  explicit HostContext(const HostInstance& holder) noexcept : holder_(&holder) {}
  // A part of what `owner` keeps, of the host where that is empty; both are lent.
  explicit HostContext(const std::shared_ptr<const void>& owner, ReusableInstances* reused = nullptr,
                       bool canBeShared = true) noexcept
      : owner_(&owner), reused_(reused), canBeShared_(canBeShared) {}

  std::shared_ptr<const void> owner() const { return holder_ != nullptr ? holder_->owner() : *owner_; }

  // Whether several threads may read the whole at once, as far as is known.
  bool canBeShared() const { return holder_ != nullptr ? holder_->table().canBeShared() : canBeShared_; }

  // An instance for an object that the owner keeps.
  template <class Object>
  Ref<HostInstance> instance(const HostClassTable& table, Object* object) const {
    if (reused_ != nullptr) return reused_->instance(table, object, *owner_);
    return makeRef<HostInstance>(table, object, owner());
  }
  // An instance for an object that has an owner of its own.
  template <class Object>
  Ref<HostInstance> instance(const HostClassTable& table, Object* object, std::shared_ptr<const void> owner) const {
    if (reused_ != nullptr) return reused_->instance(table, object, owner);
    return makeRef<HostInstance>(table, object, std::move(owner));
  }

 private:
  const HostInstance* holder_ = nullptr;
  const std::shared_ptr<const void>* owner_ = nullptr;
  ReusableInstances* reused_ = nullptr;
  bool canBeShared_ = true;
};

}  // namespace tavlo
