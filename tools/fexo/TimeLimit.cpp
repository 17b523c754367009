#include <fexo/TimeLimit.hpp>

#include <algorithm>
#include <cmath>

namespace fexo::tool {

CLI::Option* addTimeLimitOption(CLI::App& command, const std::string& name, double& seconds,
                                const std::string& description)
{
    const CLI::Validator finitePositive(
        [](std::string& text) -> std::string {
            double value = 0;
            if (!CLI::detail::lexical_cast(text, value) || !std::isfinite(value) || value <= 0) {
                return "a time limit is a finite number of seconds above 0, not " + text;
            }
            return {};
        },
        "SECONDS");
    return command.add_option(name, seconds, description)->capture_default_str()->check(finitePositive);
}

std::chrono::milliseconds timeLimitDuration(double seconds)
{
    constexpr double century = 100.0 * 365.25 * 24 * 3600;
    return std::chrono::milliseconds(static_cast<long long>(std::ceil(std::min(seconds, century) * 1000)));
}

} // namespace fexo::tool
