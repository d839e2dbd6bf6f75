#pragma once

#include <cstddef>
#include <cstdint>

#include "Foundation/HostInstance.h"
#include "Foundation/NSArray.h"
#include "Foundation/NSEnumerator.h"
#include "Foundation/NSObject.h"
#include "Foundation/Ref.h"
#include "Foundation/Value.h"

namespace tavlo {

// A list of the host's whose elements become values when they are asked for. It stands for an array: it reads, compares
// and describes itself as one of the same elements, as they are at that moment.
class LazyList : public NSObject {
 public:
  ~LazyList() override;

  virtual std::size_t count() const = 0;
  // The element as it is now, null for one that the host has not; absent where the list is not so long. An object may
  // be one of `reused`.
  virtual Value elementAt(std::size_t index, ReusableInstances& reused) const = 0;
  // Whether the two above run no code but the library's and the standard library's.
  virtual bool isQuiet() const noexcept;

  // An array of all elements.
  Ref<NSArray> array() const;

  const char* className() const override;
  void describe(Description& out) const override;
  bool isEqual(const NSObject& other, std::int32_t depth = 0) const override;
  std::size_t hash() const override;
  bool findValueForKey(const NSString& key, Value& value) const override;
  // Walks the list as it is at each step. An element that nobody has kept serves again for another one.
  Ref<NSEnumerator> objectEnumerator() const override;
  bool canBeShared() const override { return false; }

 protected:
  LazyList() : NSObject(ObjectKind::LazyList) {}
};

}  // namespace tavlo
