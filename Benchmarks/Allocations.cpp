#include "Benchmarks/Allocations.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

std::uint64_t count = 0;  // the benchmarks run on one thread

void* allocate(std::size_t size, std::size_t alignment) {
  ++count;
  const std::size_t rounded = (size + alignment - 1) / alignment * alignment;  // a multiple, as aligned_alloc wants it
  void* const memory = std::aligned_alloc(alignment, rounded == 0 ? alignment : rounded);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

void* allocate(std::size_t size) {
  ++count;
  void* const memory = std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

}  // namespace

// The other forms, for arrays and those that do not throw, call these.
void* operator new(std::size_t size) {
  return allocate(size);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
  return allocate(size, static_cast<std::size_t>(alignment));
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::align_val_t) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
  std::free(memory);
}

namespace tavlo::benchmarks {

std::uint64_t allocationCount() noexcept {
  return count;
}

}  // namespace tavlo::benchmarks
