#include "Tool/JSONReader.h"

#include <bit>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <utility>

#include "Foundation/ObjectArena.h"
#include "Foundation/StackGuard.h"
#include "Foundation/Utf8.h"
#include "Tool/JSONValueBuilder.h"

// The reader refuses some numbers by a guess at their size (0e400 among them); the builder knows better, so that error
// is not reported. The reader then counts exponents past the end of an int, which it does not use: this file is
// compiled with -fwrapv. A namespace of its own keeps this reader apart from everybody else's.
#define RAPIDJSON_NAMESPACE tavlo_rapidjson                    // NOLINT(cppcoreguidelines-macro-usage)
#define RAPIDJSON_NAMESPACE_BEGIN namespace tavlo_rapidjson {  // NOLINT(cppcoreguidelines-macro-usage)
#define RAPIDJSON_NAMESPACE_END }                              // NOLINT(cppcoreguidelines-macro-usage)
#define RAPIDJSON_PARSE_ERROR_NORETURN(code, offset)           /* NOLINT(cppcoreguidelines-macro-usage) */ \
  do {                                                                                                     \
    if ((code) != kParseErrorNumberTooBig) SetParseError(code, offset);                                    \
  } while (false)

#include <rapidjson/error/en.h>
#include <rapidjson/reader.h>

namespace tavlo {

namespace {

constexpr const char* kNotUTF8 = "The text is not valid UTF-8 here";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// The text that is read, the string in it that is being read, and what is refused beyond the reader's own refusals.
class Source {
 public:
  explicit Source(const std::string& text) noexcept : begin_(text.data()), end_(begin_ + text.size()) {}

  const char* begin() const noexcept { return begin_; }
  // A zero byte stands here.
  const char* end() const noexcept { return end_; }

  void beginString() noexcept { string_ = {}; }
  // Adds a stretch of the text. A string of one stretch stays a view of it.
  void addStretch(const char* from, const char* to) {
    const std::string_view stretch(from, static_cast<std::size_t>(to - from));
    if (string_.empty()) {
      string_ = stretch;
    } else {
      append([&](std::string& joined) { joined += stretch; });
    }
  }
  void addCharacter(char32_t character) {
    append([&](std::string& joined) { appendCodePoint(joined, character); });
  }
  std::string_view string() const noexcept { return string_; }

  // Always false, so that an event can return it.
  bool refuse(const char* at, const char* reason) noexcept {
    if (refusal_ == nullptr) {
      refusal_ = reason;
      refusedAt_ = at;
    }
    return false;
  }
  // Why and where the text was refused; null when it was not.
  const char* refusal() const noexcept { return refusal_; }
  std::size_t refusedAt() const noexcept { return static_cast<std::size_t>(refusedAt_ - begin_); }

 private:
  template <class Append>
  void append(const Append& append) {
    if (string_.data() != joined_.data()) joined_ = string_;
    append(joined_);
    string_ = joined_;
  }

  const char* begin_;
  const char* end_;
  std::string_view string_;
  std::string joined_;
  const char* refusal_ = nullptr;
  const char* refusedAt_ = nullptr;
};

// The reader's view of the source. It works on copies while it is inside a token, which share the source.
struct SourceStream {
  using Ch = char;

  char Peek() const noexcept { return *position; }
  char Take() noexcept { return *position++; }
  std::size_t Tell() const noexcept { return static_cast<std::size_t>(position - source->begin()); }
  // Strings are built in the source, so that these have nothing to hand on but single characters.
  char* PutBegin() noexcept {
    source->beginString();
    return nullptr;
  }
  void Put(char character) {
    if (character != '\0') source->addCharacter(static_cast<unsigned char>(character));  // the zero ends the string
  }
  std::size_t PutEnd(char* /*begin*/) const noexcept { return source->string().size() + 1; }

