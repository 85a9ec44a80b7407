#include "bench_card.h"

#include <cstdlib>
#include <stdexcept>
#include <string>

namespace bench {

namespace {

std::filesystem::path made_directory()
{
    std::string name = (std::filesystem::temp_directory_path() / "bench-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr)
        throw std::runtime_error("no directory could be made: " + name);
    return name;
}

} // namespace

BenchCard::BenchCard(const vlc::CardConfig &config) : directory_(made_directory())
{
    vlc::CardClock::set_mode(vlc::ClockMode::stepped);
    card_ = std::make_unique<vlc::VirtualLineCard>(config, directory_);
    vlc::VirtualLineCard &card = *card_;
    host_ = std::make_unique<services::ServiceHost>(services::HostHandles{
        .event_manager = card.events().handle(),
        .window_id = card.window_id(),
        .num_nps = config.num_nps,
        .root = nullptr,
        .publish_root = [&card](shadow_db *root) { card.window().set_root(root); },
        .run_until =
            [&card](const std::function<bool()> &done) { return card.events().run_until(done); }});
    host_->start();
}

BenchCard::~BenchCard()
{
    card_.reset();
    std::filesystem::remove_all(directory_);
}

} // namespace bench
