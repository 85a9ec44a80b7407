#include "card_thread.h"

#include <future>

namespace card_test {

CardThread::CardThread(const vlc::CardConfig &config, const std::filesystem::path &state,
                       const std::filesystem::path &socket)
    : socket_(socket), directory_(state, vlc::Access::read_write),
      hardware_(std::make_unique<vlc::Hardware>(config, directory_))
{
    directory_.complete(config, vlc::Holdings::card);
    server_ = std::make_unique<vlc::CardServer>(*hardware_, events_, socket);
    hardware_->power_on();
    thread_ = std::thread([this] { events_.run_until([this] { return is_over_; }); });
}

CardThread::~CardThread()
{
    perform([this](vlc::Hardware &) { is_over_ = true; });
    thread_.join();
}

void CardThread::perform(const std::function<void(vlc::Hardware &)> &act)
{
    std::promise<void> done;
    events_.post([&] {
        act(*hardware_);
        done.set_value();
    });
    done.get_future().wait();
}

} // namespace card_test
