#pragma once

#include "Foundation/NSObject.h"
#include "Foundation/Ref.h"
#include "Lexwright/KorTokenClass.h"
#include "Source/KorTokenList.h"

namespace tavlo {

// A pair of token classes that open and close a bracket. The classes are not owned and may be absent.
class KorTemplateClosure final : public NSObject {
 public:
  KorTemplateClosure() : KorTemplateClosure(nullptr, nullptr) {}
  KorTemplateClosure(const KorTokenClass* startClass, const KorTokenClass* endClass)
      : startClass_(startClass), endClass_(endClass) {}
  static Ref<KorTemplateClosure> closureStartingWithTokensOfClassEndingWith(const KorTokenClass* startClass,
                                                                            const KorTokenClass* endClass) {
    return makeRef<KorTemplateClosure>(startClass, endClass);
  }

  const KorTokenClass* startClass() const noexcept { return startClass_; }
  void setStartClass(const KorTokenClass* value) noexcept { startClass_ = value; }
  const KorTokenClass* endClass() const noexcept { return endClass_; }
  void setEndClass(const KorTokenClass* value) noexcept { endClass_ = value; }

  // The next token of the class outside all brackets; null when the tokens run out. Neither argument may be absent. A
  // closing token without its opening one hides all that follow it.
  const KorToken* findNextTokenOfClassInTokens(const KorTokenClass* tokenClass, KorTokenEnumerator* e) const;

  // The token that closes the bracket whose opening token has been taken from the enumerator already; null when the
  // tokens run out. The enumerator may not be absent.
  const KorToken* findEndOfClosureInTokens(KorTokenEnumerator* e) const;

  const char* className() const override { return "KorTemplateClosure"; }

 private:
  const KorTokenClass* startClass_;
  const KorTokenClass* endClass_;
};

}  // namespace tavlo
