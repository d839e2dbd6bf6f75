#pragma once

#include <string>

#include "Foundation/Text.h"
#include "Source/KorTemplateExpression.h"
#include "Source/KorTemplateStatement.h"

namespace tavlo {

// Stands for a keyword that closes or divides a control structure while that is read. One that is left over in a
// template fails when it is reached.
class KorTemplateBlockStatement final : public KorTemplateStatement {
 public:
  // The keyword as it is written; may be absent.
  explicit KorTemplateBlockStatement(const Text& keyword) : KorTemplateStatement(kBlockKind) { setKeyword(keyword); }
  static Ref<KorTemplateBlockStatement> statementWithKeyword(const Text& keyword) {
    return makeRef<KorTemplateBlockStatement>(keyword);
  }

  Text keyword() const noexcept { return hasKeyword_ ? Text(keyword_) : Text(); }
  void setKeyword(const Text& value) {
    keyword_ = value.view();
    hasKeyword_ = !value.isAbsent();
  }
  // The condition of an "elseif"; absent for every other keyword.
  const Ref<KorTemplateExpression>& expression() const noexcept { return expression_; }
  void setExpression(const Ref<KorTemplateExpression>& value) { expression_ = value; }

  // Always fails; the environment may be absent.
  void executeWithEnvironment(KorTemplateEnvironment* environment) override;
  Ref<KorTemplateStatement> copyWithZone(NSZone* zone = nullptr) const override;

  const char* className() const override { return "KorTemplateBlockStatement"; }

 private:
  std::string keyword_;
  bool hasKeyword_ = false;
  Ref<KorTemplateExpression> expression_;
};

}  // namespace tavlo
