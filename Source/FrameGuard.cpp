#include "Source/FrameGuard.h"

namespace tavlo {

void FrameGuard::popQuietly() noexcept {
  for (; depth_ > 0; --depth_) {
    const Ref<KorTemplateStack>& stack = environment_.stack();
    if (stack != nullptr && !stack->popIfAny()) environment_.notePopFailure();
  }
}

}  // namespace tavlo
