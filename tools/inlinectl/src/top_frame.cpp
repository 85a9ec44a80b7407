#include "top_frame.h"

#include <bit>

#include "card_choice.h"
#include "exit_code.h"
#include "vlc/state_error.h"

namespace inlinectl {
namespace {

int64_t real_time()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

// An entry's own name among all: two may share an id.
std::string identity_of(const services::StoredEntry &entry)
{
    const app_node &content = entry.content.app_node;
    std::string text = std::to_string(entry.main_key) + " " + std::to_string(content.table_type) +
                       " " + std::to_string(content.entry_id) + " ";
    if (entry.has_row)
        text.append(content.key, content.key + content.key_len);
    return text;
}

// What was made anew meanwhile counts from nothing.
std::optional<double> rate_of(uint64_t now, std::optional<uint64_t> before, double seconds)
{
    if (seconds <= 0)
        return std::nullopt;
    const uint64_t earlier = before.value_or(0);
    return static_cast<double>(now >= earlier ? now - earlier : now) / seconds;
}

} // namespace

TopNp TopGathering::np_of(const Snapshot &state, uint32_t number, double seconds) const
{
    const NpSnapshot &np = state.nps[number];
    TopNp shown{.np = number,
                .is_read = np.unread.empty(),
                .totals = np.totals,
                .packets_per_second = {},
                .rows = np.rows,
                .hits = 0,
                .counters_in_use = np.flow_counters_in_use};
    for (const uint64_t hits : np.totals.hits)
        shown.hits += hits;
    if (number < state.bitmaps.size()) {
        for (const uint32_t word : state.bitmaps[number])
            shown.counters_in_use += static_cast<uint64_t>(std::popcount(word));
    }
    if (before_ && number < before_->nps.size())
        shown.packets_per_second =
            rate_of(np.totals.packets, before_->nps[number].packets, seconds);
    return shown;
}

void TopGathering::add_entries(TopFrame &frame, const Snapshot &state, Before &now,
                               double seconds) const
{
    for (size_t number = 0; number < state.entries.size(); ++number) {
        const services::StoredEntry &entry = state.entries[number];
        const vlc::PacketCount count = state.hits(number);
        if (count.packets == 0)
            continue;
        const std::string identity = identity_of(entry);
        now.packets[identity] = count.packets;
        std::optional<uint64_t> earlier;
        if (before_) {
            const auto found = before_->packets.find(identity);
            earlier = found == before_->packets.end() ? 0 : found->second;
        }
        frame.entries.push_back(
            {.key = entry.main_key,
             .entry_id = entry.content.app_node.entry_id,
             .table = entry.content.app_node.table_type,
             .name = name_of(entry),
             .count = count,
             .packets_per_second =
                 earlier ? rate_of(count.packets, earlier, seconds) : std::nullopt});
    }
}

TopFrame TopGathering::look()
{
    const Snapshot state =
        take_snapshot(places_, {.rows = true, .counters = false, .totals = true});
    if (!state.shadow_unread.empty() && !state.has_nps())
        throw UsageError(state.shadow_unread);
    Before now{.time = Clock::now(), .nps = {}, .packets = {}};
    const double seconds =
        before_ ? std::chrono::duration<double>(now.time - before_->time).count() : 0;
    TopFrame frame{.state = places_.state_directory->string(),
                   .card = state.card.name + ", " + card_text(state.card),
                   .time = real_time(),
                   .host = {},
                   .nps = {},
                   .entries = {},
                   .stored = state.entries.size(),
                   .notes = state.notes};
    try {
        frame.host = vlc::host_state_in(*places_.state_directory);
    } catch (const vlc::StateError &unreadable) {
        frame.notes.emplace_back(unreadable.what());
    }
    for (uint32_t np = 0; np < state.nps.size(); ++np) {
        frame.nps.push_back(np_of(state, np, seconds));
        now.nps.push_back(state.nps[np].totals);
    }
    add_entries(frame, state, now, seconds);
    before_ = std::move(now);
    return frame;
}

} // namespace inlinectl
