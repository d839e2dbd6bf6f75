#pragma once

#include "Foundation/KorTemplateLimits.h"
#include "Foundation/Text.h"
#include "Source/KorTemplateChildList.h"
#include "Source/KorTemplateStatement.h"

namespace tavlo {

// A compiled template: its statements in order. A whole template can stand where a statement can. Running it does not
// change it, and any number of threads may run one at once, each with an environment of its own, as long as nobody
// changes it or lets go of it meanwhile.
class KorTemplate final : public KorTemplateStatement {
 public:
  KorTemplate() : KorTemplateStatement(kNodeKind) {}

  // The template whose text is given. Raises `KorTemplateSyntaxErrorException` for text that is no template,
  // `KorTemplateLimitException` for one that nests too deep, `NSInvalidArgumentException` for text that is not UTF-8.
  // When it raises, `failedAt` receives the place in the text where that is known.
  static Ref<KorTemplate> compile(const Text& templateString, const KorTemplateLimits& limits = {},
                                  SourceRange* failedAt = nullptr);

  // The list itself.
  KorTemplateChildList<Ref<KorTemplateStatement>>& statements() noexcept { return statements_; }
  void setStatements(const ListArgument<Ref<KorTemplateStatement>>& value) { statements_.set(value); }
  void insertObjectInStatementsAtIndex(const Ref<KorTemplateStatement>& statement, std::int32_t index) {
    statements_.insert(statement, index);
  }
  void removeObjectFromStatementsAtIndex(std::int32_t index) { statements_.removeAt(index); }
  void addStatement(const Ref<KorTemplateStatement>& statement) { statements_.add(statement); }
  void removeStatement(const Ref<KorTemplateStatement>& statement) { statements_.remove(statement); }
  void removeAllStatements() { statements_.removeAll(); }

  // Runs the statements in the frame that is current; a return that none of them takes ends the template in silence.
  void executeWithEnvironment(KorTemplateEnvironment* environment) override;
  Completion execute(KorTemplateEnvironment& environment) override;
  Ref<KorTemplateStatement> copyWithZone(NSZone* zone = nullptr) const override;

  const char* className() const override { return "KorTemplate"; }

 private:
  KorTemplateChildList<Ref<KorTemplateStatement>> statements_{"statements", "statement"};
};

}  // namespace tavlo
