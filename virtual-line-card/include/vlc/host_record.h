// What a host tells of itself in its state directory, for whoever looks: while it runs, when it has
// stopped, and when it was killed.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>

#include "vlc/prm_ledger.h"
#include "vlc/state_directory.h"

namespace vlc {

enum class HostLife : uint8_t {
    running,
    stopped, // it ended in order
    killed   // its process is gone, and it never said that it ended
};

// Where a host's card is for it.
enum class CardReach : uint8_t {
    own,       // in its own process
    connected, // in another
    away,      // in another, and the connection is broken
    given_up   // and it is not looked for any more
};

struct HostConnection {
    CardReach card = CardReach::own;
    bool prm_is_up = false;
    bool is_registered = false; // with PRM, since the connection is up
};

// Times are nanoseconds since 1970; real ones are the machine's.
struct HostState {
    HostLife life = HostLife::killed;
    uint64_t process = 0;
    int64_t started = 0; // on the card's clock
    int64_t started_real = 0;
    int64_t changed_real = 0; // when it last told anything
    int64_t ended_real = 0;   // 0 unless it has stopped
    HostConnection connection;
    PrmLedger::Sums requests;
};

// The host's own end. Each number is one store; nothing of it can fail.
class HostRecord {
public:
    // Null where there is no room for it: a host does without.
    static std::unique_ptr<HostRecord> begin(const StateDirectory &directory);
    ~HostRecord(); // tells that the host has stopped
    HostRecord(const HostRecord &) = delete;
    HostRecord &operator=(const HostRecord &) = delete;

    void tell(const HostConnection &connection, const PrmLedger::Sums &requests) noexcept;

private:
    struct File;
    explicit HostRecord(std::unique_ptr<File> file);
    std::unique_ptr<File> file_;
};

// Nothing where no host has ever told anything. Takes no lock. Throws StateError for a file that
// cannot be read.
std::optional<HostState> host_state_in(const std::filesystem::path &state_directory);

} // namespace vlc
