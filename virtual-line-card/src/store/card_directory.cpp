// The hardware of a state directory, for looking alone.
#include <string>
#include <utility>

#include "vlc/card_access.h"
#include "vlc/state_error.h"

namespace vlc {

namespace {

// Each look opens the files anew, so that it shows them as they are then.
class CardDirectory final : public CardAccess {
public:
    explicit CardDirectory(const std::filesystem::path &path) : directory_(path, Access::read_only)
    {
        directory_.require(Holdings::card);
        if (!directory_.card())
            throw StateError(path.string() + ": is not complete: its card was never up");
    }

    const CardConfig &config() const override { return *directory_.card(); }

    void for_each_row(uint32_t np, TableKind table, const VisitRow &visit) override
    {
        Np(directory_, checked(np), config()).table(table).for_each(visit);
    }

    void for_each_hit_count(uint32_t np, TableKind table, const VisitHits &visit) override
    {
        const Np opened(directory_, checked(np), config());
        const NpTable &rows = opened.table(table);
        rows.for_each([&](const TableRow &row) { visit(row, rows.hits(row)); });
    }

    void for_each_flow(uint32_t np, const VisitFlow &visit) override
    {
        vlc::for_each_flow(Np(directory_, checked(np), config()), visit);
    }

    std::optional<FlowActivity> flow_activity(uint32_t np, Bytes key) override
    {
        return vlc::flow_activity(Np(directory_, checked(np), config()), key);
    }

    void for_each_counter_run(uint32_t np, const VisitRun &visit) override
    {
        vlc::for_each_counter_run(Np(directory_, checked(np), config()), visit);
    }

    void for_each_unread_answer(const VisitAnswer &visit) override
    {
        PrmStore(directory_).for_each_unread(visit);
    }

    PacketCount counter(uint32_t np, uint32_t place) override
    {
        if (place >= CounterBank::count)
            throw StateError("an NP has no counter " + std::to_string(place));
        return Np(directory_, checked(np), config()).counters().read(place);
    }

    std::vector<PacketCount> counters(uint32_t np) override
    {
        return Np(directory_, checked(np), config()).counters().read_all();
    }

    NpTotals totals(uint32_t np) override
    {
        return Np(directory_, checked(np), config()).totals().read();
    }

private:
    uint32_t checked(uint32_t np) const
    {
        if (np >= config().num_nps)
            throw StateError(directory_.path().string() + ": its card has no NP " +
                             std::to_string(np));
        return np;
    }

    StateDirectory directory_;
};

} // namespace

std::unique_ptr<CardAccess> look_into_directory(const std::filesystem::path &state_directory)
{
    return std::make_unique<CardDirectory>(state_directory);
}

} // namespace vlc
