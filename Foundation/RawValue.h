#pragma once

#include <bit>
#include <cstdint>
#include <type_traits>

namespace tavlo {

class NSObject;

enum class ValueKind : std::uint8_t { Absent, Null, Boolean, Signed, Unsigned, Double, Float, Object };

// The bare pair behind a `Value`: trivially copyable, so that it is returned in two registers. Whoever receives an
// owned one adopts it into a `Value` at once; only code that knows it holds numbers, or something lent, works on it as
// it is.
//
// A lent pair is one whose `owned` bit is off although it holds a counted object: dropping it releases nothing, and it
// is good until the next call of anybody else's code.
struct [[nodiscard]] RawValue {
  union Payload {
    std::int64_t signedInteger;
    std::uint64_t unsignedInteger;
    double real;
    const NSObject* object;
  };

  static constexpr std::uint64_t kOwned = 0x100;
  static constexpr std::uint64_t kKindMask = 0xFF;

  std::uint64_t tag;
  Payload payload;

  constexpr ValueKind kind() const noexcept { return static_cast<ValueKind>(tag & kKindMask); }
  constexpr bool isOwned() const noexcept { return (tag & kOwned) != 0; }
  constexpr bool isNumber() const noexcept { return kind() >= ValueKind::Boolean && kind() <= ValueKind::Float; }
  constexpr bool isDouble() const noexcept { return tag == static_cast<std::uint64_t>(ValueKind::Double); }

  float single() const noexcept { return std::bit_cast<float>(static_cast<std::uint32_t>(payload.unsignedInteger)); }

  // A copy word by word. As a whole the pair would be loaded in one go, which the processor delays until the two words
  // that were stored one by one are there.
  constexpr RawValue inWords() const noexcept { return {tag, payload}; }
  // The same value without a claim on its reference.
  constexpr RawValue lent() const noexcept { return {tag & ~kOwned, payload}; }

  static constexpr RawValue of(ValueKind kind, Payload payload) noexcept {
    return {static_cast<std::uint64_t>(kind), payload};
  }
  // No value at all, where one may be missing: not even the absent one.
  static constexpr RawValue nothing() noexcept { return {kKindMask, {.unsignedInteger = 0}}; }
  constexpr bool isNothing() const noexcept { return tag == kKindMask; }
  static constexpr RawValue absent() noexcept { return of(ValueKind::Absent, {.unsignedInteger = 0}); }
  static constexpr RawValue null() noexcept { return of(ValueKind::Null, {.unsignedInteger = 0}); }
  static constexpr RawValue boolean(bool truth) noexcept {
    return of(ValueKind::Boolean, {.unsignedInteger = truth ? 1U : 0U});
  }
  static constexpr RawValue integer(std::int64_t number) noexcept {
    return of(ValueKind::Signed, {.signedInteger = number});
  }
  static constexpr RawValue unsignedInteger(std::uint64_t number) noexcept {
    return of(ValueKind::Unsigned, {.unsignedInteger = number});
  }
  static constexpr RawValue real(double number) noexcept { return of(ValueKind::Double, {.real = number}); }
  static constexpr RawValue ofSingle(float number) noexcept {
    return of(ValueKind::Float, {.unsignedInteger = std::bit_cast<std::uint32_t>(number)});
  }
};

static_assert(sizeof(RawValue) == 16 && std::is_trivially_copyable_v<RawValue>);

}  // namespace tavlo
