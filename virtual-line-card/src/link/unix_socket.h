// Unix stream sockets that neither raise SIGPIPE nor wait where nothing says how long.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <span>
#include <utility>

namespace vlc {

class UnixSocket {
public:
    UnixSocket() = default;
    explicit UnixSocket(int descriptor) : descriptor_(descriptor) {}
    ~UnixSocket() { close(); }
    UnixSocket(UnixSocket &&other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    UnixSocket &operator=(UnixSocket &&other) noexcept;
    UnixSocket(const UnixSocket &) = delete;
    UnixSocket &operator=(const UnixSocket &) = delete;

    // Not open, with errno set, when nobody listens there.
    static UnixSocket connect(const std::filesystem::path &path);

    bool is_open() const { return descriptor_ >= 0; }
    int descriptor() const { return descriptor_; }
    void close();

    // How many bytes went out or came in; 0 when none can now; -1 when the other end is gone.
    ssize_t send_some(std::span<const uint8_t> bytes) const;
    ssize_t receive_some(std::span<uint8_t> bytes) const;
    bool wait(short what, std::chrono::milliseconds most) const; // POLLIN or POLLOUT

private:
    int descriptor_ = -1;
};

// A name in the file system at which connections come in. Throws StateError when somebody listens
// there, when something else is there, and when it cannot be made. What a dead process left there
// is replaced.
class ListeningSocket {
public:
    explicit ListeningSocket(std::filesystem::path path);
    ~ListeningSocket(); // removes the name, unless it has become somebody else's
    ListeningSocket(const ListeningSocket &) = delete;
    ListeningSocket &operator=(const ListeningSocket &) = delete;

    int descriptor() const { return socket_.descriptor(); }
    const std::filesystem::path &path() const { return path_; }
    UnixSocket accept() const; // not open when none is there

private:
    std::filesystem::path path_;
    UnixSocket socket_;
    uint64_t device_ = 0;
    uint64_t inode_ = 0;
};

} // namespace vlc
