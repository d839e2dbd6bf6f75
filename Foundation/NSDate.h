#pragma once

#include "Foundation/NSObject.h"
#include "Foundation/Value.h"

namespace tavlo {

// An instant.
class NSDate final : public NSObject {
 public:
  // Seconds since 1970-01-01 00:00:00 UTC.
  explicit NSDate(double secondsSince1970) : NSObject(ObjectKind::Date), secondsSince1970_(secondsSince1970) {}

  static Ref<NSDate> dateWithTimeIntervalSince1970(double seconds) { return makeRef<NSDate>(seconds); }

  double timeIntervalSince1970() const noexcept { return secondsSince1970_; }
  // The instant that many seconds later.
  Ref<NSDate> addTimeInterval(double seconds) const { return makeRef<NSDate>(secondsSince1970_ + seconds); }

  const char* className() const override { return "NSDate"; }
  // "2026-11-21 09:30:00 +0000", always UTC, fractions of a second dropped toward the past.
  void describe(Description& out) const override;
  bool isEqual(const NSObject& other, std::int32_t depth = 0) const override;
  std::size_t hash() const override;
  std::optional<bool> isLessThan(const Value& other) const override;
  std::optional<bool> isGreaterThan(const Value& other) const override;
  bool findValueForKey(const NSString& key, Value& value) const override;

 private:
  double secondsSince1970_;
};

}  // namespace tavlo
