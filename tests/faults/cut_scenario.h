// A scenario that was cut off in the middle of a step, and goes on: a host beside the reference.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "scenario_host.h"
#include "scenario_model.h"

namespace test {

// As far as the sweep carries it out: at its end everything is still there to be looked at.
std::vector<Step> kill_scenario();

class CutScenario {
public:
    CutScenario(ScenarioHost &host, const std::vector<Step> &steps, size_t cut_step);

    // ---- what each side comes to
    ScenarioModel &model() { return *model_; }
    void begin_model(); // at the beginning of the scenario, on a new card
    // The reference's side alone.
    StepResult model_step(const Step &step) { return model_->carry_out(step); }
    // Both sides; the results are compared.
    void carry_out(const Step &step, const std::string &name);

    // The host's side of it, and nothing may be left.
    void settle();
    void compare(const std::string &when); // everything

    // ---- how it goes on
    // The services look what their entries of the step's key have become, and bring them to what
    // they shall be behind the step.
    void make_up_for_cut_step();
    size_t next_step() const; // what is not a change of entries is done again
    void go_on(size_t step);  // from a step to the scenario's end, and compares

    std::vector<std::string> state_differences();
    const std::vector<std::string> &differences() const { return differences_; }
    void say(const std::string &line) { differences_.push_back(line); }

    ScenarioHost &host() { return host_; }
    const std::vector<Step> &steps() const { return steps_; }
    size_t cut_step() const { return cut_step_; }
    // The cut step, when it changes entries.
    const Step *cut_change() const;

private:
    void compare_with_what_services_want();

    ScenarioHost &host_;
    const std::vector<Step> &steps_;
    const size_t cut_step_;
    bool unswapped_;
    std::unique_ptr<ScenarioModel> model_;
    std::vector<std::string> differences_;
};

} // namespace test
