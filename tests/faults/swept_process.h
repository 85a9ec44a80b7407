// A process that carries out the scenario and compares each step with the reference.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "scenario_host.h"
#include "scenario_model.h"
#include "service_failures.h"
#include "vlc/service_tap.h"

namespace test {

class SweptProcess {
public:
    // On a new card: what the directory holds is removed.
    SweptProcess(uint32_t card_type, const std::filesystem::path &state_directory);

    // Asked at each call that is not made to fail already; may set a fault for this call and on.
    using Observer = std::function<void(Service service, uint64_t count)>;
    void observe(Observer observer) { observer_ = std::move(observer); }
    void set_fault(const FaultPoint &fault) { fault_ = fault; }

    // Returns false when the scenario ends with this step.
    bool carry_out(const Step &step);
    // For an end of the process inside the step: carries out the reference's side of it. Returns
    // how the reference says that the process ends; none when it should not have.
    std::optional<ProcessEnd> end_inside_step();
    void compare_state(); // shadow, NPs, counters, answers, and what an audit finds

    const std::vector<std::string> &differences() const { return differences_; }
    const std::array<uint64_t, service_count> &calls() const { return calls_; }

private:
    std::optional<uint64_t> on_call(const vlc::ServiceCall &call);
    void compare_calls();

    ScenarioHost host_;
    ScenarioModel model_;
    const Step *step_ = nullptr;
    std::optional<FaultPoint> fault_;
    Observer observer_;
    std::array<uint64_t, service_count> calls_{};
    std::vector<std::string> differences_;
    std::optional<vlc::AddedServiceTap> tap_;
};

} // namespace test
