#pragma once

#include <cstddef>
#include <exception>
#include <memory>
#include <utility>

#include "Source/KorTemplateActivation.h"
#include "Source/KorTemplateFailure.h"
#include "Source/SourceRange.h"

namespace tavlo {

// Knows where the exception was raised that is on its way out of an environment's executions. The levels that it leaves
// are gone when it is caught, so each is asked to tell before.
class FailureWatch {
 public:
  using SharedTrace = KorTemplateFailure::SharedTrace;

  // What runs at a moment.
  struct Position {
    const KorTemplateActivation* innermost;
    const KorTemplateStatement* statement;
    std::size_t calls;  // of functions
  };

  // An exception that nobody has caught yet.
  struct Unwinding {
    SharedTrace trace;                                // absent where there was no memory for it
    int exceptions = 0;                               // on their way when it was noted, itself included; 0 for none
    const KorTemplateStatement* statement = nullptr;  // that it is on its way through
    SourceRange raisedAt = {};                        // of the statement that ran when it was noted
  };

  // An exception leaves the innermost level, which is there still.
  void noteUnwinding(const Position& at) noexcept;
  // It goes on to the statement that called the level.
  void goBackTo(const KorTemplateStatement* caller) noexcept { unwinding_.statement = caller; }
  // The exception that was leaving levels has been dealt with by who caught it.
  void forgetUnwinding() noexcept { unwinding_ = {}; }
  // Sets it aside while another execution runs, which an object's end may begin meanwhile.
  Unwinding takeUnwinding() noexcept { return std::exchange(unwinding_, {}); }
  void putBackUnwinding(Unwinding unwinding) noexcept { unwinding_ = std::move(unwinding); }
  // Where the exception was raised whose handler calls this: where it was first seen, or else right here. Absent where
  // there is no memory for it.
  SharedTrace traceOfCurrentException(const Position& at) noexcept;
  // The statement that had been running in the execution whose exception was asked for last.
  SourceRange failedStatement() const noexcept { return failedStatement_; }
  // Whether it knows of none.
  bool isClear() const noexcept { return exception_ == nullptr && trace_ == nullptr && unwinding_.trace == nullptr; }
  // Lets go of all exceptions.
  void clear() noexcept;

  // What runs there, with the innermost calls.
  static KorTemplateTrace traceAt(const Position& at, std::size_t mostCalls = KorTemplateTrace::kMostCalls);

 private:
  SharedTrace sharedTraceAt(const Position& at) noexcept;

  std::exception_ptr exception_;
  SharedTrace trace_;  // of exception_
  Unwinding unwinding_;
  SourceRange failedStatement_;
  std::size_t tracesMade_ = 0;
};

}  // namespace tavlo
