#include "Source/FailureWatch.h"

#include <algorithm>
#include <cstddef>
#include <utility>

#include "Foundation/WorkMeter.h"
#include "Source/KorTemplateInternalFunction.h"
#include "Source/KorTemplateStatement.h"

namespace tavlo {

namespace {

using Activation = KorTemplateActivation;

// To tell of so many levels is a step.
constexpr std::size_t kLevelsOfStep = 4;

// The text that a function's statements stand in; absent for a function of the host's.
const KorTemplateSource* sourceOf(const KorTemplateFunction& function) {
  if (function.kind() != kInternalFunctionKind) return nullptr;
  return static_cast<const KorTemplateInternalFunction&>(function).source().get();
}

bool isHostFunction(const Activation& level) {
  return level.function != nullptr && level.function->kind() != kInternalFunctionKind;
}

const KorTemplateSource* sourceOf(const Activation& level) {
  return level.function != nullptr ? sourceOf(*level.function) : level.source;
}

// The innermost level from there on that is none of a host's function; null for none.
const Activation* withText(const Activation* level) {
  while (level != nullptr && isHostFunction(*level)) level = level->outer;
  return level;
}

// The text that the statement stands in at which `level` is. A level that has begun no statement of its own is at that
// of the level around it; in a template that runs itself again and again both are the same.
const KorTemplateSource* sourceAt(const Activation* level, const KorTemplateStatement* statement) {
  level = withText(level);
  while (level != nullptr && level->function == nullptr && level->caller == statement) {
    const Activation* const around = withText(level->outer);
    if (around != nullptr && sourceOf(*around) == level->source) break;
    level = around;
  }
  return level == nullptr ? nullptr : sourceOf(*level);
}

SourceRange rangeOf(const KorTemplateStatement* statement) {
  return statement == nullptr ? SourceRange() : statement->sourceRange();
}

KorTemplatePlace placeAt(const Activation* level, const KorTemplateStatement* statement) {
  if (statement == nullptr) return {};
  // NOLINTNEXTLINE(*-const-cast): objects are counted through const
  auto* const source = const_cast<KorTemplateSource*>(sourceAt(level, statement));
  return {Ref<KorTemplateSource>::retaining(source), statement->sourceRange()};
}

// The level whose statement runs: a function that has begun none yet is at its caller's.
const Activation* levelOf(const FailureWatch::Position& at) {
  const Activation* const level = at.innermost;
  return level != nullptr && level->function != nullptr && level->caller == at.statement ? level->outer : level;
}

}  // namespace

KorTemplateTrace FailureWatch::traceAt(const Position& at, std::size_t mostCalls) {
  constexpr std::size_t kLevelsOfCall = 4;  // a host may enter the engine again in each
  KorTemplateTrace trace;
  trace.place = placeAt(levelOf(at), at.statement);
  trace.callCount = at.calls;
  const std::size_t calls = std::min(at.calls, mostCalls);
  const Activation* level = at.innermost;
  std::size_t levels = 0;
  for (; level != nullptr && trace.calls.size() < calls && levels < kLevelsOfCall * mostCalls; ++levels) {
    if (level->function != nullptr) {
      trace.calls.emplace_back(*level->functionName, placeAt(level->outer, level->caller));
    }
    level = level->outer;
  }
  WorkMeter* const meter = WorkMeter::ofThread();
  if (meter != nullptr) meter->countLater(levels / kLevelsOfStep);
  return trace;
}

// The first traces say most. Where one exception leaves thousands of executions inside one another, each caught and
// raised again, it has one of each that nobody will read.
FailureWatch::SharedTrace FailureWatch::sharedTraceAt(const Position& at) noexcept {
  constexpr std::size_t kWholeTraces = 64;
  constexpr std::size_t kFewCalls = 16;
  const std::size_t mostCalls = ++tracesMade_ <= kWholeTraces ? KorTemplateTrace::kMostCalls : kFewCalls;
  try {
    return std::make_shared<const KorTemplateTrace>(traceAt(at, mostCalls));
  } catch (...) {
    return {};  // the exception that is told of matters more
  }
}

void FailureWatch::noteUnwinding(const Position& at) noexcept {
  if (unwinding_.exceptions > 0 && unwinding_.statement == at.statement) return;
  unwinding_ = {sharedTraceAt(at), std::uncaught_exceptions(), at.statement, rangeOf(at.statement)};
}

FailureWatch::SharedTrace FailureWatch::traceOfCurrentException(const Position& at) noexcept {
  std::exception_ptr current = std::current_exception();
  // One that is still on its way has nothing to do with what was raised and caught meanwhile.
  const bool isCaught = current == nullptr || std::uncaught_exceptions() < unwinding_.exceptions;
  const Unwinding noted = isCaught ? takeUnwinding() : Unwinding();
  // A host's own node may have caught the one that was noted, and another one has followed.
  const bool isOfAnother = noted.statement != at.statement;
  failedStatement_ = isOfAnother ? rangeOf(at.statement) : noted.raisedAt;
  if (current != nullptr && current == exception_) return trace_;
  SharedTrace trace = noted.trace == nullptr || isOfAnother ? sharedTraceAt(at) : noted.trace;
  // The old one's end may run templates, which raise others.
  while (exception_ != nullptr) const std::exception_ptr old = std::exchange(exception_, nullptr);
  exception_ = std::move(current);
  trace_ = trace;
  return trace;
}

void FailureWatch::clear() noexcept {
  tracesMade_ = 0;
  forgetUnwinding();
  trace_ = nullptr;
  const std::exception_ptr old = std::exchange(exception_, nullptr);  // whose end may run a host's code
}

}  // namespace tavlo
