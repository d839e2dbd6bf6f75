#include "Source/KorTemplateEnvironment.h"

#include <cxxabi.h>

#include <algorithm>
#include <string>

#include "Foundation/Description.h"
#include "Foundation/NSNumber.h"
#include "Source/KorTemplateConsoleStream.h"
#include "Source/KorTemplateNullStream.h"
#include "Source/KorTemplateStatement.h"

namespace tavlo {

KorTemplateEnvironment::KorTemplateEnvironment()
    : outputStream_(KorTemplateNullStream::nullStream()),
      errorStream_(KorTemplateConsoleStream::consoleStream()),
      stack_(KorTemplateStack::stack()) {
  stack_->push(KorTemplateStackFrame::stackFrame());
}

std::vector<Ref<KorTemplateFunction>> KorTemplateEnvironment::functions() const {
  std::vector<Ref<KorTemplateFunction>> functions;
  for (const auto& entry : functions_) functions.push_back(entry.value);
  return functions;
}

std::vector<Name> KorTemplateEnvironment::functionNames() const {
  std::vector<Name> names;
  for (const auto& entry : functions_) names.push_back(entry.name);
  return names;
}

Ref<KorTemplateFunction> KorTemplateEnvironment::functionForName(const Name& name) const {
  requireParameter(!name.isAbsent(), "name != nil");
  return Ref<KorTemplateFunction>::retaining(findFunction(name));
}

std::vector<Name> KorTemplateEnvironment::namesForFunction(const Ref<KorTemplateFunction>& function) const {
  requireParameter(function != nullptr, "function != nil");
  const Ref<KorTemplateFunction> sought = function;  // isEqual() may let go of it
  std::vector<Name> names;
  for (std::size_t index = 0; index < functions_.size(); ++index) {  // isEqual may be a host's, and change the table
    const auto& entry = *(functions_.begin() + static_cast<std::ptrdiff_t>(index));
    const Name name = entry.name;
    const Ref<KorTemplateFunction> candidate = entry.value;
    if (candidate == sought || candidate->isEqual(*sought)) names.push_back(name);
  }
  return names;
}

void KorTemplateEnvironment::setFunctionForName(const Ref<KorTemplateFunction>& function, const Name& name) {
  requireParameter(function != nullptr, "function != nil");
  requireParameter(!name.isAbsent(), "name != nil");
  functionsChanged_ = true;
  Ref<KorTemplateFunction>* known = functions_.find(name);
  if (known == nullptr) return functions_.append(name, function);
  if (*known == function) return;
  replace(*known, function);
}

void KorTemplateEnvironment::removeFunction(const Ref<KorTemplateFunction>& function) {
  const auto kept = Ref<KorTemplateEnvironment>::retaining(this);  // what ends may let go of it
  const std::vector<Name> names = namesForFunction(function);
  for (const Name& name : names) {
    if (const Ref<KorTemplateFunction>* known = functions_.find(name)) park(*known);
  }
  if (!names.empty()) functionsChanged_ = true;
  const std::vector<Ref<KorTemplateFunction>> removed = functions_.removeAll(names);  // let go of last
}

void KorTemplateEnvironment::removeFunctionForName(const Name& name) {
  requireParameter(!name.isAbsent(), "name != nil");
  if (const Ref<KorTemplateFunction>* known = functions_.find(name)) {
    functionsChanged_ = true;
    park(*known);
    functions_.remove(name);
  }
}

std::vector<Name> KorTemplateEnvironment::globalVariableNames() const {
  const Ref<KorTemplateStackFrame> frame = stack_ == nullptr ? nullptr : stack_->firstFrame();
  return frame == nullptr ? std::vector<Name>() : frame->localVariableNames();
}

Value KorTemplateEnvironment::valueForGlobalVariableWithName(const Name& name) const {
  requireParameter(!name.isAbsent(), "name != nil");
  const Ref<KorTemplateStackFrame> frame = stack_ == nullptr ? nullptr : stack_->firstFrame();
  const Value own = frame == nullptr ? Value() : frame->valueForVariableWithName(name);
  return own.isAbsent() && layer_ != nullptr ? layer_->valueForGlobalVariableWithName(name) : own;
}

void KorTemplateEnvironment::setValueForGlobalVariableWithName(const Value& variable, const Name& name) {
  requireParameter(!variable.isAbsent(), "variable != nil");
  requireParameter(!name.isAbsent(), "name != nil");
  const Ref<KorTemplateStackFrame> frame = stack_ == nullptr ? nullptr : stack_->firstFrame();
  if (frame != nullptr) frame->setValueForVariableWithName(variable, name);
}

bool KorTemplateEnvironment::isGlobalVariableDefinedWithName(const Name& name) const {
  requireParameter(!name.isAbsent(), "name != nil");
  const Ref<KorTemplateStackFrame> frame = stack_ == nullptr ? nullptr : stack_->firstFrame();
  if (frame != nullptr && frame->isVariableDefinedWithName(name)) return true;
  return layer_ != nullptr && layer_->findVariable(name) != nullptr;
}

void KorTemplateEnvironment::setLayer(const Ref<KorTemplateLayer>& value) {
  if (value != nullptr && !value->isFrozen()) {
    NSException::raise(NSInvalidArgumentException, "The layer is not frozen: call share() when it is complete");
  }
  park(layer_);
  layer_ = value;
}

void KorTemplateEnvironment::setDiagnosticCallback(DiagnosticCallback callback) {
  replace(diagnosticCallback_, callback == nullptr ? nullptr : makeRef<HeldCallback>(std::move(callback)));
}

void KorTemplateEnvironment::writeOutput(RawValue value) {
  // The commonest stream and the commonest values: the text goes where it belongs.
  if (TextBuffer* const text = outputText()) {
    if (appendOutput(value, *text)) return;
  }
  if (value.kind() == ValueKind::Absent) return writeToStream(Text());
  if (value.isNumber()) {
    char digits[kNumberTextSize];
    return writeToStream(std::string_view(digits, static_cast<std::size_t>(writeNumber(digits, value) - digits)));
  }
  const Value held = Value::retaining(value);  // what follows may be a host's code
  if (const NSString* string = held.string()) return writeToStream(Text(string));
  writeToStream(Text(Description::of(held, limitsInForce().stringLength)));
}

void KorTemplateEnvironment::writeText(std::string_view text) {
  TextBuffer* const buffer = text.size() < kLongText ? outputText() : nullptr;
  if (buffer == nullptr) return writeToStream(text);
  countBytes(text.size());
  buffer->append(text);
}

void KorTemplateEnvironment::writeLentText(std::string_view text) {
  constexpr std::size_t kMostKept = std::size_t{64} * 1024;
  TextBuffer* const buffer = text.size() < kLongText ? outputText() : nullptr;
  if (buffer != nullptr) {
    countBytes(text.size());
    return buffer->append(text);
  }
  std::string copy = std::exchange(lentText_, {});  // a stream may write while it is written to
  copy = text;
  writeToStream(copy);
  if (copy.capacity() <= kMostKept) lentText_ = std::move(copy);
}

bool KorTemplateEnvironment::appendNumber(RawValue value, TextBuffer& text) {
  text.extend(writeNumber(text.room(kNumberTextSize), value));
  return true;
}

// The stream is the one that is current once the text is known; it may replace itself.
void KorTemplateEnvironment::writeToStream(const Text& text) {
  meter_.countOutput(text.view().size());
  lookBeforeHost();
  const Ref<KorTemplateStream> stream = outputStream_;
  if (stream != nullptr) stream->write(text);
}

void KorTemplateEnvironment::writeDiagnostic(const Text& text) {
  if (executionDepth_ > 0) countBytes(text.view().size());
  lookBeforeHost();
  flushOutput();
  const Ref<KorTemplateStream> stream = errorStream_;
  if (stream == nullptr) return;
  lookBeforeHost();
  stream->write(text);
  stream->flush();
}

std::optional<KorTemplateFailure> KorTemplateEnvironment::diagnosticInHand() noexcept {
  if (diagnosticCallback_ == nullptr) {
    watch_.forgetUnwinding();
    return {};
  }
  const FailureWatch::SharedTrace trace = traceInHand();
  if (popFailed_) return KorTemplateFailure(NSInternalInconsistencyException, "Stack frame is empty", trace);
  std::optional<KorTemplateFailure> failure = KorTemplateFailure::ofCurrentException(trace);
  watch_.clear();  // where the exception is raised once more, that is another failure
  return failure.has_value() ? failure : KorTemplateFailure("KorTemplateReturnIndication", "", trace);
}

void KorTemplateEnvironment::reportDiagnostic(const KorTemplateFailure& failure) {
  const Ref<HeldCallback> callback = diagnosticCallback_;  // it may replace itself
  if (callback == nullptr) return;
  lookBeforeHost();
  callback->call(failure);
}

KorTemplateFailure KorTemplateEnvironment::failureInHand() noexcept {
  std::optional<KorTemplateFailure> failure = executionDepth_ == 0 ? failure_ : std::nullopt;
  if (!failure.has_value()) {
    failure = KorTemplateFailure::ofCurrentException(executionDepth_ == 0 ? nullptr : traceInHand());
  }
  if (!failure.has_value()) failure.emplace("KorTemplateReturnIndication", "", nullptr);
  failure->setException(std::current_exception());
  return *failure;
}

void KorTemplateEnvironment::observe(KorTemplateUndefined kind, std::string_view sigil, std::string_view name) {
  const Ref<KorTemplateObserver> observer = observer_;  // the callback may replace it
  if (observer == nullptr) return;
  observer->noteOne(kind);
  const KorTemplateUndefinedPolicy policy = observer->policy(kind);
  if (policy == KorTemplateUndefinedPolicy::Count && observer->callback() == nullptr) return;
  countBytes(name.size());
  lookIfDue();  // the look-up may have taken a while
  const KorTemplateObservation observation{kind, std::string(sigil).append(name), FailureWatch::traceAt(position())};
  if (observer->callback() != nullptr) {
    const KorTemplateObserver::Callback callback = observer->callback();
    lookBeforeHost();
    callback(observation);
  }
  if (policy == KorTemplateUndefinedPolicy::Warn) return writeDiagnostic(observation.text());
  if (policy == KorTemplateUndefinedPolicy::Fail) throw NSException(NSGenericException, observation.text());
}

void KorTemplateEnvironment::requireIdle(const char* what) const {
  if (executionDepth_ > 0) {
    failAssertion(std::string("An environment cannot be ") + what + " while a template runs in it");
  }
}

void KorTemplateEnvironment::remember() {
  requireIdle("remembered");
  auto remembered = std::make_unique<Remembered>();
  const Ref<KorTemplateStackFrame> frame = stack_ == nullptr ? nullptr : stack_->firstFrame();
  if (frame != nullptr) {
    for (const Name& name : frame->localVariableNames()) {
      remembered->globals.append(name, frame->valueForLocalVariableWithName(name));
    }
  }
  for (const auto& entry : functions_) remembered->functions.append(entry.name, entry.value);
  remembered->outputStream = outputStream_;
  remembered->errorStream = errorStream_;
  remembered_.swap(remembered);
  functionsChanged_ = false;
}

void KorTemplateEnvironment::reset() {
  requireIdle("reset");
  const auto kept = Ref<KorTemplateEnvironment>::retaining(this);  // what ends may let go of it
  if (remembered_ == nullptr) {
    auto remembered = std::make_unique<Remembered>();
    remembered->outputStream = KorTemplateNullStream::nullStream();
    remembered->errorStream = KorTemplateConsoleStream::consoleStream();
    remembered_ = std::move(remembered);
  }
  do {  // what ends may run templates here, which change all of that again
    failure_.reset();
    failedStatement_ = {};
    outputStream_ = remembered_->outputStream;
    settleOutput();
    errorStream_ = remembered_->errorStream;
    if (functionsChanged_) resetFunctions();
    resetStack();
  } while (!isReset());
}

// But for the stack.
bool KorTemplateEnvironment::isReset() const noexcept {
  return !functionsChanged_ && !failure_.has_value() && outputStream_ == remembered_->outputStream &&
         errorStream_ == remembered_->errorStream;
}

void KorTemplateEnvironment::resetFunctions() {
  NameMap<Ref<KorTemplateFunction>> functions;
  for (const auto& entry : remembered_->functions) functions.append(entry.name, entry.value);
  functionsChanged_ = false;
  std::swap(functions_, functions);
}

// The ends of values may run a host's code, which may set another stack and change any that it can reach. So none is in
// force until nothing ends any more.
void KorTemplateEnvironment::resetStack() {
  Ref<KorTemplateStack> ready;
  if (stack_ != nullptr && stack_->hasOneReference() && stack_->canResetToFirstFrame()) {
    ready = std::exchange(stack_, nullptr);
    ready->resetToFirstFrame();
  } else {
    ready = KorTemplateStack::stack();
    ready->push(KorTemplateStackFrame::stackFrame());
  }
  while (stack_ != nullptr) {
    const Ref<KorTemplateStack> other = std::exchange(stack_, nullptr);
  }
  stack_ = std::move(ready);
  for (const auto& entry : remembered_->globals) stack_->current()->set(entry.name, entry.value);
}

FailureWatch::SharedTrace KorTemplateEnvironment::traceInHand() noexcept {
  FailureWatch::SharedTrace trace = watch_.traceOfCurrentException(position());
  if (limitTrace_ == nullptr || std::current_exception() == nullptr) return trace;
  try {
    throw;
  } catch (const KorTemplateLimitException&) {
    return limitTrace_;
  } catch (...) {
    return trace;
  }
}

void KorTemplateEnvironment::noteLimit(const KorTemplateLimitException& limit) {
  if (executionDepth_ == 0) return;
  if (limitTrace_ == nullptr) limitTrace_ = watch_.traceOfCurrentException(position());
  meter_.noteReached(limit);
}

void KorTemplateEnvironment::raiseFunctionDepth() {
  ++functionsLeft_;
  raiseLimit(KorTemplateLimit::FunctionDepth, static_cast<std::uint64_t>(std::max(limitsInForce().functionDepth, 0)));
}

void KorTemplateEnvironment::takeNextLimits() noexcept {
  meter_.setLimits(*nextLimits_);
  nextLimits_ = nullptr;
  settleOutput();
}

void KorTemplateEnvironment::beginExecution() {
  if (executionDepth_ == 0) {
    if (nextLimits_ != nullptr) takeNextLimits();
    functionsLeft_ = std::max(meter_.limits().functionDepth, 0);
    meter_.begin(cancellation_.get(), profile_.get());
    failedStatement_ = {};
    failure_.reset();
  }
  stackGuard_ = StackGuard::forThisThread(meter_.limits().stackLeft);
  ++executionDepth_;
}

void KorTemplateEnvironment::endExecution(const KorTemplateStatement* outer) noexcept {
  statement_ = outer;  // what ran on this level may be gone with its template
  if (--executionDepth_ > 0) return;
  if (stack_ != nullptr) stack_->trimSpareFrames();
  argumentStorage_.trim();
  meter_.end();
  limitTrace_ = nullptr;
  deliveredStreams_ = 0;
  deliveredOutput_ = nullptr;
  if (!watch_.isClear() || !parked_.empty() || !replacedStreams_.empty()) endWhatWasKept();
}

// The ends may run a host's code, which may run templates here. What failed is what the host has asked for.
void KorTemplateEnvironment::endWhatWasKept() noexcept {
  const std::optional<KorTemplateFailure> failure = failure_;
  const SourceRange failedStatement = failedStatement_;
  {
    if (!parked_.empty()) parkedObjects_ = std::unordered_set<const NSObject*>();
    if (!undeliveredStreams_.empty()) undeliveredStreams_ = std::unordered_set<const KorTemplateStream*>();
    const std::vector<Ref<NSObject>> parked = std::exchange(parked_, {});
    const std::vector<Ref<KorTemplateStream>> streams = std::exchange(replacedStreams_, {});
    watch_.clear();
  }
  failure_ = failure;
  failedStatement_ = failedStatement;
}

void KorTemplateEnvironment::leave() {
  if (hasReachedLimit()) [[unlikely]]
    raiseReachedLimit();
  if (executionDepth_ > 1) return;
  lookIfDue();  // the last look-up may have taken a while
  std::size_t left = mostToDeliver();
  deliverOutput(left, MayEnd::Yes);
}

void KorTemplateEnvironment::noteFailure() noexcept {
  const FailureWatch::SharedTrace trace = traceInHand();
  if (executionDepth_ != 1) return;
  failedStatement_ = watch_.failedStatement();
  failure_ = popFailed_ && !hasReachedLimit()
                 ? KorTemplateFailure(NSInternalInconsistencyException, "Stack frame is empty", trace)
                 : KorTemplateFailure::ofCurrentException(trace);
  // Where the thread ends, that may be in a write: another one could wait for ever. The stream keeps the output.
  if (std::current_exception() == nullptr) (void)takePopFailure();
}

// How many streams are asked to deliver what they have gathered: those that there are, and not without end those that
// are set meanwhile.
std::size_t KorTemplateEnvironment::mostToDeliver() const noexcept {
  constexpr std::size_t kMostSetMeanwhile = 1000;
  return replacedStreams_.size() - deliveredStreams_ + 1 + kMostSetMeanwhile;
}

// Delivers on the way of an exception that is none of C++ and so cannot be kept: in no handler, since no two of them
// may be handled at once, and a stream may raise another.
class KorTemplateEnvironment::DeliveryOnTheWay {
 public:
  explicit DeliveryOnTheWay(KorTemplateEnvironment& environment) : environment_(environment) {}
  DeliveryOnTheWay(const DeliveryOnTheWay&) = delete;
  DeliveryOnTheWay& operator=(const DeliveryOnTheWay&) = delete;
  ~DeliveryOnTheWay() {
    if (isDue) environment_.deliverFailed();
  }

