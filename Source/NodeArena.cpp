#include "Source/NodeArena.h"

#include <new>

namespace tavlo {

namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kUsesArenas = false;  // each node has borders of its own there
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kUsesArenas = false;
#else
constexpr bool kUsesArenas = true;
#endif
#else
constexpr bool kUsesArenas = true;
#endif

[[gnu::tls_model("initial-exec")]] thread_local NodeArena* currentArena = nullptr;

}  // namespace

NodeArena::Scope::Scope(NodeArena& arena) noexcept : outer_(currentArena) {
  if (kUsesArenas) currentArena = &arena;
}

NodeArena::Scope::~Scope() {
  currentArena = outer_;
}

void* NodeArena::allocate(std::size_t size) {
  size += sizeof(Header);
  if (currentArena != nullptr && size <= kLargest) return currentArena->allocateHere(size);
  auto* header = new (::operator new(size)) Header{nullptr};
  return header + 1;
}

void* NodeArena::allocateHere(std::size_t size) {
  if (chunk_ == nullptr || used_ + size > kChunkSize) {
    leaveChunk();
    chunk_ = new (::operator new(kChunkSize)) Chunk{1};
    used_ = sizeof(Header) * 2;
  }
  auto* header = new (reinterpret_cast<char*>(chunk_) + used_) Header{chunk_};
  used_ += (size + alignof(Header) - 1) / alignof(Header) * alignof(Header);
  chunk_->users.fetch_add(1, std::memory_order_relaxed);
  return header + 1;
}

void NodeArena::free(void* memory) noexcept {
  auto* header = static_cast<Header*>(memory) - 1;
  if (header->chunk == nullptr) {
    ::operator delete(header);
  } else {
    letGoOf(header->chunk);
  }
}

void NodeArena::leaveChunk() noexcept {
  if (chunk_ != nullptr) letGoOf(chunk_);
  chunk_ = nullptr;
}

void NodeArena::letGoOf(Chunk* chunk) noexcept {
  if (chunk->users.fetch_sub(1, std::memory_order_acq_rel) == 1) ::operator delete(chunk);
}

}  // namespace tavlo
