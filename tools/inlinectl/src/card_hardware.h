// A virtual card as the audit and the settlement read it: its hardware, and its window.
#pragma once

#include <cstddef>
#include <cstdint>

#include "answer_table.h"
#include "hardware_view.h"
#include "vlc/card_access.h"
#include "vlc/window.h"

namespace inlinectl {

static_assert(services::flow_table == static_cast<uint32_t>(vlc::TableKind::flow));

class CardHardware final : public services::HardwareView {
public:
    explicit CardHardware(vlc::CardAccess &card) : card_(card) {}

    uint32_t nps() const override { return card_.config().num_nps; }

    void for_each_row(uint32_t np, uint32_t table, const VisitRow &visit) const override
    {
        card_.for_each_row(
            np, static_cast<vlc::TableKind>(table),
            [&visit](const vlc::TableRow &row) { visit(row.key_span(), row.result_span()); });
    }

    void for_each_unread_answer(const VisitAnswer &visit) const override
    {
        card_.for_each_unread_answer([&visit](uint32_t, const vlc::StoredAnswer &answer) {
            visit(answer.np, number_of_table(answer.refnum, answer.flags), answer.refnum,
                  answer.status, services::ByteSpan(answer.key, answer.key_len));
        });
    }

    void for_each_counter_run(uint32_t np, const VisitRun &visit) const override
    {
        card_.for_each_counter_run(
            np, [&visit](const vlc::CounterRun &run) { visit(run.first, run.length); });
    }

    uint32_t address_of_counter(uint32_t counter) const override
    {
        return vlc::DynamicCounters::address_of(counter);
    }

private:
    vlc::CardAccess &card_;
};

// Whether bytes lie in a window, which must outlive the answer. At least one byte is asked for.
inline auto in_window(const vlc::Window &window)
{
    return [&window](const void *address, size_t bytes) {
        const auto first = reinterpret_cast<uintptr_t>(address);
        return bytes <= UINTPTR_MAX - first && window.contains(address) &&
               window.contains(reinterpret_cast<const void *>(first + bytes - 1));
    };
}

} // namespace inlinectl
