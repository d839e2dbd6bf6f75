#pragma once

#include "Lexwright/KorScannerRule.h"
#include "Lexwright/RuleList.h"

namespace tavlo {

// Where the tokens of a partition go, one behind the other.
class TokenSink {
 public:
  // The tokens' positions are counted from the byte `first`, as if all were plain.
  TokenSink(std::vector<KorToken>& tokens, std::uint32_t first) noexcept : tokens_(tokens), first_(first) {}

  void add(const KorTokenClass* tokenClass, std::uint32_t start, std::uint32_t end) {
    tokens_.push_back({.tokenClass = tokenClass,
                       .position = static_cast<std::int32_t>(start - first_),
                       .length = static_cast<std::int32_t>(end - start),
                       .byteOffset = start,
                       .byteLength = end - start});
  }

 private:
  std::vector<KorToken>& tokens_;
  std::uint32_t first_;
};

// Makes a compound token: what begins at a boundary, cut by rules of its own up to a token of the closing class, or to
// the end of the text where none closes it.
class KorPartitionRule final : public KorScannerRule {
 public:
  static Ref<KorPartitionRule> ruleWithBoundary(const Ref<KorScannerRule>& boundary) {
    return makeRef<KorPartitionRule>(boundary);
  }

  // A function that may stand in for the rules behind the boundary, where recognisers are used: it appends the tokens
  // that they make from `at` on, as far as it tells them. Where it has gone: behind a token of the closing class, to
  // the end of the text, or to a place where the rules must be asked for one token.
  struct Recognised {
    std::uint32_t end;
    bool isClosed;  // by the last token
  };
  using TokenRecogniser = Recognised (*)(std::string_view text, std::uint32_t at, TokenSink& tokens);

  explicit KorPartitionRule(const Ref<KorScannerRule>& boundary);

  // Whether the boundary is left out of the sub-tokens; off at first.
  void setSkipBoundary(bool skip) { skipBoundary_ = skip; }
  void setClosingClass(const KorTokenClass* closingClass) { closingClass_ = closingClass; }
  // The fast path of all rules that the partition will have. Where it tells what is no part of the text, token behind
  // token, scanning raises `NSRangeException`; that of one which is `isTrusted` is not looked at.
  void setTokenRecogniser(TokenRecogniser recogniser, bool isTrusted = false) {
    tokenRecogniser_ = recogniser;
    isTrusted_ = isTrusted;
  }
  // The rule must make plain tokens: raises `NSInvalidArgumentException` for a further partition.
  void addRule(const Ref<KorScannerRule>& rule) { addRules({rule}); }
  // The same for many, which costs no more than one does.
  void addRules(const std::vector<Ref<KorScannerRule>>& rules);

  FirstBytes firstBytes() const override { return boundary_->firstBytes(); }
  std::string opening() const override { return boundary_->opening(); }
  // Matches the boundary alone.
  bool match(ScanContext& context, std::uint32_t at, RuleMatch& match) const override;
  Recogniser recogniser() const override { return boundary_->recogniser(); }
  bool makesCompoundTokens() const override { return true; }

  // Fills the token with what begins at `start`, where `boundary` has matched, and answers with its end.
  ScanCursor scan(ScanContext& context, ScanCursor start, const RuleMatch& boundary, KorCompoundToken& token) const;

 private:
  bool scanToken(ScanContext& context, std::uint32_t& at, TokenSink& tokens) const;

  Ref<KorScannerRule> boundary_;
  bool skipBoundary_ = false;
  const KorTokenClass* closingClass_ = nullptr;  // not owned
  TokenRecogniser tokenRecogniser_ = nullptr;
  bool isTrusted_ = false;  // the recogniser
  RuleList rules_;
};

}  // namespace tavlo
