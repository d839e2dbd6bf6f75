#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "Foundation/KorTemplateLimits.h"
#include "Foundation/NSObject.h"
#include "Foundation/NSString.h"
#include "Foundation/Text.h"
#include "Matchery/LineStart.h"
#include "Matchery/PatternShape.h"

struct re_pattern_buffer;

namespace tavlo {

// The kind of a compiled pattern among the objects of the system.
inline constexpr ObjectKind kRegexKind = ObjectKind::FirstEngineKind;

// A compiled regular expression in Oniguruma's own syntax, over UTF-8: "." does not match a line feed, "^" and "$"
// stand at the starts and ends of lines that line feeds end. It never changes, and several threads may search with it
// at once.
class KorRegex final : public NSObject {
 public:
  // The longest pattern, in bytes, the deepest nesting of groups in it, in which classes, options for the rest of a
  // group ("(?i)") and quantifiers of quantifiers count as groups, and the most calls of its groups ("\g<name>"), each
  // of which may double the work of compiling; and what its classes may weigh, see PatternShape. What is beyond does
  // not compile.
  static constexpr std::size_t kMaximumPatternLength = std::size_t{64} * 1024;
  static constexpr std::int32_t kMaximumGroupDepth = 100;
  static constexpr std::int32_t kMaximumCalls = 40;
  static constexpr std::uint64_t kMaximumWeight = 256;
  // And the most groups that may have a name to which it refers back.
  static constexpr std::uint32_t kMaximumNamesakes = 16;
  static constexpr std::uint64_t kPartsOfWeight = 64;

  // The pattern compiled. Raises `NSInvalidArgumentException`, with the pattern and the reason, when it does not
  // compile, and `KorTemplateLimitException` when the running thread's stack is too small to compile it.
  static Ref<KorRegex> compileExpression(const Text& pattern);
  // The same for one of many patterns that may take so much together, in parts of which `kPartsOfWeight` weigh 1: what
  // this one takes is taken off. Its loops and types outside of classes count here too, each of which takes some 400
  // bytes, and the bytes that the engine's compiler goes through, see PatternShape::visits.
  static Ref<KorRegex> compileExpression(const Text& pattern, std::uint64_t& partsLeft);

  ~KorRegex() override;

  const NSString& pattern() const noexcept { return *pattern_; }

  // Whether the pattern matches anywhere in the text. Raises `KorTemplateLimitException` when the search takes more
  // retries than `retries`, or longer than about half a second.
  bool matchesString(const NSString& subject) const { return matchesString(subject, KorTemplateLimits{}.regexRetries); }
  bool matchesString(const NSString& subject, std::uint64_t retries) const;

  // Where the match that begins exactly at `offset` of the text ends; absent where none does. Offsets are in bytes; the
  // text must be valid UTF-8. What stands before the offset is seen by look-behind.
  std::optional<std::size_t> matchEnd(std::string_view text, std::size_t offset) const;

  const char* className() const override { return "KorRegex"; }
  // The pattern between slashes.
  void describe(Description& out) const override;
  bool isEqual(const NSObject& other, std::int32_t depth = 0) const override;
  std::size_t hash() const override { return pattern_->hash(); }

 private:
  struct Free {
    void operator()(re_pattern_buffer* compiled) const;
  };
  using Compiled = std::unique_ptr<re_pattern_buffer, Free>;

  // A compiled pattern for one search: one that stays, or one of the search's own. Null for none.
  struct Borrowed {
    const re_pattern_buffer* pattern = nullptr;
    Compiled own = {};
  };

  KorRegex(Ref<NSString> pattern, const PatternShape& shape, std::uint64_t parts);

  std::uint64_t retriesForPlainSearch(std::size_t length, bool isASCII) const;
  // Of the text, that the engine may go through between two retries.
  std::size_t bytesOfRetry(std::string_view text) const noexcept { return shape_.goesThroughText ? text.size() : 1; }
  // The same between two looks at a search, with all of the pattern between them.
  std::size_t bytesBetweenLooks(std::string_view text) const noexcept {
    return shape_.goesThroughText ? text.size() : std::min<std::size_t>(text.size(), bytesOfPattern_);
  }
  bool matchesWatched(std::string_view text, std::uint64_t retries) const;
  bool matchesPlaceByPlace(std::string_view text, std::uint64_t retries) const;
  Borrowed watched() const;
  std::size_t bytesOfWatched() const noexcept;

  Ref<NSString> pattern_;
  PatternShape shape_;
  std::optional<LineStart> lineStart_;
  std::uint64_t parts_;                // see compileExpression()
  std::uint64_t retriesInShortTexts_;  // what a plain search of a short text may take
  std::uint64_t bytesOfPattern_;       // that the engine may go through between two retries
  Compiled compiled_;
  mutable std::atomic<re_pattern_buffer*> watched_{nullptr};  // the one that calls out, owned; null while none stays
};

// The pattern that a value holds; null for every other value.
const KorRegex* regexIn(const Value& value) noexcept;

// What the engine's "\w", "\d" and "\s" match.
bool isLongWordCharacter(char32_t character) noexcept;  // beyond ASCII
inline bool isWordCharacter(char32_t character) noexcept {
  if (character >= 0x80) return isLongWordCharacter(character);
  const char32_t lower = character | 0x20;
  return (lower >= 'a' && lower <= 'z') || (character >= '0' && character <= '9') || character == '_';
}
// The same for "[\w]", which the engine answers otherwise for a few characters ("²", "¼").
bool isWordCharacterInClass(char32_t character);
bool isDigitCharacter(char32_t character) noexcept;
bool isSpaceCharacter(char32_t character) noexcept;

}  // namespace tavlo
