#include "Source/ExecutionMeter.h"

#include <algorithm>
#include <utility>

#include "Foundation/StackGuard.h"
#include "Source/KorTemplateCancellation.h"
#include "Source/KorTemplateEnvironment.h"
#include "Source/KorTemplateProfile.h"

namespace tavlo {

void ExecutionMeter::setLimits(const KorTemplateLimits& limits) noexcept {
  limits_ = limits;
  limitsSteps_ = limits.steps.has_value();
  stackLeft_ = limits.stackLeft;
  StackGuard::noteLimit(stackLeft_);
  valueDepth_ = std::max(limits.valueDepth, 0);
  stringLength_ = limits.stringLength;
  isWatched_ = limits.time.has_value() || limits.output.has_value();
  allSteps_ = static_cast<std::int64_t>(std::min<std::uint64_t>(limits.steps.value_or(kUnbounded), kUnbounded));
}

void ExecutionMeter::beginWatching() {
  using Milliseconds = std::chrono::milliseconds;
  constexpr Milliseconds kLongest = std::chrono::hours(std::int64_t{24} * 365 * 100);
  left_ = std::exchange(granted_, 0);  // the first step looks
  outputLeft_ = limits_.output.value_or(0);
  if (limits_.time.has_value()) deadline_ = Clock::now() + std::clamp(*limits_.time, Milliseconds::zero(), kLongest);
  if (profile_ != nullptr) profile_->begin();
}

void ExecutionMeter::endProfile() noexcept {
  std::exchange(profile_, nullptr)->end();
}

std::int64_t ExecutionMeter::sliceOfSteps() const noexcept {
  constexpr std::int64_t kStepsBetweenLooks = 64;
  if (profile_ != nullptr) return 0;
  return looksOften_ ? std::min(left_, kStepsBetweenLooks) : left_;
}

std::uint64_t ExecutionMeter::stepsTaken() const noexcept {
  return static_cast<std::uint64_t>(allSteps_ - left_ - granted_);
}

void ExecutionMeter::refill() {
  left_ += std::exchange(granted_, 0);
  if (reached_.has_value()) {
    left_ = std::max<std::int64_t>(left_, 0);
    throw KorTemplateLimitException(*reached_);
  }
  if (profile_ != nullptr) profile_->noteStep(environment_.position());
  if (left_ < 0) {
    left_ = 0;
    raise(KorTemplateLimit::Steps, *limits_.steps);
  }
  lookAtTime();
  granted_ = sliceOfSteps();
  left_ -= granted_;
}

void ExecutionMeter::lookAtTime() {
  if (cancellation_ != nullptr && cancellation_->isCancelled()) raise(KorTemplateLimit::Cancellation, 0);
  if (limits_.time.has_value() && Clock::now() >= deadline_) {
    raise(KorTemplateLimit::Time, static_cast<std::uint64_t>(std::max<std::int64_t>(limits_.time->count(), 0)));
  }
}

void ExecutionMeter::countMuchOutput(std::size_t bytes) {
  countBytes(bytes);
  if (!limitsOutput()) return;
  if (bytes > outputLeft_) raise(KorTemplateLimit::Output, *limits_.output);
  outputLeft_ -= bytes;
}

void ExecutionMeter::raise(KorTemplateLimit limit, std::uint64_t value) {
  const KorTemplateLimitException exception(limit, value);
  noteReached(exception);
  throw KorTemplateLimitException(exception);
}

void ExecutionMeter::noteReached(const KorTemplateLimitException& limit) {
  if (reached_.has_value()) return;
  reached_ = limit;
  left_ += std::exchange(granted_, 0);
}

}  // namespace tavlo
