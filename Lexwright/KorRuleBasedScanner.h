#pragma once

#include <memory>
#include <vector>

#include "Lexwright/KorScannerRule.h"
#include "Lexwright/KorToken.h"
#include "Lexwright/RuleList.h"
#include "Lexwright/ScanContext.h"

namespace tavlo {

// Cuts a text into tokens by rules: at each place the first rule that matches takes its match. It goes front to back,
// once.
class KorRuleBasedScanner : public NSObject {
 public:
  static Ref<KorRuleBasedScanner> scannerForStream(const Ref<KorUnicharStream>& stream,
                                                   const std::vector<Ref<KorScannerRule>>& rules);
  // The same over rules that are kept elsewhere and outlive the scanner.
  static Ref<KorRuleBasedScanner> scannerForStream(const Ref<KorUnicharStream>& stream, const RuleList& rules);

  // The next token, good until the next call; null at the end, and from there on. Text that rules without a class have
  // taken is passed over.
  virtual const KorToken* nextToken();

 protected:
  KorRuleBasedScanner(const Ref<KorUnicharStream>& stream, const RuleList* rules);

 private:
  template <class T, class... Arguments>
  friend Ref<T> makeRef(Arguments&&... arguments);

  const KorToken* makeToken(const KorScannerRule& rule, const RuleMatch& match);

  Ref<KorUnicharStream> stream_;
  RuleList ownRules_;      // empty when they are kept elsewhere
  const RuleList* rules_;  // not owned
  ScanContext context_;
  ScanCursor cursor_;
  KorCompoundToken token_;
};

}  // namespace tavlo
