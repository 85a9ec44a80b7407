// What the tests of views into a state share: a small state that a run left, the tool, and a hand
// that changes what is kept as no host does.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "inline_service_shadowdb.h"
#include "tool_process.h"
#include "vlc/np_store.h"

namespace test {

class StateOnDisk : public ::testing::Test {
protected:
    using json = nlohmann::json;

    static constexpr const char *state = "/tmp/state";
    static constexpr const char *capture = "/tmp/traffic.pcap";

    // Two destinations, one address: entries 1, 2 and 3 of key 1 on two NPs, six counters. Both
    // packets are TCP's.
    StateOnDisk();

    static Outcome inlinectl(std::vector<std::string> arguments, Environment environment = {});
    static std::string text_of(std::vector<std::string> arguments, int exit_code = 0);
    // One object a line; --json is added.
    static std::vector<json> lines_of(std::vector<std::string> arguments, int exit_code = 0);
    static std::vector<json> of_kind(const std::vector<json> &lines, const std::string &kind);
    static void expect_refusal(const std::vector<std::string> &arguments, const std::string &why);

    using Change = std::function<void(shadow_db &root, vlc::NpStore &nps)>;
    static void disturb(const Change &change, const std::string &directory = state);
    static shmem_node *node_of(shadow_db &root, uint32_t key, uint32_t entry_id);
    static void overwrite(const std::string &file, long place, const std::string &bytes);
};

} // namespace test
