#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <type_traits>
#include <unordered_set>
#include <utility>
#include <vector>

#include "Foundation/KorTemplateLimits.h"
#include "Foundation/NSObject.h"
#include "Foundation/NSString.h"
#include "Foundation/Name.h"
#include "Foundation/Ref.h"
#include "Foundation/StackGuard.h"
#include "Foundation/Value.h"
#include "Foundation/ValueConversion+Scalars.h"
#include "Source/ArgumentStorage.h"
#include "Source/ExecutionMeter.h"
#include "Source/FailureWatch.h"
#include "Source/KorTemplateActivation.h"
#include "Source/KorTemplateCancellation.h"
#include "Source/KorTemplateFailure.h"
#include "Source/KorTemplateFileDescriptorStream.h"
#include "Source/KorTemplateFunction.h"
#include "Source/KorTemplateLayer.h"
#include "Source/KorTemplateObserver.h"
#include "Source/KorTemplateProfile.h"
#include "Source/KorTemplateResult.h"
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

  // What lies below the environment's own globals and functions: found where it has none of the name, changed by
  // nothing. Absent for none. Raises `NSInvalidArgumentException` for a layer that is not frozen.
  const Ref<KorTemplateLayer>& layer() const noexcept { return layer_; }
  void setLayer(const Ref<KorTemplateLayer>& value);

  // All functions, and all their names, in no particular order, without those of the layer.
  std::vector<Ref<KorTemplateFunction>> functions() const;
  std::vector<Name> functionNames() const;
  // The function of exactly that name, also from the layer, or absent.
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

  // Globals are the variables of the stack's first frame; without one these do nothing and answer absent or false. A
  // global of the layer is read, and is defined, where there is no own one of its name; the names are the own ones.
  std::vector<Name> globalVariableNames() const;
  Value valueForGlobalVariableWithName(const Name& name) const;
  // Neither argument may be absent.
  void setValueForGlobalVariableWithName(const Value& variable, const Name& name);
  bool isGlobalVariableDefinedWithName(const Name& name) const;

  // A global of anything that becomes a value: numbers and texts as they are, containers, times and objects of the
  // host's with Foundation/ValueConversion.h, Foundation/HostObject.h and Foundation/LazyCollections.h.
  template <ConvertibleToValue T>
  void setGlobal(const Name& name, T&& object) {
    setValueForGlobalVariableWithName(valueOf(std::forward<T>(object)), name);
  }

  const KorTemplateLimits& limits() const noexcept { return nextLimits_ == nullptr ? meter_.limits() : *nextLimits_; }
  // Takes effect when the next outermost execution begins.
  void setLimits(const KorTemplateLimits& limits) { nextLimits_ = std::make_unique<const KorTemplateLimits>(limits); }
  // Those of the execution that runs.
  const KorTemplateLimits& limitsInForce() const noexcept { return meter_.limits(); }

  // What may ask executions to end; absent for nobody. Takes effect when the next outermost execution begins.
  const Ref<KorTemplateCancellation>& cancellation() const noexcept { return cancellation_; }
  void setCancellation(const Ref<KorTemplateCancellation>& value) { replace(cancellation_, value); }

  // Gathers where the time of executions goes, which makes them slower; absent for nobody. Takes effect when the next
  // outermost execution begins.
  const Ref<KorTemplateProfile>& profile() const noexcept { return profile_; }
  void setProfile(const Ref<KorTemplateProfile>& value) { replace(profile_, value); }

  // The steps, as `KorTemplateLimits` counts them, of the outermost execution that runs, or of the last one.
  std::uint64_t stepsTaken() const noexcept { return meter_.stepsTaken(); }

  // Where the statement stands at which the last outermost execution failed; nowhere when it did not.
  SourceRange failedStatement() const noexcept { return failedStatement_; }
  // Why it failed, and where that came from; null when it did not. Good until the next one begins, or reset().
  const KorTemplateFailure* lastFailure() const noexcept { return failure_.has_value() ? &*failure_ : nullptr; }

  // Called for each diagnostic, which is a function that failed, once its text is written to the error stream. What it
  // raises is raised in the template. Empty for none.
  using DiagnosticCallback = std::function<void(const KorTemplateFailure&)>;
  void setDiagnosticCallback(DiagnosticCallback callback);

  // Who hears of undefined variables, keys and functions; absent for nobody.
  const Ref<KorTemplateObserver>& observer() const noexcept { return observer_; }
  void setObserver(const Ref<KorTemplateObserver>& value) { replace(observer_, value); }

  // For environments that serve one request after another. remember() notes the globals, the functions and the streams
  // as they are; reset() goes back to what was noted last, or else to an environment as it is made, with a stack of one
  // frame, also after an execution that failed. Layer, limits, cancellation, profile, observer and callback stay. A
  // value that was a global is the very same one afterwards. Both raise `NSInternalInconsistencyException` while a
  // template runs.
  void remember();
  void reset();

  const char* className() const override { return "KorTemplateEnvironment"; }

  // What the engine's nodes use while a template runs.

  // The value of a variable where it lives, good until a variable changes or other code runs; null where there is none.
  // The look-up counts; or it leaves in `steps` what it counts.
  const Value* findVariable(const Name& name) const noexcept {
    const KorTemplateStackFrame* frame = stack_ == nullptr ? nullptr : stack_->current();
    return orOfLayer(frame == nullptr ? nullptr : frame->find(name), name);
  }
  const Value* findVariable(const Name& name, std::size_t& steps) const noexcept {
    const KorTemplateStackFrame* frame = stack_ == nullptr ? nullptr : stack_->current();
    return orOfLayer(frame == nullptr ? nullptr : frame->find(name, steps), name);
  }
  // The same without any call; false where that does not suffice.
  [[gnu::always_inline]] bool findVariableQuickly(const Name& name, const Value*& value) const noexcept {
    const KorTemplateStackFrame* frame = stack_ == nullptr ? nullptr : stack_->current();
    return frame != nullptr && frame->findQuickly(name, value);
  }
  // The same with one, for a variable so near that looking it up counts nothing; null for every other one.
  const Value* findVariableNear(const Name& name) const noexcept {
    const KorTemplateStackFrame* frame = stack_ == nullptr ? nullptr : stack_->current();
    const Value* value = nullptr;
    if (frame == nullptr || frame->findQuickly(name, value)) [[likely]]
      return value;
    return frame->findNear(name);
  }
  // Stores a variable in the current frame.
  void setVariable(const Name& name, Value value) {
    KorTemplateStackFrame* frame = stack_ == nullptr ? nullptr : stack_->current();
    if (frame != nullptr) frame->set(name, std::move(value));
  }
  // The function of that name, lent; null where there is none.
  KorTemplateFunction* findFunction(const Name& name) const noexcept {
    const Ref<KorTemplateFunction>* function = functions_.find(name);
    if (function != nullptr) [[likely]]
      return function->get();
    return layer_ == nullptr ? nullptr : layer_->findFunction(name);
  }
  // What is lent for a variable that is not defined: nothing, so that it is evaluated, where that is to be observed.
  RawValue undefinedVariable() const noexcept { return observer_ == nullptr ? RawValue::null() : RawValue::nothing(); }
  bool isObserved() const noexcept { return observer_ != nullptr; }
  // Tells the observer, if there is one; the name is as the template writes it, behind `sigil`. May run a host's code,
  // and raise.
  void observe(KorTemplateUndefined kind, std::string_view sigil, std::string_view name);
  ArgumentStorage& argumentStorage() noexcept { return argumentStorage_; }

  // The text to which output is appended, where that runs nobody else's code; null otherwise.
  TextBuffer* outputText() const noexcept {
    if (directOutput_ != nullptr) return directOutput_->target();
    return directFile_ == nullptr ? nullptr : directFile_->target();
  }
  // From so many bytes on a text is written as a whole, which a file takes as it is.
  static constexpr std::size_t kLongText = KorTemplateFileDescriptorStream::kCapacity;
  // Appends a string or a number to such a text; false for every other value, and for a long text.
  bool appendOutput(RawValue value, TextBuffer& text) {
    if (value.kind() != ValueKind::Object) return value.isNumber() && appendNumber(value, text);
    if (value.payload.object->kind() != ObjectKind::String) return false;
    const auto& string = static_cast<const NSString&>(*value.payload.object);
    if (string.byteLength() >= kLongText) [[unlikely]]
      return false;
    countBytes(string.byteLength());
    text.append(string.view());
    return true;
  }
  // Writes the text of one output statement; the value may be lent, and is not the null object.
  void writeOutput(RawValue value);
  // Writes a text that is a statement's whole output, and lives as long as the call.
  void writeText(std::string_view text);
  // The same for a text that any code of the host's may change.
  void writeLentText(std::string_view text);
  // Writes a diagnostic to the error stream, behind all output so far.
  void writeDiagnostic(const Text& text);
  // The failure of the function that runs, by the exception whose handler calls this: what the host asks to be told of;
  // absent where it asks for nothing.
  std::optional<KorTemplateFailure> diagnosticInHand() noexcept;
  // Tells the host.
  void reportDiagnostic(const KorTemplateFailure& failure);
  // The failure that the exception in hand is, for who answers with it; the exception goes along.
  KorTemplateFailure failureInHand() noexcept;

  // Counts a statement, an iteration, a call or an operator. Raises a limit that was reached before in this execution.
  void step() { meter_.step(); }
  // Counts more of them at once, and work on a text.
  void countSteps(std::size_t steps) { meter_.count(steps); }
  void countBytes(std::size_t bytes) { meter_.countBytes(bytes); }
  // Looks at the limits where what was counted has taken all that may be counted without looking.
  void lookIfDue() { meter_.count(0); }
  // Raises when recursion comes too near the end of the thread's stack.
  [[gnu::always_inline]] void checkStack() const { stackGuard_.check(); }
  // Raises when time is over, before the host is called, however few steps have been counted.
  void lookBeforeHost() { meter_.lookBeforeHost(); }
  // Whether this execution has reached a limit, whoever has caught that; and raises it again.
  bool hasReachedLimit() const noexcept { return meter_.hasReachedLimit(); }
  void raiseReachedLimit() { meter_.look(); }
  // Remembers the limit, which every further step of this execution raises again.
  void noteLimit(const KorTemplateLimitException& limit);

  void enterStatement(const KorTemplateStatement& statement) noexcept { statement_ = &statement; }
  const KorTemplateStatement* statement() const noexcept { return statement_; }
  FailureWatch::Position position() const noexcept {
    const std::int32_t calls = std::max(limitsInForce().functionDepth, 0) - functionsLeft_;
    return {innermost_, statement_, static_cast<std::size_t>(std::max(calls, 0))};
  }
  void leaveTo(const KorTemplateStatement* statement) noexcept { statement_ = statement; }

  // One level more that runs, until leaveLevel(). A level that an exception leaves says so before: the statement that
  // called it runs then, since nobody needs to keep what has run in the level.
  void enterLevel(KorTemplateActivation& level) noexcept {
    level.outer = innermost_;
    level.caller = statement_;
    innermost_ = &level;
  }
  void leaveLevel(const KorTemplateActivation& level) noexcept { innermost_ = level.outer; }
  void noteUnwinding() noexcept {
    watch_.noteUnwinding(position());
    if (innermost_->caller == nullptr) return;
    statement_ = innermost_->caller;
    watch_.goBackTo(statement_);
  }

  // The same for a running function. Raises where one more would be too deep.
  void enterFunction(KorTemplateActivation& level) {
    if (--functionsLeft_ < 0) [[unlikely]]
      raiseFunctionDepth();
    enterLevel(level);
  }
  void leaveFunction(const KorTemplateActivation& level) noexcept {
    ++functionsLeft_;
    leaveLevel(level);
  }

  // A scope could not be popped while an exception was on its way: whoever catches that one raises this failure in its
  // stead.
  void notePopFailure() noexcept { popFailed_ = true; }
  bool takePopFailure() noexcept { return std::exchange(popFailed_, false); }

  // Runs `body`, for which a host's call has entered the engine: the outermost one sets up the limits and settles what
  // the execution leaves behind.
  template <class Body>
  auto enter(Body&& body) {
    using Result = decltype(body());
    const Entry entry(*this);
    if constexpr (std::is_void_v<Result>) {
      runEntered([](void* context) { (*static_cast<std::remove_reference_t<Body>*>(context))(); }, &body);
    } else {
      Result result{};
      auto store = [&] { result = body(); };
      runEntered([](void* context) { (*static_cast<decltype(store)*>(context))(); }, &store);
      return result;
    }
  }

 private:
  const Value* orOfLayer(const Value* value, const Name& name) const noexcept {
    return value != nullptr || layer_ == nullptr ? value : layer_->findVariable(name);
  }

  // One level of executions inside one another.
  class Entry {
   public:
    explicit Entry(KorTemplateEnvironment& environment)
        : environment_(environment),
          kept_(Ref<KorTemplateEnvironment>::retaining(&environment)),
          outerGuard_(environment.stackGuard_),
          outerUnwinding_(environment.watch_.takeUnwinding()),
          outerPopFailed_(environment.takePopFailure()) {
      environment_.beginExecution();
      meterOfThread_.emplace(environment_.meter_);
      environment_.enterLevel(level_);
    }
    ~Entry() {
      environment_.leaveLevel(level_);
      meterOfThread_.reset();
      environment_.stackGuard_ = outerGuard_;
      environment_.watch_.putBackUnwinding(std::move(outerUnwinding_));
      environment_.popFailed_ = outerPopFailed_;
      environment_.endExecution(level_.caller);
    }
    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;

   private:
    KorTemplateEnvironment& environment_;
    Ref<KorTemplateEnvironment> kept_;  // the host may let go of it meanwhile
    KorTemplateActivation level_{nullptr};
    StackGuard outerGuard_;  // of the thread that runs what is around this, which may be another
    FailureWatch::Unwinding outerUnwinding_;
    bool outerPopFailed_;
    std::optional<WorkMeter::Scope> meterOfThread_;
  };

  // Is kept as all else that is replaced.
  struct HeldCallback final : NSObject {
    explicit HeldCallback(DiagnosticCallback callback) : call(std::move(callback)) {}
    DiagnosticCallback call;
  };

  // What reset() goes back to.
  struct Remembered {
    NameMap<Value> globals;
    NameMap<Ref<KorTemplateFunction>> functions;
    Ref<KorTemplateStream> outputStream;
    Ref<KorTemplateStream> errorStream;
  };

  template <class T>
  void replace(Ref<T>& field, const Ref<T>& value) {
    park(field);
    field = value;
  }
  // Keeps the object until the outermost execution has ended.
  void park(const Ref<NSObject>& object) {
    if (executionDepth_ == 0 || object == nullptr || parkedObjects_.contains(object.get())) return;
    parked_.push_back(object);
    parkedObjects_.insert(object.get());
  }

  void beginExecution();
  void takeNextLimits() noexcept;
  void endExecution(const KorTemplateStatement* outer) noexcept;
  void endWhatWasKept() noexcept;
  void leave();
  // Notes the exception in hand as the failure of the execution.
  void noteFailure() noexcept;
  // Runs what is inside an entry, and settles what it leaves behind.
  void runEntered(void (*body)(void* context), void* context);
  // Leaves with that exception, or with that of a scope that could not be popped on the way. Called in no handler: what
  // is delivered may end the thread, which no handler within another one survives.
  [[noreturn]] void leaveFailed(const std::exception_ptr& failure, bool isLimit);
  // Asks the streams for what they have gathered, behind a failure.
  class DeliveryOnTheWay;
  void deliverFailed();
  static bool appendNumber(RawValue value, TextBuffer& text);
  void writeToStream(const Text& text);
  void flushOutput();
  // The same for all streams that were the output stream in this execution, which are kept for that. Whether a limit
  // may end it: the streams that are left then are asked where the execution fails.
  enum class MayEnd { No, Yes };
  void deliverOutput(std::size_t& left, MayEnd mayEnd);
  std::size_t mostToDeliver() const noexcept;
  void keepToDeliver(const Ref<KorTemplateStream>& stream);
  [[gnu::visibility("hidden")]] bool hasToDeliver() const noexcept;
  // Each of them once, the last of all the output stream.
  [[gnu::visibility("hidden")]] Ref<KorTemplateStream> nextToDeliver() noexcept;
  // Settles whether output is appended to a text without further ado, which no limit may count then.
  void settleOutput() noexcept {
    const bool mayBeDirect = outputStream_ != nullptr && !meter_.limitsOutput();
    const ObjectKind kind = mayBeDirect ? outputStream_->kind() : ObjectKind::Other;
    directOutput_ = kind == kStringStreamKind ? static_cast<KorTemplateStringStream*>(outputStream_.get()) : nullptr;
    directFile_ = kind == kFileDescriptorStreamKind ? static_cast<KorTemplateFileDescriptorStream*>(outputStream_.get())
                                                    : nullptr;
  }
  [[noreturn]] void raiseFunctionDepth();
  // Where the exception in hand was raised; for a limit where it was first reached.
  FailureWatch::SharedTrace traceInHand() noexcept;
  void requireIdle(const char* what) const;
  bool isReset() const noexcept;
  void resetFunctions();
  // Goes back to a stack of one frame, with what is remembered of it.
  void resetStack();

  Ref<KorTemplateStream> outputStream_;
  KorTemplateStringStream* directOutput_ = nullptr;        // outputStream_ where it may be appended to; not owned
  KorTemplateFileDescriptorStream* directFile_ = nullptr;  // the same for one of that class
  Ref<KorTemplateStream> errorStream_;
  Ref<KorTemplateStack> stack_;
  NameMap<Ref<KorTemplateFunction>> functions_;
  Ref<KorTemplateLayer> layer_;
  Ref<KorTemplateObserver> observer_;
  Ref<HeldCallback> diagnosticCallback_;
  std::unique_ptr<Remembered> remembered_;
  bool functionsChanged_ = false;  // since they were remembered

  std::unique_ptr<const KorTemplateLimits> nextLimits_;  // of the next outermost execution; null for no others
  ExecutionMeter meter_{*this};
  Ref<KorTemplateCancellation> cancellation_;
  Ref<KorTemplateProfile> profile_;
  StackGuard stackGuard_;
  std::int32_t functionsLeft_ = KorTemplateLimits{}.functionDepth;  // that may begin, below those that run
  std::int32_t executionDepth_ = 0;
  bool popFailed_ = false;
  const KorTemplateStatement* statement_ = nullptr;   // that runs; not owned
  const KorTemplateActivation* innermost_ = nullptr;  // level that runs; not owned
  SourceRange failedStatement_;
  std::optional<KorTemplateFailure> failure_;
  FailureWatch watch_;
  FailureWatch::SharedTrace limitTrace_;  // of the limit that was reached
  ArgumentStorage argumentStorage_;
  std::string lentText_;                                 // memory for writeLentText()
  std::vector<Ref<NSObject>> parked_;                    // each once, in the order in which they were replaced
  std::unordered_set<const NSObject*> parkedObjects_;    // the same ones
  std::vector<Ref<KorTemplateStream>> replacedStreams_;  // in this execution
  std::size_t deliveredStreams_ = 0;                     // of those, the first ones that have been flushed
  std::unordered_set<const KorTemplateStream*> undeliveredStreams_;  // the others
  const KorTemplateStream* deliveredOutput_ = nullptr;  // the output stream, once it has been asked; not owned
};

}  // namespace tavlo
