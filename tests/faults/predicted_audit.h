// The audit's findings as the reference predicts them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "reference_model.h"
#include "shadow_audit.h"

namespace test {

// The fields of a finding that say what it is about, as one line; sorted.
std::vector<std::string> lines_of(const std::vector<services::Finding> &findings);

// What an audit must find in the state that the model is in, in the same form. The region is the
// one that the audit is told of.
std::vector<std::string> predicted_findings(const ReferenceModel &model, bool counters_unswapped,
                                            uint32_t counter_count);

// An entry of the model, and the result that an NP's row of it must hold.
bool has_counters(const ModelNode &node);
std::string predicted_row(const ModelNode &node, uint32_t np, bool counters_unswapped);

std::vector<std::string> lines_of(const std::vector<services::UnreadAnswer> &answers);
std::vector<std::string> predicted_answers(const ReferenceModel &model);

} // namespace test
