#include "Source/TokenRecognisers.h"

#include <array>

#include "Foundation/Utf8.h"
#include "Matchery/KorRegex.h"

namespace tavlo::recognisers {

namespace {

constexpr bool isASCIIDigit(char byte) noexcept {
  return byte >= '0' && byte <= '9';
}

using Bytes = std::array<bool, 256>;

// The word characters of ASCII, and what is `also` wanted of it.
consteval Bytes wordsOfASCII(std::string_view also) {
  Bytes words{};
  for (std::size_t letter = 0; letter < 128; ++letter) {
    const char byte = static_cast<char>(letter);
    words[letter] = isASCIIDigit(byte) || (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || byte == '_';
  }
  for (const char byte : also) words[static_cast<unsigned char>(byte)] = true;
  return words;
}

constexpr Bytes kASCIIWords = wordsOfASCII("");
constexpr Bytes kVariableBytes = wordsOfASCII(".@");

// Where a run of those bytes ends that begins at `at`.
std::uint32_t skipBytes(const Bytes& bytes, std::string_view text, std::uint32_t at) noexcept {
  while (at < text.size() && bytes[static_cast<unsigned char>(text[at])]) ++at;
  return at;
}

constexpr bool isASCII(char byte) noexcept {
  return static_cast<unsigned char>(byte) < 0x80;
}

char byteAt(std::string_view text, std::uint32_t at) noexcept {
  return at < text.size() ? text[at] : '\0';
}

// The bytes of the word character at a place; 0 where none stands.
std::uint32_t wordLength(std::string_view text, std::uint32_t at) noexcept {
  if (at >= text.size()) return 0;
  if (isASCII(text[at])) return kASCIIWords[static_cast<unsigned char>(text[at])] ? 1 : 0;
  const CodePoint next = codePointAt(text, at);
  return isWordCharacter(next.value) ? next.byteLength : 0;
}

// The same for "[\w]".
std::uint32_t classWordLength(std::string_view text, std::uint32_t at) {
  if (at >= text.size() || isASCII(text[at])) return wordLength(text, at);
  const CodePoint next = codePointAt(text, at);
  return isWordCharacterInClass(next.value) ? next.byteLength : 0;
}

std::uint32_t digitLength(std::string_view text, std::uint32_t at) noexcept {
  if (at >= text.size()) return 0;
  if (isASCII(text[at])) return isASCIIDigit(text[at]) ? 1 : 0;
  const CodePoint next = codePointAt(text, at);
  return isDigitCharacter(next.value) ? next.byteLength : 0;
}

// "[\da-fA-F]"
std::uint32_t hexadecimalLength(std::string_view text, std::uint32_t at) noexcept {
  const char byte = byteAt(text, at);
  const bool isLetter = (byte >= 'a' && byte <= 'f') || (byte >= 'A' && byte <= 'F');
  return isLetter ? 1 : digitLength(text, at);
}

// A run of characters: where it ends, and how many there are.
struct Run {
  std::uint32_t end;
  std::uint32_t count;
};

Run digits(std::string_view text, std::uint32_t at) noexcept {
  Run run{at, 0};
  while (const std::uint32_t length = digitLength(text, run.end)) {
    run.end += length;
    ++run.count;
  }
  return run;
}

bool isWordAt(std::string_view text, std::uint32_t at) noexcept {
  return wordLength(text, at) != 0;
}

// "([eE]\d+)?"
std::uint32_t exponent(std::string_view text, std::uint32_t at) noexcept {
  const char mark = byteAt(text, at);
  if (mark != 'e' && mark != 'E') return at;
  const Run run = digits(text, at + 1);
  return run.count == 0 ? at : run.end;
}

std::uint32_t sign(std::string_view text, std::uint32_t at) noexcept {
  const char byte = byteAt(text, at);
  return byte == '+' || byte == '-' ? at + 1 : at;
}

bool startsWith(std::string_view text, std::uint32_t at, std::string_view prefix) noexcept {
  return text.substr(at).starts_with(prefix);
}

// The look-ahead of a regex literal: "\s*(&&|\|\||==|!=|>|>=|<|<=|\)|,|$|\z|\?>)". White space that holds a line feed
// is followed, somewhere in it, by the end of a line.
bool endsRegexLiteral(std::string_view text, std::uint32_t at) noexcept {
  for (CodePoint next = codePointAt(text, at); next.byteLength != 0 && isWhiteSpace(next.value);
       next = codePointAt(text, at)) {
    if (next.value == '\n') return true;
    at += next.byteLength;
  }
  if (at == text.size()) return true;
  switch (text[at]) {
    case '>':
    case '<':
    case ')':
    case ',':
      return true;
    case '&':
      return byteAt(text, at + 1) == '&';
    case '|':
      return byteAt(text, at + 1) == '|';
    case '=':
    case '!':
      return byteAt(text, at + 1) == '=';
    case '?':
      return byteAt(text, at + 1) == '>';
    default:
      return false;
  }
}

}  // namespace

std::uint32_t blockStart(std::string_view text, std::uint32_t at, SearchMemo& /*memo*/) {
  return startsWith(text, at, "<?") ? at + 2 : at;
}

std::uint32_t blockEnd(std::string_view text, std::uint32_t at, SearchMemo& /*memo*/) {
  return startsWith(text, at, "?>") ? at + 2 : at;
}

// The slash that closes a literal is the first one behind its opening, on the same line, that no backslash precedes and
// that the look-ahead accepts: it is the same for every opening before it, and where a line has none, for every opening
// on the line.
std::uint32_t regexLiteral(std::string_view text, std::uint32_t at, SearchMemo& memo) {
  if (byteAt(text, at) != '/') return at;
  const std::uint32_t from = at + 1;
  if (!memo.covers(from)) {
    std::uint32_t close = from;
    memo.answer = SearchMemo::kNone;
    for (; close < text.size() && text[close] != '\n'; ++close) {
      if (text[close] != '/' || text[close - 1] == '\\' || !endsRegexLiteral(text, close + 1)) continue;
      memo.answer = close;
      break;
    }
    memo.from = from;
    memo.to = close;
  }
  return memo.answer == SearchMemo::kNone ? at : memo.answer + 1;
}

// What the two alternatives of the pattern come to once their backtracking is followed to its end. A boundary behind a
// digit stands where no word character follows, and behind a point where one does.
std::uint32_t nonIntegralNumber(std::string_view text, std::uint32_t at, SearchMemo& /*memo*/) {
  const Run whole = digits(text, sign(text, at));
  if (byteAt(text, whole.end) == '.') {
    const Run fraction = digits(text, whole.end + 1);
    if (fraction.count != 0) {
      const std::uint32_t end = exponent(text, fraction.end);
      if (!isWordAt(text, end)) return end;
    }
    if (whole.count == 0) return at;
    return isWordAt(text, whole.end + 1) ? whole.end + 1 : whole.end;
  }
  if (whole.count == 0) return at;
  if (!isWordAt(text, whole.end)) return whole.end;
  // The exponent belongs to digits of its own, so it needs two of them before it.
  const std::uint32_t end = exponent(text, whole.end);
  return whole.count >= 2 && end != whole.end && !isWordAt(text, end) ? end : at;
}

std::uint32_t integralNumber(std::string_view text, std::uint32_t at, SearchMemo& /*memo*/) {
  if (startsWith(text, at, "0x")) {
    std::uint32_t end = at + 2;
    while (const std::uint32_t length = hexadecimalLength(text, end)) end += length;
    if (end > at + 2 && !isWordAt(text, end)) return end;
  }
  const Run run = digits(text, sign(text, at));
  return run.count != 0 && !isWordAt(text, run.end) ? run.end : at;
}

std::uint32_t variable(std::string_view text, std::uint32_t at, SearchMemo& /*memo*/) {
  if (byteAt(text, at) != '$') return at;
  std::uint32_t end = at + 1;
  for (;;) {
    end = skipBytes(kVariableBytes, text, end);
    const std::uint32_t length = classWordLength(text, end);  // of a character beyond ASCII
    if (length == 0) break;
    end += length;
  }
  return end == at + 1 ? at : end;
}

std::uint32_t intrinsicVariable(std::string_view text, std::uint32_t at, SearchMemo& /*memo*/) {
  if (!startsWith(text, at, "@@")) return at;
  std::uint32_t end = at + 2;
  while (const std::uint32_t length = classWordLength(text, end)) end += length;
  return end == at + 2 ? at : end;
}

std::uint32_t word(std::string_view text, std::uint32_t at, SearchMemo& /*memo*/) {
  std::uint32_t end = skipBytes(kASCIIWords, text, at);
  while (const std::uint32_t length = wordLength(text, end)) end = skipBytes(kASCIIWords, text, end + length);
  return end;
}

std::uint32_t oneCharacter(std::string_view /*text*/, std::uint32_t at, SearchMemo& /*memo*/) {
  return at + 1;
}

FirstBytes startingWith(std::string_view ascii, bool orBeyondASCII) {
  FirstBytes bytes;
  for (const char byte : ascii) bytes.set(static_cast<unsigned char>(byte));
  for (std::size_t byte = 0x80; orBeyondASCII && byte < bytes.size(); ++byte) bytes.set(byte);
  return bytes;
}

FirstBytes startingWithWord() {
  FirstBytes bytes = startingWith("", true);
  for (std::size_t letter = 0; letter < 128; ++letter) bytes.set(letter, kASCIIWords[letter]);
  return bytes;
}

}  // namespace tavlo::recognisers
