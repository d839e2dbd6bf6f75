#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>

#include "Foundation/Utf8.h"
#include "Lexwright/KorStringBuffer.h"

namespace tavlo {

// A place in a text, counted in bytes, in UTF-16 units and in line breaks at once.
struct ScanCursor {
  std::uint32_t byte = 0;
  std::int32_t position = 0;  // in UTF-16 units
  std::int32_t line = 1;

  friend bool operator==(const ScanCursor&, const ScanCursor&) = default;
};

// The characters of a text, read from places that cursors remember.
class KorUnicharStream final : public NSObject {
 public:
  static Ref<KorUnicharStream> streamWithBuffer(const Ref<KorStringBuffer>& buffer);

  std::string_view text() const noexcept { return text_; }
  bool isASCII() const noexcept { return buffer_->isASCII(); }
  std::uint32_t byteLength() const noexcept { return static_cast<std::uint32_t>(text_.size()); }

  // The character at the cursor; of no bytes at the end.
  CodePoint characterAt(std::uint32_t byte) const noexcept { return codePointAt(text_, byte); }
  CodePoint characterBefore(std::uint32_t byte) const noexcept { return codePointBefore(text_, byte); }

  // Where the character at the cursor ends, which is before the end; one byte on within a character.
  std::uint32_t placeBehind(std::uint32_t byte) const noexcept {
    return byte + (isContinuation(text_[byte]) ? 1 : characterAt(byte).byteLength);
  }

  // The cursor at `byte`, which is not before `from`. Costs the bytes between the two.
  ScanCursor advance(ScanCursor from, std::uint32_t byte) const noexcept;

  // The cursor behind one character.
  ScanCursor next(ScanCursor at) const noexcept { return advance(at, at.byte + characterAt(at.byte).byteLength); }

  // Whether the text between the two has as many units as bytes, and no line break; not always told of one that has.
  bool isPlain(std::uint32_t from, std::uint32_t to) const noexcept;

 private:
  template <class T, class... Arguments>
  friend Ref<T> makeRef(Arguments&&... arguments);
  explicit KorUnicharStream(Ref<KorStringBuffer> buffer) : buffer_(std::move(buffer)), text_(buffer_->text()) {}

  Ref<KorStringBuffer> buffer_;
  std::string_view text_;  // the buffer's
};

}  // namespace tavlo
