#pragma once

#include "Foundation/Name.h"
#include "Source/KorTemplateFunction.h"
#include "Source/KorTemplateStatement.h"

namespace tavlo {

// Registers a function in the environment, when and as often as it runs: always the very same object.
class KorTemplateFunctionDefinitionStatement final : public KorTemplateStatement {
 public:
  KorTemplateFunctionDefinitionStatement(const Ref<KorTemplateFunction>& function, const Name& name)
      : KorTemplateStatement(kNodeKind), function_(function), name_(name) {}
  // Neither argument may be absent.
  static Ref<KorTemplateFunctionDefinitionStatement> statementForFunctionWithName(
      const Ref<KorTemplateFunction>& function, const Name& name);

  const Ref<KorTemplateFunction>& function() const noexcept { return function_; }
  void setFunction(const Ref<KorTemplateFunction>& value) { function_ = value; }
  const Name& name() const noexcept { return name_; }
  void setName(const Name& value) { name_ = value; }

  void executeWithEnvironment(KorTemplateEnvironment* environment) override;
  Completion execute(KorTemplateEnvironment& environment) override;
  // Over a copy of the function.
  Ref<KorTemplateStatement> copyWithZone(NSZone* zone = nullptr) const override;

  const char* className() const override { return "KorTemplateFunctionDefinitionStatement"; }

 private:
  Ref<KorTemplateFunction> function_;
  Name name_;
};

}  // namespace tavlo
