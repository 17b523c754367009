#pragma once

#include <FeXOPlatform/Export.hpp>

#include <chrono>
#include <compare>

namespace fexo {

// A point in time held as seconds (a double, fractions allowed) since the reference date,
// 2001-01-01 00:00:00 UTC. The double is kept exactly as given, so a value decoded from JSON
// encodes back to the same number.
class FEXO_EXPORT Date {
public:
    // Seconds between 1970-01-01 00:00:00 UTC and the reference date.
    static constexpr double timeIntervalBetween1970AndReferenceDate = 978307200.0;

    constexpr Date() = default;
    constexpr explicit Date(double timeIntervalSinceReferenceDate) : seconds_(timeIntervalSinceReferenceDate) { }

    // The current time of the system clock.
    static Date now();
    static Date fromSystemClock(std::chrono::system_clock::time_point timePoint);
    static constexpr Date fromTimeIntervalSince1970(double seconds)
    {
        return Date(seconds - timeIntervalBetween1970AndReferenceDate);
    }

    constexpr double timeIntervalSinceReferenceDate() const { return seconds_; }
    constexpr double timeIntervalSince1970() const { return seconds_ + timeIntervalBetween1970AndReferenceDate; }
    // Rounded to the system clock's resolution.
    std::chrono::system_clock::time_point toSystemClock() const;

    constexpr auto operator<=>(const Date&) const = default;

private:
    double seconds_ = 0.0;
};

} // namespace fexo
