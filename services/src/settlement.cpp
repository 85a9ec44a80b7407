#include "settlement.h"

#include <algorithm>
#include <cstring>
#include <unordered_map>
#include <unordered_set>

#include "entry_content.h"
#include "inline_service_app.h"
#include "inline_service_stat.h"
#include "known_rows.h"
#include "list_mending.h"
#include "platform_card.h"
#include "platform_error_text.h"
#include "platform_prm.h"
#include "platform_prm_stats.h"
#include "row_request.h"
#include "settlement_words.h"
#include "shadow_walk.h"

namespace services {
namespace {

bool counters_travel_unswapped(uint32_t card_type)
{
    switch (card_type) {
#define CARD_TYPE_COUNTER_UNSWAPPED(name, code) case name:
#include "card_types.def"
#undef CARD_TYPE_COUNTER_UNSWAPPED
        return true;
    default:
        return false;
    }
}

ByteSpan key_of(const app_node &entry)
{
    return {entry.key, entry.key_len};
}

class Settling {
public:
    explicit Settling(const SettlementInput &input)
        : input_(input),
          audited_(audit_input_of(input)), region_{audited_.first_counter, audited_.counter_count,
                                                   audited_.counters_unswapped}
    {
    }

    Settlement run()
    {
        input_.run_events();
        if (mend_what_follows_from_the_chains()) {
            const AuditReport found = audit(audited_);
            look_up_rows(found);
            complete_overwritten_entries();
            finish_deletes();
            delete_stale_rows(found);
            for (const StoredEntry *entry : doubtful_)
                settle_rows(*entry);
            free_leaked_counters();
            free_empty_entries();
        } else {
            words_.damaged();
        }
        input_.run_events();
        for (const Finding &finding : audit(audited_).findings)
            words_.left(finding.text);
        return words_.settlement();
    }

private:
    // ---- what follows from the chains

    // Returns false when a chain is broken. Then nobody knows which entries there are, and nothing
    // may be taken from the hardware for want of one. Nor may a counter be taken or given back in
    // a bitmap that is not there.
    bool mend_what_follows_from_the_chains()
    {
        AuditReport report;
        ShadowWalk walk(audited_, report);
        entries_ = walk.run();
        if (!walk.chains_are_whole() ||
            !walk.bitmaps_are_readable(audited_.num_nps, region_.words()))
            return false;
        for_each_main([this](uint32_t key, main_entry &main) {
            main.uidb_index = static_cast<uint16_t>(key);
            for (uint32_t table = 0; table < SHADOW_DB_TABLES; ++table) {
                if (mend_list(main.table_array[table], &main.num_elements[table]))
                    words_.done("mended the " + table_text(table) + " list",
                                "key " + std::to_string(key));
            }
        });
        return true;
    }

    template <typename Visit>
    void for_each_main(const Visit &visit)
    {
        if (input_.root == nullptr || input_.root->main_table == nullptr)
            return;
        for (uint32_t key = 0; key < SHADOW_DB_MAIN_SLOTS; ++key) {
            if (main_entry *main = input_.root->main_table[key])
                visit(key, *main);
        }
    }

    // ---- which entries may have been in flight, and what the NPs hold of them

    void look_up_rows(const AuditReport &found)
    {
        std::unordered_set<const shmem_node *> differing;
        for (const Finding &finding : found.findings) {
            if (finding.kind == FindingKind::entry_missing ||
                finding.kind == FindingKind::entry_differs)
                differing.insert(finding.node);
        }
        for (const StoredEntry &entry : entries_) {
            const app_node &content = entry.content.app_node;
            ++entries_with_key_[name_of(content)];
            if (!differing.contains(entry.address) && content.action != SHADOW_DB_DELETE &&
                content.shmem_node == entry.address && counters_stand_alike(entry.content))
                continue;
            doubtful_.push_back(&entry);
            rows_.want(content.table_type, key_of(content));
        }
        rows_.read(*input_.hardware);
    }

    static std::string name_of(const app_node &content)
    {
        return std::to_string(content.table_type) +
               std::string(content.key, content.key + content.key_len);
    }
    bool has_a_namesake(const app_node &content) const
    {
        const auto place = entries_with_key_.find(name_of(content));
        return place != entries_with_key_.end() && place->second > 1;
    }

    static shmem_node &node_of(const StoredEntry &entry)
    {
        return *const_cast<shmem_node *>(entry.address); // the host's own memory
    }

