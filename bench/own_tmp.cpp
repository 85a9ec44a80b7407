#include "own_tmp.h"

#include <fstream>
#include <stdexcept>

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

namespace bench {
namespace {

void write_line(const char *file, const std::string &line)
{
    std::ofstream(file) << line;
}

} // namespace

void enter_own_tmp(const std::string &directory)
{
    const std::string user = "0 " + std::to_string(geteuid()) + " 1";
    const std::string group = "0 " + std::to_string(getegid()) + " 1";
    if (unshare(CLONE_NEWNS) != 0) {
        if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
            throw std::runtime_error("a mount namespace is not permitted here");
        write_line("/proc/self/setgroups", "deny");
        write_line("/proc/self/uid_map", user);
        write_line("/proc/self/gid_map", group);
    }
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount(directory.c_str(), "/tmp", nullptr, MS_BIND, nullptr) != 0)
        throw std::runtime_error(directory + " cannot be made /tmp");
}

} // namespace bench
