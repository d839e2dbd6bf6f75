#pragma once

#include <array>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "Foundation/Value.h"

namespace tavlo {

// A counted entry of the process's table of names: equal names are the same entry, so comparing is comparing addresses.
class Name {
 public:
  // The absent name.
  constexpr Name() noexcept = default;
  // NOLINTBEGIN(google-explicit-constructor): implicit on purpose
  constexpr Name(std::nullptr_t) noexcept {}

  // Implicit on purpose: a name is asked for by its text; absent for a null pointer. Raises
  // `NSInvalidArgumentException` that names the byte offset when the text is not valid UTF-8.
  Name(std::string_view text);
  template <TextLike T>
  requires(!std::is_pointer_v<T>) Name(const T& text) : Name(std::string_view(text)) {}
  template <TextLike T>
  requires std::is_pointer_v<T> Name(const T& text) : Name(text == nullptr ? Name() : Name(std::string_view(text))) {}
  // NOLINTEND(google-explicit-constructor)

  Name(const Name& other) noexcept : entry_(other.entry_) { retain(); }
  Name(Name&& other) noexcept : entry_(std::exchange(other.entry_, nullptr)) {}
  ~Name() {
    if (entry_ != nullptr) release();
  }
  Name& operator=(Name other) noexcept {
    std::swap(entry_, other.entry_);
    return *this;
  }

  bool isAbsent() const noexcept { return entry_ == nullptr; }
  // The name's text, followed by a zero byte; empty for the absent name.
  std::string_view view() const noexcept;
  // Differs for different names; 0 for the absent one.
  std::size_t hash() const noexcept {
    // Names made one after another lie one after another, in stretches that would fall upon each other in a table. The
    // factor scatters them, most of all in the upper bits.
    constexpr std::uint64_t kScatter = 0x9E3779B97F4A7C15;
    return std::rotl(std::uint64_t{reinterpret_cast<std::uintptr_t>(entry_)} * kScatter, 32);
  }

  friend bool operator==(const Name& left, const Name& right) noexcept { return left.entry_ == right.entry_; }

 private:
  friend class NameTable;
  struct Entry;

  void retain() const noexcept;
  void release() noexcept;

  Entry* entry_ = nullptr;
};

// Names that one user asks for again and again: it remembers the latest ones, so that the process's table is asked
// seldom.
class NameCache {
 public:
  // The name of the text, good until the next call. Raises what making a name raises.
  const Name& nameForText(std::string_view text);

 private:
  static constexpr int kBits = 6;

  std::array<Name, std::size_t{1} << kBits> names_;  // by a hash of the text, the latest of each
};

}  // namespace tavlo
