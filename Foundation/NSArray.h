#pragma once

#include <cstddef>
#include <vector>

#include "Foundation/ListArgument.h"
#include "Foundation/NSEnumerator.h"
#include "Foundation/NSObject.h"
#include "Foundation/ObjectArena.h"
#include "Foundation/Value.h"

namespace tavlo {

// An ordered list of values, none of them absent.
class NSArray : public NSObject {
 public:
  // Raises `NSInvalidArgumentException` when an element is absent.
  explicit NSArray(std::vector<Value> elements = {});

  static Ref<NSArray> array() { return makeRef<NSArray>(); }
  static Ref<NSArray> arrayWithObjects(ListArgument<Value> elements);

  std::size_t count() const noexcept { return elements_.size(); }
  // Raises `NSRangeException` beyond the end.
  const Value& objectAtIndex(std::size_t index) const;
  // Unchecked: `index` is below count().
  const Value& operator[](std::size_t index) const noexcept { return elements_[index]; }
  const std::vector<Value>& elements() const noexcept { return elements_; }

  const char* className() const override { return "NSArray"; }
  void describe(Description& out) const override;
  bool isEqual(const NSObject& other, std::int32_t depth = 0) const override;
  std::size_t hash() const override;
  bool findValueForKey(const NSString& key, Value& value) const override;
  // Walks the list as it is at each step.
  Ref<NSEnumerator> objectEnumerator() const override;

  static void* operator new(std::size_t size) { return ObjectArena::allocate(size); }
  static void operator delete(void* memory) noexcept { ObjectArena::free(memory); }
  static void* operator new(std::size_t size, std::align_val_t alignment) {
    return ObjectArena::allocate(size, alignment);
  }
  static void operator delete(void* memory, std::align_val_t alignment) noexcept {
    ObjectArena::free(memory, alignment);
  }

 protected:
  void requireElement(const Value& element) const;

  std::vector<Value> elements_;
};

// A list that can change, as long as it is not shared between threads: then its mutators raise
// `NSInternalInconsistencyException`.
class NSMutableArray final : public NSArray {
 public:
  using NSArray::NSArray;

  static Ref<NSMutableArray> array() { return makeRef<NSMutableArray>(); }

  // Raises `NSInvalidArgumentException` for an absent element.
  void addObject(Value element);
  // Raises `NSRangeException` beyond the end.
  void insertObjectAtIndex(Value element, std::size_t index);
  void replaceObjectAtIndex(std::size_t index, Value element);
  void removeObjectAtIndex(std::size_t index);
  void removeAllObjects();
};

}  // namespace tavlo
