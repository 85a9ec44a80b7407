#include "vlc/state_directory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <regex>
#include <string>
#include <system_error>
#include <utility>

#include "file_access.h"
#include "state_marker.h"
#include "vlc/state_error.h"

namespace vlc {

namespace {

[[noreturn]] void fail(const std::filesystem::path &path, const std::string &why)
{
    throw StateError(path.string() + ": " + why);
}

// What a process killed while it made the directory may have left does not count.
bool holds_nothing(const std::filesystem::path &path)
{
    for (const auto &entry : std::filesystem::directory_iterator(path)) {
        if (entry.path().filename() != unfinished_marker_name) {
            return false;
        }
    }
    return true;
}

const char *text_of(Holdings holdings)
{
    switch (holdings) {
    case Holdings::card:
        return "a card without a host";
    case Holdings::host:
        return "a host without its card";
    case Holdings::card_and_host:
        return "a card with its host";
    }
    return "nothing that is known";
}

// What a card keeps in its directory, also under the name that it has while it is being made.
bool is_ours(const std::string &file)
{
    static const std::regex ours(
        "(window|prm|np[0-9]+|answers[0-9]+|console|host|virtual-line-card|"
        "trace-[A-Za-z0-9_%]*-(event|error)|sites-[A-Za-z0-9_%]*)"
        "(\\.new)?|cpu-port[0-9]+\\.pcap");
    return std::regex_match(file, ours);
}

void remove_ours(const std::filesystem::path &path)
{
    for (const auto &entry : std::filesystem::directory_iterator(path)) {
        if (is_ours(entry.path().filename()) && entry.path().filename() != marker_name) {
            std::filesystem::remove(entry.path());
        }
    }
}

} // namespace

StateDirectory::StateDirectory(std::filesystem::path path, Access access)
    : path_(std::move(path)), access_(access)
{
    if (access == Access::read_write && mkdir(path_.c_str(), 0755) == 0) {
        made_directory_ = true;
    } else if (access == Access::read_write && errno != EEXIST) {
        fail(path_, "cannot be made: " + text_of(errno));
    }
    try {
        open_existing();
    } catch (const std::filesystem::filesystem_error &error) {
        release_lock();
        fail(path_, "cannot be read: " + error.code().message());
    } catch (...) {
        release_lock();
        throw;
    }
}

void StateDirectory::open_existing()
{
    const int directory = open_file(path_, O_RDONLY | O_DIRECTORY);
    if (directory < 0) {
        fail(path_, errno == ENOTDIR ? "is no directory" : "cannot be opened: " + text_of(errno));
    }
    lock_ = directory;
    // The lock is on the directory itself, so that asking for it changes nothing in there.
    if (access_ == Access::read_write && flock(lock_, LOCK_EX | LOCK_NB) != 0) {
        fail(path_, errno == EWOULDBLOCK ? "is in use by another process"
                                         : "cannot be locked: " + text_of(errno));
    }
    if (std::filesystem::exists(path_ / marker_name)) {
        if (const std::optional<Marker> marker = read_marker(path_)) {
            card_ = marker->card;
            holdings_ = marker->holdings;
        }
        return;
    }
    if (access_ == Access::read_only || !holds_nothing(path_)) {
        fail(path_, std::string("is not the state of a virtual line card: it has no file '") +
                        marker_name + "'" +
                        (access_ == Access::read_write ? " and is not empty" : ""));
    }
    is_new_ = true;
    try {
        write_marker(path_, std::nullopt);
    } catch (...) {
        take_back();
        throw;
    }
}

void StateDirectory::start_over()
{
    if (is_new_ || is_complete()) {
        return;
    }
    try {
        remove_ours(path_);
    } catch (const std::filesystem::filesystem_error &error) {
        fail(path_, "what is half made in it cannot be removed: " + error.code().message());
    }
    is_new_ = true;
}

void StateDirectory::require(Holdings wanted) const
{
    if (!is_complete() || holdings_ == wanted) {
        return;
    }
    const auto bits = [](Holdings holdings) { return static_cast<uint32_t>(holdings); };
    const bool has_all = (bits(holdings_) & bits(wanted)) == bits(wanted);
    if (has_all && access_ == Access::read_only) {
        return;
    }
    fail(path_, std::string("holds ") + text_of(holdings_) + ", and " + text_of(wanted) +
                    (access_ == Access::read_only ? " is looked for" : " cannot go on with it"));
}

void StateDirectory::complete(const CardConfig &card, Holdings holdings)
{
    if (!is_complete()) {
        write_marker(path_, Marker{card, holdings});
        card_ = card;
        holdings_ = holdings;
        is_new_ = false;
        return;
    }
    // A state goes on with another card file: with its interfaces too. The window keeps its size.
    CardConfig changed = card;
    changed.window_bytes = card_->window_bytes;
    if (changed != *card_) {
        write_marker(path_, Marker{changed, holdings_});
        card_ = changed;
    }
}

void StateDirectory::take_back() noexcept
{
    if (!is_new_) {
        return;
    }
    try {
        remove_ours(path_);
    } catch (const std::exception &) {
        // What cannot be removed stays; why the start failed is what is told.
    }
    // The marker last: until then the rest is known as something half made.
    unlink((path_ / marker_name).c_str());
    if (made_directory_) {
        rmdir(path_.c_str());
    }
    is_new_ = false;
}

void StateDirectory::release_lock() noexcept
{
    if (lock_ >= 0) {
        close(std::exchange(lock_, -1));
    }
}

StateDirectory::~StateDirectory()
{
    release_lock();
}

StateDirectory::StateDirectory(StateDirectory &&other) noexcept
    : path_(std::move(other.path_)), access_(other.access_), card_(std::move(other.card_)),
      holdings_(other.holdings_), is_new_(std::exchange(other.is_new_, false)),
      made_directory_(std::exchange(other.made_directory_, false)),
      lock_(std::exchange(other.lock_, -1))
{
}

std::optional<CardConfig> stored_card(const std::filesystem::path &state_directory)
{
    std::error_code error;
    if (!std::filesystem::exists(state_directory, error) && !error) {
        return std::nullopt;
    }
    if (std::filesystem::is_directory(state_directory, error) &&
        !std::filesystem::exists(state_directory / marker_name, error) && !error) {
        return std::nullopt;
    }
    return StateDirectory(state_directory, Access::read_only).card();
}

} // namespace vlc
