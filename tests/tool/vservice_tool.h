// What the tests of `inlinectl vservice` and `inlinectl show` share: 256 services, one for each
// address of a captured network, of which some cannot be.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "card_child.h"
#include "tool_process.h"

namespace test {

class VserviceTool : public ::testing::Test {
protected:
    using json = nlohmann::json;

    static constexpr const char *state = "/tmp/state";
    static constexpr const char *card_file = "/tmp/card.toml";
    static constexpr const char *services_file = "/tmp/services.toml";
    static constexpr const char *output = "/tmp/out.pcap";
    static constexpr const char *real_capture = CAPTURES "/many-sources.pcap";

    static constexpr uint32_t services = 256;
    static constexpr uint32_t records = services + 2; // two that cannot be
    static constexpr uint32_t unsupported = services / 16;
    static constexpr uint32_t supported = services - unsupported;
    static bool is_unsupported(uint32_t index) { return index % 16 == 3; }
    static bool is_local(uint32_t index) { return index % 16 == 5; }

    VserviceTool(); // with two NPs, and nothing programmed

    static void write_file(const char *path, const std::string &text);
    static void write_card(uint32_t nps);
    static std::string text_of_service(uint32_t index);
    static void write_services(uint32_t count = records); // from 0 on, again and again

    static Outcome inlinectl(std::vector<std::string> arguments,
                             std::function<void(pid_t)> while_it_runs = {});
    static json report_of(std::vector<std::string> arguments, int exit_code = 0);
    static json load(int exit_code = 1); // some are skipped
    static std::vector<std::string> an_add(uint32_t index,
                                           const std::string &destination = "203.0.113.9");
    static json shown_services();

    static void expect_clean_audit();
    static void expect_refusal(const std::vector<std::string> &arguments, const std::string &why);
};

} // namespace test
