// Directories in which no file can be made, and programs without standard descriptors.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "small_disk.h"
#include "test_directory.h"
#include "vlc/state_directory.h"
#include "vlc/window.h"

namespace vlc::test {

TEST(UnusableDirectories, OneWithoutRightsIsRefusedWithTheReason)
{
    TestDirectory top;
    chmod(top.path().c_str(), 0555);
    const pid_t other = fork();
    if (other == 0) {
        const bool plain = geteuid() != 0 || setuid(65534) == 0; // root may do everything
        const std::string told = refusal([&] { StateDirectory(top.path(), Access::read_write); });
        _exit(!plain ||
                      told == top.path().string() + ": no file can be made in it: Permission denied"
                  ? 0
                  : 1);
    }
    int status = -1;
    waitpid(other, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(all_files(top.path()).empty());
}

TEST(UnusableDirectories, OneOnAFullDiskIsRefusedWithTheReason)
{
    const SmallDisk disk("8k"); // a page for the filling, and one that goes with it
    if (!disk.is_mounted()) {
        GTEST_SKIP() << "no file system of its own may be made here";
    }
    std::filesystem::create_directory(disk.file("card"));
    write_file(disk.file("filling"), std::string(8192, 'x'));
    EXPECT_EQ(refusal([&] { StateDirectory(disk.file("card"), Access::read_write); }),
              disk.file("card").string() + ": no file can be made in it: No space left on device");
    EXPECT_TRUE(all_files(disk.file("card")).empty());
}

TEST(StandardDescriptors, AreNotTakenByStateFilesWhenTheyAreClosed)
{
    TestDirectory top;
    const pid_t other = fork();
    if (other == 0) {
        for (const int standard : {0, 1, 2}) {
            close(standard);
        }
        const StateDirectory directory(top.path(), Access::read_write);
        const Window window(directory, 1 << 20);
        int taken = 0;
        for (const int standard : {0, 1, 2}) {
            taken += fcntl(standard, F_GETFD) >= 0 ? 1 : 0;
        }
        _exit(taken);
    }
    int status = -1;
    waitpid(other, &status, 0);
    EXPECT_EQ(status, 0);
}

} // namespace vlc::test
