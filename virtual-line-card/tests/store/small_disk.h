// A file system with little room, which only this process sees.
#pragma once

#include <sched.h>
#include <sys/mount.h>

#include <string>

#include "test_directory.h"

namespace vlc::test {

class SmallDisk {
public:
    // Needs a mount namespace of its own, as root or in a user namespace.
    explicit SmallDisk(const std::string &size)
    {
        const bool apart = unshare(CLONE_NEWNS) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0;
        const std::string options = "size=" + size;
        mounted_ = apart && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                   mount("tmpfs", directory_.path().c_str(), "tmpfs", 0, options.c_str()) == 0;
    }
    ~SmallDisk()
    {
        if (mounted_) {
            umount2(directory_.path().c_str(), MNT_DETACH);
        }
    }
    SmallDisk(const SmallDisk &) = delete;
    SmallDisk &operator=(const SmallDisk &) = delete;

    bool is_mounted() const { return mounted_; }
    const std::filesystem::path &path() const { return directory_.path(); }
    std::filesystem::path file(const char *name) const { return directory_.file(name); }

private:
    TestDirectory directory_;
    bool mounted_ = false;
};

} // namespace vlc::test
