// A small card in a directory of its own, and a client of PRM that writes down what it hears.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform_prm.h"
#include "platform_prm_stats.h"
#include "vlc/service_tap.h"
#include "vlc/virtual_line_card.h"

#include "card_thread.h"

namespace card_test {

// Removed with everything in it.
class ScratchDirectory {
public:
    ScratchDirectory();
    ~ScratchDirectory();
    ScratchDirectory(const ScratchDirectory &) = delete;
    ScratchDirectory &operator=(const ScratchDirectory &) = delete;
    const std::filesystem::path &path() const { return path_; }

private:
    std::filesystem::path path_;
};

// Two NPs, eight rows a table, one megabyte of window.
vlc::CardConfig small_card();

enum class Deployment { embedded, split };

// What a test does to PRM. When the card is split off, it is done on the card's own thread, and the
// host has heard of it when the call returns.
class PrmControl {
public:
    using OnCard = std::function<void(const std::function<void(vlc::Prm &)> &)>;
    PrmControl(vlc::Prm &prm, OnCard on_card) : prm_(prm), on_card_(std::move(on_card)) {}

    void go_down() const { on_card_(&vlc::Prm::go_down); }
    void come_up() const { on_card_(&vlc::Prm::come_up); }
    void report_error() const { on_card_(&vlc::Prm::report_error); }
    void np_reset() const { on_card_(&vlc::Prm::np_reset); }
    void np_warm_boot() const { on_card_(&vlc::Prm::np_warm_boot); }
    void restart(bool keep_tables) const
    {
        on_card_([keep_tables](vlc::Prm &prm) { prm.restart(keep_tables); });
    }
    uint32_t queue_answer(uint32_t handle, const vlc::StoredAnswer &answer) const
    {
        uint32_t code = 0;
        on_card_([&](vlc::Prm &prm) { code = prm.queue_answer(handle, answer); });
        return code;
    }
    bool is_up() const { return prm_.is_up(); }
    uint64_t unread(uint32_t handle) const { return prm_.unread(handle); }
    const vlc::Prm::Totals &totals() const { return prm_.totals(); }

private:
    vlc::Prm &prm_; // looked at only while its thread waits for the host
    OnCard on_card_;
};

// A card on a stepped clock: in this process with its host, or on a thread of its own behind a
// socket.
class CardTest : public testing::Test {
protected:
    explicit CardTest(Deployment deployment = Deployment::embedded);
    ~CardTest() override;

    vlc::VirtualLineCard &card() { return *card_; }
    vlc::EventManager &events() { return card_->events(); }
    vlc::NpStore &nps();
    vlc::Prm &prm() { return card_->prm(); } // when embedded
    PrmControl prm_control();
    CardThread &thread() { return *thread_; } // when split
    std::filesystem::path socket() const { return directory_.path() / "socket"; }
    std::filesystem::path card_directory() const { return directory_.path() / "card"; }
    std::filesystem::path host_directory() const { return directory_.path() / "host"; }
    void end_card() { thread_.reset(); }
    void start_card();
    void end_host() { card_.reset(); }
    void restart_process(); // the host goes and comes again on the same directory

    // Runs everything up to this instant of the card's clock.
    void run_for(vlc::CardClock::duration time);

private:
    void start_process();

    ScratchDirectory directory_;
    std::unique_ptr<CardThread> thread_;
    std::optional<vlc::VirtualLineCard> card_;
};

inline const std::string client_name = "test client";

// What the callbacks of this process saw; they carry no context, so there is one.
struct Heard {
    std::vector<std::string> notifications; // "2.1" is class 2, event 1
    std::vector<prm_async_response> answers;
    int callbacks = 0;
    int delayed = 0;
    int answers_per_callback = 1000;
};
Heard &heard();

void on_notification(struct shadow_db *context, const prm_notification *notification);
void on_answers(); // reads heard().answers_per_callback answers of the registered handle
uint32_t on_delayed();

// A card with a client that has opened its connection and registered a handle.
class ClientTest : public CardTest {
protected:
    explicit ClientTest(Deployment deployment = Deployment::embedded);
    void *handle() const;
    uint32_t number() const; // of the handle, for the card's own half

    uint32_t open(const char *client = client_name.c_str());
    uint32_t register_client();
    // A well-formed request for the service config table of NP 0.
    uint32_t add(const std::string &key, const std::string &result = "result");
};

// Each case of such a fixture runs in both deployments.
template <typename Fixture>
class InEachDeployment : public Fixture, public testing::WithParamInterface<Deployment> {
protected:
    InEachDeployment() : Fixture(testing::WithParamInterface<Deployment>::GetParam()) {}
    PrmControl prm() { return this->prm_control(); }
};

#define IN_BOTH_DEPLOYMENTS(suite)                                                                 \
    INSTANTIATE_TEST_SUITE_P(                                                                      \
        Deployments, suite,                                                                        \
        testing::Values(card_test::Deployment::embedded, card_test::Deployment::split),            \
        [](const auto &deployment) {                                                               \
            return deployment.param == card_test::Deployment::split ? "Split" : "Embedded";        \
        })

prm_config_record make_record(uint32_t np, vlc::TableKind table, uint32_t operation,
                              const std::string &key, const std::string &result = "result");
std::string key_of(const prm_async_response &answer);
std::string result_of(const prm_async_response &answer);
vlc::Bytes bytes_of(const std::string &text);

} // namespace card_test
