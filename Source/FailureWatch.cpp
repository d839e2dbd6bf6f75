#include "Source/FailureWatch.h"

#include <cstddef>
#include <utility>

#include "Foundation/WorkMeter.h"
#include "Source/KorTemplateInternalFunction.h"
#include "Source/KorTemplateStatement.h"

namespace tavlo {

namespace {

using Activation = KorTemplateActivation;

// To tell of so many calls is a step.
constexpr std::size_t kCallsOfStep = 4;

// The text that a function's statements stand in; absent for a function of the host's.
const KorTemplateSource* sourceOf(const KorTemplateFunction& function) {
  if (function.kind() != kInternalFunctionKind) return nullptr;
  return static_cast<const KorTemplateInternalFunction&>(function).source().get();
}

bool isHostFunction(const Activation& level) {
  return level.function != nullptr && level.function->kind() != kInternalFunctionKind;
}

// The text that the statement stands in at which `level` is. A level that has begun no statement of its own is at that
// of the level around it.
const KorTemplateSource* sourceAt(const Activation* level, const KorTemplateStatement* statement) {
  while (level != nullptr && (isHostFunction(*level) || (level->function == nullptr && level->caller == statement))) {
    level = level->outer;
  }
  if (level == nullptr) return nullptr;
  return level->function != nullptr ? sourceOf(*level->function) : level->source;
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

KorTemplateTrace FailureWatch::traceAt(const Position& at) {
  KorTemplateTrace trace;
  trace.place = placeAt(levelOf(at), at.statement);
  for (const Activation* level = at.innermost; level != nullptr; level = level->outer) {
    if (level->function == nullptr) continue;
    if (++trace.callCount > KorTemplateTrace::kMostCalls) continue;
    trace.calls.emplace_back(*level->functionName, placeAt(level->outer, level->caller));
  }
  WorkMeter* const meter = WorkMeter::ofThread();
  if (meter != nullptr) meter->countLater(trace.callCount / kCallsOfStep);
  return trace;
}

FailureWatch::SharedTrace FailureWatch::sharedTraceAt(const Position& at) noexcept {
  try {
    return std::make_shared<const KorTemplateTrace>(traceAt(at));
  } catch (...) {
    return {};  // the exception that is told of matters more
  }
}

void FailureWatch::noteUnwinding(const Position& at) noexcept {
  if (unwinding_ == nullptr) unwinding_ = sharedTraceAt(at);
}

const FailureWatch::SharedTrace& FailureWatch::traceOfCurrentException(const Position& at) noexcept {
  std::exception_ptr current = std::current_exception();
  if (current == nullptr || current != exception_) {
    trace_ = unwinding_ != nullptr ? unwinding_ : sharedTraceAt(at);
    exception_.swap(current);  // the old one's end may run a host's code
  }
  unwinding_ = nullptr;
  return trace_;
}

void FailureWatch::clear() noexcept {
  unwinding_ = nullptr;
  trace_ = nullptr;
  const std::exception_ptr old = std::exchange(exception_, nullptr);  // whose end may run a host's code
}

}  // namespace tavlo
