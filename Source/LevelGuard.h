#pragma once

#include "Source/KorTemplateActivation.h"
#include "Source/KorTemplateEnvironment.h"

#pragma GCC visibility push(hidden)
namespace tavlo {

// Keeps a level of the environment for as long as it runs. It ends by leave(), or else by an exception, which then
// remembers where it came from.
class LevelGuard {
 public:
  LevelGuard(KorTemplateEnvironment& environment, KorTemplateActivation& level) noexcept
      : environment_(environment), level_(level) {
    environment.enterLevel(level);
  }
  LevelGuard(const LevelGuard&) = delete;
  LevelGuard& operator=(const LevelGuard&) = delete;
  ~LevelGuard() {
    if (!hasLeft_) environment_.noteUnwinding();
    environment_.leaveLevel(level_);
  }

  void leave() noexcept { hasLeft_ = true; }

 private:
  KorTemplateEnvironment& environment_;
  KorTemplateActivation& level_;
  bool hasLeft_ = false;
};

}  // namespace tavlo
#pragma GCC visibility pop
