#include <FeXOPlatform/Date.hpp>

#include <cmath>

namespace fexo {

Date Date::now()
{
    return fromSystemClock(std::chrono::system_clock::now());
}

Date Date::fromSystemClock(std::chrono::system_clock::time_point timePoint)
{
    const auto since1970 = std::chrono::duration<double>(timePoint.time_since_epoch());
    return fromTimeIntervalSince1970(since1970.count());
}

std::chrono::system_clock::time_point Date::toSystemClock() const
{
    const std::chrono::duration<double> since1970(timeIntervalSince1970());
    return std::chrono::system_clock::time_point(std::chrono::round<std::chrono::system_clock::duration>(since1970));
}

} // namespace fexo
