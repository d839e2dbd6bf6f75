#include "Tool/JSONReader.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <limits>
#include <optional>
#include <utility>
#include <vector>

#include "Foundation/NSArray.h"
#include "Foundation/NSNumber.h"
#include "Foundation/NSString.h"
#include "Foundation/Utf8.h"

// The reader refuses some numbers by a guess at their size (0e400 among them); the handler knows better, so that error is
// not reported where the reader would.
#define RAPIDJSON_PARSE_ERROR_NORETURN(code, offset) /* NOLINT(cppcoreguidelines-macro-usage): the library's own hook */ \
  do {                                                                                                                  \
    if ((code) != kParseErrorNumberTooBig) SetParseError(code, offset);                                                 \
  } while (false)

#include <rapidjson/error/en.h>
#include <rapidjson/reader.h>

namespace tavlo {

namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// Builds values from the reader's events: finished values lie on a stack until what holds them ends.
class ValueBuilder {
 public:
  static constexpr std::size_t kDeepest = 1000;

  bool Null() { return add(Value::null()); }
  bool Bool(bool truth) { return add(truth); }
  bool Int(int) { return false; }  // all numbers come as text
  bool Uint(unsigned) { return false; }
  bool Int64(std::int64_t) { return false; }
  bool Uint64(std::uint64_t) { return false; }
  bool Double(double) { return false; }
  bool RawNumber(const char* text, rapidjson::SizeType length, bool /*copy*/) { return addNumber({text, length}); }
  bool String(const char* text, rapidjson::SizeType length, bool /*copy*/) {
    if (!isValid({text, length})) return false;
    return add(NSString::stringWithValidUTF8({text, length}));
  }
  bool StartObject() { return begin(); }
  bool Key(const char* text, rapidjson::SizeType length, bool /*copy*/) {
    if (!isValid({text, length})) return false;
    return add(knownKey({text, length}));
  }
  bool EndObject(rapidjson::SizeType count);
  bool StartArray() { return begin(); }
  bool EndArray(rapidjson::SizeType count);

  Value takeResult() { return std::move(values_.back()); }
  // Why an event was refused; absent when none was.
  const char* refusal() const noexcept { return refusal_; }

 private:
  bool add(Value value) {
    values_.push_back(std::move(value));
    return true;
  }
  bool refuse(const char* reason) {
    refusal_ = reason;
    return false;
  }
  bool begin() {
    if (depth_ == kDeepest) return refuse("It is nested deeper than 1000 levels.");
    ++depth_;
    return true;
  }
  bool addNumber(std::string_view text);
  bool isValid(std::string_view text);
  Ref<NSString> knownKey(std::string_view text);

