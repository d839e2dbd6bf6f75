#include "Tool/JSONValueBuilder.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <optional>
#include <utility>

#include "Foundation/NSArray.h"
#include "Foundation/NSNumber.h"

namespace tavlo {

namespace {

// A JSON number, read in one go as far as its digits fit.
struct ScannedNumber {
  std::uint64_t digits = 0;  // the number without sign, point and exponent
  std::size_t count = 0;     // of those digits
  int exponent = 0;          // of ten: what the digits are to be multiplied by
  bool isNegative = false;
  bool isInteger = false;  // there is neither point nor exponent
  bool isWhole = false;    // all of it has been read: there is no exponent
};

constexpr std::size_t kMostDigits = 18;  // that 63 bits hold, whatever they are

bool isDigit(char character) noexcept {
  return static_cast<unsigned char>(character - '0') < 10;
}

// The value of eight digits, all at once; absent when something else is among them.
std::optional<std::uint64_t> eightDigits(const char* at) noexcept {
  std::uint64_t chunk = 0;
  std::memcpy(&chunk, at, sizeof chunk);
  const std::uint64_t values = chunk - 0x3030303030303030U;  // a byte that is no digit leaves a high nibble somewhere
  if (((values | (values + 0x0606060606060606U)) & 0xF0F0F0F0F0F0F0F0U) != 0) return {};
  const std::uint64_t pairs = values * 10 + (values >> 8);
  return (((pairs & 0x000000FF000000FFU) * 0x000F424000000064U) +
          (((pairs >> 16) & 0x000000FF000000FFU) * 0x0000271000000001U)) >>
         32;
}

// Reads digits on to the number; the result is where they end.
inline const char* scanDigits(const char* at, const char* end, std::uint64_t& digits) noexcept {
  std::uint64_t sum = digits;
  for (; at != end && isDigit(*at); ++at) sum = sum * 10 + static_cast<std::uint64_t>(*at - '0');
  digits = sum;
  return at;
}

ScannedNumber scanned(std::string_view text) noexcept {
  ScannedNumber number;
  const char* at = text.data();
  const char* const end = at + text.size();
  number.isNegative = *at == '-';
  if (number.isNegative) ++at;
  const char* const whole = at;
  at = scanDigits(at, end, number.digits);
  number.count = static_cast<std::size_t>(at - whole);
  number.isInteger = at == end;
  if (at != end && *at == '.') {
    const char* const fraction = ++at;
    if constexpr (std::endian::native == std::endian::little) {
      while (end - at >= 8) {
        const std::optional<std::uint64_t> eight = eightDigits(at);
        if (!eight.has_value()) break;
        number.digits = number.digits * 100'000'000 + *eight;
        at += 8;
      }
    }
    at = scanDigits(at, end, number.digits);
    number.count += static_cast<std::size_t>(at - fraction);
    number.exponent = -static_cast<int>(at - fraction);
  }
  number.isWhole = at == end;
  return number;
}

// The double for few digits and a small power of ten: both are exact, and the one operation on them rounds correctly.
bool isExact(const ScannedNumber& number) noexcept {
  return number.isWhole && number.count <= kMostDigits && number.digits <= (std::uint64_t{1} << 53);
}

double exactDouble(const ScannedNumber& number) noexcept {
  static constexpr double kPowers[kMostDigits + 1] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8, 1e9,
                                                      1e10, 1e11, 1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18};
  const double size = static_cast<double>(number.digits) / kPowers[-number.exponent];
  return number.isNegative ? -size : size;
}

template <class Integer>
bool reads(std::string_view text, Integer& number) {
  const char* const end = text.data() + text.size();
  const std::from_chars_result result = std::from_chars(text.data(), end, number);
  return result.ec == std::errc() && result.ptr == end;
}

// Which of a few kinds the text is of, by what is cheap to look at.
std::size_t kindOf(std::string_view text) noexcept {
  if (text.empty()) return 0;
  const std::size_t mixed = text.size() * 5 + std::size_t{static_cast<unsigned char>(text.front())} * 31 +
                            static_cast<unsigned char>(text.back());
  return mixed % JSONValueBuilder::kKinds;
}

}  // namespace

void JSONValueBuilder::addString(std::string_view text) {
  constexpr std::size_t kShort = 16;
  if (text.size() > kShort) return add(NSString::stringInArena(text));
  Ref<NSString>& latest = latestTexts_[kindOf(text)];
  if (latest == nullptr || latest->view() != text) latest = NSString::stringWithValidUTF8(text);
  add(latest);
}

