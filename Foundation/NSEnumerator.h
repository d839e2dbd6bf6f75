#pragma once

#include "Foundation/NSObject.h"
#include "Foundation/Value.h"

namespace tavlo {

// A walk over a collection, used up once.
class NSEnumerator : public NSObject {
 public:
  const char* className() const override { return "NSEnumerator"; }

  // The next element; absent at the end.
  virtual Value nextObject() = 0;

 protected:
  NSEnumerator() = default;
};

// The walk over what the object holds. Raises `NSGenericException` where it cannot be enumerated, as no number can.
[[gnu::visibility("hidden")]] Ref<NSEnumerator> requireEnumerator(const NSObject& collection);
[[gnu::visibility("hidden")]] Ref<NSEnumerator> requireEnumerator(const Value& collection);

}  // namespace tavlo
