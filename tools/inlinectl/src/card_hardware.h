// A virtual card's hardware as the audit and the settlement read it.
#pragma once

#include "hardware_view.h"
#include "vlc/card_access.h"

namespace inlinectl {

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
            visit(answer.np, answer.refnum, answer.status,
                  services::ByteSpan(answer.key, answer.key_len));
        });
    }

private:
    vlc::CardAccess &card_;
};

} // namespace inlinectl
