#pragma once

#include <cstdint>
#include <string>

// Clang's thread sanitizer brings allocation functions that a program cannot replace: there is nothing to count there.
#ifdef __clang__
#if __has_feature(thread_sanitizer)
#define TAVLO_MEMORY_IS_HIDDEN
#endif
#if __has_feature(address_sanitizer)
#define TAVLO_MEMORY_IS_WATCHED
#endif
#endif

namespace tavlo::test {

// How many of a thread's allocations fail once one has failed.
enum class Failing { Once, ForGood };

// While it lives, allocations of the running thread fail: by "new", and by malloc(), calloc() and realloc(), those of
// the libraries too. One at a time.
class FailingMemory {
 public:
  // The first allocation that fails has `count` successful ones before it.
  FailingMemory(std::int64_t count, Failing failing);
  ~FailingMemory() { end(); }
  FailingMemory(const FailingMemory&) = delete;
  FailingMemory& operator=(const FailingMemory&) = delete;

  // From here on allocations succeed again.
  static void end();
  // Whether an allocation has failed since the latest one began.
  static bool hasFailed();
};

// How often "new" was called by this program.
std::uint64_t allocationsMade();

// How many allocations have not been freed, their bytes, and the most that those were since the last
// forgetMostBytes(); 0 where a sanitizer looks for leaks.
std::int64_t allocationsKept();
std::int64_t bytesInUse();
std::int64_t mostBytesInUse();
void forgetMostBytes();

}  // namespace tavlo::test
