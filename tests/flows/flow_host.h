// A card's window with the library on it, and nothing else of the card: what a driver of flows
// needs, without a recorder that would cost more than the library. The platform's part is played by
// a FlowHardware, which notes what it is asked.
#pragma once

#include <cstdint>
#include <memory>

#include "flow_hardware.h"
#include "inline_service_context.h"
#include "inline_service_flowdb.h"
#include "vlc/service_tap.h"
#include "vlc/virtual_line_card.h"

namespace test {

class FlowHost {
public:
    FlowHost(uint16_t nps, uint32_t buckets, uint64_t window_bytes);
    ~FlowHost();
    FlowHost(const FlowHost &) = delete;
    FlowHost &operator=(const FlowHost &) = delete;

    // Takes the table over as a restarted process does.
    void start();

    in_hash_table *table() const { return root_->flow_db; }
    vlc::Window::Usage usage() const { return card_->window().usage(); }

    void set_failures(const FlowFailures &failures) { failures_ = failures; }
    const FlowHardware &hardware() const { return hardware_; }
    // Without its book, of rows and events, a host has room for any number of flows.
    void keep_book(bool keep) { keeps_book_ = keep; }
    uint64_t records_seen() const { return records_seen_; } // by callbacks
    const FlowEvents &events() const { return events_; }
    void forget_events() { events_.clear(); }

    // A callback of flowdb_read_all, which returns which call it was, from 1.
    static uint32_t keep_read(void **records, uint32_t count, uint32_t last);
    void begin_read() { reads_ = 0; }

    static int32_t bucket_of(const void *record);
    static int32_t match(const void *entry, const void *key_record);

private:
    std::optional<uint64_t> answer(const vlc::ServiceCall &call);
    uint64_t request(FlowEvent::Kind kind, const vlc::ServiceCall &call);
    uint64_t take(const vlc::ServiceCall &call);
    uint64_t read(const vlc::ServiceCall &call);
    uint64_t serve_encoders(FlowEvent::Kind kind, const vlc::ServiceCall &call);
    void keep_records(FlowEvent::Kind kind, void **records, uint32_t count, uint32_t last);
    void note(FlowEvent event)
    {
        if (keeps_book_)
            events_.push_back(std::move(event));
    }
    static bool fails(uint32_t nps, uint32_t np) { return (nps >> np & 1) != 0; }

    static inline FlowHost *current_ = nullptr;
    static inline uint32_t buckets_ = 1;

    std::unique_ptr<vlc::VirtualLineCard> card_;
    inline_svc_global_cntx context_{};
    shadow_db *root_ = nullptr;
    FlowFailures failures_;
    FlowHardware hardware_;
    FlowEvents events_;
    bool keeps_book_ = true;
    uint64_t records_seen_ = 0;
    uint32_t reads_ = 0;
    std::array<uint32_t, FlowHardware::most_nps> table_ids_{};
    std::unique_ptr<vlc::AddedServiceTap> tap_;
};

} // namespace test
