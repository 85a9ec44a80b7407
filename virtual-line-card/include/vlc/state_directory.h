// The directory that holds a card and its host while no process does.
#pragma once

#include <filesystem>

namespace vlc {

enum class Access { read_only, read_write };

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

    // For a start that fails after the directory was opened: removes what this opening and the
    // stores in it made, when the directory was missing or empty before. Otherwise does nothing.
    void take_back() noexcept;

private:
    void open_existing();
    void release_lock() noexcept;

    std::filesystem::path path_;
    Access access_;
    bool is_new_ = false;
    bool made_directory_ = false;
    int lock_ = -1; // the directory itself
};

} // namespace vlc
