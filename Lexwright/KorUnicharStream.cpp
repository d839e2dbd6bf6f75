#include "Lexwright/KorUnicharStream.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <algorithm>

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

// The cursor at `to`, character by character.
ScanCursor countedTo(std::string_view text, ScanCursor from, std::uint32_t to) noexcept {
  for (; from.byte < to; ++from.byte) {
    const auto unit = static_cast<unsigned char>(text[from.byte]);
    if ((unit & 0xC0) != 0x80) ++from.position;
    if (unit >= 0xF0) ++from.position;
    // A line feed behind a carriage return belongs to the break that was counted there.
    if (unit == '\r' || (unit == '\n' && (from.byte == 0 || text[from.byte - 1] != '\r'))) ++from.line;
  }
  return from;
}

}  // namespace

// Sixteen bytes at once where they are ASCII without a carriage return.
ScanCursor KorUnicharStream::advance(ScanCursor from, std::uint32_t byte) const noexcept {
#if defined(__SSE2__)
  constexpr std::uint32_t kWidth = sizeof(__m128i);
  while (from.byte < byte && text_.size() - from.byte >= kWidth) {
    const std::uint32_t count = std::min(kWidth, byte - from.byte);
    const unsigned wanted = (1U << count) - 1;
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text_.data() + from.byte));
    const auto plain = static_cast<unsigned>(_mm_movemask_epi8(
        _mm_or_si128(_mm_cmpgt_epi8(bytes, _mm_set1_epi8('\r')), _mm_cmpeq_epi8(bytes, _mm_set1_epi8('\t')))));
    auto feeds = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('\n')))) & wanted;
    const bool isWithinBreak = (feeds & 1U) != 0 && from.byte > 0 && text_[from.byte - 1] == '\r';
    if (isWithinBreak || (~(plain | feeds) & wanted) != 0) {
      from = countedTo(text_, from, from.byte + count);
      continue;
    }
    from.byte += count;
    from.position += static_cast<std::int32_t>(count);
    for (; feeds != 0; feeds &= feeds - 1) ++from.line;
  }
#endif
  return countedTo(text_, from, byte);
}

bool KorUnicharStream::isPlain(std::uint32_t from, std::uint32_t to) const noexcept {
#if defined(__SSE2__)
  constexpr std::uint32_t kWidth = sizeof(__m128i);
  for (; from < to && text_.size() - from >= kWidth; from += kWidth) {
    const unsigned wanted = to - from >= kWidth ? 0xFFFFU : (1U << (to - from)) - 1;
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(text_.data() + from));
    const auto plain = static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpgt_epi8(bytes, _mm_set1_epi8('\r'))));
    if ((~plain & wanted) != 0) return false;
  }
#endif
  while (from < to && text_[from] > '\r') ++from;
  return from >= to;
}

}  // namespace tavlo
