// A card with the service host on it, in a directory that outlives both.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "made_capture.h"
#include "service_host.h"
#include "vlc/data_plane.h"
#include "vlc/virtual_line_card.h"

namespace test {

inline constexpr char card_directory[] = "/tmp/card";

vlc::CardConfig small_card(uint16_t num_nps = 2);
services::HostHandles handles_of(vlc::VirtualLineCard &card);

class HostOnCard : public ::testing::Test {
protected:
    HostOnCard();

    void open_card();
    void start_host(); // throws services::ServiceError
    void restart();    // as after a kill: card and host anew on the same directory
    void run_events() { card->events().run_until_idle(); }
    uint64_t requests() const; // that this card's PRM has taken in
    void send(const MadePacket &packet, uint32_t wire_length = 100);

    vlc::CardConfig config = small_card();
    std::unique_ptr<vlc::VirtualLineCard> card;
    std::unique_ptr<services::ServiceHost> host;
    std::unique_ptr<vlc::DataPlane> plane;
};

} // namespace test
