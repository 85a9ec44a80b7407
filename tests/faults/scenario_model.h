// Steps of the scenario, carried out on the reference.
#pragma once

#include "reference_model.h"
#include "scenario.h"
#include "step_result.h"

namespace test {

class ScenarioModel {
public:
    explicit ScenarioModel(ReferenceModel::Rules rules) : model_(rules) {}

    // Throws ProcessEnd where the library ends the process.
    StepResult carry_out(const Step &step);
    ReferenceModel &reference() { return model_; }
    const ReferenceModel &reference() const { return model_; }

private:
    uint32_t start();
    uint32_t apply(const Step &step);
    StepResult run_app_handler();
    void configure(const VserviceRequest &wanted);
    StepResult set_attributes(const AttributeRequest &wanted);
    StepResult send_packets();
    StepResult look_up_interfaces();
    void pass_traffic();

    ReferenceModel model_;
};

} // namespace test
