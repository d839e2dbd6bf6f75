#include "Foundation/NSString.h"

#include <utf8proc.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>

#include "Foundation/Description.h"
#include "Foundation/HashSeed.h"
#include "Foundation/KorTemplateLimits.h"
#include "Foundation/NSException.h"
#include "Foundation/NSNumber.h"
#include "Foundation/ObjectArena.h"
#include "Foundation/Utf8.h"
#include "Foundation/WorkMeter.h"

namespace tavlo {

NSString::NSString(std::size_t byteLength, std::size_t length, std::size_t capacity, Counting counting) noexcept
    : NSObject(ObjectKind::String, counting),
      byteLength_(static_cast<std::uint32_t>(byteLength)),
      length_(static_cast<std::uint32_t>(length)),
      capacity_(static_cast<std::uint32_t>(capacity)) {}

// A string whose memory is that of an arena: it differs in how it is freed alone.
class NSString::InArena final : public NSString {
 public:
  using NSString::NSString;

  static void* operator new(std::size_t size, std::size_t extra) {
    return ObjectArena::allocate(size + roomFor(extra));
  }
  static void operator delete(void* memory, std::size_t /*extra*/) noexcept { ObjectArena::free(memory); }
  static void operator delete(void* memory) noexcept { ObjectArena::free(memory); }
};

void NSString::requireLength(std::size_t byteLength) {
  if (byteLength > kMaximumByteLength) throw std::length_error("a text is longer than 2147483647 bytes");
}

Ref<NSString> NSString::uninitialized(std::size_t byteLength, std::size_t length, std::size_t capacity) {
  requireLength(byteLength);
  capacity = std::min(std::max(capacity, byteLength), kMaximumByteLength);
  Ref<NSString> string =
      Ref<NSString>::adopt(new (capacity + 1) NSString(byteLength, length, capacity, Counting::Plain));
  string->mutableCharacters()[byteLength] = '\0';
  return string;
}

Ref<NSString> NSString::uninitializedInArena(std::size_t byteLength, std::size_t length, Counting counting) {
  requireLength(byteLength);
  Ref<NSString> string = Ref<NSString>::adopt(new (byteLength + 1) InArena(byteLength, length, byteLength, counting));
  string->mutableCharacters()[byteLength] = '\0';
  return string;
}

Ref<NSString> NSString::stringWithUTF8(std::string_view text) {
  if (endOfASCII(text, 0) != text.size()) {
    requireValidUTF8(text);
    return stringWithValidUTF8(text);
  }
  Ref<NSString> string = uninitialized(text.size(), text.size(), text.size());
  text.copy(string->mutableCharacters(), text.size());
  return string;
}

Ref<NSString> NSString::stringWithValidUTF8(std::string_view text) {
  return stringWithValidUTF8(text, Counting::Plain);
}

Ref<NSString> NSString::stringWithValidUTF8(std::string_view text, Counting counting) {
  const bool isAtomic = counting == Counting::Atomic;
  const std::size_t length = utf16Length(text);
  Ref<NSString> string =
      isAtomic ? uninitializedInArena(text.size(), length, counting) : uninitialized(text.size(), length, text.size());
  text.copy(string->mutableCharacters(), text.size());
  return string;
}

Ref<NSString> NSString::stringInArena(std::string_view text) {
  Ref<NSString> string = uninitializedInArena(text.size(), utf16Length(text), Counting::Plain);
  text.copy(string->mutableCharacters(), text.size());
  return string;
}

Ref<NSString> NSString::substring(std::size_t byteOffset, std::size_t byteLength) const {
  const std::string_view text = view().substr(byteOffset, byteLength);
  Ref<NSString> string =
      uninitializedInArena(text.size(), isASCII() ? text.size() : utf16Length(text), Counting::Atomic);
  text.copy(string->mutableCharacters(), text.size());
  return string;
}

Ref<NSString> NSString::stringWithUTF16(std::u16string_view text) {
  std::string utf8;
  for (std::size_t index = 0; index < text.size(); ++index) {
    char32_t character = text[index];
    if (character >= 0xD800 && character < 0xE000) {
      const bool paired =
          character < 0xDC00 && index + 1 < text.size() && text[index + 1] >= 0xDC00 && text[index + 1] < 0xE000;
      if (!paired) NSException::raise(NSInvalidArgumentException, "Text has a lone surrogate at unit %d", index);
      character = 0x10000 + ((character - 0xD800) << 10) + (text[++index] - char32_t{0xDC00});
    }
    appendCodePoint(utf8, character);
  }
  return stringWithValidUTF8(utf8);
}

Ref<NSString> NSString::stringByJoining(CountedText left, CountedText right) {
  constexpr std::size_t kLeastCapacity = 55;  // what is joined once is often joined again
  const std::size_t size = left.text.size() + right.text.size();
  Ref<NSString> string = uninitialized(size, left.length + right.length, std::max(size + size / 2, kLeastCapacity));
  left.text.copy(string->mutableCharacters(), left.text.size());
  right.text.copy(string->mutableCharacters() + left.text.size(), right.text.size());
  return string;
}

Ref<NSString> NSString::appended(Ref<NSString> left, CountedText right) {
  const std::size_t size = std::size_t{left->byteLength_} + right.text.size();
  if (size > left->capacity_) return stringByJoining({left->view(), left->length_}, right);
  char* end = left->mutableCharacters() + left->byteLength_;
  right.text.copy(end, right.text.size());
  end[right.text.size()] = '\0';
  left->byteLength_ = static_cast<std::uint32_t>(size);
  left->length_ += static_cast<std::uint32_t>(right.length);
  left->hash_.store(0, std::memory_order_relaxed);
  return left;
}

Ref<NSString> NSString::trimmed(Ref<NSString> string) {
  constexpr std::uint32_t kWorthACopy = 64;
  if (string->capacity_ - string->byteLength_ < kWorthACopy) return string;
  Ref<NSString> copy = uninitialized(string->byteLength_, string->length_, string->byteLength_);
  std::memcpy(copy->mutableCharacters(), string->characters(), string->byteLength_);
  return copy;
}

void NSString::describe(Description& out) const {
  out.part(view());
}

bool NSString::isEqual(const NSObject& other, std::int32_t /*depth*/) const {
  if (other.kind() != ObjectKind::String) return false;
  const std::string_view text = static_cast<const NSString&>(other).view();
  if (text.size() == byteLength_) countWorkOnText(text.size());
  return text == view();
}

std::uint32_t NSString::hashOf(std::string_view text) noexcept {
  const auto hash = static_cast<std::uint32_t>(HashSeed::ofProcess().hashOfText(text));
  return hash == 0 ? 1 : hash;
}

std::uint32_t NSString::computeHash() const noexcept {
  const std::uint32_t hash = hashOf(view());
  hash_.store(hash, std::memory_order_relaxed);
  return hash;
}

// The order of UTF-8's bytes is the order of its code points.
std::optional<bool> NSString::isLessThan(const Value& other) const {
  const NSString* text = other.string();
  if (text == nullptr) return {};
  countWorkOnText(std::min(text->byteLength_, byteLength_));
  return view() < text->view();
}

std::optional<bool> NSString::isGreaterThan(const Value& other) const {
  const NSString* text = other.string();
  if (text == nullptr) return {};
  countWorkOnText(std::min(text->byteLength_, byteLength_));
  return view() > text->view();
}

namespace {

// Unicode's simple mappings: one character to one.
char32_t uppercase(char32_t character) {
  constexpr char32_t kSharpS = 0xDF;  // its capital form is no simple mapping, though the library gives it as one
  return character == kSharpS ? character
                              : static_cast<char32_t>(utf8proc_toupper(static_cast<utf8proc_int32_t>(character)));
}

char32_t titlecase(char32_t character) {
  constexpr char32_t kSharpS = 0xDF;
  return character == kSharpS ? character
                              : static_cast<char32_t>(utf8proc_totitle(static_cast<utf8proc_int32_t>(character)));
}

char32_t lowercase(char32_t character) {
  return static_cast<char32_t>(utf8proc_tolower(static_cast<utf8proc_int32_t>(character)));
}

// Letters, marks and digits: what a word goes on with.
bool continuesWord(char32_t character) {
  const utf8proc_category_t category = utf8proc_category(static_cast<utf8proc_int32_t>(character));
  return (category >= UTF8PROC_CATEGORY_LU && category <= UTF8PROC_CATEGORY_ND);
}

template <class Mapping>
Value mapped(std::string_view text, const Mapping& mapping) {
  std::string result;
  result.reserve(text.size());
  const WorkCounter work;
  std::size_t nextStep = WorkMeter::kBytesOfStep;
  for (std::size_t offset = 0; offset < text.size();) {
    const CodePoint next = codePointAt(text, offset);
    appendCodePoint(result, mapping(next.value));
    offset += next.byteLength;
    if (offset < nextStep) continue;
    work.step();
    requireStringLength(result.size());
    nextStep += WorkMeter::kBytesOfStep;
  }
  requireStringLength(result.size());
  return NSString::stringWithValidUTF8(result);
}

Value capitalized(std::string_view text) {
  bool insideWord = false;
  return mapped(text, [&insideWord](char32_t character) {
    const bool startsWord = !insideWord;
    insideWord = continuesWord(character);
    return startsWord ? titlecase(character) : lowercase(character);
  });
}

// The whole text, for who goes through it at once.
std::string_view readText(const NSString& string) {
  countWorkOnText(string.byteLength());
  return string.view();
}

struct StringProperty {
  std::string_view key;
  Value (*read)(const NSString& string);
};

constexpr StringProperty kStringProperties[] = {
    {"length", [](const NSString& string) -> Value { return string.length(); }},
    {"uppercaseString", [](const NSString& string) { return mapped(string.view(), uppercase); }},
    {"lowercaseString", [](const NSString& string) { return mapped(string.view(), lowercase); }},
    {"capitalizedString", [](const NSString& string) { return capitalized(string.view()); }},
    {"intValue", [](const NSString& string) -> Value { return textAsInt(readText(string)); }},
    {"integerValue", [](const NSString& string) -> Value { return textAsInteger(readText(string)); }},
    {"doubleValue", [](const NSString& string) -> Value { return textAsDouble(readText(string)); }},
    {"boolValue", [](const NSString& string) -> Value { return textAsBool(readText(string)); }},
    {"description",
     [](const NSString& string) -> Value {
       requireStringLength(string.byteLength());
       return readText(string);
     }},
};

}  // namespace

bool NSString::findValueForKey(const NSString& key, Value& value) const {
  for (const StringProperty& property : kStringProperties) {
    if (property.key != key.view()) continue;
    value = property.read(*this);
    return true;
  }
  return false;
}

}  // namespace tavlo
