#include "utc_time.h"

#include <array>
#include <cstdio>
#include <ctime>

namespace inlinectl {

std::string utc_text(int64_t nanoseconds)
{
    constexpr int64_t second = 1'000'000'000;
    const int64_t fraction = (nanoseconds % second + second) % second;
    const time_t seconds = (nanoseconds - fraction) / second;
    tm broken_down{};
    gmtime_r(&seconds, &broken_down);
    std::array<char, 48> date{};
    std::strftime(date.data(), date.size(), "%Y-%m-%dT%H:%M:%S", &broken_down);
    std::array<char, 16> rest{};
    std::snprintf(rest.data(), rest.size(), ".%09dZ", static_cast<int>(fraction));
    return std::string(date.data()) + rest.data();
}

} // namespace inlinectl
