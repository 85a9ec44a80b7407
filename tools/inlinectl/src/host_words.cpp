#include "host_words.h"

#include <array>
#include <ctime>

namespace inlinectl {

const char *name_of(vlc::HostLife life)
{
    static constexpr const char *names[] = {"running", "stopped", "killed"};
    return names[static_cast<size_t>(life)];
}

const char *name_of(vlc::CardReach reach)
{
    static constexpr const char *names[] = {"own", "connected", "away", "given up"};
    return names[static_cast<size_t>(reach)];
}

std::string second_text(int64_t nanoseconds)
{
    if (nanoseconds == 0)
        return "-";
    const std::time_t seconds = nanoseconds / 1'000'000'000;
    std::tm time{};
    gmtime_r(&seconds, &time);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &time);
    return text.data();
}

std::string life_text(const vlc::HostState &host)
{
    switch (host.life) {
    case vlc::HostLife::running:
        return "running since " + second_text(host.started_real) + ", process " +
               std::to_string(host.process);
    case vlc::HostLife::stopped:
        return "stopped at " + second_text(host.ended_real);
    case vlc::HostLife::killed:
        break;
    }
    return "killed; last heard of at " + second_text(host.changed_real);
}

std::string connection_text(const vlc::HostConnection &connection)
{
    if (connection.card == vlc::CardReach::away || connection.card == vlc::CardReach::given_up)
        return std::string("card ") + name_of(connection.card);
    if (!connection.prm_is_up)
        return "PRM down";
    return connection.is_registered ? "PRM up, registered" : "PRM up, not registered";
}

uint64_t requests_taken(const vlc::PrmLedger::Sums &sums)
{
    uint64_t taken = 0;
    for (const auto &table : sums.requests) {
        for (const uint64_t operation : table)
            taken += operation;
    }
    return taken;
}

} // namespace inlinectl
