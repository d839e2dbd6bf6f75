#include <cstddef>
#include <cstdlib>
#include <new>

#include "Tool/Allocations.h"
#include "Tool/Program.h"

namespace {

void* allocate(std::size_t size, std::size_t alignment) {
  tavlo::Allocations::noteOne();
  if (size == 0) size = 1;
  void* const memory = alignment <= alignof(std::max_align_t)
                           ? std::malloc(size)
                           : std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

}  // namespace

// The other forms call these, but the one without exceptions: a sanitizer has its own, whose memory is not free()'s.
void* operator new(std::size_t size) {
  return allocate(size, 1);
}
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  try {
    return allocate(size, 1);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}
void* operator new(std::size_t size, std::align_val_t alignment) {
  return allocate(size, static_cast<std::size_t>(alignment));
}
void operator delete(void* memory) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::align_val_t /*alignment*/) noexcept {
  std::free(memory);
}
void operator delete(void* memory, std::size_t /*size*/, std::align_val_t /*alignment*/) noexcept {
  std::free(memory);
}

int main(int argc, char** argv) {
  return tavlo::runProgram(argc, argv);
}
