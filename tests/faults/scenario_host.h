// Carries out steps of the scenario: a card, a host and its services in this process.
#pragma once

#include <filesystem>
#include <memory>

#include "scenario.h"
#include "service_host.h"
#include "step_result.h"
#include "vlc/virtual_line_card.h"

namespace test {

// One a process; the card's clock is stepped. On a directory where a scenario was carried out
// before, a new host goes on from the step that it is given, once it was started again.
class ScenarioHost {
public:
    ScenarioHost(const vlc::CardConfig &config, const std::filesystem::path &state_directory);
    ~ScenarioHost();
    ScenarioHost(const ScenarioHost &) = delete;
    ScenarioHost &operator=(const ScenarioHost &) = delete;

    StepResult carry_out(const Step &step);

    vlc::VirtualLineCard &card() { return *card_; }
    shadow_db *root() const { return static_cast<shadow_db *>(card_->window().root()); }

private:
    uint32_t start();
    uint32_t register_services();
    uint32_t apply(const Step &step);
    uint32_t clear(uint16_t key);
    static StepResult run_app_handler();
    static StepResult collect();
    void pass_traffic();
    void queue_delayed_answer();
    void let_time_pass();

    std::unique_ptr<vlc::VirtualLineCard> card_;
    std::unique_ptr<services::ServiceHost> host_;
};

// The card that the scenario is made for.
vlc::CardConfig scenario_card(uint32_t card_type, uint16_t num_nps = 2);
inline constexpr uint32_t ordinary_card = 0xD20001;
inline constexpr uint32_t unswapped_card = 0xD10001; // takes counters as they lie in memory

// Packets that the scenario's traffic counts on one counter.
ModelCount traffic_on(uint32_t np, uint32_t place);

} // namespace test
