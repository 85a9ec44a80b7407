// A card for measurements, in a directory of its own that goes with the process.
#pragma once

#include <filesystem>
#include <memory>

#include "service_host.h"
#include "vlc/virtual_line_card.h"

namespace bench {

class BenchCard {
public:
    explicit BenchCard(const vlc::CardConfig &config);
    ~BenchCard();
    BenchCard(const BenchCard &) = delete;
    BenchCard &operator=(const BenchCard &) = delete;

    vlc::VirtualLineCard &card() { return *card_; }
    void run_events() { card_->events().run_until_idle(); }

private:
    std::filesystem::path directory_;
    std::unique_ptr<vlc::VirtualLineCard> card_;
    std::unique_ptr<services::ServiceHost> host_;
};

} // namespace bench
