#include "private_tmp.h"

#include <cstdio>

#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <unistd.h>

namespace test {

void enter_private_tmp()
{
    if (unshare(CLONE_NEWNS) == 0 &&
        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
        mount("tmpfs", "/tmp", "tmpfs", 0, "mode=1777,size=1g") == 0)
        return;
    const int lock = open("/var/tmp/inline_service_tests.lock", O_CREAT | O_RDWR | O_CLOEXEC, 0666);
    if (lock >= 0)
        flock(lock, LOCK_EX); // held until the process ends
    unlink("/tmp/inline_svc_log");
}

} // namespace test
