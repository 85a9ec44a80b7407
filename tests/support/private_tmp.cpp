#include "private_tmp.h"

#include <fstream>
#include <string>

#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <unistd.h>

namespace test {
namespace {

void write_text(const char *path, const std::string &text)
{
    std::ofstream(path) << text;
}

// Root makes the namespace as it is; another user makes it inside a user namespace, as itself.
bool enter_mount_namespace()
{
    const std::string user = std::to_string(getuid());
    const std::string group = std::to_string(getgid());
    if (unshare(CLONE_NEWNS) == 0)
        return true;
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
        return false;
    write_text("/proc/self/setgroups", "deny");
    write_text("/proc/self/uid_map", user + " " + user + " 1");
    write_text("/proc/self/gid_map", group + " " + group + " 1");
    return true;
}

} // namespace

void enter_private_tmp()
{
    if (enter_mount_namespace() &&
        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
        mount("tmpfs", "/tmp", "tmpfs", 0, "mode=1777,size=1g") == 0)
        return;
    const int lock = open("/var/tmp/inline_service_tests.lock", O_CREAT | O_RDWR | O_CLOEXEC, 0666);
    if (lock >= 0)
        flock(lock, LOCK_EX); // held until the process ends
    unlink("/tmp/inline_svc_log");
}

} // namespace test
