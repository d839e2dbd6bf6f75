#include "Tool/JSONValueBuilder.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <utility>

#include "Foundation/NSArray.h"
#include "Foundation/NSDictionary.h"
#include "Foundation/NSNumber.h"

namespace tavlo {

namespace {

// Whether the whole text is an integer of that type, which `number` then holds.
template <class Integer>
bool reads(std::string_view text, Integer& number) {
  const char* const end = text.data() + text.size();
  const std::from_chars_result result = std::from_chars(text.data(), end, number);
  return result.ec == std::errc() && result.ptr == end;
}

}  // namespace

void JSONValueBuilder::addName(std::string_view text) {
  const std::size_t mixed = text.empty()
                                ? 0
                                : text.size() * 5 + std::size_t{static_cast<unsigned char>(text.front())} * 31 +
                                      static_cast<unsigned char>(text.back());
  Ref<NSString>& known = knownNames_[mixed % knownNames_.size()];
  if (known == nullptr || known->view() != text) known = NSString::stringWithValidUTF8(text);
  names_.push_back(known);
}

bool JSONValueBuilder::addNumber(std::string_view text) {
  if (std::int64_t number = 0; reads(text, number)) {
    add(number);
  } else if (std::uint64_t large = 0; reads(text, large)) {
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

void JSONValueBuilder::endObject(std::size_t count) {
  const std::size_t firstName = names_.size() - count;
  const std::size_t firstValue = values_.size() - count;
  Ref<NSMutableDictionary> dictionary = NSMutableDictionary::dictionary();
  dictionary->reserve(count);
  for (std::size_t index = 0; index < count; ++index) {
    dictionary->setObjectForKey(std::move(values_[firstValue + index]), std::move(names_[firstName + index]));
  }
  names_.resize(firstName);
  values_.resize(firstValue);
  --depth_;
  add(std::move(dictionary));
}

}  // namespace tavlo