  bool isDue = false;

 private:
  KorTemplateEnvironment& environment_;
};

void KorTemplateEnvironment::runEntered(void (*body)(void* context), void* context) {
  DeliveryOnTheWay delivery(*this);
  std::exception_ptr failure;
  bool isLimit = false;
  try {
    body(context);
    return leave();
  } catch (const KorTemplateLimitException& limit) {
    noteLimit(limit);
    noteFailure();
    isLimit = true;
    failure = std::current_exception();
  } catch (const abi::__forced_unwind&) {
    noteFailure();
    throw;  // the end of the thread, which nobody may stop
  } catch (...) {
    noteFailure();
    failure = std::current_exception();
    delivery.isDue = failure == nullptr;
    if (delivery.isDue) throw;
  }
  leaveFailed(failure, isLimit);
}

void KorTemplateEnvironment::deliverFailed() {
  bool isDelivered = executionDepth_ > 1;
  for (std::size_t left = mostToDeliver(); left > 0 && !isDelivered;) {
    try {
      deliverOutput(left, MayEnd::No);
      isDelivered = true;
    } catch (const abi::__forced_unwind&) {
      throw;  // the end of the thread, which nobody may stop
    } catch (...) {
      // The exception that is on its way says more than the one that follows from it. The other streams are asked yet.
    }
  }
}

void KorTemplateEnvironment::leaveFailed(const std::exception_ptr& failure, bool isLimit) {
  deliverFailed();
  if (takePopFailure() && !isLimit) failAssertion("Stack frame is empty");
  std::rethrow_exception(failure);
}

void KorTemplateEnvironment::setOutputStream(const Ref<KorTemplateStream>& value) {
  const Ref<KorTemplateStream> next = value;  // which may be what outputStream() answers
  if (next == outputStream_) return;
  if (executionDepth_ > 0 && outputStream_ != nullptr) keepToDeliver(outputStream_);
  if (next.get() == deliveredOutput_) deliveredOutput_ = nullptr;  // what is written from here on is another text
  const Ref<KorTemplateStream> old = std::exchange(outputStream_, next);  // its end may let go of this environment
  settleOutput();
}

// A stream that is replaced: it is asked once more where it may have gathered something since it was asked last.
void KorTemplateEnvironment::keepToDeliver(const Ref<KorTemplateStream>& stream) {
  if (stream.get() == deliveredOutput_) return park(stream);  // no other one may lie where it does
  if (undeliveredStreams_.contains(stream.get())) return;
  replacedStreams_.push_back(stream);
  try {
    undeliveredStreams_.insert(stream.get());
  } catch (...) {
    replacedStreams_.pop_back();
    throw;
  }
}

// Asks no more than `left` of them, which it counts.
void KorTemplateEnvironment::deliverOutput(std::size_t& left, MayEnd mayEnd) {
  while (hasToDeliver()) {
    if (mayEnd == MayEnd::Yes) lookBeforeHost();
    const Ref<KorTemplateStream> stream = nextToDeliver();
    if (left == 0) failAssertion("An output stream is replaced whenever one is flushed");
    --left;
    stackGuard_.check();  // a stream may run a template, at whose end another one delivers
    stream->flush();
  }
}

bool KorTemplateEnvironment::hasToDeliver() const noexcept {
  const bool isOutputLeft = outputStream_ != nullptr && outputStream_.get() != deliveredOutput_;
  return isOutputLeft || deliveredStreams_ < replacedStreams_.size();
}

// None is asked again where its failure leaves: one that runs a template would be asked twice as often on each level.
Ref<KorTemplateStream> KorTemplateEnvironment::nextToDeliver() noexcept {
  if (deliveredStreams_ < replacedStreams_.size()) {
    const Ref<KorTemplateStream>& next = replacedStreams_[deliveredStreams_++];
    undeliveredStreams_.erase(next.get());
    return next;
  }
  deliveredOutput_ = outputStream_.get();
  return outputStream_;
}

void KorTemplateEnvironment::flushOutput() {
  const Ref<KorTemplateStream> stream = outputStream_;
  if (stream != nullptr) stream->flush();
}

}  // namespace tavlo
