// What a host answers to the utility messages of its card: tables for a person, written into the
// library's result file.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "stored_tables.h"

namespace services {

// The kinds of messages that a host has handlers for.
enum class UtilityKind : uint32_t {
    counters = 0,  // packet counters in use on each NP, and what they have counted
    shadow = 1,    // what the shadow DB holds under each key
    connection = 2 // to PRM
};

// A message as this host understands it. The library reads the first field alone.
struct UtilityMessage {
    static constexpr uint32_t all = 0xFFFFFFFF;

    uint32_t kind = 0;
    uint32_t about = all; // one NP's counters, or one key of the shadow DB
};

struct UtilitySources {
    StoredTables::InSharedMemory in_shared_memory;
    uint32_t counter_count = 0; // of an NP's region
    // What else there is to say of the connection, each with its name.
    std::function<std::vector<std::pair<std::string, std::string>>()> connection;
};

// Registers its handlers with the library, and takes them back at its end. One a process, beside a
// host that has started.
class UtilityAnswers {
public:
    explicit UtilityAnswers(UtilitySources sources);
    ~UtilityAnswers();
    UtilityAnswers(const UtilityAnswers &) = delete;
    UtilityAnswers &operator=(const UtilityAnswers &) = delete;
};

} // namespace services
