#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string_view>

#include "Foundation/Bytes.h"

namespace tavlo {

// A text that grows at its end, in which output is gathered.
class TextBuffer {
 public:
  TextBuffer() = default;
  TextBuffer(const TextBuffer&) = delete;
  TextBuffer& operator=(const TextBuffer&) = delete;

  // Good until the text grows.
  std::string_view view() const noexcept { return {size_ == 0 ? "" : bytes_.get(), size_}; }
  std::size_t size() const noexcept { return size_; }
  // The bytes that the text can have before its memory must grow.
  std::size_t capacity() const noexcept { return capacity_; }

  // Raises `std::bad_alloc` or `std::length_error`, as do the next two, where there is not so much memory.
  void reserve(std::size_t capacity) {
    if (capacity > capacity_) (void)grow(capacity);
  }

  // Takes the text away and keeps the memory.
  void clear() noexcept { size_ = 0; }
  // Takes so many bytes away from its front.
  void dropFirst(std::size_t size) noexcept {
    size_ -= size;
    if (size > 0 && size_ > 0) std::memmove(bytes_.get(), bytes_.get() + size, size_);
  }
  // Takes both away.
  void release() noexcept {
    bytes_ = nullptr;
    size_ = capacity_ = 0;
  }

  // The text may be a part of this one.
  [[gnu::always_inline]] void append(std::string_view text) {
    if (text.size() > capacity_ - size_) [[unlikely]]
      return appendGrowing(text);
    copyBytes(bytes_.get() + size_, text.data(), text.size());
    size_ += text.size();
  }

  // Whether appendPadded() may append a text now.
  bool hasPaddedRoom() const noexcept { return capacity_ - size_ >= kLongestPadded; }
  // The same as append() for a text that is not empty and of at most so many bytes, behind which as many can be read as
  // make paddedSize() of them: copied in whole blocks, it takes the fewest steps.
  static constexpr std::uint32_t kLongestPadded = 128;
  [[gnu::always_inline]] void appendPadded(std::string_view text) noexcept {
    char* const to = bytes_.get() + size_;
    std::size_t at = 0;
    do {
      Block block;
      std::memcpy(&block, text.data() + at, sizeof block);
      std::memcpy(to + at, &block, sizeof block);
      at += sizeof(Block);
    } while (at < text.size());
    size_ += text.size();
  }
  static std::size_t paddedSize(std::size_t size) noexcept {
    return (size + sizeof(Block) - 1) / sizeof(Block) * sizeof(Block);
  }

  // The place behind the text, with room for so many bytes: what is written there is added by extend().
  char* room(std::size_t size) {
    if (size > capacity_ - size_) [[unlikely]]
      makeRoom(size);
    return bytes_.get() + size_;
  }
  void extend(const char* end) noexcept { size_ = static_cast<std::size_t>(end - bytes_.get()); }

 private:
  struct Block {
    std::uint64_t words[2];
  };

  using Bytes = std::unique_ptr<char[]>;  // NOLINT(*-avoid-c-arrays)

  [[gnu::noinline]] void appendGrowing(std::string_view text);
  [[gnu::noinline]] void makeRoom(std::size_t size);
  // The old memory, for the caller to let go of.
  Bytes grow(std::size_t capacity);
  std::size_t capacityFor(std::size_t more) const;

  Bytes bytes_;  // capacity_ of them, the first size_ are the text
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

}  // namespace tavlo