    // ---- entries that a kill left while their content was written

    // A node in a list that does not name itself was being overwritten by a modify or a delete, and
    // the hardware has heard nothing of it; or it was just created, and then it is what the rows
    // say.
    void complete_overwritten_entries()
    {
        for (const StoredEntry *entry : doubtful_) {
            shmem_node &node = node_of(*entry);
            if (node.app_node.shmem_node == &node)
                continue;
            if (node.app_node.action != SHADOW_DB_DELETE)
                take_content_back(node);
            node.app_node.shmem_node = &node;
            words_.done("completed an entry that was being written", text_of(*entry));
        }
    }

    void take_content_back(shmem_node &node)
    {
        app_node &content = node.app_node;
        for (uint32_t np = rows_.nps(); np-- > 0;) {
            const auto *row = rows_.find(np, content.table_type, key_of(content));
            if (row == nullptr || row->size() > SHADOW_DB_RESULT_BYTES)
                continue;
            for (size_t i = 0; i < row->size(); ++i) {
                if (!has_counters(content) || i < 1 || i > 3) // there the counter's number stands
                    content.result[i] = (*row)[i];
            }
            content.result_len = static_cast<uint32_t>(row->size());
            return;
        }
    }

    // ---- deletes

    // Not by another request of the library: that would send deletes to NPs that have carried them
    // out, and give counters back that may be somebody else's by now.
    void finish_deletes()
    {
        std::erase_if(doubtful_, [this](const StoredEntry *entry) {
            shmem_node &node = node_of(*entry);
            if (node.app_node.action != SHADOW_DB_DELETE)
                return false;
            if (delete_rows(*entry))
                take_off(*entry, node);
            return true;
        });
    }

    bool delete_rows(const StoredEntry &entry)
    {
        const app_node &content = entry.address->app_node;
        if (has_a_namesake(content)) // the rows are the other one's
            return true;
        bool taken_in = true;
        for (uint32_t np = 0; np < rows_.nps(); ++np) {
            if (rows_.find(np, content.table_type, key_of(content)) != nullptr)
                taken_in &= request({PRM_OP_DELETE, np, content.table_type, key_of(content), {}});
        }
        return taken_in;
    }

    void take_off(const StoredEntry &entry, shmem_node &node)
    {
        main_entry &main = *input_.root->main_table[entry.main_key];
        const uint32_t table = node.app_node.table_type;
        words_.done("finished a delete", text_of(entry));
        --entries_with_key_[name_of(node.app_node)];
        inline_svc_list_delete(&main.table_array[table], &node);
        node.app_node.shmem_node = nullptr;
        inline_svc_shared_mem_free(&node);
        if (--main.num_elements[table] == 0)
            inline_svc_list_destroy(&main.table_array[table]);
    }

    void delete_stale_rows(const AuditReport &found)
    {
        for (const Finding &finding : found.findings) {
            if (finding.kind != FindingKind::entry_stale)
                continue;
            if (request({PRM_OP_DELETE, finding.np, finding.table, finding.key, {}}))
                words_.done("deleted a stale row", "NP " + std::to_string(finding.np) + ", " +
                                                       table_text(finding.table) + " " +
                                                       hexadecimal(finding.key));
        }
    }

    // ---- entries whose rows are missing or differ

    void settle_rows(const StoredEntry &entry)
    {
        shmem_node &node = node_of(entry);
        const app_node &content = node.app_node;
        if (has_a_namesake(content)) // an NP has one row for both
            return;
        if (!region_.unswapped && has_counters(content))
            stand_counters_alike(node);
        for (uint32_t np = 0; np < rows_.nps(); ++np) {
            const RowResult wanted = row_result(node, np, region_.unswapped);
            const ByteSpan bytes(wanted.bytes.data(), wanted.length);
            const auto *row = rows_.find(np, content.table_type, key_of(content));
            if (row != nullptr && std::ranges::equal(*row, bytes))
                continue;
            const uint32_t operation = row == nullptr ? PRM_OP_ADD : PRM_OP_MODIFY;
            if (request({operation, np, content.table_type, key_of(content), bytes}))
                words_.done(row == nullptr ? "programmed a missing row again"
                                           : "brought a row to its entry's content",
                            "NP " + std::to_string(np) + ", " + text_of(entry));
        }
    }

