// Utility messages: handlers by kind, and the file that they answer into.
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "card_fixture.h"
#include "inline_service_packet.h"
#include "unreadable_end.h"

using namespace test;

namespace {

namespace fs = std::filesystem;
using Strings = std::vector<std::string>;

constexpr char result_path[] = "/tmp/inutil_result.txt";

struct Handled {
    const void *msg;
    uint32_t kind;
    std::string by;
};
std::vector<Handled> handled;
int flags_of_descriptor = 0;

uint32_t answer(const char *by, const void *msg, FILE *result, uint32_t kind)
{
    handled.push_back({msg, kind, by});
    fprintf(result, "%s answers kind %u\n", by, kind);
    return 99; // not looked at
}
uint32_t first_handler(const void *msg, FILE *result, uint32_t kind)
{
    return answer("first", msg, result, kind);
}
uint32_t second_handler(const void *msg, FILE *result, uint32_t kind)
{
    return answer("second", msg, result, kind);
}
uint32_t silent_handler(const void *msg, FILE *, uint32_t kind)
{
    handled.push_back({msg, kind, "silent"});
    return 0;
}
uint32_t looking_handler(const void *, FILE *result, uint32_t)
{
    flags_of_descriptor = fcntl(fileno(result), F_GETFD);
    return 0;
}

std::string result_text()
{
    std::ifstream file(result_path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

void write_result(const std::string &text)
{
    std::ofstream(result_path) << text;
}

struct Message {
    uint32_t kind;
    char rest[12];
};

class UtilMessage : public CardTest {
protected:
    UtilMessage() { handled.clear(); }
    ~UtilMessage() override { memset(inutil_handler, 0, sizeof inutil_handler); }

    int process(uint32_t kind)
    {
        message.kind = kind;
        return plm_inline_process_util_msg(&message);
    }
    Message message{};
};

// ---- registering -------------------------------------------------------------------------------

TEST_F(UtilMessage, AtTheStartThereIsNoHandler)
{
    for (const inutil_handler_fn handler : inutil_handler)
        EXPECT_EQ(handler, nullptr);
}

TEST_F(UtilMessage, RegisteringStoresTheHandlerAndGivesTheTable)
{
    for (uint32_t kind = 0; kind < 3; ++kind) {
        EXPECT_EQ(inline_register_inutil_callback(kind, first_handler), inutil_handler);
        EXPECT_EQ(inutil_handler[kind], first_handler);
    }
    EXPECT_EQ(services.names(), Strings{});
    EXPECT_EQ(log(), Strings{});
}

TEST_F(UtilMessage, RegisteringAKindTwiceKeepsTheSecondHandler)
{
    inline_register_inutil_callback(1, first_handler);
    inline_register_inutil_callback(1, second_handler);
    EXPECT_EQ(inutil_handler[1], second_handler);
    EXPECT_EQ(process(1), 0);
    EXPECT_EQ(result_text(), "second answers kind 1\n");
    EXPECT_EQ(handled.size(), 1u);
}

TEST_F(UtilMessage, RegisteringNullTakesTheHandlerAway)
{
    inline_register_inutil_callback(2, first_handler);
    EXPECT_EQ(inline_register_inutil_callback(2, nullptr), inutil_handler);
    EXPECT_EQ(process(2), 0);
    EXPECT_EQ(handled.size(), 0u);
}

TEST_F(UtilMessage, AKindThatThereIsNotIsRefusedWithALineAndTheTableIsGivenAllTheSame)
{
    inline_register_inutil_callback(0, first_handler);
    for (const uint32_t kind : {3u, 4u, 0x80000000u, 0xFFFFFFFFu}) {
        forget_log();
        EXPECT_EQ(inline_register_inutil_callback(kind, second_handler), inutil_handler);
        EXPECT_EQ(log(), Strings{"no utility messages of kind " + std::to_string(kind)});
    }
    EXPECT_EQ(inutil_handler[0], first_handler);
    EXPECT_EQ(inutil_handler[1], nullptr);
    EXPECT_EQ(inutil_handler[2], nullptr);
}

// ---- messages ----------------------------------------------------------------------------------

TEST_F(UtilMessage, TheHandlerOfTheKindGetsTheMessageTheFileAndTheKind)
{
    inline_register_inutil_callback(0, first_handler);
    inline_register_inutil_callback(2, second_handler);
    EXPECT_EQ(process(2), 0);
    ASSERT_EQ(handled.size(), 1u);
    EXPECT_EQ(handled[0].msg, &message);
    EXPECT_EQ(handled[0].kind, 2u);
    EXPECT_EQ(result_text(), "second answers kind 2\n");
    EXPECT_EQ(log(), Strings{});
    EXPECT_EQ(services.names(), Strings{});
}

TEST_F(UtilMessage, AHandlerStoredInTheTableItselfIsCalled)
{
    inutil_handler[1] = second_handler;
    EXPECT_EQ(process(1), 0);
    EXPECT_EQ(result_text(), "second answers kind 1\n");
}

TEST_F(UtilMessage, WhatTheHandlerReturnsIsNotLookedAt)
{
    inline_register_inutil_callback(1, first_handler); // returns 99
    EXPECT_EQ(process(1), 0);
}

TEST_F(UtilMessage, AMessageOfAKindWithoutAHandlerEmptiesTheFile)
{
    write_result("of before");
    EXPECT_EQ(process(1), 0);
    EXPECT_TRUE(fs::exists(result_path));
    EXPECT_EQ(result_text(), "");
    EXPECT_EQ(log(), Strings{});
}

TEST_F(UtilMessage, AMessageOfAKindThatThereIsNotEmptiesTheFileToo)
{
    for (uint32_t kind = 0; kind < 3; ++kind)
        inline_register_inutil_callback(kind, first_handler);
    for (const uint32_t kind : {3u, 0x80000000u, 0xFFFFFFFFu}) {
        write_result("of before");
        EXPECT_EQ(process(kind), 0);
        EXPECT_EQ(result_text(), "");
    }
    EXPECT_EQ(handled.size(), 0u);
    EXPECT_EQ(log(), Strings{});
}

TEST_F(UtilMessage, TheFileIsEmptyWhenTheHandlerIsCalled)
{
    write_result("a longer answer of before that must not show behind the new one");
    inline_register_inutil_callback(1, first_handler);
    EXPECT_EQ(process(1), 0);
    EXPECT_EQ(result_text(), "first answers kind 1\n");
    inline_register_inutil_callback(1, silent_handler);
    EXPECT_EQ(process(1), 0);
    EXPECT_EQ(result_text(), "");
}

TEST_F(UtilMessage, TheFileIsMadeWhenItIsNotThere)
{
    fs::remove(result_path);
    umask(022);
    inline_register_inutil_callback(0, first_handler);
    EXPECT_EQ(process(0), 0);
    EXPECT_EQ(result_text(), "first answers kind 0\n");
    struct stat status = {};
    ASSERT_EQ(stat(result_path, &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0644u);
}

TEST_F(UtilMessage, TheKindIsReadWhereverTheMessageLies)
{
    inline_register_inutil_callback(2, silent_handler);
    const UnreadableEnd room(64);
    for (const size_t length : {4u, 5u, 6u, 7u}) {
        uint8_t *place = room.last(length);
        const uint32_t kind = 2;
        memcpy(place, &kind, sizeof kind);
        EXPECT_EQ(plm_inline_process_util_msg(place), 0);
        ASSERT_FALSE(handled.empty());
        EXPECT_EQ(handled.back().msg, place);
    }
    EXPECT_EQ(handled.size(), 4u);
}

TEST_F(UtilMessage, ANullMessageIsRefusedAndTheFileIsLeftAsItWas)
{
    write_result("of before");
    EXPECT_EQ(plm_inline_process_util_msg(nullptr), 22);
    EXPECT_EQ(log(), Strings{"msg is NULL in plm_inline_process_util_msg"});
    EXPECT_EQ(result_text(), "of before");
}

// ---- the file ----------------------------------------------------------------------------------

TEST_F(UtilMessage, TheFileIsNotLeftToProgramsThatTheHandlerStarts)
{
    inline_register_inutil_callback(0, looking_handler);
    EXPECT_EQ(process(0), 0);
    EXPECT_EQ(flags_of_descriptor & FD_CLOEXEC, FD_CLOEXEC);
}

TEST_F(UtilMessage, TheFileIsClosedBehindEachMessage)
{
    inline_register_inutil_callback(0, silent_handler);
    const auto lowest_free = [] {
        const int descriptor = open("/dev/null", O_RDONLY);
        close(descriptor);
        return descriptor;
    };
    process(0);
    const int before = lowest_free();
    for (uint32_t kind = 0; kind < 8; ++kind)
        process(kind);
    EXPECT_EQ(lowest_free(), before);
}

class UnusableResult : public UtilMessage {
protected:
    UnusableResult() { inline_register_inutil_callback(1, first_handler); }

    void expect_not_opened()
    {
        forget_log();
        EXPECT_EQ(process(1), -1);
        EXPECT_EQ(handled.size(), 0u);
        EXPECT_EQ(log(), Strings{"failed to open /tmp/inutil_result.txt"});
    }
};

TEST_F(UnusableResult, ADirectoryAtItsPlaceIsAFailure)
{
    fs::create_directory(result_path);
    expect_not_opened();
}

TEST_F(UnusableResult, ASymbolicLinkIsAFailureAndItsTargetIsLeftAsItWas)
{
    std::ofstream("/tmp/target") << "precious";
    fs::create_symlink("/tmp/target", result_path);
    expect_not_opened();
    std::ifstream target("/tmp/target");
    std::string text;
    std::getline(target, text);
    EXPECT_EQ(text, "precious");
}

TEST_F(UnusableResult, ALinkToNothingIsAFailureAndMakesNoFile)
{
    fs::create_symlink("/tmp/no_such_file", result_path);
    expect_not_opened();
    EXPECT_FALSE(fs::exists("/tmp/no_such_file"));
}

TEST_F(UnusableResult, APipeIsAFailureWithAndWithoutAReader)
{
    ASSERT_EQ(mkfifo(result_path, 0666), 0);
    expect_not_opened();
    const int reader = open(result_path, O_RDONLY | O_NONBLOCK);
    ASSERT_GE(reader, 0);
    expect_not_opened();
    close(reader);
}

TEST_F(UnusableResult, WithoutADescriptorLeftNothingIsAnswered)
{
    process(1); // opens the stream of the log
    handled.clear();
    forget_log();
    inline_register_inutil_callback(9, nullptr); // a line, so that the log is open
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    const rlimit none = {0, limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    const int result = process(1);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(handled.size(), 0u);
    EXPECT_EQ(log().back(), "failed to open /tmp/inutil_result.txt");
}

TEST_F(UnusableResult, WhatTheDiskRefusesShowsInTheResult)
{
    signal(SIGXFSZ, SIG_IGN);
    rlimit limit = {};
    getrlimit(RLIMIT_FSIZE, &limit);
    const rlimit tiny = {4, limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &tiny), 0);
    const int result = process(1);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
    EXPECT_EQ(result, EOF);
    EXPECT_EQ(handled.size(), 1u);
}

TEST_F(UnusableResult, OnceThePlaceIsFreeItWorksAgain)
{
    fs::create_directory(result_path);
    expect_not_opened();
    fs::remove(result_path);
    EXPECT_EQ(process(1), 0);
    EXPECT_EQ(result_text(), "first answers kind 1\n");
}

} // namespace
