#include "Source/KorTemplateEnvironment.h"

#include <limits>
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
  std::vector<Name> names;
  for (std::size_t index = 0; index < functions_.size(); ++index) {  // isEqual may be a host's, and change the table
    const auto& entry = *(functions_.begin() + static_cast<std::ptrdiff_t>(index));
    const Name name = entry.name;
    const Ref<KorTemplateFunction> candidate = entry.value;
    if (candidate == function || candidate->isEqual(*function)) names.push_back(name);
  }
  return names;
}

void KorTemplateEnvironment::setFunctionForName(const Ref<KorTemplateFunction>& function, const Name& name) {
  requireParameter(function != nullptr, "function != nil");
  requireParameter(!name.isAbsent(), "name != nil");
  Ref<KorTemplateFunction>* known = functions_.find(name);
  if (known == nullptr) return functions_.append(name, function);
  if (*known == function) return;
  replace(*known, function);
}

void KorTemplateEnvironment::removeFunction(const Ref<KorTemplateFunction>& function) {
  for (const Name& name : namesForFunction(function)) removeFunctionForName(name);
}

void KorTemplateEnvironment::removeFunctionForName(const Name& name) {
  requireParameter(!name.isAbsent(), "name != nil");
  if (const Ref<KorTemplateFunction>* known = functions_.find(name)) {
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
  return frame == nullptr ? Value() : frame->valueForVariableWithName(name);
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
  return frame != nullptr && frame->isVariableDefinedWithName(name);
}

void KorTemplateEnvironment::writeOutput(RawValue value) {
  // The commonest stream and the commonest values: the text goes where it belongs.
  TextBuffer* const text = outputText();
  if (text != nullptr && appendOutput(value, *text)) return;
  if (value.kind() == ValueKind::Absent) return writeToStream(Text());
  if (value.isNumber()) {
    char digits[kNumberTextSize];
    return writeToStream(std::string_view(digits, static_cast<std::size_t>(writeNumber(digits, value) - digits)));
  }
  const Value held = Value::retaining(value);  // what follows may be a host's code
  if (const NSString* string = held.string()) return writeToStream(Text(string));
  writeToStream(Text(Description::of(held, limitsInForce_.stringLength)));
}

void KorTemplateEnvironment::writeText(std::string_view text) {
  TextBuffer* const buffer = outputText();
  if (buffer != nullptr) return buffer->append(text);
  writeToStream(text);
}

bool KorTemplateEnvironment::appendNumber(RawValue value, TextBuffer& text) {
  text.extend(writeNumber(text.room(kNumberTextSize), value));
  return true;
}

// The stream is the one that is current once the text is known; it may replace itself.
void KorTemplateEnvironment::writeToStream(const Text& text) {
  const Ref<KorTemplateStream> stream = outputStream_;
  if (stream != nullptr) stream->write(text);
}

void KorTemplateEnvironment::writeDiagnostic(const Text& text) {
  flushOutput();
  const Ref<KorTemplateStream> stream = errorStream_;
  if (stream != nullptr) stream->write(text);
}

void KorTemplateEnvironment::noteLimit(const KorTemplateLimitException& limit) {
  if (reachedLimit_.has_value() || executionDepth_ == 0) return;
  reachedLimit_ = limit;
  fuel_ = 0;
}

void KorTemplateEnvironment::refuel() {
  fuel_ = 0;
  if (reachedLimit_.has_value()) throw KorTemplateLimitException(*reachedLimit_);
  fuel_ = std::numeric_limits<std::int64_t>::max();
}

void KorTemplateEnvironment::raiseFunctionDepth() {
  raiseLimit(KorTemplateLimit::FunctionDepth, static_cast<std::uint64_t>(limitsInForce_.functionDepth));
}

void KorTemplateEnvironment::beginExecution() {
  if (executionDepth_ == 0) {
    limitsInForce_ = limits_;
    stackGuard_ = StackGuard::forThisThread(limits_.stackLeft);
    fuel_ = 0;  // refilled, or refused, at the first step
    failedStatement_ = {};
    popFailed_ = false;
  }
  ++executionDepth_;
}

void KorTemplateEnvironment::endExecution(const KorTemplateStatement* outer) noexcept {
  statement_ = outer;  // what ran on this level may be gone with its template
  if (--executionDepth_ > 0) return;
  if (stack_ != nullptr) stack_->trimSpareFrames();
  reachedLimit_.reset();
  // Their ends may run a host's code.
  const std::vector<Ref<NSObject>> parked = std::exchange(parked_, {});
  const std::vector<Ref<KorTemplateStream>> streams = std::exchange(replacedStreams_, {});
  deliveredStreams_ = 0;
}

void KorTemplateEnvironment::leave() {
  if (executionDepth_ == 1) deliverOutput();
}

bool KorTemplateEnvironment::leaveFailed() noexcept {
  if (executionDepth_ == 1) {
    if (statement_ != nullptr) failedStatement_ = statement_->sourceRange();
    try {
      deliverOutput();
    } catch (...) {
      // The exception that is on its way says more than the one that follows from it.
    }
  }
  return takePopFailure();
}

void KorTemplateEnvironment::setOutputStream(const Ref<KorTemplateStream>& value) {
  if (executionDepth_ > 0 && outputStream_ != nullptr && outputStream_ != value) {
    replacedStreams_.push_back(outputStream_);
  }
  outputStream_ = value;
}

void KorTemplateEnvironment::deliverOutput() {
  while (deliveredStreams_ < replacedStreams_.size()) {
    const Ref<KorTemplateStream> stream = replacedStreams_[deliveredStreams_++];
    stream->flush();
  }
  flushOutput();
}

void KorTemplateEnvironment::flushOutput() {
  const Ref<KorTemplateStream> stream = outputStream_;
  if (stream != nullptr) stream->flush();
}

}  // namespace tavlo
