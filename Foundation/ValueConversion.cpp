#include "Foundation/NSArray.h"
#include "Foundation/NSSet.h"
#include "Foundation/StackGuard.h"
#include "Foundation/Utf8.h"
#include "Foundation/ValueConversion+Containers.h"
#include "Foundation/ValueConversion+Scalars.h"
#include "Foundation/WorkMeter.h"

namespace tavlo {

void enterContainer() {
  checkStack();
  WorkCounter().step();
}

const std::vector<Value>* elementsIn(const Value& value) {
  const NSObject* const object = value.object();
  if (object == nullptr) return nullptr;
  enterContainer();
  if (object->kind() == ObjectKind::Array) return &static_cast<const NSArray*>(object)->elements();
  if (object->kind() == ObjectKind::Set) return &static_cast<const NSSet*>(object)->members();
  return nullptr;
}

const NSDictionary* dictionaryIn(const Value& value) {
  const NSObject* const object = value.object();
  if (object == nullptr || object->kind() != ObjectKind::Dictionary) return nullptr;
  enterContainer();
  return static_cast<const NSDictionary*>(object);
}

Value arrayOfValues(std::vector<Value> elements) {
  return makeRef<NSArray>(std::move(elements));
}

Value setOfValues(const std::vector<Value>& members) {
  return makeRef<NSSet>(members);
}

std::u16string utf16Of(std::string_view text) {
  constexpr char32_t kFirstPair = 0x10000;
  constexpr int kPairBits = 10;
  std::u16string units;
  units.reserve(utf16Length(text));
  for (std::size_t at = 0; at < text.size();) {
    const CodePoint character = codePointAt(text, at);
    at += character.byteLength;
    if (character.value < kFirstPair) {
      units.push_back(static_cast<char16_t>(character.value));
    } else {
      const char32_t pair = character.value - kFirstPair;
      units.push_back(static_cast<char16_t>(0xD800 + (pair >> kPairBits)));
      units.push_back(static_cast<char16_t>(0xDC00 + (pair & ((1U << kPairBits) - 1))));
    }
  }
  return units;
}

}  // namespace tavlo
