#pragma once

#include <cstdint>
#include <limits>
#include <stdexcept>

#include "Foundation/WorkMeter.h"

namespace tavlo::test {

// The time of an execution, which tells how often it was looked at. It is over at the look behind `looksLeft` of them.
class WatchedTime final : public WorkMeter {
 public:
  explicit WatchedTime(int looksLeft = std::numeric_limits<int>::max()) : looksLeft_(looksLeft) {
    granted_ = std::numeric_limits<std::int64_t>::max();
    looksOften_ = true;
  }
  void lookAtTime() override {}
  int looks() const { return looks_; }

 private:
  void refill() override {
    if (looks_ == looksLeft_) throw std::runtime_error("over");
    ++looks_;
  }

  int looksLeft_;
  int looks_ = 0;
};

}  // namespace tavlo::test
