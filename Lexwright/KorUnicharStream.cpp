#include "Lexwright/KorUnicharStream.h"

#include "Foundation/NSException.h"

namespace tavlo {

Ref<KorStringBuffer> KorStringBuffer::bufferFromString(const Ref<NSString>& string) {
  requireParameter(string != nullptr, "string != nil");
  if (string->length() > kMaximumLength) {
    NSException::raise(NSInvalidArgumentException, "A text of %d characters is too long to be scanned",
                       string->length());
  }
  return makeRef<KorStringBuffer>(string);
}

Ref<KorUnicharStream> KorUnicharStream::streamWithBuffer(const Ref<KorStringBuffer>& buffer) {
  requireParameter(buffer != nullptr, "buffer != nil");
  return makeRef<KorUnicharStream>(buffer);
}

ScanCursor KorUnicharStream::advance(ScanCursor from, std::uint32_t byte) const noexcept {
  for (; from.byte < byte; ++from.byte) {
    const auto unit = static_cast<unsigned char>(text_[from.byte]);
    if ((unit & 0xC0) != 0x80) ++from.position;
    if (unit >= 0xF0) ++from.position;
    // A line feed behind a carriage return belongs to the break that was counted there.
    if (unit == '\r' || (unit == '\n' && (from.byte == 0 || text_[from.byte - 1] != '\r'))) ++from.line;
  }
  return from;
}

}  // namespace tavlo
