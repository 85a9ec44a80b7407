// A whole card on a desk: everything that a host process finds on its platform.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <span>
#include <string>

#include "vlc/card_access.h"
#include "vlc/card_config.h"
#include "vlc/event_manager.h"
#include "vlc/host_console.h"
#include "vlc/np_store.h"
#include "vlc/prm.h"
#include "vlc/prm_ledger.h"
#include "vlc/window.h"

namespace vlc {

// A card in a process of its own, by the socket at which it listens.
struct CardAtSocket {
    std::filesystem::path socket;
};

// The platform services of the process answer for the one card that is alive; without a card they
// answer with codes. PRM is powered on when the constructor returns. Throws StateError, also when a
// card is alive already.
class VirtualLineCard {
public:
    VirtualLineCard(const CardConfig &config, const std::filesystem::path &state_directory);
    // The host's part alone, on a card that another process runs.
    VirtualLineCard(const CardAtSocket &card, const std::filesystem::path &state_directory);
    ~VirtualLineCard();
    VirtualLineCard(const VirtualLineCard &) = delete;
    VirtualLineCard &operator=(const VirtualLineCard &) = delete;

    static VirtualLineCard *current(); // null when none is alive

    const CardConfig &config() const;
    EventManager &events();
    HostConsole &console();
    Window &window();
    uint32_t window_id() const; // what a host puts into its context as shmwin_id
    NpStore &nps();             // these two of a card in this process alone
    Prm &prm();
    RunningCard &access();            // its hardware, for looking and for packets
    const PrmLedger &ledger() const;  // of the requests of this process
    bool is_distant() const;          // in another process
    bool card_is_away() const;        // and its connection is broken
    std::string why_given_up() const; // why it is not looked for any more; empty while it is
    // Sees each answer of a request that was not carried out, when the library reads it.
    void on_failed_answer(std::function<void(const prm_async_response &)> listener);
    // What a flow service has its flow records handed to, a slice at each call of the walker of its
    // table. It must not delete them.
    using FlowScan = std::function<void(std::span<void *const> records)>;
    void on_flow_scan(FlowScan scan);
    void scan_flows(std::span<void *const> records) const; // as the walker does
    bool data_path_statistics_started() const;             // by plm_dpss_stats_init

private:
    friend struct CardServices;
    static void require_none_alive();
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace vlc
