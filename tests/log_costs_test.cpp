// What a line of the log costs beside its bytes, in counts that need no clock: system calls,
// allocations and locks. The program's own clock goes on by the time that a line takes, so that
// the counts are the same on any machine.

#include <cstdlib>
#include <ctime>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "inline_service_shadowdb.h"
#include "log_file.h"
#include "replaced_malloc.h"
#include "traced_calls.h"

namespace {

constexpr int64_t line_nanoseconds = 900;
int64_t time_of_day = 1'700'000'000'000'000'000;

// While true, what the library and libc ask of the process is counted. Plain words: the loader asks
// for memory before a sanitizer is ready.
bool is_counting = false;
size_t allocations = 0;
size_t locks = 0;

std::mutex a_mutex;

void note(size_t &count)
{
    if (is_counting)
        ++count;
}

} // namespace

extern "C" int clock_gettime(clockid_t clock, struct timespec *time) noexcept
{
    if (clock != CLOCK_REALTIME)
        return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
    time_of_day += line_nanoseconds;
    time->tv_sec = time_of_day / 1'000'000'000;
    time->tv_nsec = time_of_day % 1'000'000'000;
    return 0;
}

extern "C" void *malloc(size_t size) noexcept
{
    note(allocations);
    return REAL(malloc)(size);
}

extern "C" void *calloc(size_t count, size_t size) noexcept
{
    note(allocations);
    return REAL(calloc)(count, size);
}

extern "C" void *realloc(void *block, size_t size) noexcept
{
    note(allocations);
    return REAL(realloc)(block, size);
}

extern "C" void free(void *block) noexcept
{
    note(allocations);
    REAL(free)(block);
}

extern "C" int pthread_mutex_lock(pthread_mutex_t *mutex) noexcept
{
    note(locks);
    static const auto real =
        reinterpret_cast<int (*)(pthread_mutex_t *)>(dlsym(RTLD_NEXT, "pthread_mutex_lock"));
    return real(mutex);
}

namespace {

class LogCosts : public testing::Test {
protected:
    // A node's print is eight lines of one stream, 94 bytes on average.
    static constexpr size_t lines_of_a_node = 8;

    LogCosts()
    {
        unsetenv("TZ"); // so that ctime looks for the zone's file
        node_.app_node.key_len = 127;
        node_.app_node.result_len = 93;
    }

    void speak() { inline_svc_shadow_db_print_node(&node_); }

    static size_t size()
    {
        struct stat status = {};
        return stat(test::log_path, &status) == 0 ? static_cast<size_t>(status.st_size) : 0;
    }

    static size_t counted(size_t &count, const std::function<void()> &work)
    {
        count = 0;
        is_counting = true;
        work();
        is_counting = false;
        return count;
    }

private:
    shmem_node node_{};
};

TEST_F(LogCosts, AWholeFileTakesOneWriteALineAndAlmostNothingElse)
{
    constexpr size_t nodes = 10'000'000 / (lines_of_a_node * 93); // more than the limit
    std::optional<test::SystemCalls> calls = test::traced_calls([this] {
        speak(); // opens the stream, in the process that is traced
        const test::CallsCount counting;
        for (size_t i = 1; i < nodes; ++i)
            speak();
    });
    if (!calls)
        GTEST_SKIP() << "processes may not be traced here";
    EXPECT_LT(size(), 200'000u) << "the file was not begun again";

    constexpr size_t lines = lines_of_a_node * (nodes - 1);
    EXPECT_EQ(calls->extract(SYS_write).mapped(), lines);
    const size_t looks_at_the_position = calls->extract(SYS_lseek).mapped();
    EXPECT_LE(looks_at_the_position, lines * 13 / 1000);
    const size_t looks_for_the_zone = (*calls)[SYS_newfstatat] - 1; // the other is of the file
    EXPECT_LE(looks_for_the_zone, lines * line_nanoseconds / 1'000'000'000 + 1);
    calls->erase(SYS_newfstatat);
    const test::SystemCalls to_begin_again = {{SYS_close, 1}, {SYS_openat, 1}, {SYS_ftruncate, 1}};
    EXPECT_EQ(*calls, to_begin_again);
}

TEST_F(LogCosts, ManyLinesAllocateNothing)
{
    speak(); // opens the stream
    EXPECT_EQ(counted(allocations,
                      [this] {
                          for (size_t i = 0; i < 10'000 / lines_of_a_node; ++i)
                              speak();
                      }),
              0u);
    EXPECT_EQ(counted(allocations,
                      [] {
                          void *volatile block = malloc(1);
                          free(block);
                      }),
              2u);
}

TEST_F(LogCosts, ManyLinesTakeNoLock)
{
    speak();
    EXPECT_EQ(counted(locks,
                      [this] {
                          for (size_t i = 0; i < 10'000 / lines_of_a_node; ++i)
                              speak();
                      }),
              0u);
    EXPECT_EQ(counted(locks, [] { const std::lock_guard guard(a_mutex); }), 1u);
}

} // namespace
