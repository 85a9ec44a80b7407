// The directory that holds a card and its host while no process does.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>

#include "vlc/card_config.h"

namespace vlc {

enum class Access { read_only, read_write };

// A card and its host share a directory when they are one process. Otherwise each has its own.
enum class Holdings : uint8_t {
    card = 1, // the hardware: NPs and PRM
    host = 2, // the window
    card_and_host = 3
};

// Opening for writing creates the directory when it is missing or empty and locks it against a
// second live process; opening for reading does neither. Throws StateError, with nothing changed,
// for a directory that is somebody else's (not empty and without our marker), of another version,
// locked, or unusable.
class StateDirectory {
public:
    StateDirectory(std::filesystem::path path, Access access);
    ~StateDirectory();
    StateDirectory(StateDirectory &&other) noexcept;
    StateDirectory(const StateDirectory &) = delete;
    StateDirectory &operator=(const StateDirectory &) = delete;
    StateDirectory &operator=(StateDirectory &&) = delete;

    const std::filesystem::path &path() const { return path_; }
    std::filesystem::path file(const char *name) const { return path_ / name; }
    Access access() const { return access_; }
    bool is_new() const { return is_new_; } // made by this opening

    // A directory is complete when every file of its card has been made. From then on a file that
    // is missing is an error; before, it is made.
    bool is_complete() const { return card_.has_value(); }
    const std::optional<CardConfig> &card() const { return card_; } // what it was made for
    Holdings holdings() const { return holdings_; }                 // of a complete one
    // A complete one takes over what has changed of its card; its files have been checked by now.
    void complete(const CardConfig &card, Holdings holdings = Holdings::card_and_host);
    // Throws StateError when a complete directory holds something else. A reader needs at least
    // this, a writer just this.
    void require(Holdings wanted) const;
    // Removes what a process left that was killed before the directory was complete; it is new
    // again then. Otherwise does nothing.
    void start_over();

    // For a start that fails after the directory was opened: removes what this opening and the
    // stores in it made, when the directory was missing or empty before. Otherwise does nothing.
    void take_back() noexcept;

private:
    void open_existing();
    void release_lock() noexcept;

    std::filesystem::path path_;
    Access access_;
    std::optional<CardConfig> card_;
    Holdings holdings_ = Holdings::card_and_host;
    bool is_new_ = false;
    bool made_directory_ = false;
    int lock_ = -1; // the directory itself
};

// The card that an existing state was made for, to go on with it without being told. None for a
// directory that is missing, empty, somebody else's or not complete. Throws StateError for a
// marker that cannot be read.
std::optional<CardConfig> stored_card(const std::filesystem::path &state_directory);

} // namespace vlc
