// The log file holds exactly what one stdio stream a source file would leave in it: opened for
// appending, asked for its position, printed to and flushed at each message.

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <functional>
#include <numeric>
#include <random>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "log_file.h"
#include "log_speakers.h"

namespace {

using test::LogSpeakers;

// What the plain sequence did, summed over this process and its children.
struct Counts {
    std::array<size_t, LogSpeakers::source_count> truncations;
    size_t failed_opens;

    size_t all_truncations() const
    {
        return std::accumulate(truncations.begin(), truncations.end(), size_t{0});
    }
    size_t truncating_sources() const
    {
        return truncations.size() -
               static_cast<size_t>(std::count(truncations.begin(), truncations.end(), 0u));
    }
};
Counts &counts = *static_cast<Counts *>(
    mmap(nullptr, sizeof(Counts), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));

// The plain sequence itself, on a file of its own.
class StdioLog {
public:
    explicit StdioLog(std::string path) : path_(std::move(path)) {}
    ~StdioLog()
    {
        for (FILE *stream : streams_) {
            if (stream != nullptr)
                fclose(stream);
        }
    }
    StdioLog(const StdioLog &) = delete;
    StdioLog &operator=(const StdioLog &) = delete;

    void message(size_t source, const std::string &text)
    {
        FILE *&stream = streams_.at(source);
        if (stream == nullptr) {
            open(stream, "a");
        } else if (static_cast<int32_t>(ftell(stream)) > 10000000) {
            fclose(stream);
            ++counts.truncations.at(source);
            open(stream, "w");
        }
        timespec now = {};
        clock_gettime(CLOCK_REALTIME, &now);
        char line[601];
        const std::string stamp = std::string(ctime(&now.tv_sec) + 4).substr(0, 15);
        char milliseconds[24];
        snprintf(milliseconds, sizeof milliseconds, ".%03ld:", now.tv_nsec / 1000000);
        const std::string whole = stamp + milliseconds + text;
        line[whole.copy(line, sizeof line - 1)] = '\0';
        if (stream == nullptr)
            return;
        fprintf(stream, "%s\n", line);
        fflush(stream);
    }

    const std::string &path() const { return path_; }

private:
    void open(FILE *&stream, const char *mode)
    {
        stream = fopen(path_.c_str(), mode);
        if (stream == nullptr)
            ++counts.failed_opens;
    }

    std::string path_;
    std::array<FILE *, LogSpeakers::source_count> streams_{};
};

// So many times as many messages and rounds as in the check: for long runs.
uint32_t scaled(uint32_t count)
{
    const char *wanted = std::getenv("LOG_STDIO_SCALE");
    return wanted != nullptr ? count * static_cast<uint32_t>(std::stoul(wanted)) : count;
}

int64_t size_of(const std::string &path)
{
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 ? status.st_size : -1;
}

std::string content(const std::string &path)
{
    std::string text(static_cast<size_t>(std::max<int64_t>(0, size_of(path))), '\0');
    std::ifstream(path, std::ios::binary)
        .read(text.data(), static_cast<std::streamsize>(text.size()));
    return text;
}

// The library and the plain sequence, given the same messages at the same time of day.
class Pair {
public:
    explicit Pair(uint32_t seed, const std::string &stdio_path = "/tmp/stdio_log")
        : stdio(stdio_path), random_(seed)
    {
    }

    void message()
    {
        const auto source =
            below(3) == 0 ? LogSpeakers::stat
                          : static_cast<LogSpeakers::Source>(below(LogSpeakers::source_count));
        if (source == LogSpeakers::stat)
            stdio.message(source, speakers.speak_at_length(LogSpeakers::shortest_stat_message +
                                                           below(longest_)));
        else
            stdio.message(source, speakers.speak(source));
        if (is_steady_)
            vlc::CardClock::advance(std::chrono::nanoseconds(500 + below(1000)));
        else if (below(3) == 0)
            move_clock();
    }

    // One message of this source, which takes a microsecond.
    void say(LogSpeakers::Source source)
    {
        stdio.message(source, source == LogSpeakers::stat ? speakers.speak_at_length(900)
                                                          : speakers.speak(source));
        vlc::CardClock::advance(std::chrono::microseconds(1));
    }

