// What shall go wrong on a card, and when: rules over the platform services, from a file (TOML) or
// made in code.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "vlc/np_store.h"

namespace vlc {

enum class FaultAction {
    give_code,  // the service is not performed and returns this code
    no_memory,  // shmwin_malloc returns 12
    refuse,     // the frame is not sent; the service writes this retcode and returns this code
    kill,       // the process gets SIGKILL before the call is performed
    answer,     // the request is not carried out, and answered with this status
    late,       // the answer comes this many turns of the event queue later
    lose,       // the answer never comes
    twice,      // the answer comes twice
    reorder,    // the answer comes behind the next one
    table_full, // the request to add is answered as by a full table
    restart,    // PRM restarts behind the call
    np_reset    // the NPs are reset behind the call
};

// The process in which a rule acts: the host's, with the library, or the card's, with PRM. They are
// one process on an embedded card.
enum class FaultSide { host, card };

// A field that does not go with the services or with the action is refused.
struct FaultRule {
    std::string service{}; // the C name; with *, all that match and that the rest goes with
    // These narrow it to some of the calls.
    std::optional<uint32_t> np{};
    std::optional<TableKind> table{};
    std::optional<uint32_t> operation{}; // PRM_OP_ADD and so on
    std::vector<uint8_t> key{};          // how it begins

    FaultAction action = FaultAction::give_code;
    std::optional<uint32_t> code{};    // give_code; refuse: 0 unless said
    std::optional<uint32_t> retcode{}; // refuse
    std::optional<uint32_t> status{};  // answer
    std::optional<uint32_t> events{};  // late: by so many; restart: down for so many
    std::optional<bool> keep_tables{}; // restart; kept unless said
    std::optional<FaultSide> target{}; // kill

    // One of these at most; without one it acts at each match.
    std::optional<uint64_t> nth{};       // at the n-th match, counted from 1
    std::optional<uint64_t> from{};      // at the n-th and each behind it
    std::optional<uint64_t> every{};     // at each k-th
    std::optional<double> probability{}; // above 0, at most 1
    std::optional<uint64_t> limit{};     // acts so often at most

    // Where the rule stands in its file; 0 for one made in code.
    uint32_t line = 0;
    uint32_t column = 0;
};

struct FaultPlan {
    uint64_t seed = 0; // of every probability: the same plan does the same to the same calls
    std::vector<FaultRule> rules{};
    std::string file{};
};

// Throws StateError "FILE:LINE:COLUMN: ..." for what is broken, out of range, unknown (with the
// nearest known name) or does not go together.
FaultPlan load_fault_plan(const std::filesystem::path &file);

// What is wrong with a rule, and at which field; nothing for a good one.
struct FaultComplaint {
    std::string field; // as in a file
    std::string why;
};
std::optional<FaultComplaint> complaint_about(const FaultRule &rule);

FaultSide side_of(const FaultRule &rule);
// For a process that is one of the two: throws StateError for a rule of the other, saying where it
// belongs.
void require_side(const FaultPlan &plan, FaultSide side);

// The rule in short, for reports.
std::string place_text(const FaultPlan &plan, size_t rule); // "FILE:LINE:COLUMN" or "rule N"
std::string service_text(const FaultRule &rule);            // with what narrows it
std::string action_text(const FaultRule &rule);
std::string trigger_text(const FaultRule &rule);

} // namespace vlc
