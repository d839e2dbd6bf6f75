#include "Foundation/ObjectArena.h"

#include <new>
#include <utility>

#include "Foundation/ThreadEnd.h"

namespace tavlo {

namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kUsesArenas = false;  // each object has borders of its own there
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kUsesArenas = false;
#else
constexpr bool kUsesArenas = true;
#endif
#else
constexpr bool kUsesArenas = true;
#endif

[[gnu::tls_model("initial-exec")]] thread_local ObjectArena* currentArena = nullptr;

// Freed chunks that a thread keeps for its next arena: a program that compiles again and again gets the same memory
// again and again, not new pages from the system. What ends after the thread's other objects is freed at once.
struct SpareChunk {
  SpareChunk* next;
};
[[gnu::tls_model("initial-exec")]] thread_local SpareChunk* spareChunks = nullptr;
[[gnu::tls_model("initial-exec")]] thread_local std::uint32_t spareCount = 0;
constexpr std::uint32_t kMostSpareChunks = 320;  // about what a template of a megabyte takes

// Objects that are made together mostly end one after another too, on one thread. Those of the chunk that the last one
// was of are gathered here, to be taken off its users together: counting each there takes much of the time of letting a
// template go.
[[gnu::tls_model("initial-exec")]] thread_local void* endingChunk = nullptr;
[[gnu::tls_model("initial-exec")]] thread_local std::uint32_t endedObjects = 0;  // of it, not counted there yet

// Whether the thread's end will see to what is kept here.
[[gnu::tls_model("initial-exec")]] thread_local bool isEndSeenTo = false;

void* takeSpareChunk() noexcept {
  if (spareChunks == nullptr) return nullptr;
  --spareCount;
  return std::exchange(spareChunks, spareChunks->next);
}

}  // namespace

// Whether something may be kept for the running thread, which lets go of it when it ends.
bool ObjectArena::mayKeepForThread() noexcept {
  if (!isEndSeenTo) [[unlikely]]
    isEndSeenTo = ThreadEnd::run(endOfThread);
  return isEndSeenTo;
}

void ObjectArena::endOfThread() noexcept {
  isEndSeenTo = false;
  countEnded();
  while (spareChunks != nullptr) ::operator delete(std::exchange(spareChunks, spareChunks->next));
  spareCount = 0;
}

void ObjectArena::keepOrFree(Chunk* chunk) noexcept {
  const bool isSpare = chunk->size == kChunkSize && spareCount < kMostSpareChunks && mayKeepForThread();
  if (!isSpare) return ::operator delete(chunk);
  spareChunks = new (chunk) SpareChunk{spareChunks};
  ++spareCount;
}

ObjectArena::Scope::Scope(ObjectArena& arena) noexcept : outer_(currentArena) {
  if (kUsesArenas) currentArena = &arena;
}

ObjectArena::Scope::~Scope() {
  currentArena = outer_;
}

void* ObjectArena::allocate(std::size_t size) {
  ObjectArena* const arena = currentArena;
  if (arena == nullptr) return allocateOnHeap(size);
  size = sizeWithHeader(size);
  // The size of a class is a multiple of its alignment: every other object needs no more than the header does.
  char* place = arena->next_;
  const bool mayBeStrict = (size - sizeof(Header)) % kStrictestAlignment == 0;
  const bool isAligned = (reinterpret_cast<std::uintptr_t>(place) + sizeof(Header)) % kStrictestAlignment == 0;
  if (mayBeStrict && !isAligned) place += sizeof(Header);
  if (place > arena->end_ || size > static_cast<std::size_t>(arena->end_ - place)) [[unlikely]]
    return arena->allocateInNextChunk(size);
  return arena->take(place, size);
}

// Of that size with the header.
void* ObjectArena::allocateInNextChunk(std::size_t size) {
  if (size > kLargest) return allocateOnHeap(size);
  takeChunk();
  return take(next_, size);  // which suits every object
}

inline void* ObjectArena::take(char* place, std::size_t size) noexcept {
  auto* header = new (place) Header{chunk_};
  next_ = place + size;
  ++objects_;
  return header + 1;
}

// The header stands right before the object there too.
void* ObjectArena::allocateOnHeap(std::size_t size) {
  auto* memory = static_cast<char*>(::operator new(size + kStrictestAlignment));
  return new (memory + kStrictestAlignment - sizeof(Header)) Header{nullptr} + 1;
}

void ObjectArena::takeChunk() {
  leaveChunk();
  void* const spare = chunkSize_ == kChunkSize ? takeSpareChunk() : nullptr;
  void* const memory = spare != nullptr ? spare : ::operator new(chunkSize_);
  chunk_ = new (memory) Chunk{kWhileFilled, static_cast<std::uint32_t>(chunkSize_)};
  next_ = reinterpret_cast<char*>(chunk_ + 1);
  end_ = reinterpret_cast<char*>(chunk_) + chunkSize_;
  if (chunkSize_ < kChunkSize) chunkSize_ = kLeastChunkSize;  // more than was expected
}

void ObjectArena::free(void* memory) noexcept {
  auto* header = static_cast<Header*>(memory) - 1;
  if (header->chunk == nullptr) {
    ::operator delete(static_cast<char*>(memory) - kStrictestAlignment);
  } else if (header->chunk == endingChunk) {
    ++endedObjects;
    if (header->chunk->users.load(std::memory_order_acquire) == endedObjects) {  // those are all
      endingChunk = nullptr;
      keepOrFree(header->chunk);
    }
  } else {
    endFirstOf(header->chunk);
  }
}

// The same for an object of another chunk than the last one's.
void ObjectArena::endFirstOf(Chunk* chunk) noexcept {
  countEnded();
  if (chunk->users.load(std::memory_order_acquire) == 1 || !mayKeepForThread()) return letGoOf(chunk, 1);
  endingChunk = chunk;
  endedObjects = 1;
}

void ObjectArena::countEnded() noexcept {
  auto* const chunk = static_cast<Chunk*>(std::exchange(endingChunk, nullptr));
  if (chunk != nullptr) letGoOf(chunk, endedObjects);
}

void ObjectArena::free(void* memory, std::size_t size) noexcept {
  auto* header = static_cast<Header*>(memory) - 1;
  ObjectArena* const arena = currentArena;
  const bool isLast = arena != nullptr && header->chunk != nullptr && header->chunk == arena->chunk_ &&
                      reinterpret_cast<char*>(header) + sizeWithHeader(size) == arena->next_;
  if (!isLast) return free(memory);
  arena->next_ = reinterpret_cast<char*>(header);
  --arena->objects_;
}

void ObjectArena::leaveChunk() noexcept {
  if (chunk_ != nullptr && chunk_ == endingChunk) countEnded();
  if (chunk_ != nullptr) letGoOf(chunk_, kWhileFilled - objects_);
  chunk_ = nullptr;
  next_ = end_ = nullptr;
  objects_ = 0;
}

// The last users need not be counted down: nobody else is left to see it.
void ObjectArena::letGoOf(Chunk* chunk, std::uint32_t users) noexcept {
  if (chunk->users.load(std::memory_order_acquire) == users ||
      chunk->users.fetch_sub(users, std::memory_order_acq_rel) == users) {
    keepOrFree(chunk);
  }
}

}  // namespace tavlo