    // Every program of an entry turns the stored number round on all NPs, so between two programs
    // they stand alike. (On unswapped cards they always stand plain.)
    bool counters_stand_alike(const shmem_node &node) const
    {
        if (region_.unswapped || !has_counters(node.app_node))
            return true;
        std::optional<bool> first;
        for (uint32_t np = 0; np < audited_.num_nps; ++np) {
            const uint32_t number = node.stat_index_rx[np];
            if (!tells_order(number))
                continue;
            const bool plain = region_.place_of(number).has_value();
            if (first && *first != plain)
                return false;
            first = plain;
        }
        return true;
    }

    bool tells_order(uint32_t number) const
    {
        return region_.place_of_stored(number) && number != exchanged(number);
    }

    // Puts the stored numbers of an entry whose modify was cut off into the order that the whole
    // modify would have left, so that it counts once on every NP. An NP's number is turned round
    // just before the request is sent to it, and the first NP comes first: when its row still has
    // the earlier content, with the number as it is stored, then its turn had not come yet.
    void stand_counters_alike(shmem_node &node) const
    {
        const app_node &content = node.app_node;
        std::optional<bool> plain;
        for (uint32_t np = 0; np < audited_.num_nps; ++np) {
            const uint32_t number = node.stat_index_rx[np];
            if (!tells_order(number))
                continue;
            const bool stands_plain = region_.place_of(number).has_value();
            if (!plain) {
                const auto *row = rows_.find(np, content.table_type, key_of(content));
                plain = stands_plain != (row != nullptr && turn_had_not_come(node, np, *row));
            }
            if (stands_plain != *plain)
                node.stat_index_rx[np] = exchanged(number);
        }
    }

    static bool turn_had_not_come(const shmem_node &node, uint32_t np, ByteSpan row)
    {
        const RowResult wanted = row_result(node, np, false);
        bool same_content = row.size() == wanted.length;
        bool same_number = row.size() > 1;
        for (size_t i = 0; i < std::min<size_t>(row.size(), wanted.length); ++i)
            ((i >= 1 && i <= 3) ? same_number : same_content) &= row[i] == wanted.bytes[i];
        return !same_content && same_number;
    }

    // ---- what nobody holds

    void free_leaked_counters()
    {
        AuditInput shadow_alone = audited_;
        shadow_alone.hardware = nullptr;
        for (const Finding &finding : audit(shadow_alone).findings) {
            if (finding.kind == FindingKind::counter_leaked &&
                inline_svc_free_counter(finding.counter, finding.np) == 0)
                words_.done("gave a counter back", "NP " + std::to_string(finding.np) + ", " +
                                                       hexadecimal(uint64_t{finding.counter}));
        }
    }

    void free_empty_entries()
    {
        for_each_main([this](uint32_t key, const main_entry &main) {
            if (main.num_elements[0] + main.num_elements[1] != 0)
                return;
            action_array batch{};
            batch.uidb_index = static_cast<uint16_t>(key);
            inline_shadow_db_clear_main(&batch);
            words_.done("freed an empty entry", "key " + std::to_string(key));
        });
    }

    // ---- requests

    bool request(const RowRequest &request)
    {
        constexpr uint32_t answers_between_looks = 64;
        const uint32_t code = send(input_.root->prm_srh_hdl, request);
        if (code != 0)
            words_.left("NP " + std::to_string(request.np) + ": a request for " +
                        table_text(request.table) + " " + hexadecimal(request.key) +
                        " failed: " + cerr_strerror(code));
        if (++requests_ % answers_between_looks == 0)
            input_.run_events();
        return code == 0;
    }

    const SettlementInput &input_;
    const AuditInput audited_;
    const CounterRegion region_;
    SettlementWords words_;
    std::vector<StoredEntry> entries_;
    std::vector<const StoredEntry *> doubtful_; // into entries_
    std::unordered_map<std::string, uint32_t> entries_with_key_;
    KnownRows rows_;
    uint32_t requests_ = 0;
};

} // namespace

AuditInput audit_input_of(const SettlementInput &input)
{
    return {.root = input.root,
            .in_shared_memory = input.in_shared_memory,
            .counters_unswapped = counters_travel_unswapped(platform_get_my_card_type()),
            .first_counter = prm_stats_cl_get_stateless_double_start(),
            .counter_count = prm_stats_cl_get_stateless_double_size(),
            .num_nps = NUM_LC_NPS,
            .hardware = input.hardware};
}

Settlement settle(const SettlementInput &input)
{
    return Settling(input).run();
}

} // namespace services
