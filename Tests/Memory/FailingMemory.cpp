#include "Tests/Memory/FailingMemory.h"

#ifndef TAVLO_MEMORY_IS_HIDDEN

#include <dlfcn.h>
#include <malloc.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <new>
#include <utility>

#ifdef TAVLO_MEMORY_IS_WATCHED
// The sanitizer's own functions, to which the usual names are weak.
#define TAVLO_SYSTEM_MEMORY(name) asm("__interceptor_" name)
#define TAVLO_UNWATCHED __attribute__((no_sanitize("address", "undefined")))
#else
#define TAVLO_SYSTEM_MEMORY(name) asm("__libc_" name)
#define TAVLO_UNWATCHED
#endif

extern "C" {
void* systemMalloc(std::size_t size) noexcept TAVLO_SYSTEM_MEMORY("malloc");
void* systemCalloc(std::size_t count, std::size_t size) noexcept TAVLO_SYSTEM_MEMORY("calloc");
void* systemRealloc(void* memory, std::size_t size) noexcept TAVLO_SYSTEM_MEMORY("realloc");
void* systemMemalign(std::size_t alignment, std::size_t size) noexcept TAVLO_SYSTEM_MEMORY("memalign");
void systemFree(void* memory) noexcept TAVLO_SYSTEM_MEMORY("free");
}

namespace {

constinit std::atomic<std::uint64_t> newCalls{0};
constinit std::atomic<std::int64_t> kept{0};
constinit std::atomic<std::int64_t> keptBytes{0};
constinit std::atomic<std::int64_t> mostKeptBytes{0};

// How many more allocations this thread may make before one fails; endless below 0.
constinit thread_local std::int64_t allocationsLeft = -1;
constinit thread_local bool failsForGood = false;
constinit thread_local bool failed = false;

// Whether the allocation that begins here fails.
TAVLO_UNWATCHED bool fails() noexcept {
  if (allocationsLeft < 0) [[likely]]
    return false;
  if (allocationsLeft > 0) {
    --allocationsLeft;
    return false;
  }
  if (!failsForGood) allocationsLeft = -1;
  failed = true;
  errno = ENOMEM;
  return true;
}

TAVLO_UNWATCHED void addBytes(std::int64_t bytes) noexcept {
  const std::int64_t now = keptBytes.fetch_add(bytes, std::memory_order_relaxed) + bytes;
  std::int64_t most = mostKeptBytes.load(std::memory_order_relaxed);
  while (now > most && !mostKeptBytes.compare_exchange_weak(most, now, std::memory_order_relaxed)) {
  }
}

// The memory's own size; 0 where a sanitizer looks at it.
TAVLO_UNWATCHED std::int64_t bytesOf([[maybe_unused]] void* memory) noexcept {
#ifdef TAVLO_MEMORY_IS_WATCHED
  return 0;
#else
  return static_cast<std::int64_t>(malloc_usable_size(memory));
#endif
}

TAVLO_UNWATCHED void* counted(void* memory) noexcept {
  if (memory == nullptr) return nullptr;
  kept.fetch_add(1, std::memory_order_relaxed);
  addBytes(bytesOf(memory));
  return memory;
}

TAVLO_UNWATCHED void release(void* memory) noexcept {
  if (memory == nullptr) return;
  kept.fetch_sub(1, std::memory_order_relaxed);
  addBytes(-bytesOf(memory));
  systemFree(memory);
}

void* allocateByNew(std::size_t size, std::size_t alignment) noexcept {
  newCalls.fetch_add(1, std::memory_order_relaxed);
  if (fails()) return nullptr;
  if (size == 0) size = 1;
  return counted(alignment <= alignof(std::max_align_t) ? systemMalloc(size) : systemMemalign(alignment, size));
}

void* allocateOrThrow(std::size_t size, std::size_t alignment) {
  if (void* memory = allocateByNew(size, alignment)) return memory;
  throw std::bad_alloc();
}

}  // namespace

