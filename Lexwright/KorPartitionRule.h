#pragma once

#include "Lexwright/KorScannerRule.h"
#include "Lexwright/RuleList.h"

namespace tavlo {

// Makes a compound token: what begins at a boundary, cut by rules of its own up to a token of the closing class, or to
// the end of the text where none closes it.
class KorPartitionRule final : public KorScannerRule {
 public:
  static Ref<KorPartitionRule> ruleWithBoundary(const Ref<KorScannerRule>& boundary) {
    return makeRef<KorPartitionRule>(boundary);
  }

  explicit KorPartitionRule(const Ref<KorScannerRule>& boundary);

  // Whether the boundary is left out of the sub-tokens; off at first.
  void setSkipBoundary(bool skip) { skipBoundary_ = skip; }
  void setClosingClass(const KorTokenClass* closingClass) { closingClass_ = closingClass; }
  // The rule must make plain tokens: raises `NSInvalidArgumentException` for a further partition.
  void addRule(const Ref<KorScannerRule>& rule);

  FirstBytes firstBytes() const override { return boundary_->firstBytes(); }
  std::string opening() const override { return boundary_->opening(); }
  // Matches the boundary alone.
  bool match(ScanContext& context, std::uint32_t at, RuleMatch& match) const override;
  Recogniser recogniser() const override { return boundary_->recogniser(); }
  bool makesCompoundTokens() const override { return true; }

  // Fills the token with what begins at `start`, where `boundary` has matched, and answers with its end.
  ScanCursor scan(ScanContext& context, ScanCursor start, const RuleMatch& boundary, KorCompoundToken& token) const;

 private:
  Ref<KorScannerRule> boundary_;
  bool skipBoundary_ = false;
  const KorTokenClass* closingClass_ = nullptr;  // not owned
  RuleList rules_;
};

}  // namespace tavlo
