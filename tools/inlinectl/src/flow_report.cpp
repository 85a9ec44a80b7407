#include "flow_report.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <tuple>

#include <nlohmann/json.hpp>

#include "numbers.h"
#include "platform_error_text.h"
#include "protocol_names.h"

namespace inlinectl {

namespace {

uint64_t all_bytes(const services::FlowAccount &account)
{
    return account.bytes + account.dropped_bytes;
}

bool comes_before(const services::FlowAccount &a, const services::FlowAccount &b)
{
    const auto rank = [](const services::FlowAccount &account) {
        return std::tuple(~all_bytes(account), ~account.packets,
                          flow_layout::key_of(account.tuple));
    };
    return rank(a) < rank(b);
}

} // namespace

void FlowReport::take(const services::FlowAccount &account)
{
    passed.packets += account.packets;
    passed.bytes += account.bytes;
    dropped.packets += account.dropped_packets;
    dropped.bytes += account.dropped_bytes;
    if (top.size() == most_top && !comes_before(account, top.back()))
        return;
    top.insert(std::ranges::upper_bound(top, account, comes_before), account);
    if (top.size() > most_top)
        top.pop_back();
}

std::vector<std::string> flow_problems(const FlowReport &report)
{
    std::vector<std::string> problems = report.problems;
    const auto say = [&problems](uint64_t packets, const std::string &what) {
        if (packets > 0)
            problems.push_back(counted(packets, "packet", "packets") + " " + what);
    };
    for (const auto &[code, packets] : report.sums.refused)
        say(packets,
            "could not be given a flow: code " + std::to_string(code) + ", " + cerr_strerror(code));
    say(report.sums.rowless, "met no row of the flow that they have");
    say(report.sums.collisions, "have a flow whose number is another one's");
    for (const auto &[code, flows] : report.sums.undeleted)
        problems.push_back(counted(flows, "flow", "flows") + " ended with code " +
                           std::to_string(code) + ", " + cerr_strerror(code));
    return problems;
}

std::string time_text(int64_t nanoseconds)
{
    constexpr int64_t second = 1'000'000'000;
    const std::time_t seconds =
        std::chrono::floor<std::chrono::seconds>(std::chrono::nanoseconds(nanoseconds)).count();
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    std::array<char, 48> day{};
    std::array<char, 16> fraction{};
    std::strftime(day.data(), day.size(), "%Y-%m-%dT%H:%M:%S", &parts);
    std::snprintf(fraction.data(), fraction.size(), ".%09dZ",
                  static_cast<int>(nanoseconds - seconds * second));
    return std::string(day.data()) + fraction.data();
}

std::string export_line(const services::FlowAccount &account)
{
    const flow_layout::Tuple &tuple = account.tuple;
    const nlohmann::ordered_json line{
        {"protocol", tuple.protocol},
        {"protocol_name", protocol_name(tuple.protocol)},
        {"source", address_text(tuple.source)},
        {"source_port", tuple.source_port},
        {"destination", address_text(tuple.destination)},
        {"destination_port", tuple.destination_port},
        {"packets", account.packets},
        {"bytes", account.bytes},
        {"dropped_packets", account.dropped_packets},
        {"dropped_bytes", account.dropped_bytes},
        {"first", time_text(account.first_packet)},
        {"last", time_text(account.last_packet)},
        {"ended", account.end == services::FlowEnd::idle ? "idle" : "active"},
    };
    return line.dump();
}

} // namespace inlinectl