    // Also backwards, as when a clock is set.
    void move_clock()
    {
        const std::array<int64_t, 6> steps = {999999,     1000000,     500000000,
                                              1000000000, -2000000001, 86400000000000};
        vlc::CardClock::advance(std::chrono::nanoseconds(steps[below(steps.size())]));
    }

    uint32_t below(size_t limit)
    {
        return std::uniform_int_distribution<uint32_t>(0,
                                                       static_cast<uint32_t>(limit - 1))(random_);
    }

    void expect_same_sizes()
    {
        ASSERT_EQ(size_of(test::log_path), size_of(stdio.path())) << "after message " << messages;
    }
    void expect_same_bytes()
    {
        const std::string ours = content(test::log_path);
        const std::string theirs = content(stdio.path());
        ASSERT_EQ(ours.size(), theirs.size()) << "after message " << messages;
        const auto place = std::mismatch(ours.begin(), ours.end(), theirs.begin()).first;
        ASSERT_TRUE(place == ours.end())
            << "after message " << messages << " the files differ at byte " << place - ours.begin();
    }

    // Sends messages; the whole files are compared around each truncation and now and then.
    void run(size_t count, const std::function<void()> &between = {})
    {
        for (size_t i = 0; i < count; ++i, ++messages) {
            if (between)
                between();
            const size_t truncations = counts.all_truncations();
            message();
            ASSERT_NO_FATAL_FAILURE(expect_same_sizes());
            if (truncations != counts.all_truncations() || i % 5000 == 0) {
                ASSERT_NO_FATAL_FAILURE(expect_same_bytes());
            }
        }
        expect_same_bytes();
    }

    void long_lines(uint32_t longest) { longest_ = longest; }
    // From now on a message takes the time that one takes, as on a machine at work.
    void go_on_steadily() { is_steady_ = true; }

    LogSpeakers speakers;
    StdioLog stdio;
    size_t messages = 0;

private:
    std::mt19937 random_;
    uint32_t longest_ = 900;
    bool is_steady_ = false;
};

// Runs in a child, where the library's streams are as they were here.
void in_child(const std::function<void()> &work)
{
    fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        work();
        fflush(stdout);
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_EQ(status, 0) << "the child failed";
}

// Someone else at the two files. The library may take notice a moment later, never more than that.
class Outsider {
public:
    explicit Outsider(Pair &pair) : pair_(pair) {}

    void maybe_act()
    {
        if (pair_.below(40) != 0)
            return;
        const uint32_t what = pair_.below(6);
        const int64_t size = 9999000 + pair_.below(2000);
        for (const std::string &path : {std::string(test::log_path), pair_.stdio.path()})
            act(what, size, path);
        const timespec moment = {0, 1000000};
        nanosleep(&moment, nullptr);
    }
    void clear_directories()
    {
        for (const std::string &path : {std::string(test::log_path), pair_.stdio.path()})
            rmdir(path.c_str());
    }

private:
    static void act(uint32_t what, int64_t size, const std::string &path)
    {
        rmdir(path.c_str()); // put there below
        switch (what) {
        case 0:
        case 1:
            EXPECT_LE(truncate(path.c_str(), size), 0); // grows it as a rule; it may be missing
            break;
        case 2:
            EXPECT_LE(truncate(path.c_str(), 0), 0);
            break;
        case 3:
            std::ofstream(path, std::ios::binary | std::ios::app) << "a line of someone else\n";
            break;
        case 4:
            unlink(path.c_str());
            break;
        default:
            unlink(path.c_str());
            mkdir(path.c_str(), 0755); // what can be opened no more
            break;
        }
    }

    Pair &pair_;
};

class LogAsStdio : public testing::TestWithParam<uint32_t> {
protected:
    LogAsStdio() { counts = {}; }

