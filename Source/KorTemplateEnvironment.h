#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "Foundation/KorTemplateLimits.h"
#include "Foundation/NSObject.h"
#include "Foundation/NSString.h"
#include "Foundation/Name.h"
#include "Foundation/Ref.h"
#include "Foundation/StackGuard.h"
#include "Foundation/Value.h"
#include "Foundation/ValueConversion.h"
#include "Source/ArgumentStorage.h"
#include "Source/KorTemplateFunction.h"
#include "Source/KorTemplateStack.h"
#include "Source/KorTemplateStream.h"
#include "Source/KorTemplateStringStream.h"
#include "Source/NameMap.h"
#include "Source/SourceRange.h"

namespace tavlo {

class KorTemplateStatement;

// What templates run against: the scopes of variables, the functions and the two streams. It serves any number of
// executions, one after another; globals, functions and streams stay. One thread uses it at a time.
//
// The host may replace whatever it holds at any moment, also from within a function that a template calls: what is
// replaced during an execution lives until the outermost execution has ended.
class KorTemplateEnvironment final : public NSObject {
 public:
  // One frame, no functions, output dropped, diagnostics to the console.
  KorTemplateEnvironment();
  static Ref<KorTemplateEnvironment> environment() { return makeRef<KorTemplateEnvironment>(); }

  // Each may be set to absent: what is sent there then does nothing.
  const Ref<KorTemplateStack>& stack() const noexcept { return stack_; }
  void setStack(const Ref<KorTemplateStack>& value) { replace(stack_, value); }
  const Ref<KorTemplateStream>& outputStream() const noexcept { return outputStream_; }
  void setOutputStream(const Ref<KorTemplateStream>& value);
  const Ref<KorTemplateStream>& errorStream() const noexcept { return errorStream_; }
  void setErrorStream(const Ref<KorTemplateStream>& value) { replace(errorStream_, value); }

  // All functions, and all their names, in no particular order.
  std::vector<Ref<KorTemplateFunction>> functions() const;
  std::vector<Name> functionNames() const;
  // The function of exactly that name, or absent.
  Ref<KorTemplateFunction> functionForName(const Name& name) const;
  // All names of functions equal to that one.
  std::vector<Name> namesForFunction(const Ref<KorTemplateFunction>& function) const;
  // Stores the function in place of an old one of that name. Neither argument may be absent.
  void setFunctionForName(const Ref<KorTemplateFunction>& function, const Name& name);
  // Stores anything that can be called, of several that which takes as many arguments as a call has. What the callables
  // may take and answer is checked when the host compiles; see Source/KorTemplateCallableFunction.h, which the host
  // includes. A member function with an object (a pointer, a smart pointer, a reference wrapper or the object itself)
  // is bound to it:
  //
  //   environment->setFunction("money", [](double amount, std::string_view currency) { ... });
  //   environment->setFunction("total", &Cart::total, &cart);
  template <class... Callables>
  void setFunction(const Name& name, Callables&&... callables);
  // Removes all names of functions equal to that one.
  void removeFunction(const Ref<KorTemplateFunction>& function);
  // Does nothing where there is no such name.
  void removeFunctionForName(const Name& name);

  // Globals are the variables of the stack's first frame; without one these do nothing and answer absent or false.
  std::vector<Name> globalVariableNames() const;
  Value valueForGlobalVariableWithName(const Name& name) const;
  // Neither argument may be absent.
  void setValueForGlobalVariableWithName(const Value& variable, const Name& name);
  bool isGlobalVariableDefinedWithName(const Name& name) const;

  // A global of anything that becomes a value; see Foundation/ValueConversion.h.
  template <ConvertibleToValue T>
  void setGlobal(const Name& name, T&& object) {
    setValueForGlobalVariableWithName(valueOf(std::forward<T>(object)), name);
  }

  const KorTemplateLimits& limits() const noexcept { return limits_; }
  // Takes effect when the next outermost execution begins.
  void setLimits(const KorTemplateLimits& limits) { limits_ = limits; }
  // Those of the execution that runs.
  const KorTemplateLimits& limitsInForce() const noexcept { return limitsInForce_; }

  // Where the statement stands at which the last outermost execution failed; nowhere when it did not.
  SourceRange failedStatement() const noexcept { return failedStatement_; }

  const char* className() const override { return "KorTemplateEnvironment"; }

  // What the engine's nodes use while a template runs.

  // The value of a variable where it lives, good until a variable changes or other code runs; null where there is none.
  const Value* findVariable(const Name& name) const noexcept {
    const KorTemplateStackFrame* frame = stack_ == nullptr ? nullptr : stack_->current();
    return frame == nullptr ? nullptr : frame->find(name);
  }
  // The same without any call; false where that does not suffice.
  [[gnu::always_inline]] bool findVariableQuickly(const Name& name, const Value*& value) const noexcept {
    const KorTemplateStackFrame* frame = stack_ == nullptr ? nullptr : stack_->current();
    return frame != nullptr && frame->findQuickly(name, value);
  }
  // Stores a variable in the current frame.
  void setVariable(const Name& name, Value value) {
    KorTemplateStackFrame* frame = stack_ == nullptr ? nullptr : stack_->current();
    if (frame != nullptr) frame->set(name, std::move(value));
  }
  // The function of that name, lent; null where there is none.
  KorTemplateFunction* findFunction(const Name& name) const noexcept {
    const Ref<KorTemplateFunction>* function = functions_.find(name);
    return function == nullptr ? nullptr : function->get();
  }
  ArgumentStorage& argumentStorage() noexcept { return argumentStorage_; }

