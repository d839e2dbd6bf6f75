#pragma once

#include <cstdint>

#include "Foundation/Name.h"
#include "Source/KorTemplateChildList.h"
#include "Source/KorTemplateFunction.h"
#include "Source/KorTemplateStatement.h"

namespace tavlo {

class KorTemplateStackFrame;

// A function that a template defines: parameter names and a body. Each call runs in a scope of its own above the
// caller's, so the body reads what the caller can read.
class KorTemplateInternalFunction final : public KorTemplateFunction {
 public:
  // Without parameters and statements.
  KorTemplateInternalFunction() : KorTemplateFunction(kNodeKind) {}
  static Ref<KorTemplateInternalFunction> function() { return makeRef<KorTemplateInternalFunction>(); }

  // The parameter names, without their "$": the list itself.
  KorTemplateChildList<Name>& arguments() noexcept { return arguments_; }
  void setArguments(const ListArgument<Name>& value) { arguments_.set(value); }
  void insertObjectInArgumentsAtIndex(const Name& argument, std::int32_t index) { arguments_.insert(argument, index); }
  void removeObjectFromArgumentsAtIndex(std::int32_t index) { arguments_.removeAt(index); }
  void addArgument(const Name& argument) { arguments_.add(argument); }
  void removeArgument(const Name& argument) { arguments_.remove(argument); }
  void removeAllArguments() { arguments_.removeAll(); }

  // The body: the list itself.
  KorTemplateChildList<Ref<KorTemplateStatement>>& statements() noexcept { return statements_; }
  void setStatements(const ListArgument<Ref<KorTemplateStatement>>& value) { statements_.set(value); }
  void insertObjectInStatementsAtIndex(const Ref<KorTemplateStatement>& statement, std::int32_t index) {
    statements_.insert(statement, index);
  }
  void removeObjectFromStatementsAtIndex(std::int32_t index) { statements_.removeAt(index); }
  void addStatement(const Ref<KorTemplateStatement>& statement) { statements_.add(statement); }
  void removeStatement(const Ref<KorTemplateStatement>& statement) { statements_.remove(statement); }
  void removeAllStatements() { statements_.removeAll(); }

  // The value of the return that ended the call, or the null object. Raises `NSInvalidArgumentException` for a wrong
  // number of values; neither argument may be absent.
  Value invokeWithEnvironment(KorTemplateEnvironment* environment, ListArgument<Value> arguments) override;
  RawValue invoke(KorTemplateEnvironment& environment, std::span<const Value> arguments) override;
  Ref<KorTemplateFunction> copyWithZone(NSZone* zone = nullptr) const override;

  const char* className() const override { return "KorTemplateInternalFunction"; }

 private:
  void bind(std::span<const Value> arguments, KorTemplateStackFrame* frame) const;

  KorTemplateChildList<Name> arguments_{"arguments", "argument"};
  KorTemplateChildList<Ref<KorTemplateStatement>> statements_{"statements", "statement"};
};

}  // namespace tavlo
