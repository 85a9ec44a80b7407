// A host that is killed between any two instructions of its work, and settles.
//
// The host runs instruction by instruction. Whenever one has changed what a kill would leave, in
// the window or in the tables of an NP, the state is copied and a new host settles the copy.

#include <csignal>
#include <cstring>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include "interrupted_work.h"
#include "slow_build.h"

namespace test {
namespace {

namespace fs = std::filesystem;

constexpr char work_directory[] = "/tmp/card";
constexpr char copy_directory[] = "/tmp/killed";
constexpr CardKind two_nps = {0xD20001, 2};

// With a sanitizer instructions are many more, and many of them not the host's.
constexpr uint64_t look_every = slow_build ? 50 : 1;

// A part of a file, and what it was when it was looked at last.
class Watched {
public:
    Watched(const std::string &name, off_t begin, size_t bytes) : bytes_(bytes), last_(bytes, '\0')
    {
        const int file = open((fs::path(work_directory) / name).c_str(), O_RDONLY | O_CLOEXEC);
        now_ = static_cast<const char *>(mmap(nullptr, bytes, PROT_READ, MAP_SHARED, file, begin));
        close(file);
    }
    ~Watched() { munmap(const_cast<char *>(now_), bytes_); }
    Watched(const Watched &) = delete;
    Watched &operator=(const Watched &) = delete;

    bool has_changed()
    {
        if (memcmp(now_, last_.data(), bytes_) == 0)
            return false;
        memcpy(last_.data(), now_, bytes_);
        return true;
    }

private:
    size_t bytes_;
    const char *now_;
    std::string last_;
};

// Parent and child take turns, which is fastest on one processor.
void stay_on_one_processor()
{
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(static_cast<size_t>(sched_getcpu()), &one);
    sched_setaffinity(0, sizeof one, &one);
}

class SteppedHost : public testing::TestWithParam<size_t> {
protected:
    SteppedHost() : work_(works_on_one_entry()[GetParam()])
    {
        fs::remove_all(work_directory);
        EXPECT_EQ(live([] { prepare_work(two_nps, work_directory); }), 0);
        finished_ = static_cast<volatile bool *>(
            mmap(nullptr, sizeof(bool), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    }

    // A host that stops before its work, to be run step by step.
    pid_t start_host()
    {
        const pid_t child = fork();
        if (child != 0)
            return child;
        vlc::CardClock::set_mode(vlc::ClockMode::stepped);
        if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0)
            _exit(77);
        KillableHost host(two_nps, work_directory);
        raise(SIGSTOP);
        work_.perform();
        *finished_ = true;
        for (;;)
            pause();
    }

    void expect_that_a_copy_settles(uint64_t instruction)
    {
        fs::remove_all(copy_directory);
        fs::create_directory(copy_directory);
        for (const auto &entry : fs::directory_iterator(work_directory)) {
            if (entry.is_regular_file()) // a host that runs has a socket there too
                fs::copy(entry.path(), copy_directory);
        }
        EXPECT_EQ(live([this] {
                      KillableHost host(two_nps, copy_directory);
                      expect_settled(host, work_);
                  }),
                  0)
            << "killed after instruction " << instruction;
    }

    Work work_;
    volatile bool *finished_ = nullptr;
};

TEST_P(SteppedHost, LeavesWhatASettlementMendsAtEveryInstruction)
{
    stay_on_one_processor();
    const pid_t child = start_host();
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    if (WIFEXITED(status) && WEXITSTATUS(status) == 77)
        GTEST_SKIP() << "no process may be traced here";
    ASSERT_TRUE(WIFSTOPPED(status));
    ASSERT_EQ(ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_EXITKILL), 0);
    // Of the window the root and the main table, then, behind the tables of attributes and virtual
    // services, the first counters, and behind the counters the entries; of an NP its tables.
    constexpr off_t tables = 340 << 10;
    Watched watched[] = {{"window", 0, 12 << 10},
                         {"window", tables + (8 << 10), 12 << 10},
                         {"window", tables + (136 << 10), 24 << 10},
                         {"np0", 0, 32 << 10},
                         {"np1", 0, 32 << 10}};

    uint64_t states = 0;
    uint64_t instruction = 1;
    for (; !*finished_ && !HasFailure(); ++instruction) {
        ASSERT_EQ(ptrace(PTRACE_SINGLESTEP, child, nullptr, nullptr), 0);
        ASSERT_EQ(waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSTOPPED(status) && WSTOPSIG(status) == SIGTRAP) << instruction;
        if (instruction % look_every != 0)
            continue;
        bool changed = false;
        for (Watched &part : watched)
            changed |= part.has_changed();
        if (changed) {
            ++states;
            expect_that_a_copy_settles(instruction);
        }
    }
    kill(child, SIGKILL);
    waitpid(child, &status, 0);
    std::printf("%llu instructions, %llu states settled\n",
                static_cast<unsigned long long>(instruction),
                static_cast<unsigned long long>(states));
    EXPECT_GE(states, look_every > 1 ? 5u : 15u);
}

INSTANTIATE_TEST_SUITE_P(Work, SteppedHost, testing::Range(size_t{0}, works_on_one_entry().size()),
                         [](const auto &given) {
                             return std::string(works_on_one_entry()[given.param].name);
                         });

} // namespace
} // namespace test
