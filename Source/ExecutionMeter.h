#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>

#include "Foundation/KorTemplateLimits.h"
#include "Foundation/WorkMeter.h"

namespace tavlo {

class KorTemplateCancellation;
class KorTemplateEnvironment;
class KorTemplateProfile;

// What an environment's outermost execution may still do, and the limit that it has reached. Steps are granted in
// slices, between which the clock and the cancellation are looked at; where nobody has asked for that, one slice does.
class [[gnu::visibility("default")]] ExecutionMeter final : public WorkMeter {
 public:
  explicit ExecutionMeter(const KorTemplateEnvironment& environment) : environment_(environment) {
    stackLeft_ = limits_.stackLeft;
    valueDepth_ = limits_.valueDepth;
    stringLength_ = limits_.stringLength;
  }
  ~ExecutionMeter() = default;

  // For the executions to come.
  void setLimits(const KorTemplateLimits& limits) noexcept;

  // An outermost execution begins on this thread, or has ended. Cancellation and profile may be null, and stay until
  // the end.
  void begin(const KorTemplateCancellation* cancellation, KorTemplateProfile* profile) {
    reached_.reset();
    granted_ = allSteps_;
    left_ = 0;
    cancellation_ = cancellation;
    profile_ = profile;
    looksOften_ = cancellation != nullptr || limits_.time.has_value();
    if (isWatched_ || cancellation != nullptr || profile != nullptr) [[unlikely]]
      beginWatching();
  }
  void end() noexcept {
    reached_.reset();
    cancellation_ = nullptr;
    looksOften_ = false;
    if (profile_ != nullptr) endProfile();
  }

  // Those of the execution that runs, or of the last one.
  const KorTemplateLimits& limits() const noexcept {
    return limits_;
  }

  // Counts a text that is to be written. Raises, and counts nothing as output, where that would be too much.
  void countOutput(std::size_t bytes) {
    if (bytes >= kBytesOfStep || limitsOutput()) [[unlikely]]
      countMuchOutput(bytes);
  }
  bool limitsOutput() const noexcept {
    return limits_.output.has_value();
  }

  void lookAtTime() override;

  // The first one stands; every further step raises it again.
  void noteReached(const KorTemplateLimitException& limit);
  bool hasReachedLimit() const noexcept {
    return reached_.has_value();
  }

  // By the execution that runs, or by the last one.
  std::uint64_t stepsTaken() const noexcept;

 private:
  using Clock = std::chrono::steady_clock;
  static constexpr std::int64_t kUnbounded = std::numeric_limits<std::int64_t>::max();

  void refill() override;
  [[noreturn]] void raise(KorTemplateLimit limit, std::uint64_t value);
  [[gnu::noinline]] void countMuchOutput(std::size_t bytes);
  void beginWatching();
  void endProfile() noexcept;
  std::int64_t sliceOfSteps() const noexcept;

  const KorTemplateEnvironment& environment_;
  KorTemplateLimits limits_;
  const KorTemplateCancellation* cancellation_ = nullptr;  // not owned
  KorTemplateProfile* profile_ = nullptr;                  // not owned
  bool isWatched_ = false;                                 // whether time or output is limited
  std::int64_t allSteps_ = kUnbounded;                     // of an execution
  std::int64_t left_ = kUnbounded;                         // of those, the ones that are not granted yet
  std::uint64_t outputLeft_ = 0;
  Clock::time_point deadline_;
  std::optional<KorTemplateLimitException> reached_;
};

}  // namespace tavlo
