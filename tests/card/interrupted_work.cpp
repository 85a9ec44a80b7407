#include "interrupted_work.h"

#include <algorithm>

#include <gtest/gtest.h>

#include "card_fixture.h"
#include "platform_card.h"

namespace test {
namespace {

constexpr uint32_t service_config = SHADOW_DB_SERVICE_CONFIG;
constexpr uint32_t ext_conf = SHADOW_DB_EXT_CONF;

const std::vector<KnownEntry> prepared = {
    {1, 1, service_config, "one", "0-result-1"},
    {1, 2, ext_conf, "two", "0-result-2"},
    {1, 3, service_config, "three", "0-result-3", SHADOW_DB_NO_HW_INDEX},
    {1, 4, service_config, "four", "0-result-4"},
    {2, 5, ext_conf, "five", "0-result-5"},
};

KnownEntry changed(const KnownEntry &entry, const std::string &result)
{
    KnownEntry other = entry;
    other.result = result;
    return other;
}

std::string result_of(const shmem_node *node)
{
    if (node == nullptr)
        return {};
    return {reinterpret_cast<const char *>(node->app_node.result), node->app_node.result_len};
}

shmem_node *node_of(const KnownEntry &entry)
{
    return stored_node(entry.main_key, entry.id);
}

// Brings the entries of one key that are not yet so to what they shall be, in one batch.
void bring(const std::vector<KnownEntry> &wanted)
{
    std::map<uint16_t, std::vector<KnownEntry>> by_key;
    for (const KnownEntry &entry : wanted) {
        if (result_of(node_of(entry)) != entry.result)
            by_key[entry.main_key].push_back(entry);
    }
    for (const auto &[key, entries] : by_key) {
        Batch batch(key);
        for (const KnownEntry &entry : entries) {
            shmem_node *node = node_of(entry);
            if (entry.result.empty())
                batch.remove(node);
            else if (node == nullptr)
                batch.create(entry.id, entry.table, entry.key, entry.result, entry.hw_index);
            else
                batch.modify(node, entry.result);
        }
        EXPECT_EQ(inline_svc_shadow_db_insert_action_array(batch.get()), 0u);
    }
}

Work work_of(const char *name, std::vector<KnownEntry> before, std::vector<KnownEntry> after)
{
    return {name, std::move(before), after, [after] { bring(after); }};
}

Work clear_work(uint16_t key)
{
    std::vector<KnownEntry> before;
    std::vector<KnownEntry> after;
    for (const KnownEntry &entry : prepared) {
        if (entry.main_key == key) {
            before.push_back(entry);
            after.push_back(changed(entry, ""));
        }
    }
    return {"clear", before, after, [key] {
                Batch batch(key);
                batch->action = INLINE_SVC_BATCH_DELETE_ALL;
                EXPECT_EQ(inline_svc_shadow_db_insert_action_array(batch.get()), 0u);
            }};
}

// A stored number's order tells how often the entry was programmed: a create turns it round, and so
// does each modify, on every NP alike.
void expect_counted_once(const shmem_node &node, bool modified, const std::string &name)
{
    if (platform_get_my_card_type() != 0xD20001 || node.stat_index_drop[0] == 0)
        return;
    for (uint32_t np = 0; np < NUM_LC_NPS; ++np) {
        const bool plain = node.stat_index_rx[np] >> 8 == 0xC000;
        EXPECT_EQ(plain, modified) << name << " on NP " << np;
    }
}

// Where the counter's number travels in the result, no NP gets the service's own bytes.
std::string travelling(std::string result, const KnownEntry &entry)
{
    const bool counted = entry.table == ext_conf || entry.hw_index != SHADOW_DB_NO_HW_INDEX;
    for (size_t i = 1; counted && i < std::min<size_t>(4, result.size()); ++i)
        result[i] = '#';
    return result;
}

void expect_one_of(const KnownEntry &before, const KnownEntry &after)
{
    const shmem_node *node = node_of(before);
    const std::string result = result_of(node);
    const std::string told = travelling(result, before);
    EXPECT_TRUE(told == travelling(before.result, before) ||
                told == travelling(after.result, after))
        << "entry " << before.id << " holds '" << result << "'";
    if (node != nullptr)
        expect_counted_once(*node, !before.result.empty() && result == after.result, before.key);
}

void expect_no_empty_entry(const shadow_db &root)
{
    for (uint32_t key = 0; key < SHADOW_DB_MAIN_SLOTS; ++key) {
        const main_entry *main = root.main_table[key];
        EXPECT_FALSE(main != nullptr && main->num_elements[0] + main->num_elements[1] == 0) << key;
    }
}

void expect_clean(KillableHost &host, const char *when)
{
    for (const services::Finding &finding : host.look().findings)
        ADD_FAILURE() << when << ": " << finding.text;
}

} // namespace

std::vector<Work> all_works()
{
    const KnownEntry six{1, 6, service_config, "six", "0-result-6"};
    const KnownEntry seven{3, 7, ext_conf, "seven", "0-result-7"};
    const KnownEntry eight{1, 8, service_config, "eight", "0-result-8", SHADOW_DB_NO_HW_INDEX};
    const auto &p = prepared;
    return {
        work_of("create", {changed(six, ""), changed(eight, ""), changed(seven, "")},
                {six, eight, seven}),
        work_of("modify", {p[0], p[1], p[2]},
                {changed(p[0], "0-better-one"), changed(p[1], "0-better"), changed(p[2], "new")}),
        work_of("remove", {p[0], p[2], p[4]},
                {changed(p[0], ""), changed(p[2], ""), changed(p[4], "")}),
        clear_work(1),
    };
}

std::vector<Work> works_on_one_entry()
{
    const KnownEntry six{3, 6, service_config, "six", "0-result-6"};
    const KnownEntry &one = prepared[0];
    return {
        work_of("create", {changed(six, "")}, {six}),
        work_of("modify", {one}, {changed(one, "0-better-and-much-longer-than-it-was-before")}),
        work_of("remove", {one}, {changed(one, "")}),
        clear_work(2),
    };
}

void prepare_work(const CardKind &kind, const std::filesystem::path &directory)
{
    KillableHost host(kind, directory);
    bring(prepared);
    host.run_events();
}

void expect_settled(KillableHost &host, const Work &work)
{
    for (const std::string &left : host.settle().left)
        ADD_FAILURE() << "left: " << left;
    expect_clean(host, "after the settlement");
    expect_no_empty_entry(*host.host.root());
    for (const std::string &done : host.settle().done)
        ADD_FAILURE() << "done again: " << done;
    for (const KnownEntry &entry : prepared) {
        const bool touched =
            std::ranges::any_of(work.before, [&](const KnownEntry &e) { return e.id == entry.id; });
        if (!touched) {
            EXPECT_EQ(result_of(node_of(entry)), entry.result) << entry.key;
        }
    }
    for (size_t i = 0; i < work.before.size(); ++i)
        expect_one_of(work.before[i], work.after[i]);
    work.perform();
    host.run_events();
    for (const KnownEntry &entry : work.after)
        EXPECT_EQ(result_of(node_of(entry)), entry.result) << entry.key;
    expect_clean(host, "at the end");
}

} // namespace test
