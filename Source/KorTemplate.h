#pragma once

#include <string>

#include "Foundation/KorTemplateLimits.h"
#include "Foundation/Text.h"
#include "Source/KorTemplateChildList.h"
#include "Source/KorTemplateFailure.h"
#include "Source/KorTemplateResult.h"
#include "Source/KorTemplateSource.h"
#include "Source/KorTemplateStatement.h"

namespace tavlo {

struct KorTemplateCompileOptions {
  std::string name = {};          // what failures call the template, a file's name for example; empty for none
                                  // (bytes that are no UTF-8 become U+FFFD)
  KorTemplateLimits limits = {};  // of which nesting, stack and pattern sizes matter
};

// A compiled template: its statements in order. A whole template can stand where a statement can. Running it does not
// change it, and any number of threads may run one at once, each with an environment of its own, as long as nobody
// changes it or lets go of it meanwhile. What it runs itself, a function of the host's for example, may add statements
// to it, but must not take away one that runs, one of a branch, a loop or a function that runs, nor its source.
class KorTemplate final : public KorTemplateStatement {
 public:
  KorTemplate() : KorTemplateStatement(kNodeKind) {}

  // The template whose text is given. Raises `KorTemplateSyntaxErrorException` for text that is no template,
  // `KorTemplateLimitException` for one that nests too deep, `NSInvalidArgumentException` for text that is not UTF-8.
  // When it raises, `failedAt` receives the place in the text where that is known.
  static Ref<KorTemplate> compile(const Text& templateString, const KorTemplateLimits& limits = {},
                                  SourceRange* failedAt = nullptr);

  // The same for a template with a name. When it raises, `failure` receives why and where.
  static Ref<KorTemplate> compile(const Text& templateString, const KorTemplateCompileOptions& options,
                                  KorTemplateFailure* failure = nullptr);
  // The same with an answer in place of an exception of the family of `std::exception`.
  static KorTemplateResult<Ref<KorTemplate>> tryCompile(const Text& templateString,
                                                        const KorTemplateCompileOptions& options = {});

  // Empty for a template without a name.
  const std::string& name() const noexcept;
  // The text that the template was compiled from, with its name; absent for one made by hand. Copies keep it.
  const Ref<KorTemplateSource>& source() const noexcept { return source_; }
  void setSource(const Ref<KorTemplateSource>& value) { source_ = value; }

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
  // The same with an answer in place of an exception of the family of `std::exception`, a limit and a lack of memory
  // among them; what a host raises beside that family passes.
  KorTemplateResult<void> tryExecuteWithEnvironment(KorTemplateEnvironment* environment);
  Completion execute(KorTemplateEnvironment& environment) override;
  Ref<KorTemplateStatement> copyWithZone(NSZone* zone = nullptr) const override;

  const char* className() const override { return "KorTemplate"; }

 private:
  Ref<KorTemplateSource> source_;
  KorTemplateChildList<Ref<KorTemplateStatement>> statements_{KorTemplateChildListRole::Statements};
};

}  // namespace tavlo
