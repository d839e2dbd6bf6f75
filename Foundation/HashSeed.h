#pragma once

#include <cstdint>
#include <string_view>

namespace tavlo {

// What a hash is of, so that numbers and collections of different kinds differ.
enum class HashKind : std::uint8_t { Number, Array, Dictionary, Set };

// The random numbers that hashes start from. Every process draws its own, so that nobody can choose data whose hashes
// collide in it.
class HashSeed {
 public:
  // A fresh one.
  static HashSeed random() noexcept;
  // The one that follows from a number.
  static HashSeed drawnFrom(std::uint64_t state) noexcept;
  // The one that all hashes of the process share.
  static const HashSeed& ofProcess() noexcept {
    static const HashSeed seed = random();
    return seed;
  }

  std::uint64_t hashOfText(std::string_view text) const noexcept;

  // A number that depends on every bit of the two; their order counts.
  std::uint64_t mixed(std::uint64_t left, std::uint64_t right) const noexcept {
    const Product product = multiplied(left ^ first_, right ^ second_);
    return product.low ^ product.high;
  }
  // The hash of what has so many parts, from what has been mixed of the parts.
  std::uint64_t completed(std::uint64_t mixedParts, HashKind kind, std::uint64_t count) const noexcept {
    // Twice: numbers in even steps would stay in even steps after once.
    return mixed(mixed(mixedParts, (count << 2) | static_cast<std::uint64_t>(kind)), third_);
  }

 private:
  struct Product {
    std::uint64_t low;
    std::uint64_t high;
  };

  static Product multiplied(std::uint64_t left, std::uint64_t right) noexcept {
    __extension__ using Wide = unsigned __int128;
    const Wide product = Wide{left} * right;
    return {static_cast<std::uint64_t>(product), static_cast<std::uint64_t>(product >> 64)};
  }

  std::uint64_t first_;
  std::uint64_t second_;
  std::uint64_t third_;
  std::uint64_t fourth_;
};

}  // namespace tavlo
