#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace tavlo {

// Memory for the nodes of one template, taken in chunks: a chunk is freed with its last node, so that a node that
// somebody keeps keeps no more than its chunk. Nodes made while no arena is current come from the heap; under the
// address sanitizer all of them do.
class NodeArena {
 public:
  NodeArena() = default;
  ~NodeArena() { leaveChunk(); }
  NodeArena(const NodeArena&) = delete;
  NodeArena& operator=(const NodeArena&) = delete;

  // Makes an arena the one that the thread's nodes come from, until the scope ends.
  class Scope {
   public:
    explicit Scope(NodeArena& arena) noexcept;
    ~Scope();
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;

   private:
    NodeArena* outer_;
  };

  // What the nodes' operators new and delete call. Memory may be freed by any thread.
  static void* allocate(std::size_t size);
  static void free(void* memory) noexcept;

 private:
  struct Chunk {
    std::atomic<std::uint32_t> users;  // the nodes in it, and the arena while it fills it
  };

  // Stands before every node.
  struct Header {
    Chunk* chunk;  // null for a node from the heap
  };

  static constexpr std::size_t kChunkSize = std::size_t{16} * 1024;
  static constexpr std::size_t kLargest = 1024;

  void* allocateHere(std::size_t size);
  void leaveChunk() noexcept;
  static void letGoOf(Chunk* chunk) noexcept;

  Chunk* chunk_ = nullptr;
  std::size_t used_ = 0;  // of chunk_, in bytes
};

}  // namespace tavlo
