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

namespace {

// Short stretches, most tokens among them, are counted in one walk.
ScanCursor advanceShort(std::string_view text, ScanCursor from, std::uint32_t byte) noexcept {
  for (; from.byte < byte; ++from.byte) {
    const auto unit = static_cast<unsigned char>(text[from.byte]);
    if ((unit & 0xC0) != 0x80) ++from.position;
    if (unit >= 0xF0) ++from.position;
    // A line feed behind a carriage return belongs to the break that was counted there.
    if (unit == '\r' || (unit == '\n' && (from.byte == 0 || text[from.byte - 1] != '\r'))) ++from.line;
  }
  return from;
}

std::int32_t countLineBreaks(std::string_view text, std::uint32_t from, std::uint32_t to) noexcept {
  std::int32_t feeds = 0;
  std::int32_t returns = 0;
  for (std::uint32_t at = from; at < to; ++at) {
    feeds += text[at] == '\n' ? 1 : 0;
    returns += text[at] == '\r' ? 1 : 0;
  }
  if (returns == 0) return feeds - (feeds > 0 && from > 0 && text[from] == '\n' && text[from - 1] == '\r' ? 1 : 0);
  std::int32_t pairs = 0;
  for (std::uint32_t at = from == 0 ? 1 : from; at < to; ++at) {
    pairs += text[at] == '\n' && text[at - 1] == '\r' ? 1 : 0;
  }
  return feeds + returns - pairs;
}

}  // namespace

ScanCursor KorUnicharStream::advance(ScanCursor from, std::uint32_t byte) const noexcept {
  constexpr std::uint32_t kShort = 16;
  if (byte - from.byte <= kShort) return advanceShort(text_, from, byte);
  // Simple loops over whole stretches, which the compiler turns into vector instructions.
  const auto units = static_cast<std::int32_t>(utf16Length(text_.substr(from.byte, byte - from.byte)));
  return {byte, from.position + units, from.line + countLineBreaks(text_, from.byte, byte)};
}

}  // namespace tavlo
