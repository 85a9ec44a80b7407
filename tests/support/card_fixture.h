// A card, a host on it and the library wired to both, for one test case.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "inline_service_app.h"
#include "inline_service_context.h"
#include "inline_service_prm.h"
#include "inline_service_shadowdb.h"
#include "inline_service_stat.h"
#include "log_file.h"
#include "service_recorder.h"
#include "vlc/virtual_line_card.h"

namespace test {

// A card on a stepped clock in a directory of the private /tmp. The library knows nothing of it
// yet.
class CardTest : public ::testing::Test {
protected:
    explicit CardTest(uint16_t num_nps = 2);
    ~CardTest() override;

    // The steps of a host, apart. `attach_context` makes the root and fills `context`; the others
    // call the library and expect success.
    void attach_context();
    void set_context();
    void initialize_shadow_db();
    void connect();  // prm_init, then events until the connection is up and registered
    void bring_up(); // all of them, with `initialized` and `stats_state` set as a host does

    void run_events() { card->events().run_until_idle(); }
    void restart_card(vlc::CardConfig new_config); // another card in a new directory

    // Messages since the last call of forget_log().
    std::vector<std::string> log() const { return log_messages_since(log_mark_); }
    void forget_log() { log_mark_ = log_messages().size(); }
    size_t log_count(const std::string &message) const;

    vlc::CardConfig config;
    std::unique_ptr<vlc::VirtualLineCard> card;
    ServiceRecorder services;
    inline_svc_global_cntx context{};
    shadow_db *root = nullptr;

private:
    size_t log_mark_ = 0;
};

// A card with the library up and running on it.
class RunningCardTest : public CardTest {
protected:
    explicit RunningCardTest(uint16_t num_nps = 2) : CardTest(num_nps) { bring_up(); }
};

// A batch of a service; frees its elements when it goes.
class Batch {
public:
    explicit Batch(uint16_t key, uint32_t app_param = 1);
    ~Batch();
    Batch(const Batch &) = delete;
    Batch &operator=(const Batch &) = delete;

    Batch &create(uint32_t entry_id, uint32_t table, const std::string &key,
                  const std::string &result, uint32_t hw_index = 0);
    Batch &modify(shmem_node *node, const std::string &result);
    Batch &remove(shmem_node *node);
    Batch &add(const app_node &node); // anything
    action_array *get() { return &batch_; }
    action_array *operator->() { return &batch_; }

private:
    action_array batch_{};
};

app_node make_node(uint32_t entry_id, uint32_t table, const std::string &key,
                   const std::string &result, uint32_t action, uint32_t hw_index = 0);

// The stored node with an entry id, found by walking the lists (and no log lines).
shmem_node *stored_node(uint32_t key, uint32_t entry_id);

} // namespace test
