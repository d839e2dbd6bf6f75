#pragma once

#include <cstdint>

#include "Foundation/Name.h"
#include "Source/FrameGuard.h"
#include "Source/KorTemplateChildList.h"
#include "Source/KorTemplateFunction.h"
#include "Source/KorTemplateReturnIndication.h"
#include "Source/KorTemplateSource.h"
#include "Source/KorTemplateStatement.h"

namespace tavlo {

// A function that a template defines: parameter names and a body. Each call runs in a scope of its own above the
// caller's, so the body reads what the caller can read.
class KorTemplateInternalFunction final : public KorTemplateFunction {
 public:
  // Without parameters and statements.
  KorTemplateInternalFunction() : KorTemplateFunction(kInternalFunctionKind) {}
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

  // The text that the body stands in; absent for a body made by hand. Copies keep it.
  const Ref<KorTemplateSource>& source() const noexcept { return source_; }
  void setSource(const Ref<KorTemplateSource>& value) { source_ = value; }

  // The value of the return that ended the call, or the null object. Raises `NSInvalidArgumentException` for a wrong
  // number of values; neither argument may be absent.
  Value invokeWithEnvironment(KorTemplateEnvironment* environment, ListArgument<Value> arguments) override;
  RawValue invoke(KorTemplateEnvironment& environment, std::span<const Value> arguments) override {
    return run(environment, arguments);
  }
  // The same, for the place where templates call.
  [[gnu::always_inline]] RawValue run(KorTemplateEnvironment& environment, std::span<const Value> arguments) const {
    if (arguments.size() != static_cast<std::size_t>(arguments_.count())) [[unlikely]]
      raiseArgumentCount(arguments.size());
    try {
      FrameGuard guard(environment);
      bind(arguments, guard.push());
      const Completion completion = guard.popOnly(executeStatements(statements_, environment));
      return completion.isReturn() ? completion.value() : RawValue::null();
    } catch (const KorTemplateReturnIndication& indication) {  // from a host's statement
      return valueOf(indication, environment);
    }
  }
  Ref<KorTemplateFunction> copyWithZone(NSZone* zone = nullptr) const override;

  const char* className() const override { return "KorTemplateInternalFunction"; }

 private:
  // Stores the values in the function's frame; of parameters of one name the last value stands.
  [[gnu::always_inline]] void bind(std::span<const Value> arguments, KorTemplateStackFrame* frame) const {
    if (arguments.empty()) return;
    requireParameter(!arguments.front().isAbsent(), "variable != nil");
    if (frame != nullptr) frame->setFirst(arguments_[0], arguments.front());
    if (arguments.size() > 1) bindMore(arguments, frame);
  }
  void bindMore(std::span<const Value> arguments, KorTemplateStackFrame* frame) const;
  [[noreturn]] void raiseArgumentCount(std::size_t supplied) const;
  static RawValue valueOf(const KorTemplateReturnIndication& indication, KorTemplateEnvironment& environment);

  Ref<KorTemplateSource> source_;
  KorTemplateChildList<Name> arguments_{KorTemplateChildListRole::Arguments};
  KorTemplateChildList<Ref<KorTemplateStatement>> statements_{KorTemplateChildListRole::Statements};
};

}  // namespace tavlo
