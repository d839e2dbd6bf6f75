#include "Foundation/NSDate.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>

#include "Foundation/Description.h"
#include "Foundation/NSNumber.h"
#include "Foundation/NSString.h"

namespace tavlo {

namespace {

constexpr std::int64_t kSecondsPerDay = 86400;

struct CivilDate {
  std::int64_t year;
  int month;
  int day;
};

// The date of a day counted from 1970-01-01 in the proleptic Gregorian calendar: Howard Hinnant, "chrono-Compatible
// Low-Level Date Algorithms", civil_from_days.
CivilDate civilFromDays(std::int64_t days) {
  constexpr std::int64_t kDaysPerEra = 146097;
  days += 719468;
  const std::int64_t era = (days >= 0 ? days : days - (kDaysPerEra - 1)) / kDaysPerEra;
  const std::int64_t dayOfEra = days - era * kDaysPerEra;
  const std::int64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const std::int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const std::int64_t shiftedMonth = (5 * dayOfYear + 2) / 153;
  const auto month = static_cast<int>(shiftedMonth < 10 ? shiftedMonth + 3 : shiftedMonth - 9);
  return {yearOfEra + era * 400 + (month <= 2 ? 1 : 0), month,
          static_cast<int>(dayOfYear - (153 * shiftedMonth + 2) / 5 + 1)};
}

const NSDate* dateIn(const Value& value) {
  const NSObject* object = value.object();
  return object != nullptr && object->kind() == ObjectKind::Date ? static_cast<const NSDate*>(object) : nullptr;
}

}  // namespace

void NSDate::describe(Description& out) const {
  constexpr double kFarthest = 1e15;  // some 31 million years: beyond, an instant reads as the farthest one
  const double bounded = std::isnan(secondsSince1970_) ? 0 : std::clamp(secondsSince1970_, -kFarthest, kFarthest);
  const auto seconds = static_cast<std::int64_t>(std::floor(bounded));
  std::int64_t days = seconds / kSecondsPerDay;
  if (seconds % kSecondsPerDay < 0) --days;
  const auto secondOfDay = static_cast<int>(seconds - days * kSecondsPerDay);
  const CivilDate date = civilFromDays(days);
  char text[64];
  const int length =
      std::snprintf(text, sizeof text, "%04lld-%02d-%02d %02d:%02d:%02d +0000", static_cast<long long>(date.year),
                    date.month, date.day, secondOfDay / 3600, secondOfDay / 60 % 60, secondOfDay % 60);
  out.part(std::string_view(text, static_cast<std::size_t>(length)));
}

bool NSDate::isEqual(const NSObject& other, std::int32_t /*depth*/) const {
  return other.kind() == ObjectKind::Date && static_cast<const NSDate&>(other).secondsSince1970_ == secondsSince1970_;
}

std::size_t NSDate::hash() const {
  return hashOfNumber(RawValue::real(secondsSince1970_));
}

std::optional<bool> NSDate::isLessThan(const Value& other) const {
  const NSDate* date = dateIn(other);
  if (date == nullptr) return {};
  return secondsSince1970_ < date->secondsSince1970_;
}

std::optional<bool> NSDate::isGreaterThan(const Value& other) const {
  const NSDate* date = dateIn(other);
  if (date == nullptr) return {};
  return secondsSince1970_ > date->secondsSince1970_;
}

bool NSDate::findValueForKey(const NSString& key, Value& value) const {
  if (key.view() == "timeIntervalSince1970") {
    value = secondsSince1970_;
  } else if (key.view() == "description") {
    value = description();
  } else {
    return false;
  }
  return true;
}

}  // namespace tavlo
