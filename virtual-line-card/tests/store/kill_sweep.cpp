#include "kill_sweep.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <exception>
#include <utility>

#include <gtest/gtest.h>

namespace vlc::test {

namespace {

// Parent and child take turns, which is fastest on one processor.
class OnOneProcessor {
public:
    OnOneProcessor()
    {
        sched_getaffinity(0, sizeof before_, &before_);
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(static_cast<size_t>(sched_getcpu()), &one);
        sched_setaffinity(0, sizeof one, &one);
    }
    ~OnOneProcessor() { sched_setaffinity(0, sizeof before_, &before_); }
    OnOneProcessor(const OnOneProcessor &) = delete;
    OnOneProcessor &operator=(const OnOneProcessor &) = delete;

private:
    cpu_set_t before_;
};

} // namespace

// Shared with the child.
struct KillSweep::Progress {
    std::atomic<uint32_t> done;
    std::atomic<bool> finished;
};

KillSweep::KillSweep(std::filesystem::path directory, const std::filesystem::path &copy,
                     std::vector<Watched> watched)
    : directory_(std::move(directory)), copy_(copy, Access::read_write),
      watched_(std::move(watched)), now_(watched_.size()), last_(watched_.size()),
      progress_(static_cast<Progress *>(mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE,
                                             MAP_SHARED | MAP_ANONYMOUS, -1, 0)))
{
}

KillSweep::~KillSweep()
{
    munmap(progress_, sizeof(Progress));
}

// Into the strings of the look before the last, since this is done some ten thousand times.
void KillSweep::look()
{
    for (size_t i = 0; i < watched_.size(); ++i) {
        Content &content = now_[i];
        const int file = open((directory_ / watched_[i].file).c_str(), O_RDONLY | O_CLOEXEC);
        struct stat found;
        content.exists = file >= 0 && fstat(file, &found) == 0;
        if (!content.exists) {
            continue;
        }
        const auto size = static_cast<uint64_t>(found.st_size);
        const uint64_t from = std::min(watched_[i].from, size);
        content.bytes.resize(std::min(watched_[i].bytes, size - from));
        EXPECT_EQ(pread(file, content.bytes.data(), content.bytes.size(), static_cast<off_t>(from)),
                  static_cast<ssize_t>(content.bytes.size()));
        close(file);
    }
}

void KillSweep::copy_last_look() const
{
    for (size_t i = 0; i < watched_.size(); ++i) {
        const std::filesystem::path path = copy_.file(watched_[i].file.c_str());
        const std::string &bytes = last_[i].bytes;
        if (!last_[i].exists) {
            unlink(path.c_str());
            continue;
        }
        const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
        EXPECT_EQ(pwrite(file, bytes.data(), bytes.size(), static_cast<off_t>(watched_[i].from)),
                  static_cast<ssize_t>(bytes.size()));
        if (watched_[i].is_whole()) {
            EXPECT_EQ(ftruncate(file, static_cast<off_t>(bytes.size())), 0);
        }
        close(file);
    }
}

int KillSweep::start_child()
{
    const int child = fork();
    if (child != 0) {
        return child;
    }
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) {
        _exit(77);
    }
    try {
        const Operations operations = prepare();
        raise(SIGSTOP);
        for (const auto &operation : operations) {
            operation();
            progress_->done.store(progress_->done.load() + 1);
        }
        progress_->finished.store(true);
        for (;;) {
            pause();
        }
    } catch (const std::exception &error) {
        std::fprintf(stderr, "child: %s\n", error.what());
        _exit(1);
    }
}

bool KillSweep::step(int child) const
{
    int status = 0;
    return ptrace(PTRACE_SINGLESTEP, child, nullptr, nullptr) == 0 &&
           waitpid(child, &status, 0) == child && WIFSTOPPED(status) && WSTOPSIG(status) == SIGTRAP;
}

void KillSweep::look_and_verify(uint32_t done)
{
    look();
    if (now_ == last_ && images_ != 0) {
        return;
    }
    std::swap(now_, last_);
    copy_last_look();
    ++images_;
    verify(copy_, done);
}

void KillSweep::run(uint64_t least_points, uint64_t least_images)
{
    const OnOneProcessor pinned;
    const int child = start_child();
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 77) {
        GTEST_SKIP() << "no process may be traced here";
    }
    ASSERT_TRUE(WIFSTOPPED(status)) << "the child could not prepare its work";
    ASSERT_EQ(ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_EXITKILL), 0);
    uint64_t points = 0;
    for (uint64_t instruction = 1; !progress_->finished.load(); ++instruction) {
        ASSERT_TRUE(step(child)) << "after " << instruction << " instructions";
        if (instruction % look_every != 0) {
            continue;
        }
        ++points;
        try {
            look_and_verify(progress_->done.load());
        } catch (const std::exception &error) {
            ADD_FAILURE() << error.what();
        }
        if (testing::Test::HasFailure()) {
            ADD_FAILURE() << "killed after instruction " << instruction << ", with "
                          << progress_->done.load() << " operations done";
            break;
        }
    }
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
    std::printf("killed at %llu instructions, %llu states of the files opened\n",
                static_cast<unsigned long long>(points), static_cast<unsigned long long>(images_));
    EXPECT_GE(points, least_points);
    EXPECT_GE(images_, least_images);
}

} // namespace vlc::test