  const char* position;
  Source* source;
};

bool isASCII(char byte) noexcept {
  return static_cast<unsigned char>(byte) < 0x80;
}

// The first quote, backslash, control character or byte beyond ASCII at or after `at`; the zero byte behind a text is
// one.
const char* endOfPlain(const char* at, const char* end) noexcept {
  constexpr std::uint64_t kOnes = 0x0101010101010101U;
  constexpr std::uint64_t kHighBits = kOnes << 7;
  for (; end - at >= 8; at += 8) {
    std::uint64_t chunk = 0;
    std::memcpy(&chunk, at, sizeof chunk);
    const std::uint64_t quotes = chunk ^ (kOnes * '"');
    const std::uint64_t backslashes = chunk ^ (kOnes * '\\');
    // Subtracting borrows out of a byte that is below what is taken from it.
    const std::uint64_t hits = (quotes - kOnes) | (backslashes - kOnes) | (chunk - kOnes * ' ') | chunk;
    if ((hits & kHighBits) == 0) continue;
    if constexpr (std::endian::native != std::endian::little) break;
    return at + std::countr_zero(hits & kHighBits) / 8;  // the first hit is exact, those behind it need not be
  }
  while (isASCII(*at) && *at >= ' ' && *at != '"' && *at != '\\') ++at;
  return at;
}

// The length of the well-formed UTF-8 sequence of several bytes that starts at `at`; 0 when none does. The zero byte
// behind a text ends what is cut short.
std::size_t sequenceLength(const char* at) noexcept {
  const auto byteAt = [at](std::size_t index) { return static_cast<unsigned char>(at[index]); };
  const auto isWithin = [](unsigned char byte, unsigned low, unsigned high) { return byte >= low && byte <= high; };
  const unsigned char lead = byteAt(0);
  if (!isWithin(lead, 0xC2, 0xF4)) return 0;
  const unsigned low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;   // below: written longer than need be
  const unsigned high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;  // above: surrogates, beyond Unicode
  if (!isWithin(byteAt(1), low, high)) return 0;
  const std::size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
  for (std::size_t index = 2; index < length; ++index) {
    if (!isWithin(byteAt(index), 0x80, 0xBF)) return 0;
  }
  return length;
}

// UTF-8 that is taken by the stretch instead of by the character.
struct StretchedUTF8 : tavlo_rapidjson::UTF8<> {
  // The character of an escape. The reader has joined pairs of surrogates and refused a first one without its second; a
  // second one alone comes to here.
  static void Encode(SourceStream& out, unsigned character) {
    constexpr std::ptrdiff_t kEscapeLength = 6;
    if (character >= 0xD800 && character <= 0xDFFF) {
      out.source->refuse(out.position - kEscapeLength, "A surrogate stands alone in a string");
    } else {
      out.source->addCharacter(character);
    }
  }
  // For the reader's other mode, which does not run.
  template <class Out>
  static void Encode(Out& /*out*/, unsigned /*character*/) {}
  template <class Out>
  static bool Validate(SourceStream& in, Out& /*out*/) {
    const char* at = in.position;
    for (at = endOfPlain(at, in.source->end()); !isASCII(*at); at = endOfPlain(at, in.source->end())) {
      do {
        const std::size_t length = sequenceLength(at);
        if (length == 0) return in.source->refuse(at, kNotUTF8);
        at += length;
      } while (!isASCII(*at));
    }
    in.source->addStretch(in.position, at);
    in.position = at;
    return true;
  }
};

// Hands the reader's events to the builder. At each of them the stream stands at the start of a token with a text, and
// behind every other token.
class Events {
 public:
  Events(const SourceStream& stream, Source& source) noexcept : stream_(stream), source_(source) {}

