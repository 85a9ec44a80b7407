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

// A card on a stepped clock.
class CardTest : public testing::Test {
protected:
    CardTest();
    ~CardTest() override;

    vlc::VirtualLineCard &card() { return *card_; }
    vlc::EventManager &events() { return card_->events(); }
    vlc::Prm &prm() { return card_->prm(); }
    void restart_process(); // the card object goes and comes again on the same directory

    // Runs everything up to this instant of the card's clock.
    void run_for(vlc::CardClock::duration time);

private:
    ScratchDirectory directory_;
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
    ClientTest();
    void *handle() const;
    uint32_t number() const; // of the handle, for the card's own half

    uint32_t open(const char *client = client_name.c_str());
    uint32_t register_client();
    // A well-formed request for the service config table of NP 0.
    uint32_t add(const std::string &key, const std::string &result = "result");
};

prm_config_record make_record(uint32_t np, vlc::TableKind table, uint32_t operation,
                              const std::string &key, const std::string &result = "result");
std::string key_of(const prm_async_response &answer);
std::string result_of(const prm_async_response &answer);
vlc::Bytes bytes_of(const std::string &text);

} // namespace card_test