  std::vector<Value> values_;
  std::size_t depth_ = 0;
  const char* refusal_ = nullptr;
  std::array<Ref<NSString>, 256> knownKeys_;  // the latest of each hash: files repeat their keys
};

// The text itself is valid UTF-8, so a surrogate can only come from an escape that stands alone; the reader refuses a
// high one itself.
bool ValueBuilder::isValid(std::string_view text) {
  constexpr char kLead = '\xED';
  for (std::size_t at = text.find(kLead); at != std::string_view::npos; at = text.find(kLead, at + 1)) {
    if (static_cast<unsigned char>(text[at + 1]) >= 0xA0) return refuse("A surrogate stands alone in a string.");
  }
  return true;
}

bool ValueBuilder::addNumber(std::string_view text) {
  const char* const end = text.data() + text.size();
  if (text.find_first_of(".eE") == std::string_view::npos) {
    std::int64_t number = 0;
    if (std::from_chars(text.data(), end, number).ec == std::errc()) return add(number);
    std::uint64_t large = 0;
    const std::from_chars_result result = std::from_chars(text.data(), end, large);
    if (result.ec == std::errc() && result.ptr == end) return add(large);
  }
  const double number = textAsDouble(text);
  if (std::abs(number) > std::numeric_limits<double>::max()) return refuse("A number is beyond the range of doubles.");
  return add(number);
}

Ref<NSString> ValueBuilder::knownKey(std::string_view text) {
  Ref<NSString>& known = knownKeys_[NSString::hashOf(text) % knownKeys_.size()];
  if (known == nullptr || known->view() != text) known = NSString::stringWithValidUTF8(text);
  return known;
}

bool ValueBuilder::EndObject(rapidjson::SizeType count) {
  Ref<NSMutableDictionary> dictionary = NSMutableDictionary::dictionary();
  const std::size_t first = values_.size() - std::size_t{count} * 2;
  dictionary->reserve(count);
  for (std::size_t at = first; at < values_.size(); at += 2) {
    dictionary->setObjectForKey(std::move(values_[at + 1]), values_[at].ref<NSString>());
  }
  values_.resize(first);
  --depth_;
  return add(std::move(dictionary));
}

bool ValueBuilder::EndArray(rapidjson::SizeType count) {
  const auto first = values_.end() - static_cast<std::ptrdiff_t>(count);
  std::vector<Value> elements(std::make_move_iterator(first), std::make_move_iterator(values_.end()));
  values_.erase(first, values_.end());
  --depth_;
  return add(makeRef<NSMutableArray>(std::move(elements)));
}

[[noreturn]] void refuseAt(std::string_view text, std::size_t offset, const std::string& reason) {
  throw JSONError(reason, placeInText(text, offset));
}

}  // namespace

TextPlace placeInText(std::string_view text, std::size_t offset) {
  offset = std::min(offset, text.size());
  TextPlace place{1, 1, offset};
  for (std::size_t at = 0; at < offset; ++at) {
    const auto byte = static_cast<unsigned char>(text[at]);
    const bool isBreak = byte == '\r' || byte == '\n';
    if (byte == '\r' && at + 1 < text.size() && text[at + 1] == '\n') continue;  // the "\n" is the break
    if (isBreak) {
      ++place.line;
      place.column = 1;
    } else if ((byte & 0xC0) != 0x80) {
      ++place.column;
    }
  }
  return place;
}

Value readJSON(std::string_view text) {
  if (text.starts_with(kByteOrderMark)) {
    // Its place counts, but it is no character of the first line.
    try {
      return readJSON(text.substr(kByteOrderMark.size()));
    } catch (const JSONError& error) {
      TextPlace place = error.place();
      place.offset += kByteOrderMark.size();
      throw JSONError(error.what(), place);
    }
  }
  if (const std::optional<std::size_t> invalid = firstInvalidByte(text)) refuseAt(text, *invalid, "It is not UTF-8.");
  if (const std::size_t zero = text.find('\0'); zero != std::string_view::npos) {
    refuseAt(text, zero, "A zero byte cannot stand here.");
  }
  std::string working(text);  // strings are decoded in place, and places are told from the text as it was
  rapidjson::InsituStringStream stream(working.data());
  rapidjson::Reader reader;
  ValueBuilder builder;
  const rapidjson::ParseResult result =
      reader.Parse<rapidjson::kParseInsituFlag | rapidjson::kParseNumbersAsStringsFlag>(stream, builder);
  if (builder.refusal() != nullptr) refuseAt(text, result.Offset(), builder.refusal());
  if (result.IsError()) refuseAt(text, result.Offset(), rapidjson::GetParseError_En(result.Code()));
  return builder.takeResult();
}

Ref<NSDictionary> readJSONObject(std::string_view text) {
  const Value value = readJSON(text);
  Ref<NSDictionary> object = value.ref<NSDictionary>();
  if (object == nullptr) {
    const std::size_t start = text.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0;
    refuseAt(text, text.find_first_not_of(" \t\r\n", start), "The top level is not an object.");
  }
  return object;
}

}  // namespace tavlo
