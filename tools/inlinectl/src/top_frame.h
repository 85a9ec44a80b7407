// What `inlinectl top` shows at one moment, gathered apart from how it is drawn.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "snapshot.h"
#include "vlc/host_record.h"

namespace inlinectl {

struct TopNp {
    uint32_t np = 0;
    bool is_read = true;
    vlc::NpTotals totals;
    std::optional<double> packets_per_second; // nothing in the first frame
    std::array<uint64_t, vlc::table_kinds> rows{};
    uint64_t hits = 0; // of all tables
    uint64_t counters_in_use = 0;
};

struct TopEntry {
    uint32_t key = 0;
    uint32_t entry_id = 0;
    uint32_t table = 0;
    std::string name;
    vlc::PacketCount count{}; // of all NPs
    std::optional<double> packets_per_second;
};

struct TopFrame {
    std::string state;
    std::string card;
    int64_t time = 0; // real, in nanoseconds
    std::optional<vlc::HostState> host;
    std::vector<TopNp> nps;
    std::vector<TopEntry> entries; // all that have packets, in no order
    uint64_t stored = 0;           // all that there are
    std::vector<std::string> notes;
};

// Looks again and again, and says what has become more since the last time.
class TopGathering {
public:
    explicit TopGathering(StatePlaces places) : places_(std::move(places)) {}
    TopFrame look(); // throws UsageError and StateError when nothing at all can be read

private:
    using Clock = std::chrono::steady_clock;
    struct Before {
        Clock::time_point time;
        std::vector<vlc::NpTotals> nps;
        std::unordered_map<std::string, uint64_t> packets; // by entry
    };
    TopNp np_of(const Snapshot &state, uint32_t np, double seconds) const;
    void add_entries(TopFrame &frame, const Snapshot &state, Before &now, double seconds) const;

    StatePlaces places_;
    std::optional<Before> before_;
};

} // namespace inlinectl
