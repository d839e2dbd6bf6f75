#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "Foundation/HostInstance.h"
#include "Foundation/NSDictionary.h"
#include "Foundation/NSEnumerator.h"
#include "Foundation/NSObject.h"
#include "Foundation/Ref.h"
#include "Foundation/Value.h"

namespace tavlo {

// Entries of the host's whose values become values when they are asked for. It stands for a dictionary: it reads,
// compares and describes itself as one of the same entries, as they are at that moment.
class LazyDictionary : public NSObject {
 public:
  // A walk over the entries.
  class Walk {
   public:
    Walk() = default;
    Walk(const Walk&) = delete;
    Walk& operator=(const Walk&) = delete;
    virtual ~Walk();

    // The next entry; false at the end. The key is good until the next step, and valid UTF-8. An object may be one of
    // `reused`.
    virtual bool next(std::string_view& key, Value& value, ReusableInstances& reused) = 0;
  };

  ~LazyDictionary() override;

  virtual std::size_t count() const = 0;
  // The value, null for one that the host has not; absent where there is no such key.
  virtual Value objectForKey(std::string_view key) const = 0;
  virtual std::unique_ptr<Walk> walk() const = 0;

  // The keys, in the order of the walk.
  std::vector<Ref<NSString>> keys() const;
  // A dictionary of all entries, in the order of the walk.
  Ref<NSDictionary> dictionary() const;

  const char* className() const override;
  void describe(Description& out) const override;
  bool isEqual(const NSObject& other, std::int32_t depth = 0) const override;
  std::size_t hash() const override;
  // An entry, or the number of entries for "@count" where no entry has that key; never raises for a key.
  bool findValueForKey(const NSString& key, Value& value) const override;
  // The values. An element that nobody has kept serves again for another one.
  Ref<NSEnumerator> objectEnumerator() const override;
  bool canBeShared() const override { return false; }

 protected:
  LazyDictionary() : NSObject(ObjectKind::LazyDictionary) {}
};

}  // namespace tavlo
