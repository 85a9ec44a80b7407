// Opening and reading files that somebody else may have put there.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string>
#include <system_error>
#include <utility>

#include "vlc/state_error.h"

namespace vlc {

inline std::string text_of(int error)
{
    return std::generic_category().message(error);
}

// Never one of the standard descriptors, even when the program was started without them: what is
// printed then must not land in a file. Returns -1 with errno set when it fails.
inline int open_file(const std::filesystem::path &path, int flags, mode_t mode = 0644)
{
    const int got = ::open(path.c_str(), flags | O_CLOEXEC, mode);
    if (got < 0 || got > STDERR_FILENO) {
        return got;
    }
    const int moved = fcntl(got, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const int error = errno;
    close(got);
    errno = error;
    return moved;
}

class Descriptor {
public:
    explicit Descriptor(int number) : number_(number) {}
    ~Descriptor()
    {
        if (number_ >= 0) {
            close(number_);
        }
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    int number() const { return number_; }

private:
    int number_;
};

// Refuses what is no regular file instead of waiting for its other end. Throws StateError.
inline std::string read_file(const std::filesystem::path &path)
{
    const auto fail = [&path](const std::string &why) {
        throw StateError(path.string() + ": " + why);
    };
    const Descriptor file(open_file(path, O_RDONLY | O_NONBLOCK));
    struct stat found = {};
    if (file.number() < 0 || fstat(file.number(), &found) != 0) {
        fail("cannot be read: " + text_of(errno));
    }
    if (S_ISDIR(found.st_mode)) {
        fail("cannot be read: " + text_of(EISDIR));
    }
    if (!S_ISREG(found.st_mode)) {
        fail("is no regular file");
    }
    std::string text;
    char part[4096];
    ssize_t got = 0;
    while ((got = read(file.number(), part, sizeof part)) > 0) {
        text.append(part, static_cast<size_t>(got));
    }
    if (got < 0) {
        fail("cannot be read: " + text_of(errno));
    }
    return text;
}

} // namespace vlc
