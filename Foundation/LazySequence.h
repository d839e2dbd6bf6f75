#pragma once

#include "Foundation/NSEnumerator.h"
#include "Foundation/NSObject.h"
#include "Foundation/Ref.h"
#include "Foundation/Value.h"

namespace tavlo {

// Values that are made while they are read, of which nobody knows how many will come. A loop, a key and an operator of
// a key path read what is still to come: all of it every time, or once, as the host has it. Equal only to itself.
class LazySequence : public NSObject {
 public:
  ~LazySequence() override;

  const char* className() const override;
  // The list of the elements' values for the key.
  bool findValueForKey(const NSString& key, Value& value) const override;
  Ref<NSEnumerator> objectEnumerator() const override = 0;
  bool canBeShared() const override { return false; }

 protected:
  LazySequence() : NSObject(ObjectKind::LazySequence) {}
};

}  // namespace tavlo
