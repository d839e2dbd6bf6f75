#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

// What fuzzers check with: a check that fails says what was expected and ends the process, so that the fuzzer keeps the
// input.
namespace tavlo::fuzz {

[[noreturn]] void fail(std::string_view what);

inline void require(bool condition, std::string_view what) {
  if (!condition) [[unlikely]]
    fail(what);
}

// Fails, and shows both, unless the two are equal.
void requireEqual(std::string_view found, std::string_view expected, std::string_view what);

// Fails, and shows both, unless the first text is how the second one begins.
void requirePrefix(std::string_view prefix, std::string_view whole, std::string_view what);

// The two parts of an input, parted by its first zero byte; the second one is empty without any.
std::pair<std::string, std::string> partsOf(const std::uint8_t* data, std::size_t size);

}  // namespace tavlo::fuzz
