#include "Foundation/HashSeed.h"

#include <sys/random.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <cstring>

namespace tavlo {

namespace {

template <class Integer>
std::uint64_t loaded(const char* from) noexcept {
  Integer integer = 0;
  std::memcpy(&integer, from, sizeof integer);
  return integer;
}

// For a system that has no random numbers yet: the time and the place in memory, which differ between processes.
std::uint64_t numberOfTheMoment() noexcept {
  static const char kSomewhere = 0;
  const auto now = static_cast<std::uint64_t>(std::chrono::steady_clock::now().time_since_epoch().count());
  return now ^ (static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(&kSomewhere)) << 24);
}

// The next number of the sequence "SplitMix64" by Sebastiano Vigna (public domain).
std::uint64_t nextNumber(std::uint64_t& state) noexcept {
  state += 0x9E3779B97F4A7C15U;
  std::uint64_t number = (state ^ (state >> 30)) * 0xBF58476D1CE4E5B9U;
  number = (number ^ (number >> 27)) * 0x94D049BB133111EBU;
  return number ^ (number >> 31);
}

}  // namespace

HashSeed HashSeed::random() noexcept {
  HashSeed seed = {};
  // Not by the C library's function, where a thread may be cancelled.
  if (::syscall(SYS_getrandom, &seed, sizeof seed, GRND_NONBLOCK) == static_cast<long>(sizeof seed)) return seed;
  return drawnFrom(numberOfTheMoment());
}

HashSeed HashSeed::drawnFrom(std::uint64_t state) noexcept {
  HashSeed seed = {};
  for (std::uint64_t* number : {&seed.first_, &seed.second_, &seed.third_, &seed.fourth_}) *number = nextNumber(state);
  return seed;
}

// After wyhash by Wang Yi (version 4, public domain), with all its constants drawn at random: with constants that are
// known, texts can be chosen that cancel the seed. Its three ways to load up to 16 bytes, some of them twice, cover
// every length without a loop.
std::uint64_t HashSeed::hashOfText(std::string_view text) const noexcept {
  const char* at = text.data();
  std::size_t left = text.size();
  std::uint64_t head = 0;
  std::uint64_t tail = 0;
  std::uint64_t state = fourth_;
  for (; left > 16; left -= 16, at += 16) {
    const Product product = multiplied(loaded<std::uint64_t>(at) ^ first_, loaded<std::uint64_t>(at + 8) ^ state);
    state = product.low ^ product.high;
  }
  if (left > 8) {
    head = loaded<std::uint64_t>(at);
    tail = loaded<std::uint64_t>(at + left - 8);
  } else if (left >= 4) {
    head = loaded<std::uint32_t>(at);
    tail = loaded<std::uint32_t>(at + left - 4);
  } else if (left > 0) {
    const auto byteAt = [at](std::size_t index) -> std::uint64_t { return static_cast<unsigned char>(at[index]); };
    head = (byteAt(0) << 16) | (byteAt(left / 2) << 8) | byteAt(left - 1);
  }
  const Product product = multiplied(head ^ second_, tail ^ state);
  return mixed(product.low ^ third_ ^ text.size(), product.high);
}

}  // namespace tavlo
