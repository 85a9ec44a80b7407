// Processes that are killed while they log as fast as they can: each line whose call returned is
// whole in the file, and in its order.

#include <array>
#include <atomic>
#include <cstdlib>
#include <fstream>
#include <new>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "log_file.h"
#include "log_speakers.h"

namespace {

using test::LogSpeakers;

// How often each case kills: a few times in the check, LOG_KILLS in long runs.
size_t kills()
{
    const char *wanted = std::getenv("LOG_KILLS");
    return wanted != nullptr ? std::stoul(wanted) : 8;
}

// Two source files that put a number into a line.
constexpr size_t speaker_count = 2;
constexpr uint32_t first_number = 5000;

std::string message(size_t speaker, uint32_t number)
{
    constexpr std::array<const char *, speaker_count> words = {"Invalid uidb_index 7 or app_type ",
                                                               "no utility messages of kind "};
    return words.at(speaker) + std::to_string(number);
}

void speak(size_t speaker, uint32_t number)
{
    if (speaker == 0)
        inline_api_set_uidb_to_app(number, 7, 1);
    else
        inline_register_inutil_callback(number, nullptr);
}

// The next number of each speaker, shared with those who are killed: told once a call returned.
using Next = std::array<std::atomic<uint32_t>, speaker_count>;
Next &next = *new (
    mmap(nullptr, sizeof(Next), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) Next{};

// What one process says, speaker by speaker.
using Voices = std::vector<size_t>;

pid_t start(const Voices &voices)
{
    const pid_t child = fork();
    if (child != 0)
        return child;
    LogSpeakers library;
    vlc::CardClock::set_mode(vlc::ClockMode::real);
    for (;;) {
        for (const size_t speaker : voices) {
            speak(speaker, next.at(speaker));
            ++next.at(speaker);
        }
    }
}

class LogAtAKill : public testing::Test {
protected:
    // Starts the processes on a file of this size, kills them at some instant, and looks at the
    // file.
    void kill_at_random(const std::vector<Voices> &processes, int64_t size = 0)
    {
        std::ofstream(test::log_path) << "";
        ASSERT_EQ(truncate(test::log_path, size), 0);
        for (std::atomic<uint32_t> &number : next)
            number = first_number;
        std::vector<pid_t> children;
        for (const Voices &voices : processes)
            children.push_back(start(voices));
        while (next.at(0) == first_number)
            usleep(100); // the first line shows that it runs
        usleep(std::uniform_int_distribution<useconds_t>(0, 20000)(random_));
        for (const pid_t child : children)
            kill(child, SIGKILL);
        for (const pid_t child : children) {
            int status = 0;
            ASSERT_EQ(waitpid(child, &status, 0), child);
            ASSERT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) << status;
        }
        std::string text = test::log_text();
        const bool is_begun_again = size > 0 && text.front() != '\0';
        begun_again_ += is_begun_again;
        text.erase(0, text.find_first_not_of('\0'));
        for (size_t speaker = 0; speaker < speaker_count; ++speaker) {
            expect_lines(text, speaker, is_begun_again);
            lines_ += next.at(speaker) - first_number;
        }
    }

    size_t lines_ = 0;       // of all who were killed
    size_t begun_again_ = 0; // files that had reached their limit

private:
    // All lines whose calls returned; of a file that was begun again, those since then. The one
    // that was being written may be there, whole or cut.
    static void expect_lines(const std::string &text, size_t speaker, bool is_begun_again)
    {
        const std::string words = message(speaker, 0).substr(0, 12);
        uint32_t expected = first_number;
        size_t lines = 0;
        for (size_t at = text.find(words); at != text.npos; at = text.find(words, at + 1)) {
            const size_t end = text.find('\n', at);
            if (end == text.npos)
                break;
            if (is_begun_again && lines == 0)
                expected = static_cast<uint32_t>(std::stoul(text.substr(text.rfind(' ', end))));
            ASSERT_EQ(text.substr(at, end - at), message(speaker, expected));
            ASSERT_GE(at, LogSpeakers::stamp_length);
            ASSERT_EQ(text[at - 1], ':') << "no stamp before " << message(speaker, expected);
            ++expected;
            ++lines;
        }
        if (is_begun_again && lines == 0)
            return;
        EXPECT_GE(expected, next.at(speaker)) << "lines at the end are missing";
    }

    std::mt19937 random_{20261121};
};

TEST_F(LogAtAKill, EachLineOfAProcessThatReturnedIsInTheFile)
{
    for (size_t i = 0; i < kills() && !HasFailure(); ++i)
        kill_at_random({{0}});
    EXPECT_GT(lines_, kills());
}

TEST_F(LogAtAKill, EachLineOfTwoStreamsOfAProcessIsInTheFile)
{
    for (size_t i = 0; i < kills() && !HasFailure(); ++i)
        kill_at_random({{0, 1, 1}});
    EXPECT_GT(lines_, kills());
}

TEST_F(LogAtAKill, EachLineOfTwoProcessesIsInTheFile)
{
    for (size_t i = 0; i < kills() && !HasFailure(); ++i)
        kill_at_random({{0}, {1}});
    EXPECT_GT(lines_, kills());
}

TEST_F(LogAtAKill, EachLineSinceTheFileWasBegunAgainIsInTheFile)
{
    for (size_t i = 0; i < kills() && !HasFailure(); ++i)
        kill_at_random({{0}}, 9'998'000);
    EXPECT_GT(begun_again_, 0u);
}

} // namespace