    static void begin_both_with(int64_t size)
    {
        for (const char *path : {test::log_path, "/tmp/stdio_log"}) {
            std::ofstream(path) << "what an earlier process left\n";
            ASSERT_EQ(truncate(path, size), 0);
        }
    }
};

TEST_P(LogAsStdio, AllStreamsLeaveTheSameBytesThroughSeveralTruncations)
{
    Pair pair(GetParam());
    pair.long_lines(4000); // most lines are cut, so that the limit is passed often
    pair.run(scaled(110000));
    EXPECT_GE(counts.all_truncations(), 2u);
}

TEST_P(LogAsStdio, AFileThatIsNearTheLimitAlreadyIsTruncatedByTheSameMessage)
{
    for (uint32_t round = 0; round < scaled(12); ++round) {
        begin_both_with(9990000);
        in_child([&] { Pair(GetParam() * 100 + round).run(600); });
        ASSERT_FALSE(HasFailure()) << "in round " << round;
    }
    EXPECT_GE(counts.all_truncations(), 15u);
    EXPECT_GE(counts.truncating_sources(), 5u);
}

// Nothing tells that the file is longer: without being asked for, the position would be known only
// 0.6 ms later.
TEST(LogPosition, OfTheFirstLinesIsExactWhateverBecameOfTheFileMeanwhile)
{
    LogSpeakers speakers;
    vlc::CardClock::set_mode(vlc::ClockMode::real);
    speakers.speak(LogSpeakers::stat);
    ASSERT_EQ(truncate(test::log_path, 10000001), 0);
    speakers.speak(LogSpeakers::stat); // stands behind the limit from here on
    const int64_t past_the_limit = size_of(test::log_path);
    const std::string line = speakers.speak(LogSpeakers::stat);
    EXPECT_GT(past_the_limit, 10000001);
    EXPECT_EQ(size_of(test::log_path),
              static_cast<int64_t>(LogSpeakers::stamp_length + line.size() + 1));
}

// A stream that truncated the file once goes on at its own place after another has truncated it:
// the file is long again at once, and a third one stands behind the limit.
TEST(LogPosition, IsPastTheLimitBehindAHoleThatAnotherStreamMade)
{
    counts = {};
    Pair pair(1);
    for (int i = 0; i < 200; ++i)
        pair.say(LogSpeakers::prm); // more than the lines of an opening that are always exact
    while (counts.truncations.at(LogSpeakers::stat) == 0)
        pair.say(LogSpeakers::stat);
    while (size_of(pair.stdio.path()) <= 9999300)
        pair.say(LogSpeakers::stat);
    while (counts.truncations.at(LogSpeakers::context) == 0)
        pair.say(LogSpeakers::context);
    for (int i = 0; i < 3; ++i)
        pair.say(LogSpeakers::prm);
    pair.say(LogSpeakers::stat);
    ASSERT_GT(size_of(pair.stdio.path()), 9999300) << "there is no hole";
    for (int i = 0; i < 20; ++i) {
        pair.say(LogSpeakers::prm);
        ASSERT_NO_FATAL_FAILURE(pair.expect_same_sizes());
    }
    EXPECT_EQ(counts.truncations.at(LogSpeakers::prm), 1u);
    pair.expect_same_bytes();
}

TEST_P(LogAsStdio, AtWorkAllStreamsLeaveTheSameBytesThroughSeveralTruncations)
{
    Pair pair(GetParam());
    pair.go_on_steadily();
    pair.long_lines(4000);
    pair.run(scaled(110000));
    EXPECT_GE(counts.all_truncations(), 2u);
}

TEST_P(LogAsStdio, AtWorkAFileThatIsNearTheLimitAlreadyIsTruncatedByTheSameMessage)
{
    for (uint32_t round = 0; round < scaled(12); ++round) {
        begin_both_with(9400000);
        in_child([&] {
            Pair pair(GetParam() * 100 + round);
            pair.go_on_steadily();
            pair.long_lines(4000);
            pair.run(6000); // far more than the lines of an opening that are always exact
        });
        ASSERT_FALSE(HasFailure()) << "in round " << round;
    }
    EXPECT_GE(counts.all_truncations(), 15u);
}

TEST_P(LogAsStdio, ChangesByOthersLeaveTheSameBytes)
{
    testing::internal::CaptureStdout();
    for (uint32_t round = 0; round < scaled(30) && !HasFailure(); ++round) {
        in_child([&] {
            Pair pair(GetParam() * 100 + round);
            Outsider outsider(pair);
            pair.run(600, [&] { outsider.maybe_act(); });
            outsider.clear_directories();
        });
    }
    std::string expected;
    for (size_t i = 0; i < counts.failed_opens; ++i)
        expected += "failed to open!!!\n";
    EXPECT_EQ(testing::internal::GetCapturedStdout(), expected);
    EXPECT_GE(counts.all_truncations(), 20u);
    EXPECT_EQ(counts.truncating_sources(), LogSpeakers::source_count);
    EXPECT_GE(counts.failed_opens, 10u);
}

TEST_P(LogAsStdio, AForkedChildGoesOnWithTheSameStreams)
{
    for (uint32_t round = 0; round < scaled(10); ++round) {
        begin_both_with(9998000);
        in_child([&] {
            Pair pair(GetParam() * 100 + round);
            for (int generation = 0; generation < 20; ++generation) {
                ASSERT_NO_FATAL_FAILURE(pair.run(20));
                in_child([&] { pair.run(10); });
                ASSERT_NO_FATAL_FAILURE(pair.expect_same_bytes());
            }
        });
        ASSERT_FALSE(HasFailure()) << "in round " << round;
    }
    EXPECT_GE(counts.all_truncations(), 20u);
}

INSTANTIATE_TEST_SUITE_P(Seeds, LogAsStdio, testing::Values(1u, 2u, 3u));

// Two small file systems, one under /tmp and one for the plain sequence.
class LogOnAFullDisk : public testing::TestWithParam<uint32_t> {
protected:
    void SetUp() override
    {
        counts = {};
        if (unshare(CLONE_NEWNS) != 0 ||
            mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("tmpfs", "/tmp", "tmpfs", 0, "size=12m") != 0)
            GTEST_SKIP() << "no file systems of one's own are permitted here";
        ASSERT_EQ(mkdir("/tmp/stdio", 0755), 0);
        ASSERT_EQ(mount("tmpfs", "/tmp/stdio", "tmpfs", 0, "size=12m"), 0);
    }
    void TearDown() override
    {
        umount2("/tmp/stdio", MNT_DETACH);
        umount2("/tmp", MNT_DETACH);
    }

