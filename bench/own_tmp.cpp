#include "own_tmp.h"

#include <cstdio>
#include <cstdlib>
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

std::string enter_own_tmp_of(int &argc, char **&argv)
{
    if (argc < 3) {
        std::fprintf(stderr, "usage: %s DIRECTORY ext4|tmpfs [--benchmark_...]\n", argv[0]);
        std::exit(2);
    }
    enter_own_tmp(argv[1]);
    const std::string file_system = argv[2];
    argv[2] = argv[0];
    argc -= 2;
    argv += 2;
    return file_system;
}

} // namespace bench