#ifndef TAVLO_MEMORY_IS_WATCHED
// The functions of C, for which the libraries ask this program first. The sanitizer's own must stay where they are:
// what a library has allocated by them is freed by them.
extern "C" {

TAVLO_UNWATCHED void* malloc(std::size_t size) noexcept {
  return fails() ? nullptr : counted(systemMalloc(size));
}

TAVLO_UNWATCHED void* calloc(std::size_t count, std::size_t size) noexcept {
  return fails() ? nullptr : counted(systemCalloc(count, size));
}

TAVLO_UNWATCHED void* realloc(void* memory, std::size_t size) noexcept {
  if (memory == nullptr) return malloc(size);
  if (size == 0) {
    free(memory);
    return nullptr;
  }
  if (fails()) return nullptr;
  const std::int64_t before = bytesOf(memory);
  void* const moved = systemRealloc(memory, size);
  if (moved != nullptr) addBytes(bytesOf(moved) - before);
  return moved;
}

TAVLO_UNWATCHED void free(void* memory) noexcept {
  release(memory);
}

TAVLO_UNWATCHED void* memalign(std::size_t alignment, std::size_t size) noexcept {
  return fails() ? nullptr : counted(systemMemalign(alignment, size));
}

TAVLO_UNWATCHED void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
  return memalign(alignment, size);
}

TAVLO_UNWATCHED int posix_memalign(void** result, std::size_t alignment, std::size_t size) noexcept {
  void* const memory = memalign(alignment, size);
  if (memory == nullptr) return ENOMEM;
  *result = memory;
  return 0;
}

}  // extern "C"
#endif

// What Oniguruma allocates while it compiles a pattern never fails here, since it does not stand that: of "^(GET|PUT)
// ", 6.9.8 frees a node twice when its 10th allocation fails, and of "\\d{2,4}" it keeps one when its 7th does. The
// library makes sure of that memory before it compiles. The compilation fails as a whole, with Oniguruma's own answer.
extern "C" int onig_new(void** pattern, const unsigned char* begin, const unsigned char* end, unsigned options,
                        void* encoding, void* syntax, void* information) {
  constexpr int kOutOfMemory = -5;
  using Compile = decltype(&onig_new);
  static const auto compile = reinterpret_cast<Compile>(::dlsym(RTLD_NEXT, "onig_new"));
  if (fails()) return kOutOfMemory;
  const std::int64_t left = std::exchange(allocationsLeft, -1);
  const int answer = compile(pattern, begin, end, options, encoding, syntax, information);
  allocationsLeft = left;
  return answer;
}

// Never inlined: the compiler would see memory of another function where it expects that of an operator.
[[gnu::noinline]] void* operator new(std::size_t size) {
  return allocateOrThrow(size, 1);
}
[[gnu::noinline]] void* operator new[](std::size_t size) {
  return allocateOrThrow(size, 1);
}
[[gnu::noinline]] void* operator new(std::size_t size, std::align_val_t alignment) {
  return allocateOrThrow(size, static_cast<std::size_t>(alignment));
}
[[gnu::noinline]] void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return allocateByNew(size, 1);
}
[[gnu::noinline]] void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return allocateByNew(size, 1);
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
  release(memory);
}
[[gnu::noinline]] void operator delete[](void* memory) noexcept {
  release(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t /*size*/) noexcept {
  release(memory);
}
[[gnu::noinline]] void operator delete[](void* memory, std::size_t /*size*/) noexcept {
  release(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::align_val_t /*alignment*/) noexcept {
  release(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t /*size*/, std::align_val_t /*alignment*/) noexcept {
  release(memory);
}

namespace tavlo::test {

FailingMemory::FailingMemory(std::int64_t count, Failing failing) {
  failed = false;
  failsForGood = failing == Failing::ForGood;
  allocationsLeft = count;
}

void FailingMemory::end() {
  allocationsLeft = -1;
}

bool FailingMemory::hasFailed() {
  return failed;
}

std::uint64_t allocationsMade() {
  return newCalls.load(std::memory_order_relaxed);
}

std::int64_t allocationsKept() {
#ifdef TAVLO_MEMORY_IS_WATCHED
  return 0;
#else
  return kept.load(std::memory_order_relaxed);
#endif
}

std::int64_t bytesInUse() {
  return keptBytes.load(std::memory_order_relaxed);
}
std::int64_t mostBytesInUse() {
  return mostKeptBytes.load(std::memory_order_relaxed);
}
void forgetMostBytes() {
  mostKeptBytes.store(keptBytes.load());
}

}  // namespace tavlo::test

#endif