void JSONValueBuilder::addName(std::string_view text) {
  const Ref<NSString>*& latest = latestNames_[kindOf(text)];
  if (latest == nullptr || (*latest)->view() != text) latest = &interned(text);
  names_.push_back(*latest);
}

const Ref<NSString>& JSONValueBuilder::interned(std::string_view name) {
  if (internedCount_ * 2 >= internedNames_.size()) growNames();
  const std::size_t mask = internedNames_.size() - 1;
  std::size_t slot = NSString::hashOf(name) & mask;
  while (internedNames_[slot] != nullptr && internedNames_[slot]->view() != name) slot = (slot + 1) & mask;
  Ref<NSString>& found = internedNames_[slot];
  if (found == nullptr) {
    found = NSString::stringWithValidUTF8(name);
    ++internedCount_;
  }
  return found;
}

void JSONValueBuilder::growNames() {
  constexpr std::size_t kFirstSize = 64;
  std::vector<Ref<NSString>> old(std::max(kFirstSize, internedNames_.size() * 2));
  old.swap(internedNames_);
  latestNames_ = {};
  const std::size_t mask = internedNames_.size() - 1;
  for (Ref<NSString>& name : old) {
    if (name == nullptr) continue;
    std::size_t slot = name->hash32() & mask;
    while (internedNames_[slot] != nullptr) slot = (slot + 1) & mask;
    internedNames_[slot] = std::move(name);
  }
}

bool JSONValueBuilder::addNumber(std::string_view text) {
  const ScannedNumber number = scanned(text);
  if (number.isInteger && number.count <= kMostDigits) {
    const auto size = static_cast<std::int64_t>(number.digits);
    add(number.isNegative ? -size : size);
    return true;
  }
  if (!number.isInteger && isExact(number)) {
    add(exactDouble(number));
    return true;
  }
  return addLongNumber(text, number.isInteger);
}

bool JSONValueBuilder::addLongNumber(std::string_view text, bool isInteger) {
  if (std::int64_t number = 0; isInteger && reads(text, number)) {
    add(number);
  } else if (std::uint64_t large = 0; isInteger && reads(text, large)) {
    add(large);
  } else {
    double real = 0;
    // Out of range: beyond the doubles, or below the smallest.
    if (std::from_chars(text.data(), text.data() + text.size(), real).ec != std::errc()) real = textAsDouble(text);
    if (std::isinf(real)) return false;
    add(real);
  }
  return true;
}

bool JSONValueBuilder::begin() noexcept {
  if (depth_ == kDeepest) return false;
  ++depth_;
  return true;
}

void JSONValueBuilder::endArray(std::size_t count) {
  const auto first = values_.end() - static_cast<std::ptrdiff_t>(count);
  std::vector<Value> elements(std::make_move_iterator(first), std::make_move_iterator(values_.end()));
  values_.erase(first, values_.end());
  --depth_;
  add(makeRef<NSMutableArray>(std::move(elements)));
}

bool JSONValueBuilder::areDistinct(std::size_t count) const noexcept {
  constexpr std::size_t kMany = 16;
  if (count > kMany) return false;
  const Ref<NSString>* const first = names_.data() + (names_.size() - count);
  for (std::size_t later = 1; later < count; ++later) {
    for (std::size_t index = 0; index < later; ++index) {
      if (first[index].get() == first[later].get()) return false;
    }
  }
  return true;
}

void JSONValueBuilder::endObject(std::size_t count) {
  const std::size_t firstName = names_.size() - count;
  const std::size_t firstValue = values_.size() - count;
  Ref<NSMutableDictionary> dictionary;
  if (areDistinct(count)) {
    NSDictionary::Entries entries;
    entries.reserve(count);
    for (std::size_t index = 0; index < count; ++index) {
      entries.push_back({std::move(names_[firstName + index]), std::move(values_[firstValue + index])});
    }
    dictionary = NSMutableDictionary::dictionaryWithDistinctEntries(std::move(entries));
  } else {
    dictionary = NSMutableDictionary::dictionary();
    dictionary->reserve(count);
    for (std::size_t index = 0; index < count; ++index) {
      dictionary->setObjectForKey(std::move(values_[firstValue + index]), std::move(names_[firstName + index]));
    }
  }
  names_.resize(firstName);
  values_.resize(firstValue);
  --depth_;
  add(std::move(dictionary));
}

}  // namespace tavlo