  bool Null() { return add(Value::null()); }
  bool Bool(bool truth) { return add(truth); }
  bool Int(int) { return false; }  // all numbers come as text
  bool Uint(unsigned) { return false; }
  bool Int64(std::int64_t) { return false; }
  bool Uint64(std::uint64_t) { return false; }
  bool Double(double) { return false; }
  bool RawNumber(const char* /*text*/, std::size_t length, bool /*copy*/) {
    return builder_.addNumber({stream_.position, length}) ||
           source_.refuse(stream_.position, "A number is beyond the range of doubles");
  }
  bool String(const char* /*text*/, std::size_t /*length*/, bool /*copy*/) {
    builder_.addString(source_.string());
    return source_.refusal() == nullptr;
  }
  bool Key(const char* /*text*/, std::size_t /*length*/, bool /*copy*/) {
    builder_.addName(source_.string());
    return source_.refusal() == nullptr;
  }
  bool StartObject() { return begin(); }
  bool StartArray() { return begin(); }
  bool EndObject(std::size_t count) {
    builder_.endObject(count);
    return true;
  }
  bool EndArray(std::size_t count) {
    builder_.endArray(count);
    return true;
  }

  Value takeResult() { return builder_.takeResult(); }

 private:
  bool add(Value value) {
    builder_.add(std::move(value));
    return true;
  }
  bool begin() {
    checkStack();  // the reader recurses
    return builder_.begin() || source_.refuse(stream_.position - 1, "Arrays and objects are nested deeper than 1000");
  }

  const SourceStream& stream_;
  Source& source_;
  JSONValueBuilder builder_;
};

std::size_t startOf(const std::string& text) {
  return text.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0;
}

[[noreturn]] void refuseAt(const std::string& text, std::size_t offset, const std::string& reason) {
  const std::size_t start = startOf(text);
  TextPlace place = TextPlace::inText(std::string_view(text).substr(start), offset - start);
  place.offset += start;
  throw JSONError(reason, place);
}

// Why the reader refused what stands at `offset`, in words that fit what is there.
std::string reasonFor(const std::string& text, std::size_t offset, tavlo_rapidjson::ParseErrorCode code) {
  if (offset == text.size())
    return code == tavlo_rapidjson::kParseErrorDocumentEmpty ? "There is no value"
                                                             : "The text ends here, inside a value";
  if (text[offset] == '\0') return "A zero byte cannot stand here";
  if (!isASCII(text[offset]) && sequenceLength(text.data() + offset) == 0) return kNotUTF8;
  if (code == tavlo_rapidjson::kParseErrorStringEscapeInvalid && text[offset] != '\\') {
    return "A control character in a string must be written as an escape";
  }
  std::string reason = tavlo_rapidjson::GetParseError_En(code);
  if (reason.ends_with('.')) reason.pop_back();
  return reason;
}

}  // namespace

}  // namespace tavlo

// The reader may copy the stream into registers while it is inside a token.
template <>
struct tavlo_rapidjson::StreamTraits<tavlo::SourceStream> {
  enum { copyOptimization = 1 };
};

namespace tavlo {

Value readJSON(const std::string& text) {
  constexpr unsigned kFlags = tavlo_rapidjson::kParseInsituFlag | tavlo_rapidjson::kParseValidateEncodingFlag |
                              tavlo_rapidjson::kParseNumbersAsStringsFlag;
  ObjectArena arena;
  const ObjectArena::Scope scope(arena);  // data is mostly small objects, and ends as a whole
  Source source(text);
  SourceStream stream{source.begin() + startOf(text), &source};
  Events events(stream, source);
  tavlo_rapidjson::GenericReader<StretchedUTF8, StretchedUTF8> reader;
  const tavlo_rapidjson::ParseResult result = reader.Parse<kFlags>(stream, events);
  if (source.refusal() != nullptr) refuseAt(text, source.refusedAt(), source.refusal());
  if (result.IsError()) refuseAt(text, result.Offset(), reasonFor(text, result.Offset(), result.Code()));
  if (stream.position != source.end()) refuseAt(text, stream.Tell(), "A zero byte cannot stand here");
  return events.takeResult();
}

Ref<NSDictionary> readJSONObject(const std::string& text) {
  const Value value = readJSON(text);
  Ref<NSDictionary> object = value.ref<NSDictionary>();
  if (object == nullptr)
    refuseAt(text, text.find_first_not_of(" \t\r\n", startOf(text)), "The top level is not an object");
  return object;
}

}  // namespace tavlo
