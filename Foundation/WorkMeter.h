#pragma once

#include <cstddef>
#include <cstdint>

namespace tavlo {

// Counts what an execution does, in steps: each grant of steps is counted down, and the next one is asked for. Work
// that grows with a value is counted where it is done, which is also where no environment is at hand.
class [[gnu::visibility("default")]] WorkMeter {
 public:
  // The work on so much text is a step.
  static constexpr std::size_t kBytesOfStep = 256;

  WorkMeter() = default;
  WorkMeter(const WorkMeter&) = delete;
  WorkMeter& operator=(const WorkMeter&) = delete;

  // Each raises `KorTemplateLimitException` when the execution may not go on.
  void step() {
    if (--granted_ < 0) [[unlikely]]
      refill();
  }
  void count(std::size_t steps) {
    granted_ -= static_cast<std::int64_t>(steps);
    if (granted_ < 0) [[unlikely]]
      refill();
  }
  // The same for who may not raise: the next step does.
  void countLater(std::size_t steps) noexcept {
    granted_ -= static_cast<std::int64_t>(steps);
  }
  void countBytes(std::size_t bytes) {
    if (bytes >= kBytesOfStep) [[unlikely]]
      count(bytes / kBytesOfStep);
  }
  // Looks at once whether the execution may go on; for behind work that may have taken long.
  void look() {
    refill();
  }

  // Raises where its time is over or it was cancelled, whatever other limit it has reached.
  virtual void lookAtTime() = 0;

  // Looks before a host's code runs, which may take any time; where no time is set only what was counted for later.
  void lookBeforeHost() {
    if (looksOften_ || granted_ < 0) [[unlikely]]
      refill();
  }

  // Whether steps are limited, so that all work has to be counted; otherwise it is enough to look from time to time.
  bool limitsSteps() const noexcept {
    return limitsSteps_;
  }
  // What must be left of the thread's stack, in bytes, how deep values may be nested, and how long a string may be that
  // is made, in bytes.
  std::uint64_t stackLeft() const noexcept {
    return stackLeft_;
  }
  std::int32_t valueDepth() const noexcept {
    return valueDepth_;
  }
  std::uint64_t stringLength() const noexcept {
    return stringLength_;
  }

  // That of the execution which runs on this thread; null where none does.
  static WorkMeter* ofThread() noexcept;

  // Makes a meter that of the thread for as long as the scope lives, which ends on that thread. Scopes may end in any
  // order: a host may run each of several executions on a stack of its own.
  class Scope {
   public:
    explicit Scope(WorkMeter& meter) noexcept;
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;
    ~Scope();

    // The latest one on this thread that has not ended; null for none.
    static const Scope* latest() noexcept;

   private:
    WorkMeter* meter_;
    Scope* outer_;  // the one that began before
  };

 protected:
  ~WorkMeter() = default;

  // Grants more steps, or raises. What is granted is below 0 where more than that was taken.
  virtual void refill() = 0;

  // NOLINTBEGIN(*-non-private-member-variables-in-classes): counted down in line
  std::int64_t granted_ = 0;
  bool limitsSteps_ = false;
  bool looksOften_ = false;  // whether the execution may be over at any moment
  std::uint64_t stackLeft_ = 0;
  std::int32_t valueDepth_ = 0;
  std::uint64_t stringLength_ = 0;
  // NOLINTEND(*-non-private-member-variables-in-classes)
};

// Before a host's code runs: looks whether the thread's execution may go on. Raises `KorTemplateLimitException`
// otherwise.
inline void lookBeforeHost() {
  WorkMeter* const meter = WorkMeter::ofThread();
  if (meter != nullptr) meter->lookBeforeHost();
}

// The thread's meter, asked for once for a walk over many elements; counts nothing where there is none.
class WorkCounter {
 public:
  void step() const {
    if (meter_ != nullptr) meter_->step();
  }
  void count(std::size_t steps) const {
    if (meter_ != nullptr) meter_->count(steps);
  }
  void countBytes(std::size_t bytes) const {
    if (meter_ != nullptr) meter_->countBytes(bytes);
  }

 private:
  WorkMeter* meter_ = WorkMeter::ofThread();
};

// Counts a walk that does little with each element: so many of them are a step, and fewer cost nothing.
class ElementCounter {
 public:
  static constexpr std::size_t kElementsOfStep = 16;

  void next() {
    if (++count_ % kElementsOfStep == 0) [[unlikely]]
      WorkCounter().step();
  }

 private:
  std::size_t count_ = 0;
};

// Counts what takes one element out of a list of them and moves so many others up: for the next step, as what is
// removed in the end of an object must not raise.
inline void countRemoval(std::size_t moved) noexcept {
  WorkMeter* const meter = WorkMeter::ofThread();
  if (meter != nullptr) meter->countLater(moved / ElementCounter::kElementsOfStep);
}

// Counts the work on a text; nothing for a short one.
inline void countWorkOnText(std::size_t bytes) {
  if (bytes >= WorkMeter::kBytesOfStep) [[unlikely]]
    WorkCounter().countBytes(bytes);
}

}  // namespace tavlo
