#pragma once

#include <cstddef>
#include <cstdint>

#include "Foundation/ListArgument.h"
#include "Foundation/NSException.h"
#include "Lexwright/KorToken.h"

namespace tavlo {

// Tokens in order, lent from the compound token that holds them; may be absent.
using KorTokenList = ListArgument<KorToken>;

// Walks a list of tokens once; searches use up what they pass.
class KorTokenEnumerator {
 public:
  explicit KorTokenEnumerator(const KorTokenList& tokens) noexcept : tokens_(tokens.span()) {}

  // The next token; null at the end.
  const KorToken* nextObject() noexcept { return next_ < tokens_.size() ? &tokens_[next_++] : nullptr; }

 private:
  std::span<const KorToken> tokens_;
  std::size_t next_ = 0;
};

[[noreturn]] inline void raiseRange(std::int64_t index, std::size_t count) {
  NSException::raise(NSRangeException, "Index %d is beyond a list of %d elements", index, count);
}

// The elements from `index` to the end. Raises `NSRangeException` outside the list.
template <class T>
ListArgument<T> subarrayFromIndex(const ListArgument<T>& list, std::int32_t index) {
  if (index < 0 || static_cast<std::size_t>(index) > list.size()) raiseRange(index, list.size());
  return list.span().subspan(static_cast<std::size_t>(index));
}

// The elements up to, not including, `index`. Raises `NSRangeException` outside the list, below it too.
template <class T>
ListArgument<T> subarrayToIndex(const ListArgument<T>& list, std::int32_t index) {
  if (index < 0 || static_cast<std::size_t>(index) > list.size()) raiseRange(index, list.size());
  return list.span().first(static_cast<std::size_t>(index));
}

}  // namespace tavlo
