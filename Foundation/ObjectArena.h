#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>

namespace tavlo {

// Memory for what is made together and mostly ends together, such as the nodes and the texts of one template, taken in
// chunks: a chunk is freed with the last object in it, so that an object that somebody keeps keeps no more than its
// chunk; and one chunk may stay a while longer for each thread that has ended objects of it, while others did too. What
// is made while no arena is current comes from the heap; under the address sanitizer everything does.
class ObjectArena {
 public:
  ObjectArena() = default;
  // For about so many bytes in all: where they are few, the first chunk is no larger.
  explicit ObjectArena(std::size_t expected) noexcept
      : chunkSize_(expected < kLeastChunkSize ? kLeastChunkSize
                   : expected < kChunkSize    ? expected
                                              : kChunkSize) {}
  ~ObjectArena() { leaveChunk(); }
  ObjectArena(const ObjectArena&) = delete;
  ObjectArena& operator=(const ObjectArena&) = delete;

  // Makes an arena the one that the thread's objects come from, until the scope ends.
  class Scope {
   public:
    explicit Scope(ObjectArena& arena) noexcept;
    ~Scope();
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

   private:
    ObjectArena* outer_;
  };

  // What the operators new and delete of such objects call. Memory may be freed by any thread. It is aligned for every
  // object of that size whose class asks for no more than the platform's strictest alignment; for classes that do, as a
  // host's may, there are the other two.
  static void* allocate(std::size_t size);
  static void free(void* memory) noexcept;
  // The same for who knows the size: what was made last in the thread's arena leaves no gap.
  static void free(void* memory, std::size_t size) noexcept;
  static void* allocate(std::size_t size, std::align_val_t alignment) { return ::operator new(size, alignment); }
  static void free(void* memory, std::align_val_t alignment) noexcept { ::operator delete(memory, alignment); }

  // The same for what containers hold.
  template <class T>
  struct Allocator {
    using value_type = T;  // NOLINT(readability-identifier-naming): what containers ask for

    Allocator() = default;
    template <class U>
    explicit Allocator(const Allocator<U>& /*other*/) noexcept {}

    T* allocate(std::size_t count) { return static_cast<T*>(ObjectArena::allocate(count * sizeof(T))); }
    void deallocate(T* memory, std::size_t count) noexcept { ObjectArena::free(memory, count * sizeof(T)); }

    friend bool operator==(const Allocator&, const Allocator&) = default;
  };

 private:
  struct Chunk {
    std::atomic<std::uint32_t> users;  // the objects in it; many more while it is filled
    std::uint32_t size;                // in bytes, with this
  };

  // Stands before every object.
  struct Header {
    Chunk* chunk;  // null for an object from the heap
  };

  static constexpr std::size_t kStrictestAlignment = alignof(std::max_align_t);
  static constexpr std::size_t kChunkSize = std::size_t{16} * 1024;
  static constexpr std::size_t kLargest = 1024;  // for which a new chunk is taken
  static constexpr std::size_t kLeastChunkSize = 2 * kLargest;
  static constexpr std::uint32_t kWhileFilled = 1U << 31;  // users that a chunk has beyond its objects until it is left

  static std::size_t sizeWithHeader(std::size_t size) noexcept {
    return (size + sizeof(Header) + alignof(Header) - 1) / alignof(Header) * alignof(Header);
  }
  static void* allocateOnHeap(std::size_t size);
  void* allocateInNextChunk(std::size_t size);
  void* take(char* place, std::size_t size) noexcept;
  void takeChunk();
  void leaveChunk() noexcept;
  [[gnu::visibility("hidden")]] static void endFirstOf(Chunk* chunk) noexcept;
  [[gnu::visibility("hidden")]] static void countEnded() noexcept;
  static void letGoOf(Chunk* chunk, std::uint32_t users) noexcept;
  [[gnu::visibility("hidden")]] static void keepOrFree(Chunk* chunk) noexcept;
  [[gnu::visibility("hidden")]] static bool mayKeepForThread() noexcept;
  [[gnu::visibility("hidden")]] static void endOfThread() noexcept;

  Chunk* chunk_ = nullptr;
  char* next_ = nullptr;       // in chunk_, the first free byte
  char* end_ = nullptr;        // of chunk_
  std::uint32_t objects_ = 0;  // made in chunk_, not counted there yet
  std::size_t chunkSize_ = kChunkSize;
};

}  // namespace tavlo