  // The text to which output is appended, where that runs nobody else's code; null otherwise.
  TextBuffer* outputText() const noexcept {
    KorTemplateStream* stream = outputStream_.get();
    const bool isText = stream != nullptr && stream->kind() == kStringStreamKind;
    return isText ? static_cast<KorTemplateStringStream*>(stream)->target() : nullptr;
  }
  // Appends a string or a number to such a text; false for every other value.
  static bool appendOutput(RawValue value, TextBuffer& text) {
    if (value.kind() != ValueKind::Object) return value.isNumber() && appendNumber(value, text);
    if (value.payload.object->kind() != ObjectKind::String) return false;
    const auto& string = static_cast<const NSString&>(*value.payload.object);
    text.append(string.view());
    return true;
  }
  // Writes the text of one output statement; the value may be lent, and is not the null object.
  void writeOutput(RawValue value);
  // Writes a text that is a statement's whole output, and lives as long as the call.
  void writeText(std::string_view text);
  // Writes a diagnostic to the error stream, behind all output so far.
  void writeDiagnostic(const Text& text);

  // Counts a statement, an iteration or a call. Raises a limit that was reached before in this execution.
  void step() {
    if (--fuel_ < 0) [[unlikely]]
      refuel();
  }
  // Raises when recursion comes too near the end of the thread's stack.
  [[gnu::always_inline]] void checkStack() const { stackGuard_.check(); }
  // Remembers the limit, which every further step of this execution raises again.
  void noteLimit(const KorTemplateLimitException& limit);

  void enterStatement(const KorTemplateStatement& statement) noexcept { statement_ = &statement; }
  const KorTemplateStatement* statement() const noexcept { return statement_; }
  void leaveTo(const KorTemplateStatement* statement) noexcept { statement_ = statement; }

  // Raises when one more running function would be too deep.
  void enterFunction() {
    if (functionDepth_ >= limitsInForce_.functionDepth) [[unlikely]]
      raiseFunctionDepth();
    ++functionDepth_;
  }
  void leaveFunction() noexcept { --functionDepth_; }

  // A scope could not be popped while an exception was on its way: whoever catches that one raises this failure in its
  // stead.
  void notePopFailure() noexcept { popFailed_ = true; }
  bool takePopFailure() noexcept { return std::exchange(popFailed_, false); }

  // Runs `body`, for which a host's call has entered the engine: the outermost one sets up the limits and settles what
  // the execution leaves behind.
  template <class Body>
  auto enter(Body&& body) {
    const Entry entry(*this);
    try {
      if constexpr (std::is_void_v<decltype(body())>) {
        body();
        leave();
      } else {
        auto result = body();
        leave();
        return result;
      }
    } catch (const KorTemplateLimitException& limit) {
      noteLimit(limit);
      leaveFailed();
      throw;
    } catch (...) {
      if (leaveFailed()) failAssertion("Stack frame is empty");
      throw;
    }
  }

 private:
  // One level of executions inside one another.
  class Entry {
   public:
    explicit Entry(KorTemplateEnvironment& environment)
        : environment_(environment), statement_(environment.statement_) {
      environment_.beginExecution();
    }
    ~Entry() { environment_.endExecution(statement_); }
    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;

   private:
    KorTemplateEnvironment& environment_;
    const KorTemplateStatement* statement_;  // that goes on when this level has ended
  };

  template <class T>
  void replace(Ref<T>& field, const Ref<T>& value) {
    park(field);
    field = value;
  }
  // Keeps the object until the outermost execution has ended.
  void park(const Ref<NSObject>& object) {
    if (executionDepth_ > 0 && object != nullptr) parked_.push_back(object);
  }

  void beginExecution();
  void endExecution(const KorTemplateStatement* outer) noexcept;
  void leave();
  // Whether a scope could not be popped on the way.
  bool leaveFailed() noexcept;
  static bool appendNumber(RawValue value, TextBuffer& text);
  void writeToStream(const Text& text);
  void flushOutput();
  // The same for all streams that were the output stream in this execution.
  void deliverOutput();
  void refuel();
  [[noreturn]] void raiseFunctionDepth();

  Ref<KorTemplateStream> outputStream_;
  Ref<KorTemplateStream> errorStream_;
  Ref<KorTemplateStack> stack_;
  NameMap<Ref<KorTemplateFunction>> functions_;

  KorTemplateLimits limits_;
  KorTemplateLimits limitsInForce_;
  std::int64_t fuel_ = 0;
  StackGuard stackGuard_;
  std::int32_t functionDepth_ = 0;
  std::int32_t executionDepth_ = 0;
  bool popFailed_ = false;
  const KorTemplateStatement* statement_ = nullptr;  // that runs; not owned
  SourceRange failedStatement_;
  std::optional<KorTemplateLimitException> reachedLimit_;
  ArgumentStorage argumentStorage_;
  std::vector<Ref<NSObject>> parked_;
  std::vector<Ref<KorTemplateStream>> replacedStreams_;  // in this execution
  std::size_t deliveredStreams_ = 0;                     // of those, the first ones that have been flushed
};

}  // namespace tavlo
