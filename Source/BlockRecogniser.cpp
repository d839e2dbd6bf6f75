#include "Source/BlockRecogniser.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <array>
#include <bit>
#include <cstring>

#include "Foundation/Utf8.h"
#include "Source/KorTemplateParser.h"

namespace tavlo {

namespace {

using Parser = KorTemplateParser;

// What a token that begins with a byte may be.
enum class Start : std::uint8_t {
  Unknown,  // left to the rules
  Space,
  Word,
  Dollar,
  At,
  Digit,
  Sign,
  Quote,
  Question,
  Open,
  Close,
  Comma,
  Equals,
  Comparison,  // with or without "=" behind it
  Not,
  Pair,  // an operator where the byte stands twice
  Operator,
  Other,
};

using Starts = std::array<Start, 256>;

consteval Starts startsOfASCII() {
  Starts starts{};
  const auto set = [&starts](std::string_view bytes, Start start) {
    for (const char byte : bytes) starts[static_cast<unsigned char>(byte)] = start;
  };
  for (unsigned byte = 0; byte < 0x80; ++byte) starts[byte] = Start::Other;
  for (unsigned byte = 0; byte < 0x80; ++byte) {
    if (isWhiteSpace(byte)) starts[byte] = Start::Space;
  }
  set("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ_", Start::Word);
  set("0123456789", Start::Digit);
  set("+-", Start::Sign);
  set("*%", Start::Operator);
  set("<>", Start::Comparison);
  set("&|", Start::Pair);
  set("./", Start::Unknown);
  set("$", Start::Dollar);
  set("@", Start::At);
  set("\"'", Start::Quote);
  set("?", Start::Question);
  set("(", Start::Open);
  set(")", Start::Close);
  set(",", Start::Comma);
  set("=", Start::Equals);
  set("!", Start::Not);
  return starts;
}

constexpr Starts kStarts = startsOfASCII();

Start startOf(char byte) noexcept {
  return kStarts[static_cast<unsigned char>(byte)];
}

bool isASCIIWord(char byte) noexcept {
  return startOf(byte) == Start::Word || startOf(byte) == Start::Digit;
}

bool isASCIIByte(char byte) noexcept {
  return static_cast<unsigned char>(byte) < 0x80;
}

// A block's text, walked over once. A place beyond the end reads as a zero byte, which is part of no longer token.
class BlockText {
 public:
  BlockText(std::string_view text, TokenSink& tokens) noexcept : text_(text), tokens_(tokens) {}

  KorPartitionRule::Recognised recognise(std::uint32_t at) {
    for (;;) {
      while (at < size() && startOf(text_[at]) == Start::Space) ++at;
      if (at == size()) return {at, false};
      if (text_[at] == '?' && byteAt(at + 1) == '>') {
        tokens_.add(&Parser::BlockEndTag, at, at + 2);
        return {at + 2, true};
      }
      const std::uint32_t end = recogniseOne(at);
      if (end == at) return {at, false};
      at = end;
    }
  }

 private:
  std::uint32_t size() const noexcept { return static_cast<std::uint32_t>(text_.size()); }
  char byteAt(std::uint32_t at) const noexcept { return at < text_.size() ? text_[at] : '\0'; }

  // Adds the token at a place and answers with its end; with the place itself where the rules must be asked.
  std::uint32_t recogniseOne(std::uint32_t at) {
    switch (startOf(text_[at])) {
      case Start::Word:
        return word(at);
      case Start::Dollar:
        return variable(at);
      case Start::At:
        return byteAt(at + 1) == '@' ? intrinsicVariable(at) : one(Parser::Token, at);
      case Start::Digit:
        return number(at, at);
      case Start::Sign:
        return sign(at);
      case Start::Quote:
        return text_[at] == '"' ? quoted(Parser::StringLiteral, at) : quoted(Parser::CharLiteral, at);
      case Start::Open:
        return one(Parser::ParenthesisStart, at);
      case Start::Close:
        return one(Parser::ParenthesisEnd, at);
      case Start::Comma:
        return one(Parser::ArgumentSeparator, at);
      case Start::Operator:
        return one(Parser::BinaryOperator, at);
      case Start::Unknown:
        return at;
      case Start::Question:
      case Start::Other:
        return one(Parser::Token, at);
      default:
        return operatorAt(at);
    }
  }

  std::uint32_t add(const KorTokenClass& tokenClass, std::uint32_t at, std::uint32_t end) {
    tokens_.add(&tokenClass, at, end);
    return end;
  }
  std::uint32_t one(const KorTokenClass& tokenClass, std::uint32_t at) { return add(tokenClass, at, at + 1); }

  // The operators of which others are the beginning.
  std::uint32_t operatorAt(std::uint32_t at) {
    const char next = byteAt(at + 1);
    switch (startOf(text_[at])) {
      case Start::Equals:
        if (next == '=' || next == '~') return add(Parser::BinaryOperator, at, at + 2);
        return one(Parser::AssignmentOperator, at);
      case Start::Comparison:
        return add(Parser::BinaryOperator, at, at + (next == '=' ? 2 : 1));
      case Start::Not:
        return next == '=' ? add(Parser::BinaryOperator, at, at + 2) : one(Parser::Token, at);
      default:
        return next == text_[at] ? add(Parser::BinaryOperator, at, at + 2) : one(Parser::Token, at);
    }
  }

  std::uint32_t sign(std::uint32_t at) {
    const char next = byteAt(at + 1);
    if (startOf(next) == Start::Digit) return number(at, at + 1);
    return next == '.' || !isASCIIByte(next) ? at : one(Parser::BinaryOperator, at);
  }

