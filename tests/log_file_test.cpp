// The log file by itself: how it is opened, what a line looks like, how it is kept short. Each case
// needs streams that were never used, so it runs in a process of its own.

#include <fstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "log_file.h"
#include "log_speakers.h"
#include "platform_event_debug.h"

namespace {

using test::log_path;
using test::log_text;
using test::LogSpeakers;

constexpr char midnight[] = "Jan  1 00:00:00.000:"; // what the stepped clock begins with

class LogFile : public testing::Test {
protected:
    void SetUp() override
    {
        if (streams_were_used)
            GTEST_SKIP() << "each case needs a process of its own, as ctest runs them";
        streams_were_used = true;
        setenv("TZ", "UTC", 1);
    }

    static void begin_with(int64_t size)
    {
        std::ofstream(log_path) << "what an earlier process left\n";
        ASSERT_EQ(truncate(log_path, size), 0);
    }
    static int64_t size()
    {
        struct stat status = {};
        return stat(log_path, &status) == 0 ? status.st_size : -1;
    }
    // Descriptors of this process on the log file.
    static std::vector<int> descriptors()
    {
        struct stat log = {};
        std::vector<int> found;
        for (int fd = 0; fd < 1000; ++fd) {
            struct stat status = {};
            if (stat(log_path, &log) == 0 && fstat(fd, &status) == 0 &&
                status.st_ino == log.st_ino && status.st_dev == log.st_dev)
                found.push_back(fd);
        }
        return found;
    }
    std::string speak_and_capture(LogSpeakers::Source source)
    {
        testing::internal::CaptureStdout();
        speakers.speak(source);
        fflush(stdout);
        return testing::internal::GetCapturedStdout();
    }
    // The channels beside the file, which nothing that happens to it touches.
    size_t trace_events() { return speakers.services.count("_ltrace"); }

