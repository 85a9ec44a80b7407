#include "flow_settlement.h"

#include <algorithm>
#include <string>
#include <unordered_set>
#include <vector>

#include "flow_audit.h"
#include "flow_walk.h"
#include "inline_service_context.h"
#include "platform_card.h"
#include "platform_prm.h"
#include "platform_prm_stats.h"
#include "row_request.h"
#include "settlement_words.h"
#include "shadow_walk.h"

namespace services {
namespace {

class FlowSettling {
public:
    FlowSettling(const SettlementInput &input, in_hash_table *table)
        : input_(input), audited_(audit_input_of(input)), table_(table)
    {
    }

    Settlement run()
    {
        input_.run_events();
        AuditReport found;
        audit_flows(audited_, found);
        for (const Finding &finding : found.findings) {
            if (finding.kind == FindingKind::list_broken)
                return damaged(finding);
        }
        for (const Finding &finding : found.findings)
            settle(finding);
        delete_incomplete_flows();
        free_leaked_counters();
        input_.run_events();
        AuditReport left;
        audit_flows(audited_, left);
        for (const Finding &finding : left.findings)
            words_.left(finding.text);
        return words_.settlement();
    }

private:
    Settlement damaged(const Finding &finding)
    {
        words_.damaged();
        words_.left(finding.text);
        return words_.settlement();
    }

    void settle(const Finding &finding)
    {
        switch (finding.kind) {
        case FindingKind::count_wrong:
            mend_count();
            break;
        case FindingKind::entry_stale:
            delete_row(finding.np, finding.key);
            words_.done("deleted a stale flow row",
                        "NP " + std::to_string(finding.np) + ", " + hexadecimal(finding.key));
            break;
        case FindingKind::entry_missing:
        case FindingKind::counter_free:
        case FindingKind::counter_invalid:
            incomplete_.insert(finding.flow);
            break;
        default:
            break; // nothing that a kill leaves
        }
    }

    void mend_count()
    {
        AuditReport ignored;
        table_->count = static_cast<uint32_t>(FlowWalk(audited_, ignored).run().size());
        words_.done("mended the flow table's count", std::to_string(table_->count));
    }

    void delete_row(uint32_t np, ByteSpan key)
    {
        const RowRequest request{PRM_OP_DELETE, np, flow_table, key, {}};
        if (const uint32_t code = send(input_.root->prm_srh_hdl, request))
            words_.left("NP " + std::to_string(np) + ": a request for flow row " +
                        hexadecimal(key) + " failed: code " + std::to_string(code));
        if (++requests_ % answers_between_looks == 0)
            input_.run_events();
    }

    // Not by the library's delete, which would ask NPs for rows that they do not have. The counters
    // of these flows go as leaked ones.
    void delete_incomplete_flows()
    {
        if (incomplete_.empty())
            return;
        std::unordered_set<std::string> keys;
        for (const flow_record *flow : incomplete_)
            keys.emplace(flow->key, flow->key + std::min<size_t>(flow->key_len, FLOW_KEY_BYTES));
        for (uint32_t np = 0; np < audited_.num_nps; ++np) {
            std::vector<std::vector<uint8_t>> rows;
            input_.hardware->for_each_row(np, flow_table, [&](ByteSpan key, ByteSpan) {
                if (keys.contains(std::string(key.begin(), key.end())))
                    rows.emplace_back(key.begin(), key.end());
            });
            for (const auto &key : rows)
                delete_row(np, key);
        }
        for (const flow_record *address : incomplete_) {
            auto *flow = const_cast<flow_record *>(address); // the host's own memory
            words_.done("deleted a flow that was in flight", text_of(StoredFlow{flow, *flow}));
            in_hash_delete(table_, flow);
            flowdb_free(flow);
        }
    }

    void free_leaked_counters()
    {
        AuditReport found;
        audit_flows(audited_, found);
        for (const Finding &finding : found.findings) {
            if (finding.kind != FindingKind::counter_leaked)
                continue;
            const uint32_t *statistics = plm_dpss_get_stats_tbl_id(finding.np);
            if (statistics != nullptr &&
                prm_stats_cl_free(pgbl_ptr->prm_conn, *statistics, finding.counter) == 0)
                words_.done("freed a dynamic counter", "NP " + std::to_string(finding.np) + ", " +
                                                           hexadecimal(finding.counter));
        }
    }

    static constexpr uint32_t answers_between_looks = 64;

    const SettlementInput &input_;
    const AuditInput audited_;
    in_hash_table *table_;
    SettlementWords words_;
    std::unordered_set<const flow_record *> incomplete_;
    uint32_t requests_ = 0;
};

} // namespace

Settlement settle_flows(const SettlementInput &input, in_hash_table *table)
{
    return FlowSettling(input, table).run();
}

} // namespace services
