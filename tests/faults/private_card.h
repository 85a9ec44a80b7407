// A forked process's own copy of the card's state.
#pragma once

#include <filesystem>

namespace test {

// What this process changes in the card's files from now on is seen by it alone. The process that
// it was forked from must not change them meanwhile.
void make_card_private(const std::filesystem::path &state_directory);

} // namespace test