    LogSpeakers speakers;

private:
    static inline bool streams_were_used = false;
};

// ---- a line ------------------------------------------------------------------------------------

TEST_F(LogFile, ALineIsTheStampTheMessageAndANewline)
{
    speakers.speak(LogSpeakers::app);
    EXPECT_EQ(log_text(), "Jan  1 00:00:00.000: no update action is not present \n");
}

TEST_F(LogFile, AMessageThatEndsInANewlineLeavesAnEmptyLineBehindIt)
{
    speakers.speak(LogSpeakers::prm);
    EXPECT_EQ(log_text(), "Jan  1 00:00:00.000: PRM NOT ready and conn down \n\n");
}

TEST_F(LogFile, TheStampIsTheLocalTimeOfDayInMilliseconds)
{
    setenv("TZ", "EST5", 1);
    vlc::CardClock::advance(std::chrono::hours(24 * 30) + std::chrono::minutes(754) +
                            std::chrono::nanoseconds(56'078'999'999));
    speakers.speak(LogSpeakers::context);
    EXPECT_EQ(log_text().substr(0, 20), "Jan 31 07:34:56.078:");
}

TEST_F(LogFile, MillisecondsAreCutAndNotRounded)
{
    vlc::CardClock::advance(std::chrono::nanoseconds(999'999'999));
    speakers.speak(LogSpeakers::context);
    EXPECT_EQ(log_text().substr(0, 20), "Jan  1 00:00:00.999:");
}

TEST_F(LogFile, AClockThatIsSetBackShowsInTheNextStamp)
{
    speakers.speak(LogSpeakers::context);
    vlc::CardClock::advance(std::chrono::seconds(-1));
    speakers.speak(LogSpeakers::context);
    const std::string text = log_text();
    EXPECT_EQ(text.substr(text.find('\n') + 1, 20), "Dec 31 23:59:59.000:");
}

TEST_F(LogFile, ALineOf599CharactersIsWhole)
{
    const std::string message = speakers.speak_at_length(599 - LogSpeakers::stamp_length);
    EXPECT_EQ(log_text(), midnight + message + "\n");
    EXPECT_EQ(log_text().size(), 600u);
}

TEST_F(LogFile, ALineOf600CharactersIsWhole)
{
    const std::string message = speakers.speak_at_length(600 - LogSpeakers::stamp_length);
    EXPECT_EQ(log_text(), midnight + message + "\n");
    EXPECT_EQ(log_text().size(), 601u);
}

TEST_F(LogFile, ALineOf601CharactersIsCutAt600)
{
    const std::string message = speakers.speak_at_length(601 - LogSpeakers::stamp_length);
    EXPECT_EQ(log_text(), (midnight + message).substr(0, 600) + "\n");
}

TEST_F(LogFile, AVeryLongLineIsCutAt600AndTheNextBeginsOnALineOfItsOwn)
{
    const std::string message = speakers.speak_at_length(100000);
    speakers.speak(LogSpeakers::app);
    EXPECT_EQ(log_text(), (midnight + message).substr(0, 600) + "\n" + midnight +
                              " no update action is not present \n");
}

TEST_F(LogFile, EachMessageIsInTheFileBeforeTheCallReturns)
{
    speakers.speak(LogSpeakers::prm);
    const int64_t first = size();
    EXPECT_GT(first, 0);
    speakers.speak(LogSpeakers::prm);
    EXPECT_EQ(size(), 2 * first);
}

TEST_F(LogFile, AMessageLoggedFromInsideTheTraceFacilityFollowsTheOneThatItInterrupts)
{
    bool inside = false;
    speakers.services.script("_ltrace", [&](const vlc::ServiceCall &) {
        if (!inside) {
            inside = true;
            inline_svc_shared_mem_reset(); // of the same source file
        }
        return std::optional<uint64_t>(0);
    });
    speakers.speak(LogSpeakers::shadow_db);
    EXPECT_EQ(log_text(), "Jan  1 00:00:00.000:shared memory alloc failed c 77\n"
                          "Jan  1 00:00:00.000:shared memory reset\n");
}

TEST_F(LogFile, AMessageStandsInTheFileAfterItsTraceEventWasSent)
{
    int64_t size_at_the_event = -1;
    speakers.speak(LogSpeakers::app); // makes the file
    const int64_t before = size();
    speakers.services.script("_ltrace", [&](const vlc::ServiceCall &) {
        size_at_the_event = size();
        return std::optional<uint64_t>(0);
    });
    speakers.speak(LogSpeakers::app);
    EXPECT_EQ(size_at_the_event, before);
    EXPECT_EQ(size(), 2 * before);
}

// ---- opening -----------------------------------------------------------------------------------

TEST_F(LogFile, NothingIsOpenedBeforeTheFirstMessage)
{
    EXPECT_EQ(size(), -1);
    EXPECT_EQ(inline_shadow_db_appid_to_key(1, 1), 1u);
    EXPECT_EQ(size(), -1);
}

TEST_F(LogFile, EachSourceFileOpensAStreamOfItsOwnAtItsFirstMessage)
{
    for (int source = 0; source < LogSpeakers::source_count; ++source) {
        speakers.speak(static_cast<LogSpeakers::Source>(source));
        EXPECT_EQ(descriptors().size(), static_cast<size_t>(source) + 1);
    }
    for (int source = 0; source < LogSpeakers::source_count; ++source)
        speakers.speak(static_cast<LogSpeakers::Source>(source));
    EXPECT_EQ(descriptors().size(), static_cast<size_t>(LogSpeakers::source_count));
}

TEST_F(LogFile, WhatTheFileHeldBeforeIsAppendedTo)
{
    std::ofstream(log_path) << "what an earlier process left\n";
    speakers.speak(LogSpeakers::app);
    EXPECT_EQ(log_text(), "what an earlier process left\n"
                          "Jan  1 00:00:00.000: no update action is not present \n");
}

TEST_F(LogFile, LinesOfSeveralSourceFilesStandInTheOrderOfTheCalls)
{
    speakers.speak(LogSpeakers::app);
    speakers.speak(LogSpeakers::shadow_db);
    speakers.speak(LogSpeakers::app);
    EXPECT_EQ(test::log_messages(),
              (std::vector<std::string>{" no update action is not present ",
                                        "shared memory alloc failed c 77",
                                        " no update action is not present "}));
}

TEST_F(LogFile, ANewFileMayBeReadByAllThatTheUmaskAllows)
{
    umask(0);
    speakers.speak(LogSpeakers::app);
    struct stat status = {};
    ASSERT_EQ(stat(log_path, &status), 0);
    EXPECT_EQ(status.st_mode, static_cast<mode_t>(S_IFREG | 0666));
}

TEST_F(LogFile, EveryStreamIsClosedInAProgramThatTheHostStarts)
{
    begin_with(9999990);
    for (int round = 0; round < 2; ++round) { // appending streams, then truncating ones
        for (int source = 0; source < LogSpeakers::source_count; ++source)
            speakers.speak(static_cast<LogSpeakers::Source>(source));
        ASSERT_EQ(descriptors().size(), static_cast<size_t>(LogSpeakers::source_count));
        for (const int descriptor : descriptors())
            EXPECT_EQ(fcntl(descriptor, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    }
    EXPECT_LT(size(), 10000);
}

// ---- what cannot be opened ---------------------------------------------------------------------

class LogFileRefused : public LogFile {
protected:
    // Says that the open failed, each time, sends the trace event all the same, and is at work
    // again as soon as the path is free.
    void expect_refused()
    {
        speakers.services.record_debug_services(true);
        for (size_t i = 1; i <= 3; ++i) {
            EXPECT_EQ(speak_and_capture(LogSpeakers::app), "failed to open!!!\n");
            EXPECT_EQ(trace_events(), i);
        }
        ASSERT_EQ(remove(log_path), 0);
        EXPECT_EQ(speak_and_capture(LogSpeakers::app), "");
        EXPECT_EQ(trace_events(), 4u);
        EXPECT_EQ(log_text(), "Jan  1 00:00:00.000: no update action is not present \n")
            << "what could not be written is not written later";
    }
};

TEST_F(LogFileRefused, ADirectoryAtThePathIsAFailedOpenAtEachMessage)
{
    ASSERT_EQ(mkdir(log_path, 0755), 0);
    expect_refused();
}

TEST_F(LogFileRefused, ASymbolicLinkIsAFailedOpenAndItsTargetIsLeftAlone)
{
    std::ofstream("/tmp/target") << "mine";
    ASSERT_EQ(symlink("/tmp/target", log_path), 0);
    expect_refused();
    std::string kept;
    std::getline(std::ifstream("/tmp/target"), kept);
    EXPECT_EQ(kept, "mine");
}

TEST_F(LogFileRefused, ADanglingSymbolicLinkIsAFailedOpenAndItsTargetIsNotMade)
{
    ASSERT_EQ(symlink("/tmp/no_such_file", log_path), 0);
    expect_refused();
    EXPECT_NE(access("/tmp/no_such_file", F_OK), 0);
}

TEST_F(LogFileRefused, APipeWithoutAReaderIsAFailedOpenAndBlocksNothing)
{
    ASSERT_EQ(mkfifo(log_path, 0666), 0);
    expect_refused();
}

TEST_F(LogFileRefused, APipeWithAReaderIsAFailedOpenAndGetsNothing)
{
    ASSERT_EQ(mkfifo(log_path, 0666), 0);
    const int reader = open(log_path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    expect_refused();
    char byte = 0;
    EXPECT_EQ(read(reader, &byte, 1), 0);
    close(reader);
}

TEST_F(LogFileRefused, ASocketIsAFailedOpen)
{
    const int socket_descriptor = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::string(log_path).copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(socket_descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof address),
              0);
    expect_refused();
    close(socket_descriptor);
}

TEST_F(LogFileRefused, ADeviceIsAFailedOpen)
{
    if (mknod(log_path, S_IFCHR | 0666, (1 << 8) | 3) != 0) // the null device
        GTEST_SKIP() << "devices may not be made here";
    expect_refused();
}

TEST_F(LogFileRefused, NothingStaysOpenOnWhatIsNoRegularFile)
{
    ASSERT_EQ(mkfifo(log_path, 0666), 0);
    const int reader = open(log_path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    ASSERT_GE(reader, 0);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(speak_and_capture(LogSpeakers::app), "failed to open!!!\n");
    EXPECT_EQ(descriptors(), std::vector<int>{reader}) << "nothing is left open on it";
    close(reader);
}

TEST_F(LogFileRefused, EventDebugStillPrintsWhatTheFileDoesNotGet)
{
    ed_component *component = nullptr;
    speakers.services.script("ed_init", [&](const vlc::ServiceCall &call) {
        component = reinterpret_cast<ed_component *>(call.args[0]);
        return std::optional<uint64_t>(0);
    });
    pshadow_db->initialized = 1;
    inline_svc_shadow_db_initialized(0, 0, 0, 0);
    ASSERT_NE(component, nullptr);
    for (uint64_t i = 0; i < component->debug_point_count; ++i)
        component->debug_points[i].flags = ED_PRINT;
    ASSERT_EQ(mkdir(log_path, 0755), 0);
    speakers.services.record_debug_services(true);
    speakers.services.force("ed_print_debug", 0);
    speak_and_capture(LogSpeakers::app);
    EXPECT_EQ(speakers.services.count("ed_print_debug"), 1u);
    EXPECT_EQ(trace_events(), 1u);
}

TEST_F(LogFileRefused, AReopenThatFailsAtTheLimitIsSaidAndTriedAgainForAppending)
{
    begin_with(10000001);
    speakers.speak(LogSpeakers::app);
    ASSERT_EQ(rename(log_path, "/tmp/moved"), 0);
    ASSERT_EQ(mkdir(log_path, 0755), 0);
    EXPECT_EQ(speak_and_capture(LogSpeakers::app), "failed to open!!!\n");
    ASSERT_EQ(rmdir(log_path), 0);
    std::ofstream(log_path) << "what someone put there\n";
    EXPECT_EQ(speak_and_capture(LogSpeakers::app), "");
    EXPECT_EQ(log_text(), "what someone put there\n"
                          "Jan  1 00:00:00.000: no update action is not present \n");
}

// ---- the size rule -----------------------------------------------------------------------------

TEST_F(LogFile, AFileOfExactly10000000BytesIsKept)
{
    constexpr int64_t line = 20 + 33 + 1;
    begin_with(10000000 - line);
    speakers.speak(LogSpeakers::app);
    ASSERT_EQ(size(), 10000000);
    speakers.speak(LogSpeakers::app);
    EXPECT_EQ(size(), 10000000 + line);
}

TEST_F(LogFile, AFileOf10000001BytesIsTruncatedAndTheNextMessageLandsFirst)
{
    constexpr int64_t line = 20 + 33 + 1;
    begin_with(10000001 - line);
    speakers.speak(LogSpeakers::app);
    ASSERT_EQ(size(), 10000001);
    vlc::CardClock::advance(std::chrono::seconds(5));
    speakers.speak(LogSpeakers::app);
    EXPECT_EQ(log_text(), "Jan  1 00:00:05.000: no update action is not present \n");
}

TEST_F(LogFile, NoOlderCopyIsKeptWhenTheFileIsTruncated)
{
    begin_with(10000001);
    speakers.speak(LogSpeakers::app);
    struct stat before = {};
    struct stat after = {};
    ASSERT_EQ(stat(log_path, &before), 0);
    speakers.speak(LogSpeakers::app);
    ASSERT_EQ(stat(log_path, &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino) << "the same file goes on";
    EXPECT_EQ(after.st_nlink, 1u);
}

TEST_F(LogFile, TheFirstMessageOfAStreamIsAppendedHoweverLongTheFileIs)
{
    begin_with(25000000);
    speakers.speak(LogSpeakers::app);
    EXPECT_EQ(size(), 25000000 + 54);
}

TEST_F(LogFile, AnAppendingStreamStandsBehindItsOwnLastLineAndNotAtTheFilesEnd)
{
    speakers.speak(LogSpeakers::app);
    ASSERT_EQ(truncate(log_path, 10000001), 0); // others wrote, this stream did not
    speakers.speak(LogSpeakers::app);
    EXPECT_EQ(size(), 10000001 + 54);
    speakers.speak(LogSpeakers::app);
    EXPECT_EQ(size(), 54);
}

TEST_F(LogFile, OtherAppendingStreamsStayAtTheirPositionsAndWriteAtTheNewEnd)
{
    begin_with(9000000);
    speakers.speak(LogSpeakers::shadow_db); // stands at 9,000,052
    ASSERT_EQ(truncate(log_path, 10000001), 0);
    speakers.speak(LogSpeakers::app);
    speakers.speak(LogSpeakers::app); // truncates
    speakers.speak(LogSpeakers::shadow_db);
    EXPECT_EQ(log_text(), "Jan  1 00:00:00.000: no update action is not present \n"
                          "Jan  1 00:00:00.000:shared memory alloc failed c 77\n");
}

TEST_F(LogFile, EachStreamThatStandsPastTheLimitTruncatesOnceMore)
{
    begin_with(10000001);
    speakers.speak(LogSpeakers::app);
    speakers.speak(LogSpeakers::shadow_db);
    speakers.speak(LogSpeakers::app);
    speakers.speak(LogSpeakers::shadow_db);
    EXPECT_EQ(log_text(), "Jan  1 00:00:00.000:shared memory alloc failed c 77\n");
}

TEST_F(LogFile, AStreamThatTruncatedGoesOnAtItsOwnPositionAndLeavesAHole)
{
    begin_with(10000001);
    speakers.speak(LogSpeakers::app);
    speakers.speak(LogSpeakers::shadow_db);
    speakers.speak(LogSpeakers::app);       // truncates, and stands at 54
    speakers.speak(LogSpeakers::shadow_db); // truncates, and stands at 52
    speakers.speak(LogSpeakers::app);
    EXPECT_EQ(log_text(), std::string("Jan  1 00:00:00.000:shared memory alloc failed c 77\n") +
                              std::string(2, '\0') +
                              "Jan  1 00:00:00.000: no update action is not present \n");
}

TEST_F(LogFile, AStreamThatTruncatedWritesOverWhatOthersAppended)
{
    begin_with(10000001);
    speakers.speak(LogSpeakers::app);
    speakers.speak(LogSpeakers::app);       // truncates, and stands at 54
    speakers.speak(LogSpeakers::shadow_db); // appends its 52 bytes there
    speakers.speak(LogSpeakers::app);
    EXPECT_EQ(log_text(), "Jan  1 00:00:00.000: no update action is not present \n"
                          "Jan  1 00:00:00.000: no update action is not present \n");
}

// Kept behaviour: the position counts as a signed number of 32 bits.
TEST_F(LogFile, AFileBeyond2GiBIsLeftAlone)
{
    begin_with(INT64_C(0x80000000));
    for (int64_t lines = 1; lines <= 3; ++lines) {
        speakers.speak(LogSpeakers::app);
        EXPECT_EQ(size(), INT64_C(0x80000000) + 54 * lines);
    }
}

TEST_F(LogFile, AFileJustBelow2GiBIsTruncated)
{
    begin_with(INT64_C(0x7FFFFFFF) - 54);
    speakers.speak(LogSpeakers::app);
    ASSERT_EQ(size(), INT64_C(0x7FFFFFFF));
    speakers.speak(LogSpeakers::app);
    EXPECT_EQ(size(), 54);
}

TEST_F(LogFile, AFileBeyond4GiBIsTruncatedOnceItsLower32BitsArePastTheLimit)
{
    begin_with((INT64_C(1) << 32) + 10000000 - 54);
    speakers.speak(LogSpeakers::app);
    speakers.speak(LogSpeakers::app);
    ASSERT_EQ(size(), (INT64_C(1) << 32) + 10000000 + 54);
    speakers.speak(LogSpeakers::app);
    EXPECT_EQ(size(), 54);
}

} // namespace
