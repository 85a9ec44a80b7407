#include "vlc/state_directory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "vlc/state_error.h"

namespace vlc {

namespace {

constexpr const char *marker_name = "virtual-line-card";
constexpr const char *unfinished_marker_name = "virtual-line-card.new";
constexpr std::string_view marker_text = "state of a virtual line card, version ";
constexpr int state_version = 1;

[[noreturn]] void fail(const std::filesystem::path &path, const std::string &why)
{
    throw StateError(path.string() + ": " + why);
}

std::string text_of(int error)
{
    return std::generic_category().message(error);
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

void check_marker(const std::filesystem::path &path)
{
    std::ifstream file(path / marker_name);
    std::string line;
    if (!file || !std::getline(file, line)) {
        fail(path / marker_name, "cannot be read");
    }
    if (!line.starts_with(marker_text)) {
        fail(path / marker_name, "is not the marker of a virtual line card's state");
    }
    const std::string version = line.substr(marker_text.size());
    if (version != std::to_string(state_version)) {
        fail(path, "is of version " + version + ", and this program knows version " +
                       std::to_string(state_version));
    }
}

// Under another name first, so that a marker is whole or missing.
void write_marker(const std::filesystem::path &path)
{
    const std::filesystem::path unfinished = path / unfinished_marker_name;
    std::ofstream file(unfinished, std::ios::trunc);
    file << marker_text << state_version << '\n';
    file.close();
    std::error_code error;
    if (file) {
        std::filesystem::rename(unfinished, path / marker_name, error);
    }
    if (!file || error) {
        std::error_code ignored;
        std::filesystem::remove(unfinished, ignored);
        fail(path, "no file can be made in it" + (error ? ": " + error.message() : ""));
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
    const int directory = open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
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
        check_marker(path_);
        return;
    }
    if (access_ == Access::read_only || !holds_nothing(path_)) {
        fail(path_, std::string("is not the state of a virtual line card: it has no file '") +
                        marker_name + "'" +
                        (access_ == Access::read_write ? " and is not empty" : ""));
    }
    is_new_ = true;
    try {
        write_marker(path_);
    } catch (...) {
        take_back();
        throw;
    }
}

void StateDirectory::take_back() noexcept
{
    if (!is_new_) {
        return;
    }
    // It was empty before, so everything in it came from here.
    std::error_code ignored;
    for (const auto &entry : std::filesystem::directory_iterator(path_, ignored)) {
        std::filesystem::remove(entry.path(), ignored);
    }
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
    : path_(std::move(other.path_)), access_(other.access_),
      is_new_(std::exchange(other.is_new_, false)),
      made_directory_(std::exchange(other.made_directory_, false)),
      lock_(std::exchange(other.lock_, -1))
{
}

} // namespace vlc
