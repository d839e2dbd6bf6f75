#pragma once

#include <memory>

#include "Foundation/NSObject.h"

namespace tavlo {

class HostContext;

// While one lives, what this thread's conversions refer to instead of copying it is kept with an object: the one whose
// method or getter has answered it.
class KeptWith {
 public:
  // Null for what the host keeps.
  explicit KeptWith(const NSObject* holder) noexcept : KeptWith(holder, nullptr) {}
  explicit KeptWith(const HostContext& context) noexcept : KeptWith(nullptr, &context) {}
  KeptWith(const KeptWith&) = delete;
  KeptWith& operator=(const KeptWith&) = delete;
  ~KeptWith();

  // The owner of what is referred to now; empty where the host keeps it.
  static std::shared_ptr<const void> owner();
  // Whether several threads may read such things at once, as far as is known.
  static bool canBeShared();

 private:
  KeptWith(const NSObject* holder, const HostContext* context) noexcept;

  const NSObject* holder_;
  const HostContext* context_;
  const KeptWith* outer_;
};

}  // namespace tavlo
