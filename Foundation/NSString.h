#pragma once

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "Foundation/Bytes.h"
#include "Foundation/NSObject.h"
#include "Foundation/Ref.h"
#include "Foundation/Utf8.h"
#include "Foundation/Value.h"

namespace tavlo {

// A valid text and its length in UTF-16 units.
struct CountedText {
  constexpr CountedText() noexcept = default;
  constexpr CountedText(std::string_view known, std::size_t knownLength) noexcept : text(known), length(knownLength) {}
  // NOLINTNEXTLINE(google-explicit-constructor): implicit on purpose, counts a text where one is asked for
  CountedText(std::string_view uncounted) noexcept : text(uncounted), length(utf16Length(uncounted)) {}
  template <TextLike T>
  CountedText(const T& uncounted)  // NOLINT(google-explicit-constructor): the same, by a host's conversion perhaps
      : CountedText(std::string_view(uncounted)) {}

  std::string_view text;
  std::size_t length = 0;
};

// An immutable text in one allocation: valid UTF-8, followed by a zero byte. Its length is counted in UTF-16 units, as
// everywhere in the language; equal lengths in bytes and units mean that it is ASCII.
class NSString : public NSObject {
 public:
  // The longest text there can be, in bytes.
  static constexpr std::size_t kMaximumByteLength = 0x7FFFFFFF;

  // A string of the text. Raises `NSInvalidArgumentException` that names the byte offset when it is not valid UTF-8.
  static Ref<NSString> stringWithUTF8(std::string_view text);
  // The same for text that is known to be valid. One that counts atomically from birth comes from the current arena.
  static Ref<NSString> stringWithValidUTF8(std::string_view text);
  static Ref<NSString> stringWithValidUTF8(std::string_view text, Counting counting);
  // The same for one that is counted plainly, from the current arena.
  static Ref<NSString> stringInArena(std::string_view text);
  // The part of this string between two bytes that begin characters; counted atomically, from the current arena.
  Ref<NSString> substring(std::size_t byteOffset, std::size_t byteLength) const;
  // A string of the UTF-16 text. Raises `NSInvalidArgumentException` that names the unit for a lone surrogate.
  static Ref<NSString> stringWithUTF16(std::u16string_view text);
  // The two texts joined, with room to grow.
  static Ref<NSString> stringByJoining(CountedText left, CountedText right);

  // The text that `write` puts, in at most `capacity` bytes of valid UTF-8, at the place that it is given; it answers
  // with the end of the text and adds to the second argument its length in UTF-16 units. Raises `std::length_error` for
  // a capacity beyond the longest text.
  template <class Write>
  static Ref<NSString> stringWrittenBy(const Write& write, std::size_t capacity) {
    requireLength(capacity);
    Ref<NSString> string = uninitialized(0, 0, capacity);
    char* const start = string->mutableCharacters();
    char* const end = write(start, string->length_);
    *end = '\0';
    string->byteLength_ = static_cast<std::uint32_t>(end - start);
    return string;
  }

  // Puts `right` behind `left`, in place where it has the room. The caller must hold the only reference, which passes
  // into the result.
  static Ref<NSString> appended(Ref<NSString> left, CountedText right);
  // Gives back the room that appending left behind, where that is worth a copy.
  static Ref<NSString> trimmed(Ref<NSString> string);

  std::string_view view() const noexcept { return {characters(), byteLength_}; }
  const char* characters() const noexcept { return reinterpret_cast<const char*>(this + 1); }
  std::uint32_t byteLength() const noexcept { return byteLength_; }
  // In UTF-16 units.
  std::uint32_t length() const noexcept { return length_; }
  bool isASCII() const noexcept { return length_ == byteLength_; }

  // Short texts, as most keys are, are compared in one go: a string has room for a word.
  [[gnu::always_inline]] bool hasSameText(const NSString& other) const noexcept {
    if (this == &other) return true;
    if (byteLength_ != other.byteLength_) return false;
    if constexpr (std::endian::native == std::endian::little) {
      if (byteLength_ - 1U < sizeof(std::uint64_t)) return (firstWord() ^ other.firstWord()) << spareBits() == 0;
    }
    return areSameBytes(characters(), other.characters(), byteLength_);
  }

  const char* className() const override { return "NSString"; }
  void describe(Description& out) const override;
  bool isEqual(const NSObject& other, std::int32_t depth = 0) const override;
  std::size_t hash() const override { return hash32(); }
  // Computed once; never 0.
  std::uint32_t hash32() const noexcept {
    const std::uint32_t known = hash_.load(std::memory_order_relaxed);
    return known != 0 ? known : computeHash();
  }
  // The same for a text, as long as the process runs; another process hashes otherwise.
  static std::uint32_t hashOf(std::string_view text) noexcept;
  std::optional<bool> isLessThan(const Value& other) const override;
  std::optional<bool> isGreaterThan(const Value& other) const override;
  bool findValueForKey(const NSString& key, Value& value) const override;

  // The bytes follow the object itself, so its size is not the class's.
  static void operator delete(void* memory) { ::operator delete(memory); }

 private:
  class InArena;

  NSString(std::size_t byteLength, std::size_t length, std::size_t capacity, Counting counting) noexcept;

  static Ref<NSString> uninitialized(std::size_t byteLength, std::size_t length, std::size_t capacity);
  static Ref<NSString> uninitializedInArena(std::size_t byteLength, std::size_t length, Counting counting);
  static void requireLength(std::size_t byteLength);
  char* mutableCharacters() noexcept { return reinterpret_cast<char*>(this + 1); }
  std::uint64_t firstWord() const noexcept {
    std::uint64_t word;
    std::memcpy(&word, characters(), sizeof word);
    return word;
  }
  // Of the first word, those that a short text leaves free.
  std::uint32_t spareBits() const noexcept { return 64 - 8 * byteLength_; }
  // Of the memory behind the object, which holds a word at least.
  static std::size_t roomFor(std::size_t extra) noexcept { return std::max(extra, sizeof(std::uint64_t)); }
  std::uint32_t computeHash() const noexcept;
  static void* operator new(std::size_t size, std::size_t extra) { return ::operator new(size + roomFor(extra)); }
  static void operator delete(void* memory, std::size_t /*extra*/) { ::operator delete(memory); }

  std::uint32_t byteLength_;
  std::uint32_t length_;    // in UTF-16 units
  std::uint32_t capacity_;  // in bytes, without the final zero
  mutable std::atomic<std::uint32_t> hash_{0};
};

inline const NSString* Value::string() const noexcept {
  const NSObject* held = object();
  return held != nullptr && held->kind() == ObjectKind::String ? static_cast<const NSString*>(held) : nullptr;
}

}  // namespace tavlo
