#pragma once

#include <array>
#include <cstddef>
#include <string_view>

#include "Foundation/Bytes.h"
#include "Foundation/NSString.h"
#include "Foundation/Ref.h"

#pragma GCC visibility push(hidden)

namespace tavlo {

// Strings for texts that come again and again, as the keys of one template do: the latest ones are shared.
class StringCache {
 public:
  // A string of the text, which must be valid UTF-8; it counts atomically. Good until the next call.
  const Ref<NSString>& stringForText(std::string_view text) {
    Ref<NSString>& string = strings_[mixedEnds(text) >> (64 - kBits)];
    const std::string_view known = string == nullptr ? std::string_view() : string->view();
    const bool isKnown =
        string != nullptr && known.size() == text.size() && areSameBytes(known.data(), text.data(), text.size());
    if (!isKnown) string = NSString::stringWithValidUTF8(text, Counting::Atomic);
    return string;
  }

 private:
  static constexpr int kBits = 6;

  std::array<Ref<NSString>, std::size_t{1} << kBits> strings_;  // by a hash of the text, the latest of each
};

}  // namespace tavlo

#pragma GCC visibility pop
