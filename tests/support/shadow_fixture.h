// What the tests of the shadow DB share: a running card with a few views of what is stored, the
// lines of the prints, and ways to refuse or to step in between two lines of the log.
#pragma once

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

#include "card_fixture.h"
#include "vlc/event_debug.h"

namespace test {

using Lines = std::vector<std::string>;

inline Lines joined(std::initializer_list<Lines> parts)
{
    Lines all;
    for (const Lines &part : parts)
        all.insert(all.end(), part.begin(), part.end());
    return all;
}

inline Lines printed_node(const std::string &key_hex, uint32_t key_len,
                          const std::string &result_hex, uint32_t result_len, uint32_t table,
                          uint32_t action, uint32_t entry_id)
{
    return {"*********Node *********\n",
            "*******key " + key_hex + "\n",
            "*******key_len " + std::to_string(key_len) + "\n",
            "*******result " + result_hex + "\n",
            "*******result_len " + std::to_string(result_len) + "\n",
            "*******table_type " + std::to_string(table) + "\n",
            "*******action " + std::to_string(action) + "\n",
            "*******entry_id " + std::to_string(entry_id) + "\n"};
}

inline Lines printed_main_entry(uint32_t key, uint32_t app_id, const std::string &version_hex,
                                const std::string &timestamp_hex, uint32_t total)
{
    return {"************main entry uidb_index " + std::to_string(key) + "*********\n",
            "****Entry AppID " + std::to_string(app_id) + "\n",
            "****Entry Version " + version_hex + "\n",
            "****Entry Timestamp " + timestamp_hex + "\n",
            "****Entry total Number of elemenets " + std::to_string(total) + "\n"};
}

inline const prm_config_record &record_of(const vlc::ServiceCall &call)
{
    return *reinterpret_cast<const prm_config_record *>(call.args[1]);
}

// A request service that refuses what is meant for one NP.
inline ServiceRecorder::Script refused_on(uint32_t np, uint64_t code)
{
    return [np, code](const vlc::ServiceCall &call) -> std::optional<uint64_t> {
        if (record_of(call).np == np)
            return code;
        return std::nullopt;
    };
}

// The message that an event belongs to, as its site has it; empty for no site of the library.
inline std::string message_of_event(const vlc::ServiceCall &call)
{
    const ed_component *component = vlc::EventDebug::instance().component("inlc");
    const uint64_t number = call.args[1] & ((uint64_t{1} << ED_EVENT_NUMBER_BITS) - 1);
    for (uint64_t i = 0; component != nullptr && i < component->debug_point_count; ++i) {
        if (component->debug_points[i].number == number)
            return component->debug_points[i].format;
    }
    return {};
}

class ShadowDbTest : public RunningCardTest {
protected:
    using RunningCardTest::RunningCardTest;

    main_entry *entry(uint32_t key) const { return root->main_table[key]; }
    uint64_t blocks() const { return card->window().usage().blocks_in_use; }
    uint64_t bytes() const { return card->window().usage().bytes_in_use; }
    size_t rows(uint32_t np, uint32_t table) const
    {
        return card->nps()[np].table(static_cast<vlc::TableKind>(table)).size();
    }
    // The bitmap word that the first 32 counters of an NP share.
    uint32_t counters_in_use(uint32_t np) const { return root->counters[np][0]; }

    void forget_history()
    {
        run_events();
        services.forget();
        forget_log();
    }

    // Applies a batch, with nothing recorded but what that does.
    uint32_t insert(Batch &batch)
    {
        services.forget();
        forget_log();
        return inline_shadow_db_insert_main(batch.get());
    }

    // What stands in the log from a line on.
    Lines log_from(const std::string &line) const
    {
        const Lines lines = log();
        return {std::find(lines.begin(), lines.end(), line), lines.end()};
    }

    // Stores one entry as a service would, and leaves no trace of how.
    shmem_node *store(uint16_t key, uint32_t entry_id, uint32_t table, const std::string &text,
                      uint32_t hw_index = 0)
    {
        {
            Batch batch(key);
            batch.create(entry_id, table, text, "0123", hw_index);
            EXPECT_EQ(inline_svc_shadow_db_insert_action_array(batch.get()), 0u);
        }
        forget_history();
        shmem_node *node = stored_node(key, entry_id);
        EXPECT_NE(node, nullptr);
        return node;
    }

    // Steps in at the moment when the library says `message`, once.
    void when_said(const std::string &message, std::function<void()> act)
    {
        services.script("_ltrace", [message, act = std::move(act),
                                    done = false](const vlc::ServiceCall &call) mutable {
            if (!done && message_of_event(call) == message) {
                done = true;
                act();
            }
            return std::optional<uint64_t>();
        });
    }
};

// What an invariant's end says, and how it ends: a fault.
inline std::string assertion_in_shadowdb(const std::string &expression)
{
    return "pellam/lc/inline-service/src/inline_service_shadowdb_util\\.cpp: [0-9]+ " + expression +
           " -- assertion failed\n";
}

#define EXPECT_SHADOWDB_ASSERTION(statement, expression)                                           \
    EXPECT_EXIT(statement, testing::KilledBySignal(SIGSEGV), assertion_in_shadowdb(expression))

} // namespace test
