// What an audit finds against what the reference predicts.
#pragma once

#include <string>
#include <vector>

#include "reference_model.h"
#include "vlc/virtual_line_card.h"

namespace test {

// One line a finding or unread answer that only one side has.
std::vector<std::string> audit_differences(const ReferenceModel &model, const shadow_db *root,
                                           vlc::VirtualLineCard &card);

} // namespace test