    static void fill()
    {
        for (const char *path : {"/tmp/filler", "/tmp/stdio/filler"}) {
            const int file = open(path, O_WRONLY | O_CREAT | O_APPEND, 0644);
            const std::string page(4096, 'f');
            while (write(file, page.data(), page.size()) > 0)
                continue;
            close(file);
        }
    }
    static void leave_free(int64_t pages)
    {
        for (const char *path : {"/tmp/filler", "/tmp/stdio/filler"})
            EXPECT_EQ(truncate(path, std::max<int64_t>(0, size_of(path) - pages * 4096)), 0);
    }
    static void begin_with(int64_t size)
    {
        for (const char *path : {test::log_path, "/tmp/stdio/log"}) {
            std::ofstream file(path, std::ios::binary);
            file << "what an earlier process left\n";
            file.close();
            ASSERT_EQ(truncate(path, size), 0);
        }
    }
};

TEST_P(LogOnAFullDisk, WhatFitsIsWrittenAndTheRestIsLostAsWithStdio)
{
    Pair pair(GetParam(), "/tmp/stdio/log");
    pair.long_lines(4000);
    fill();
    size_t lost = 0;
    int64_t size_before = 0;
    pair.run(scaled(15000), [&] {
        if (pair.below(200) == 0)
            leave_free(pair.below(400));
        if (pair.below(200) == 0)
            fill();
        lost += size_of(pair.stdio.path()) == size_before;
        size_before = size_of(pair.stdio.path());
    });
    EXPECT_GT(lost, 0u);
}

TEST_P(LogOnAFullDisk, ATooLongFileIsTruncatedAlthoughNothingFitsIntoIt)
{
    begin_with(11000000);
    fill();
    Pair pair(GetParam(), "/tmp/stdio/log");
    pair.run(100);
    EXPECT_GE(counts.all_truncations(), 1u);
}

INSTANTIATE_TEST_SUITE_P(Seeds, LogOnAFullDisk, testing::Values(1u, 2u, 3u));

} // namespace
