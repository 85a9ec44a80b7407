#include "unix_socket.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <system_error>

#include "vlc/state_error.h"

namespace vlc {

namespace {

constexpr int waiting_connections = 16;

[[noreturn]] void fail(const std::filesystem::path &path, const std::string &why)
{
    throw StateError(path.string() + ": " + why);
}

[[noreturn]] void fail_with_error(const std::filesystem::path &path, const std::string &what)
{
    fail(path, what + ": " + std::generic_category().message(errno));
}

// A path as a socket's address. Where it is longer than an address holds, its directory is named by
// a descriptor, which stays open as long as this.
class SocketAddress {
public:
    explicit SocketAddress(const std::filesystem::path &path)
    {
        std::string name = path.string();
        if (name.size() >= sizeof address_.sun_path) {
            const std::filesystem::path parent = path.has_parent_path() ? path.parent_path() : ".";
            directory_ = UnixSocket(open(parent.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
            if (!directory_.is_open())
                return;
            name = "/proc/self/fd/" + std::to_string(directory_.descriptor()) + "/" +
                   path.filename().string();
        }
        if (name.size() >= sizeof address_.sun_path) {
            errno = ENAMETOOLONG;
            return;
        }
        address_.sun_family = AF_UNIX;
        std::memcpy(address_.sun_path, name.c_str(), name.size());
        fits_ = true;
    }
    bool fits() const { return fits_; } // otherwise errno says why
    const sockaddr *generic() const { return reinterpret_cast<const sockaddr *>(&address_); }
    socklen_t size() const { return sizeof address_; }

private:
    sockaddr_un address_{};
    UnixSocket directory_; // closes it
    bool fits_ = false;
};

UnixSocket new_socket()
{
    const int made = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (made < 0 || made > STDERR_FILENO)
        return UnixSocket(made);
    // Never a standard descriptor, even when the program was started without them.
    const UnixSocket low(made);
    return UnixSocket(fcntl(made, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

void remove_dead_socket(const std::filesystem::path &path)
{
    struct stat found {};
    if (lstat(path.c_str(), &found) != 0)
        return;
    if (!S_ISSOCK(found.st_mode))
        fail(path, "is there already and is no socket");
    if (UnixSocket::connect(path).is_open())
        fail(path, "a card listens there already");
    if (errno != ECONNREFUSED)
        fail_with_error(path, "is there already and cannot be looked at");
    if (unlink(path.c_str()) != 0)
        fail_with_error(path, "what a dead process left cannot be removed");
}

} // namespace

UnixSocket &UnixSocket::operator=(UnixSocket &&other) noexcept
{
    if (this != &other) {
        close();
        descriptor_ = std::exchange(other.descriptor_, -1);
    }
    return *this;
}

void UnixSocket::close()
{
    if (descriptor_ >= 0)
        ::close(std::exchange(descriptor_, -1));
}

UnixSocket UnixSocket::connect(const std::filesystem::path &path)
{
    const SocketAddress address(path);
    UnixSocket made = address.fits() ? new_socket() : UnixSocket();
    if (!made.is_open())
        return made;
    int outcome = 0;
    do {
        outcome = ::connect(made.descriptor(), address.generic(), address.size());
    } while (outcome != 0 && errno == EINTR);
    const int error = errno;
    if (outcome != 0)
        made.close();
    errno = error;
    return made;
}

ssize_t UnixSocket::send_some(std::span<const uint8_t> bytes) const
{
    ssize_t sent = 0;
    do {
        sent = send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    } while (sent < 0 && errno == EINTR);
    return sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK) ? 0 : sent;
}

ssize_t UnixSocket::receive_some(std::span<uint8_t> bytes) const
{
    ssize_t got = 0;
    do {
        got = recv(descriptor_, bytes.data(), bytes.size(), MSG_DONTWAIT);
    } while (got < 0 && errno == EINTR);
    if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
        return 0;
    return got == 0 ? -1 : got;
}

bool UnixSocket::wait(short what, std::chrono::milliseconds most) const
{
    const auto end = std::chrono::steady_clock::now() + most;
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            end - std::chrono::steady_clock::now());
        pollfd descriptor{descriptor_, what, 0};
        const int ready =
            poll(&descriptor, 1, static_cast<int>(std::max<int64_t>(0, left.count())));
        if (ready > 0)
            return true;
        if (ready == 0 || errno != EINTR)
            return false;
    }
}

ListeningSocket::ListeningSocket(std::filesystem::path path) : path_(std::move(path))
{
    const SocketAddress address(path_);
    if (!address.fits())
        fail_with_error(path_, "cannot be made");
    remove_dead_socket(path_);
    socket_ = new_socket();
    if (!socket_.is_open() || bind(socket_.descriptor(), address.generic(), address.size()) != 0)
        fail_with_error(path_, "cannot be made");
    struct stat made {};
    if (lstat(path_.c_str(), &made) == 0) {
        device_ = made.st_dev;
        inode_ = made.st_ino;
    }
    if (listen(socket_.descriptor(), waiting_connections) != 0) {
        const int error = errno;
        unlink(path_.c_str());
        errno = error;
        fail_with_error(path_, "cannot be listened at");
    }
}

ListeningSocket::~ListeningSocket()
{
    struct stat found {};
    if (lstat(path_.c_str(), &found) == 0 && found.st_dev == device_ && found.st_ino == inode_)
        unlink(path_.c_str());
}

UnixSocket ListeningSocket::accept() const
{
    pollfd descriptor{socket_.descriptor(), POLLIN, 0};
    if (poll(&descriptor, 1, 0) <= 0)
        return {};
    return UnixSocket(accept4(socket_.descriptor(), nullptr, nullptr, SOCK_CLOEXEC));
}

} // namespace vlc
