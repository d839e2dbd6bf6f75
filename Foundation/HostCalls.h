#pragma once

#include "Foundation/NSEnumerator.h"
#include "Foundation/NSObject.h"
#include "Foundation/StackGuard.h"
#include "Foundation/Value.h"
#include "Foundation/WorkMeter.h"

#pragma GCC visibility push(hidden)
namespace tavlo {

// Before a function of the object is called that its class overrides: looks whether the thread's execution may go on
// where the class may be a host's, as lookBeforeHost() does, and whether there is stack for what asks another object,
// and so on.
inline void lookBeforeCalling(const NSObject& object) {
  if (object.kind() != ObjectKind::Other) [[likely]]
    return;
  checkStack();
  lookBeforeHost();
}

// The next element of a walk, before which it looks so.
inline Value nextElement(NSEnumerator& walk) {
  lookBeforeCalling(walk);
  return walk.nextObject();
}

}  // namespace tavlo
#pragma GCC visibility pop
