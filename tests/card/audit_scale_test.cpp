// The audit of a large shadow DB, built in plain memory with hardware to match.

#include <chrono>
#include <cstring>
#include <deque>

#include <gtest/gtest.h>

#include "shadow_audit.h"

namespace test {
namespace {

constexpr uint32_t entries = 100000;
constexpr uint32_t num_nps = 4;
constexpr uint32_t keys = 100;

// Entries without counters: there are more than the region has.
class LargeShadowDb : public services::HardwareView {
public:
    LargeShadowDb() : table_(SHADOW_DB_MAIN_SLOTS), mains_(keys)
    {
        for (uint32_t key = 0; key < keys; ++key) {
            mains_[key].uidb_index = static_cast<uint16_t>(key);
            table_[key] = &mains_[key];
        }
        for (uint32_t id = 0; id < entries; ++id)
            append(mains_[id % keys], id);
        root_.main_table = table_.data();
    }

    uint32_t nps() const override { return num_nps; }
    void for_each_row(uint32_t np, uint32_t table, const VisitRow &visit) const override
    {
        for (const shmem_node &node : nodes_) {
            const app_node &content = node.app_node;
            const bool lost = np == 3 && content.entry_id % 1000 == 0;
            if (table == SHADOW_DB_SERVICE_CONFIG && !lost)
                visit({content.key, content.key_len}, {content.result, content.result_len});
        }
    }
    void for_each_unread_answer(const VisitAnswer &) const override {}
    void for_each_counter_run(uint32_t, const VisitRun &) const override {}
    uint32_t address_of_counter(uint32_t) const override { return 0; }

    services::AuditReport look() const
    {
        return services::audit({.root = &root_,
                                .in_shared_memory = [](const void *, size_t) { return true; },
                                .counters_unswapped = false,
                                .first_counter = 0xC00000,
                                .counter_count = 65536,
                                .num_nps = num_nps,
                                .hardware = this});
    }

private:
    void append(main_entry &main, uint32_t id)
    {
        shmem_node &node = nodes_.emplace_back();
        list_record &list = main.table_array[SHADOW_DB_SERVICE_CONFIG];
        node.link = {nullptr, list.last, &node, &list};
        (list.last != nullptr ? list.last->next : list.first) = &node.link;
        list.last = &node.link;
        ++list.count;
        ++main.num_elements[SHADOW_DB_SERVICE_CONFIG];
        app_node &content = node.app_node;
        memcpy(content.key, &id, sizeof id);
        content.key_len = 8;
        content.result_len = 16;
        content.hw_index = SHADOW_DB_NO_HW_INDEX;
        content.entry_id = id;
        content.shmem_node = &node;
    }

    shadow_db root_{};
    std::vector<main_entry *> table_;
    std::vector<main_entry> mains_;
    std::deque<shmem_node> nodes_; // whose places do not move
};

TEST(AuditOfManyEntries, TakesAFewSecondsAtMost)
{
    const LargeShadowDb large;
    const auto begin = std::chrono::steady_clock::now();
    const services::AuditReport report = large.look();
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
    std::printf("%u entries on %u NPs: %.2f seconds\n", entries, num_nps, took.count());
    EXPECT_LT(took.count(), 10); // on a machine that does much else
    EXPECT_EQ(report.nodes[SHADOW_DB_SERVICE_CONFIG], entries);
    ASSERT_EQ(report.findings.size(), entries / 1000);
    EXPECT_EQ(report.count()[size_t(services::FindingKind::entry_missing)], entries / 1000);
    EXPECT_EQ(report.findings[0].np, 3u);
}

} // namespace
} // namespace test