  // Digits alone; a point, a letter or anything beyond ASCII behind them is left to the rules.
  std::uint32_t number(std::uint32_t at, std::uint32_t firstDigit) {
    std::uint32_t end = firstDigit;
    while (startOf(byteAt(end)) == Start::Digit) ++end;
    const char next = byteAt(end);
    const bool mayGoOn = next == '.' || startOf(next) == Start::Word || !isASCIIByte(next);
    return mayGoOn ? at : add(Parser::NonIntegralNumericLiteral, at, end);
  }

  // A literal that closes soon, without an escape before that.
  std::uint32_t quoted(const KorTokenClass& tokenClass, std::uint32_t at) {
    constexpr std::uint32_t kSoon = 256;
    const std::uint32_t limit = size() - at > kSoon ? at + kSoon : size();
    std::uint32_t end = at + 1;
    while (end < limit && text_[end] != text_[at] && text_[end] != '\n' && text_[end] != '\r' && text_[end] != '\\') {
      ++end;
    }
    if (end == limit || text_[end] != text_[at]) return at;
    tokens_.add(&tokenClass, at + 1, end);
    return end + 1;
  }

  std::uint32_t variable(std::uint32_t at) {
    const std::uint32_t end = endOfRun(at + 1, true);
    if (!isASCIIByte(byteAt(end))) return at;
    return end == at + 1 ? one(Parser::Token, at) : add(Parser::Variable, at, end);
  }

  std::uint32_t intrinsicVariable(std::uint32_t at) {
    const std::uint32_t end = endOfRun(at + 2, false);
    if (!isASCIIByte(byteAt(end))) return at;
    return end == at + 2 ? one(Parser::Token, at) : add(Parser::IntrinsicVariable, at, end);
  }

  // A keyword is one only where no word character stands before it.
  std::uint32_t word(std::uint32_t at) {
    const std::uint32_t end = endOfRun(at, false);
    const char before = byteAt(at - 1);
    if (!isASCIIByte(byteAt(end)) || !isASCIIByte(before)) return at;
    return add(isASCIIWord(before) ? Parser::Symbol : classOfWord(text_.substr(at, end - at)), at, end);
  }

  struct Keyword {
    std::string_view text;
    const KorTokenClass* tokenClass;
  };

  static const KorTokenClass& classOfWord(std::string_view word) noexcept {
    static constexpr Keyword kKeywords[] = {
        {"if", &Parser::ControlKeyword},       {"else", &Parser::ControlKeyword},
        {"endif", &Parser::ControlKeyword},    {"elseif", &Parser::ControlKeyword},
        {"foreach", &Parser::ControlKeyword},  {"endforeach", &Parser::ControlKeyword},
        {"return", &Parser::ControlKeyword},   {"true", &Parser::BooleanKeyword},
        {"false", &Parser::BooleanKeyword},    {"null", &Parser::NullKeyword},
        {"function", &Parser::ControlKeyword}, {"endfunction", &Parser::ControlKeyword},
    };
    for (const Keyword& keyword : kKeywords) {
      if (keyword.text.size() == word.size() && is(word, keyword.text)) return *keyword.tokenClass;
    }
    return Parser::Symbol;
  }

  // Whether the word is the keyword, of the same size, in whatever case.
  static bool is(std::string_view word, std::string_view keyword) noexcept {
    constexpr char kCaseBit = 'a' ^ 'A';  // which every other word character that becomes a letter with it has not
    for (std::size_t index = 0; index < keyword.size(); ++index) {
      if (static_cast<char>(word[index] | kCaseBit) != keyword[index]) return false;
    }
    return true;
  }

  // Where a run of word characters ends, and of the signs that variables may hold too.
  [[gnu::always_inline]] std::uint32_t endOfRun(std::uint32_t at, bool ofVariable) const noexcept {
#if defined(__SSE2__)
    while (text_.size() >= sizeof(__m128i) && at <= text_.size() - sizeof(__m128i)) {
      const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text_.data() + at));
      const auto isInRange = [](__m128i values, char first, char last) {
        const __m128i offset = _mm_sub_epi8(values, _mm_set1_epi8(first));
        return _mm_cmpeq_epi8(_mm_min_epu8(offset, _mm_set1_epi8(static_cast<char>(last - first))), offset);
      };
      const __m128i lowerCase = _mm_or_si128(bytes, _mm_set1_epi8('a' ^ 'A'));
      __m128i found = _mm_or_si128(isInRange(lowerCase, 'a', 'z'), isInRange(bytes, '0', '9'));
      found = _mm_or_si128(found, _mm_cmpeq_epi8(bytes, _mm_set1_epi8('_')));
      if (ofVariable) {
        found = _mm_or_si128(found, _mm_cmpeq_epi8(bytes, _mm_set1_epi8('.')));
        found = _mm_or_si128(found, _mm_cmpeq_epi8(bytes, _mm_set1_epi8('@')));
      }
      const auto others = ~static_cast<unsigned>(_mm_movemask_epi8(found)) & 0xFFFFU;
      if (others != 0) return at + static_cast<std::uint32_t>(std::countr_zero(others));
      at += sizeof(__m128i);
    }
#endif
    while (isASCIIWord(byteAt(at)) || (ofVariable && (byteAt(at) == '.' || byteAt(at) == '@'))) ++at;
    return at;
  }

  std::string_view text_;
  TokenSink& tokens_;
};

}  // namespace

KorPartitionRule::Recognised recogniseBlockTokens(std::string_view text, std::uint32_t at, TokenSink& tokens) {
  return BlockText(text, tokens).recognise(at);
}

}  // namespace tavlo
