#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <vector>

#include "Foundation/Value.h"

namespace tavlo {

// Where the values of running calls' arguments lie: segments that never move, used like a stack.
class ArgumentStorage {
 public:
  // Room for that many values, absent at first and next to one another, until release() gives it back. The latest room
  // is given back first.
  Value* reserve(std::size_t count) {
    if (segment_ == segments_.size() || segments_[segment_].used + count > segments_[segment_].size) nextSegment(count);
    Segment& segment = segments_[segment_];
    Value* values = segment.values.get() + segment.used;
    segment.used += count;
    return values;
  }

  void release(Value* values, std::size_t count) noexcept {
    for (std::size_t index = count; index > 0; --index) values[index - 1] = Value();
    while (segments_[segment_].used == 0 && segment_ > 0) --segment_;
    segments_[segment_].used -= count;
  }

  // Where all room has been given back, lets go of what is more than a little.
  void trim() noexcept {
    constexpr std::size_t kMostKept = 4096;
    std::size_t values = 0;
    std::size_t kept = 0;
    for (const Segment& segment : segments_) {
      if (segment.used > 0) return;
      values += segment.size;
      if (values <= kMostKept) ++kept;
    }
    segments_.resize(kept);
    segment_ = 0;
  }

 private:
  struct Segment {
    std::unique_ptr<Value[]> values;
    std::size_t size;
    std::size_t used;
  };

  void nextSegment(std::size_t count) {
    constexpr std::size_t kSegmentSize = 256;
    const bool isUsed = segment_ < segments_.size() && segments_[segment_].used > 0;
    const std::size_t next = isUsed ? segment_ + 1 : segment_;
    if (next == segments_.size() || segments_[next].size < count) {
      const std::size_t size = count > kSegmentSize ? count : kSegmentSize;
      Segment segment{std::make_unique<Value[]>(size), size, 0};
      if (next == segments_.size()) {
        segments_.push_back(std::move(segment));
      } else {
        segments_[next] = std::move(segment);  // unused, and too small
      }
    }
    segment_ = next;
  }

  std::vector<Segment> segments_;
  std::size_t segment_ = 0;  // the one in use; those behind it are empty
};

}  // namespace tavlo
