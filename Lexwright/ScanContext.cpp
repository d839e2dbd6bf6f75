#include "Lexwright/ScanContext.h"

namespace tavlo {

ScanCursor ScanContext::advanceFar(ScanCursor from, std::uint32_t byte) {
  const ScanCursor cursor = stream_.advance(from, byte);
  const std::string_view rest = text().substr(byte);
  std::size_t plain = 0;
  while (plain < rest.size() && static_cast<unsigned char>(rest[plain]) < 0x80 && rest[plain] != '\n' &&
         rest[plain] != '\r') {
    ++plain;
  }
  plainFrom_ = byte;
  plainTo_ = byte + static_cast<std::uint32_t>(plain);
  return cursor;
}

}  // namespace tavlo
