#include "Source/KorTemplateClosure.h"

namespace tavlo {

const KorToken* KorTemplateClosure::findNextTokenOfClassInTokens(const KorTokenClass* tokenClass,
                                                                 KorTokenEnumerator* e) const {
  requireParameter(tokenClass != nullptr, "tokenClass != nil");
  requireParameter(e != nullptr, "e != nil");
  std::int64_t depth = 0;
  while (const KorToken* token = e->nextObject()) {
    if (token->tokenClass == startClass_) {
      ++depth;
    } else if (token->tokenClass == endClass_) {
      --depth;
    }
    if (token->tokenClass == tokenClass && depth == 0) return token;
  }
  return nullptr;
}

const KorToken* KorTemplateClosure::findEndOfClosureInTokens(KorTokenEnumerator* e) const {
  requireParameter(e != nullptr, "e != nil");
  std::int64_t depth = 1;
  while (const KorToken* token = e->nextObject()) {
    if (token->tokenClass == startClass_) {
      ++depth;
    } else if (token->tokenClass == endClass_ && --depth == 0) {
      return token;
    }
  }
  return nullptr;
}

}  // namespace tavlo
