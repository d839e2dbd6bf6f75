#pragma once

#include <cstddef>
#include <string_view>

#include "Foundation/NSObject.h"
#include "Foundation/NSString.h"
#include "Foundation/Ref.h"
#include "Foundation/Text.h"

namespace tavlo {

// The text that a scanner reads, held for as long as somebody reads it.
class KorStringBuffer final : public NSObject {
 public:
  // The longest text that positions can count, in UTF-16 units.
  static constexpr std::size_t kMaximumLength = 0x7FFFFFFF;

  // The string may not be absent. Raises `NSInvalidArgumentException` for one that is too long.
  static Ref<KorStringBuffer> bufferFromString(const Ref<NSString>& string);

  std::string_view text() const noexcept { return string_->view(); }
  bool isASCII() const noexcept { return string_->isASCII(); }

 private:
  template <class T, class... Arguments>
  friend Ref<T> makeRef(Arguments&&... arguments);
  explicit KorStringBuffer(Ref<NSString> string) : string_(std::move(string)) {}

  Ref<NSString> string_;
};

}  // namespace tavlo
