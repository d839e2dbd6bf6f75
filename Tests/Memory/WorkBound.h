#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <string>
#include <utility>

#include "Tests/Memory/FailingMemory.h"

namespace tavlo::test {

// The processor time that this program has taken. The clock would count what others do on a busy machine as well.
inline double processorSeconds() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// What work on bad input may cost, however large or hostile that is: 2 seconds of the processor's time, and 300 MiB
// beside what was in use before. Work that grows out of proportion takes minutes or gigabytes of the inputs that the
// tests have, so a bound that is wider by some times tells as much. The sanitizers are slower by that, 30 seconds it is
// there, and do not let us count the memory. TAVLO_TEST_PATIENCE=20 gives twenty times the time, for tools that are
// slower still.
class WorkBound {
 public:
  // Work from here to the end of the bound's life; `what` names it where it takes more.
  explicit WorkBound(std::string what) : what_(std::move(what)), secondsBefore_(processorSeconds()) {
#ifndef TAVLO_MEMORY_IS_HIDDEN
    forgetMostBytes();
    bytesBefore_ = bytesInUse();
#endif
  }
  ~WorkBound() {
    EXPECT_LT(processorSeconds() - secondsBefore_, seconds()) << what_;
#ifndef TAVLO_MEMORY_IS_HIDDEN
    EXPECT_LT(mostBytesInUse() - bytesBefore_, kBytes) << what_;
#endif
  }
  WorkBound(const WorkBound&) = delete;
  WorkBound& operator=(const WorkBound&) = delete;

  static double seconds() {
    const char* const patience = std::getenv("TAVLO_TEST_PATIENCE");
    return kSeconds * (patience == nullptr ? 1 : std::stod(patience));
  }

 private:
#if defined(TAVLO_MEMORY_IS_HIDDEN) || defined(TAVLO_MEMORY_IS_WATCHED)
  static constexpr double kSeconds = 30;
#else
  static constexpr double kSeconds = 2;
#endif
  static constexpr std::int64_t kBytes = std::int64_t{300} * 1024 * 1024;

  std::string what_;
  double secondsBefore_;
  [[maybe_unused]] std::int64_t bytesBefore_ = 0;
};

}  // namespace tavlo::test
