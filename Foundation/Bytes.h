#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace tavlo {

// Whether two texts of one size are the same; without a call for short ones, as names and keys are.
inline bool areSameBytes(const char* left, const char* right, std::size_t size) noexcept {
  const auto differ = [&](auto word, std::size_t offset) {
    auto other = word;
    std::memcpy(&word, left + offset, sizeof word);
    std::memcpy(&other, right + offset, sizeof other);
    return word != other;
  };
  // The first and the last word overlap where they must.
  if (size >= sizeof(std::uint64_t)) {
    for (std::size_t at = sizeof(std::uint64_t); at + sizeof(std::uint64_t) < size; at += sizeof(std::uint64_t)) {
      if (differ(std::uint64_t{0}, at)) return false;
    }
    return !differ(std::uint64_t{0}, 0) && !differ(std::uint64_t{0}, size - sizeof(std::uint64_t));
  }
  if (size >= sizeof(std::uint32_t)) {
    return !differ(std::uint32_t{0}, 0) && !differ(std::uint32_t{0}, size - sizeof(std::uint32_t));
  }
  return size == 0 || (left[0] == right[0] && left[size / 2] == right[size / 2] && left[size - 1] == right[size - 1]);
}

// A number that mostly differs for texts that differ near their ends, as names and keys do.
inline std::uint64_t mixedEnds(std::string_view text) noexcept {
  std::uint64_t first = 0;
  std::uint64_t last = 0;
  if (text.size() >= sizeof first) {
    std::memcpy(&first, text.data(), sizeof first);
    std::memcpy(&last, text.data() + text.size() - sizeof last, sizeof last);
  } else {
    for (const char byte : text) last = last << 8 | static_cast<unsigned char>(byte);
  }
  constexpr std::uint64_t kOdd = 0x9E3779B97F4A7C15;  // 2^64 by the golden ratio
  return ((first ^ text.size()) * kOdd ^ last) * kOdd;
}

// The first and the last word of so many bytes, which overlap where they must.
template <class Word>
[[gnu::always_inline]] inline void copyEnds(char* to, const char* from, std::size_t size) noexcept {
  Word first;
  Word last;
  std::memcpy(&first, from, sizeof first);
  std::memcpy(&last, from + size - sizeof last, sizeof last);
  std::memcpy(to, &first, sizeof first);
  std::memcpy(to + size - sizeof last, &last, sizeof last);
}

// Copies between two places that do not overlap, without a call for the few bytes that most pieces of output have.
[[gnu::always_inline]] inline void copyBytes(char* to, const char* from, std::size_t size) noexcept {
  struct TwoWords {
    std::uint64_t words[2];
  };
  if (size > 2 * sizeof(TwoWords)) {
    std::memcpy(to, from, size);
  } else if (size >= sizeof(TwoWords)) {
    copyEnds<TwoWords>(to, from, size);
  } else if (size >= sizeof(std::uint64_t)) {
    copyEnds<std::uint64_t>(to, from, size);
  } else if (size >= sizeof(std::uint32_t)) {
    copyEnds<std::uint32_t>(to, from, size);
  } else if (size > 0) {
    to[0] = from[0];
    to[size / 2] = from[size / 2];
    to[size - 1] = from[size - 1];
  }
}

}  // namespace tavlo
