#include "Source/FrameGuard.h"

namespace tavlo {

void FrameGuard::popQuietly(KorTemplateEnvironment& environment, std::int32_t depth) noexcept {
  for (; depth > 0; --depth) {
    const Ref<KorTemplateStack>& stack = environment.stack();
    if (stack != nullptr && !stack->popIfAny()) environment.notePopFailure();
  }
}

}  // namespace tavlo
