#pragma once

#include <memory>

#include "Foundation/NSObject.h"

namespace tavlo {

// While one lives, what this thread's conversions refer to instead of copying it is kept with an object: the one whose
// method has answered it.
class KeptWith {
 public:
  // Null for what the host keeps.
  explicit KeptWith(const NSObject* holder) noexcept;
  KeptWith(const KeptWith&) = delete;
  KeptWith& operator=(const KeptWith&) = delete;
  ~KeptWith();

  // The owner of what is referred to now; empty where the host keeps it.
  static std::shared_ptr<const void> owner();
  // Whether several threads may read such things at once, as far as is known.
  static bool canBeShared();

 private:
  const NSObject* outer_;
};

}  // namespace tavlo
