#pragma once

#include <chrono>
#include <cmath>
#include <concepts>
#include <optional>

#include "Foundation/NSDate.h"
#include "Foundation/Value.h"
#include "Foundation/ValueConversion+Scalars.h"
#include "Foundation/ValueConversionTrait.h"

namespace tavlo {

// The number of units nearest to the seconds; those of an integer type are clamped to its range, and 0 for
// not-a-number.
template <class Duration>
Duration durationOfSeconds(double seconds) noexcept {
  using Units = typename Duration::rep;
  using Period = typename Duration::period;
  const double units = seconds * static_cast<double>(Period::den) / static_cast<double>(Period::num);
  if constexpr (std::floating_point<Units>) {
    return Duration(static_cast<Units>(units));
  } else {
    return Duration(numberAs<Units>(RawValue::real(std::round(units))));
  }
}

// Durations are numbers of seconds.
template <class Units, class Period>
requires std::is_arithmetic_v<Units>
struct ValueConversion<std::chrono::duration<Units, Period>> {
  using Duration = std::chrono::duration<Units, Period>;
  static constexpr const char* kTypeName = "duration";
  static constexpr const char* kExpected = "NSNumber";

  static Value toValue(Duration duration) noexcept {
    return Value(std::chrono::duration_cast<std::chrono::duration<double>>(duration).count());
  }
  static std::optional<Duration> fromValue(const Value& value) noexcept {
    const std::optional<double> seconds = ValueConversion<double>::fromValue(value);
    if (!seconds.has_value()) return {};
    return durationOfSeconds<Duration>(*seconds);
  }
};

// Instants of the system's clock are dates. Other clocks have no date to begin at.
template <class Units, class Period>
requires std::is_arithmetic_v<Units>
struct ValueConversion<std::chrono::time_point<std::chrono::system_clock, std::chrono::duration<Units, Period>>> {
  using Duration = std::chrono::duration<Units, Period>;
  using Instant = std::chrono::time_point<std::chrono::system_clock, Duration>;
  static constexpr const char* kTypeName = "date";
  static constexpr const char* kExpected = "NSDate";

  static Value toValue(Instant instant) {
    const std::chrono::duration<double> sinceEpoch = instant.time_since_epoch();
    return NSDate::dateWithTimeIntervalSince1970(sinceEpoch.count());
  }
  static std::optional<Instant> fromValue(const Value& value) {
    const NSObject* const object = value.object();
    if (object == nullptr || object->kind() != ObjectKind::Date) return {};
    const double seconds = static_cast<const NSDate*>(object)->timeIntervalSince1970();
    return Instant(durationOfSeconds<Duration>(seconds));
  }
};

}  // namespace tavlo
