#pragma once

#include <cstdint>
#include <vector>

#include "Lexwright/KorTokenClass.h"

namespace tavlo {

class KorCompoundToken;

// A piece of text that a rule has matched. A plain value: its identity is its address in the list that holds it, and an
// absent token is a null pointer.
class KorToken {
 public:
  // Absent for a compound token and for what an unclassed rule matched. Not owned: classes outlive their tokens.
  const KorTokenClass* tokenClass = nullptr;
  // The line breaks before the token. Of a token of the scanner counted from 1 at the start of the text; of a sub-token
  // from 0 at the start of its compound token.
  std::int32_t line = 0;
  // In UTF-16 units from the start of the text; of a sub-token from the start of its compound token.
  std::int32_t position = 0;
  // In UTF-16 units.
  std::int32_t length = 0;
  bool isCompound = false;
  // In bytes from the start of the text, of a sub-token too. A token made by hand may leave them 0: its text is then
  // looked for by its position.
  std::uint32_t byteOffset = 0;
  std::uint32_t byteLength = 0;
};

// A token that holds the tokens found inside it.
class KorCompoundToken : public KorToken {
 public:
  KorCompoundToken() { isCompound = true; }

  std::vector<KorToken> subtokens;
};

}  // namespace tavlo
