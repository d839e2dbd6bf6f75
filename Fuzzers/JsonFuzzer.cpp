// A namespace of its own keeps this reader apart from those of the program, which are watched more closely.
#define RAPIDJSON_NAMESPACE plain_rapidjson
#define RAPIDJSON_NAMESPACE_BEGIN namespace plain_rapidjson {
#define RAPIDJSON_NAMESPACE_END }

#include <rapidjson/document.h>
#include <rapidjson/memorystream.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>

#include "Foundation/NSArray.h"
#include "Foundation/NSDictionary.h"
#include "Foundation/Utf8.h"
#include "Fuzzers/Checks.h"
#include "Tool/JSONError.h"
#include "Tool/JSONReader.h"

// Any bytes as JSON: what the program reads, beside a reader that keeps to the books, and read again after it is
// written.

namespace tavlo::fuzz {

namespace {

using Plain = plain_rapidjson::Value;

// Numbers beyond the doubles, lone surrogates, zero bytes and deep nesting are refused by one of the two alone.
constexpr std::array<std::string_view, 4> kOwnRefusals = {
    "A number is beyond the range of doubles", "A surrogate stands alone in a string",
    "Arrays and objects are nested deeper than 1000", "A zero byte cannot stand here"};

void requireSame(const Value& value, const Plain& plain);

void requireSameNumber(const Value& value, const Plain& plain) {
  require(value.isNumber() && !value.isBoolean(), "A number is read as a number");
  if (plain.IsInt64()) {
    require(value.kind() == ValueKind::Signed && value.integerValue() == plain.GetInt64(),
            "An integer is read exactly");
  } else if (plain.IsUint64()) {
    require(value.kind() == ValueKind::Unsigned && value.isEqual(plain.GetUint64()), "A large integer is read exactly");
  } else {
    // The other reader rounds a little wrongly, and its exact mode makes anything of some very small numbers.
    const double expected = plain.GetDouble();
    const double difference = std::abs(value.doubleValue() - expected);
    require(value.isDouble(), "A number that is no integer is read as a double");
    require(difference <= std::max(std::abs(expected) * 1e-14, 1e-307), "A double is read");
  }
}

void requireSameArray(const Value& value, const Plain& plain) {
  const auto* const array = value.as<NSArray>();
  require(array != nullptr && array->elements().size() == plain.Size(), "An array is read as one");
  for (plain_rapidjson::SizeType index = 0; index < plain.Size(); ++index)
    requireSame(array->elements()[index], plain[index]);
}

void requireSameObject(const Value& value, const Plain& plain) {
  const auto* const dictionary = value.as<NSDictionary>();
  require(dictionary != nullptr && dictionary->count() <= plain.MemberCount(), "An object is read as a dictionary");
  for (auto member = plain.MemberBegin(); member != plain.MemberEnd(); ++member) {
    const std::string_view name(member->name.GetString(), member->name.GetStringLength());
    const Value* const found = dictionary->find(name);
    require(found != nullptr, "Each member is an entry");
    bool isLast = true;
    for (auto later = member + 1; later != plain.MemberEnd() && isLast; ++later) isLast = later->name != member->name;
    if (isLast) requireSame(*found, member->value);
  }
}

void requireSame(const Value& value, const Plain& plain) {
  if (plain.IsNull()) return require(value.isNull(), "Null is read as null");
  if (plain.IsBool())
    return require(value.isBoolean() && value.boolValue() == plain.GetBool(), "A truth is read as one");
  if (plain.IsNumber()) return requireSameNumber(value, plain);
  if (plain.IsArray()) return requireSameArray(value, plain);
  if (plain.IsObject()) return requireSameObject(value, plain);
  require(value.isString(), "A string is read as a string");
  requireEqual(value.string()->view(), {plain.GetString(), plain.GetStringLength()}, "A string is read exactly");
}

// A string as JSON, with every character escaped, so that another way through the reader is taken.
void writeString(std::string& out, std::string_view text) {
  out += '"';
  for (std::size_t at = 0; at < text.size();) {
    const CodePoint character = codePointAt(text, at);
    std::array<char, 16> escape{};
    const bool isPair = character.value >= 0x10000;
    const auto first = static_cast<unsigned>(isPair ? 0xD800 + ((character.value - 0x10000) >> 10) : character.value);
    out.append(escape.data(), std::snprintf(escape.data(), escape.size(), "\\u%04X", first));
    const auto second = static_cast<unsigned>(0xDC00 + ((character.value - 0x10000) & 0x3FF));
    if (isPair) out.append(escape.data(), std::snprintf(escape.data(), escape.size(), "\\u%04x", second));
    at += character.byteLength;
  }
  out += '"';
}

// The whole doubles keep a point, since they would be integers without.
void write(std::string& out, const Value& value) {
  if (const auto* array = value.as<NSArray>()) {
    out += "[ ";
    for (const Value& element : array->elements()) {
      if (out.back() != ' ') out += " ,\n";
      write(out, element);
    }
    out += "]";
  } else if (const auto* dictionary = value.as<NSDictionary>()) {
    out += "{ ";
    for (const NSDictionary::Entry& entry : dictionary->entries()) {
      if (out.back() != ' ') out += " ,\t";
      writeString(out, entry.key->view());
      out += ":";
      write(out, entry.value);
    }
    out += "}";
  } else if (value.isString()) {
    writeString(out, value.string()->view());
  } else if (value.isNull()) {
    out += "null";
  } else if (value.isBoolean()) {
    out += value.boolValue() ? "true" : "false";
  } else {
    const std::string digits = value.description();
    const bool needsPoint = value.isDouble() && digits.find_first_of(".e") == std::string::npos;
    out += needsPoint ? digits + ".0" : digits;
  }
}

struct Reading {
  std::optional<Value> value;
  std::string refusal;
};

Reading read(const std::string& text) {
  try {
    return {readJSON(text), ""};
  } catch (const JSONError& error) {
    const TextPlace& place = error.place();
    require(place.offset <= text.size() && place.line >= 1 && place.column >= 1, "An error stands within the text");
    return {{}, error.what()};
  }
}

void run(const std::string& text) {
  const Reading reading = read(text);
  plain_rapidjson::Document plain;
  const std::string_view withoutMark = text.starts_with("\xEF\xBB\xBF") ? std::string_view(text).substr(3) : text;
  plain_rapidjson::MemoryStream stream(withoutMark.data(), withoutMark.size());
  plain.ParseStream<plain_rapidjson::kParseValidateEncodingFlag | plain_rapidjson::kParseIterativeFlag>(stream);
  if (!reading.value.has_value()) {
    bool isOwn = false;
    for (const std::string_view refusal : kOwnRefusals) isOwn |= reading.refusal == refusal;
    require(plain.HasParseError() || isOwn, "What is JSON is read: " + reading.refusal);
    return;
  }
  const bool isTooBig = plain.GetParseError() == plain_rapidjson::kParseErrorNumberTooBig;
  require(!plain.HasParseError() || isTooBig, "What is no JSON is refused");
  if (!isTooBig) requireSame(*reading.value, plain);
  if (reading.value->isDouble()) {
    const double expected = std::strtod(std::string(withoutMark).c_str(), nullptr);
    require(reading.value->doubleValue() == expected, "A double is read exactly");
  }

  std::string written;
  write(written, *reading.value);
  const Reading again = read(written);
  require(again.value.has_value(), "What is written is read: " + again.refusal);
  require(again.value->isEqual(*reading.value), "What is read again is equal");
  std::string rewritten;
  write(rewritten, *again.value);
  requireEqual(rewritten, written, "What is read again is written alike");
}

}  // namespace

}  // namespace tavlo::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tavlo::fuzz::run(std::string(reinterpret_cast<const char*>(data), size));
  return 0;
}
