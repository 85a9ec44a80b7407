// Carries out steps of the scenario: a card, a host and its services in this process.
#pragma once

#include <filesystem>
#include <memory>

#include "scenario.h"
#include "scenario_card.h"
#include "service_host.h"
#include "step_result.h"
#include "vlc/virtual_line_card.h"

namespace test {

// One a process; the card's clock is stepped. On a directory where a scenario was carried out
// before, a new host goes on from the step that it is given, once it was started again.
class ScenarioHost {
public:
    ScenarioHost(const vlc::CardConfig &config, const std::filesystem::path &state_directory);
    // On a card in another process; `act` reaches it beside its socket.
    ScenarioHost(const vlc::CardAtSocket &card, const std::filesystem::path &state_directory,
                 ActOnCard act);
    ~ScenarioHost();
    ScenarioHost(const ScenarioHost &) = delete;
    ScenarioHost &operator=(const ScenarioHost &) = delete;

    StepResult carry_out(const Step &step);
    void let_time_pass(); // runs what is ready, and what the card has still to say

    vlc::VirtualLineCard &card() { return *card_; }
    // The stored entry of a key that has the id, found without a call of the library; null for
    // none.
    shmem_node *stored(uint16_t key, uint32_t entry_id) const;
    shadow_db *root() const { return static_cast<shadow_db *>(card_->window().root()); }

private:
    uint32_t start();
    uint32_t register_services();
    uint32_t apply(const Step &step);
    uint32_t clear(uint16_t key);
    static StepResult run_app_handler();
    static StepResult collect();
    static void configure(const VserviceRequest &wanted);
    static StepResult set_attributes(const AttributeRequest &wanted);
    static StepResult send_packets();
    static StepResult look_up_interfaces();
    void act(CardAct what);

    std::unique_ptr<vlc::VirtualLineCard> card_;
    ActOnCard act_;
    std::unique_ptr<services::ServiceHost> host_;
};

} // namespace test
