#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <new>
#include <string>
#include <utility>

#include "Tests/Memory/FailingMemory.h"

namespace tavlo::test {

// What is done again and again, with one more allocation that succeeds each time.
class FailingWork {
 public:
  // Where everything fails from one allocation on, only every `stepForGood`-th is tried.
  explicit FailingWork(std::string what, std::int64_t stepForGood = 1)
      : what_(std::move(what)), stepForGood_(stepForGood) {}

  // `attempt` takes how many allocations succeed and what happens then, and answers whether one has failed. It is made
  // until none does any more; what it allocates is gone at its end.
  template <class Attempt>
  void check(const Attempt& attempt) {
    for (const Failing failing : {Failing::Once, Failing::ForGood}) {
      for (int time = 0; time < 2; ++time) attempt(kEndless, failing);  // what is made once a process is there now
      for (std::int64_t count = 0;; count += stepAfter(count, failing)) {
        SCOPED_TRACE(what_ + ", allocation " + std::to_string(count) + (failing == Failing::Once ? "" : " and on"));
        std::int64_t before = allocationsKept();
        const bool hasFailed = attempt(count, failing);
        if (allocationsKept() > before) {  // what is made once a process, when something fails, is not made again
          before = allocationsKept();
          attempt(count, failing);
        }
        ASSERT_LE(allocationsKept(), before);
        ASSERT_FALSE(testing::Test::HasFailure());
        if (hasFailed) continue;
        ASSERT_GT(count, 0);
        break;
      }
    }
  }

 private:
  static constexpr std::int64_t kEndless = std::int64_t{1} << 40;

  // The sanitizers take many times as long: there the first ones fail, and then some.
  std::int64_t stepAfter(std::int64_t count, Failing failing) const {
#ifdef TAVLO_MEMORY_IS_WATCHED
    if (count >= 100) return 7 * stepForGood_;
#endif
    return failing == Failing::ForGood && count > 0 ? stepForGood_ : 1;
  }

  std::string what_;
  std::int64_t stepForGood_;
};

struct Outcome {
  bool isOutOfMemory = false;  // which reached the host
  bool hasFailed = false;      // an allocation
};

// Runs the body with memory that fails. Whatever else it raises fails the test.
template <class Body>
Outcome runWith(std::int64_t count, Failing failing, Body&& body) {
  Outcome outcome;
  try {
    const FailingMemory memory(count, failing);
    std::forward<Body>(body)();
  } catch (const std::bad_alloc&) {
    outcome.isOutOfMemory = true;
  }
  outcome.hasFailed = FailingMemory::hasFailed();
  EXPECT_TRUE(outcome.hasFailed || !outcome.isOutOfMemory);
  return outcome;
}

}  // namespace tavlo::test
