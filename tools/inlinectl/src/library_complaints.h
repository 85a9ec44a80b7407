// What the library has said of failures, in its own words.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace inlinectl {

class LibraryComplaints {
public:
    LibraryComplaints();
    // Since the last look, oldest first: its "error" trace buffer, then the platform's error log.
    std::vector<std::string> look();

private:
    uint64_t next_sequence_ = 0;
};

} // namespace inlinectl
