// What is there against what the reference says.
#pragma once

#include <string>
#include <vector>

#include "inline_service_shadowdb.h"
#include "reference_model.h"
#include "vlc/virtual_line_card.h"

namespace test {

// Gives the model's new nodes of a key the addresses that the library stored them at: by their
// place in the list, so a list of another length is left to the comparison.
void learn_addresses(const ReferenceModel &model, const shadow_db &root, uint16_t key);

// One line a difference between the model and shadow, NPs, counter bitmaps and the window's blocks.
// Needs the addresses of all nodes.
std::vector<std::string> differences(const ReferenceModel &model, const shadow_db *root,
                                     vlc::VirtualLineCard &card);

} // namespace test
