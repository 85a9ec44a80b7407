// What inlinectl draws on a terminal, and that it draws nowhere else.
#include <clocale>
#include <cwchar>
#include <vector>

#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include "made_capture.h"
#include "progress.h"
#include "terminal.h"
#include "tool_process.h"

namespace {

using test::MadePacket;

constexpr const char *capture = "/tmp/traffic.pcap";
constexpr const char *bold = "\033[1m";
constexpr const char *end_of_paint = "\033[0m";

// Everything that a program writes on a terminal of 24 lines, output and errors together.
std::string on_terminal(const std::vector<std::string> &arguments, const char *no_color,
                        unsigned short columns = 80)
{
    const winsize size{.ws_row = 24, .ws_col = columns, .ws_xpixel = 0, .ws_ypixel = 0};
    int terminal = -1;
    const pid_t child = forkpty(&terminal, nullptr, nullptr, &size);
    if (child == 0) {
        setenv("TERM", "xterm", 1);
        setenv("LC_ALL", "C.UTF-8", 1);
        if (no_color != nullptr)
            setenv("NO_COLOR", no_color, 1);
        else
            unsetenv("NO_COLOR");
        std::vector<char *> words{const_cast<char *>(INLINECTL)};
        for (const std::string &argument : arguments)
            words.push_back(const_cast<char *>(argument.c_str()));
        words.push_back(nullptr);
        execv(INLINECTL, words.data());
        _exit(127);
    }
    std::string seen;
    char buffer[4096];
    for (ssize_t got = 0; (got = read(terminal, buffer, sizeof buffer)) > 0;)
        seen.append(buffer, static_cast<size_t>(got));
    waitpid(child, nullptr, 0);
    close(terminal);
    return seen;
}

std::vector<std::string> run_of(int packets)
{
    test::write_capture(capture, std::vector<MadePacket>(static_cast<size_t>(packets)));
    return {"run", "--pcap", capture};
}

std::string to_a_file(const std::vector<std::string> &arguments, const char *locale)
{
    return test::run_program({.program = INLINECTL,
                              .arguments = arguments,
                              .environment = {"TERM=xterm", std::string("LC_ALL=") + locale},
                              .out_file = "/tmp/test.out",
                              .while_it_runs = {}})
        .out;
}

TEST(InlinectlOnATerminal, PaintsItsReport)
{
    const std::string seen = on_terminal(run_of(3), nullptr);
    EXPECT_NE(seen.find(std::string(bold) + "Destinations by bytes"), std::string::npos) << seen;
}

TEST(InlinectlOnATerminal, PaintsATraceUnlessItMayNot)
{
    std::vector<std::string> run = run_of(3);
    run.insert(run.end(), {"--state", "/tmp/state"});
    on_terminal(run, nullptr);
    const std::vector<std::string> trace{"trace", "--state", "/tmp/state", "--last", "5"};
    EXPECT_NE(on_terminal(trace, nullptr).find(bold), std::string::npos);
    EXPECT_EQ(on_terminal(trace, "1").find('\033'), std::string::npos);
}

TEST(InlinectlOnATerminal, PaintsNothingWithNoColor)
{
    const std::string seen = on_terminal(run_of(3), "1");
    EXPECT_EQ(seen.find(bold), std::string::npos) << seen;
    EXPECT_EQ(seen.find(end_of_paint), std::string::npos) << seen;
}

TEST(InlinectlOnATerminal, ShowsProgressOfALongRunAndWipesItOut)
{
    const std::string seen = on_terminal(run_of(20000), "1");
    EXPECT_NE(seen.find("% "), std::string::npos);
    const size_t last_bar = seen.rfind("packets\033[K");
    ASSERT_NE(last_bar, std::string::npos) << seen;
    EXPECT_EQ(seen.substr(last_bar).find("packets\033[K\r\033[K"), 0u);
}

TEST(InlinectlOnATerminal, ShowsNoProgressWithQuietOrJson)
{
    for (const char *option : {"--quiet", "--json"}) {
        std::vector<std::string> arguments = run_of(20000);
        arguments.emplace_back(option);
        EXPECT_EQ(on_terminal(arguments, "1").find('\033'), std::string::npos) << option;
    }
}

TEST(InlinectlElsewhere, WritesNoEscapes)
{
    EXPECT_EQ(to_a_file(run_of(20000), "C.UTF-8").find('\033'), std::string::npos);
}

TEST(InlinectlElsewhere, DrawsBlocksInUtf8AndAsciiOtherwise)
{
    EXPECT_NE(to_a_file(run_of(3), "C.UTF-8").find("█"), std::string::npos);
    const std::string plain = to_a_file(run_of(3), "C");
    EXPECT_NE(plain.find("###"), std::string::npos);
    for (const char byte : plain)
        EXPECT_GE(byte, 0);
}

TEST(InlinectlElsewhere, FitsEightyColumns)
{
    test::write_capture(capture, {{.kind = MadePacket::Kind::tcp,
                                   .source = "255.255.255.254",
                                   .destination = "223.255.255.254",
                                   .destination_port = 65535,
                                   .payload = 1400}});
    std::vector<std::string> arguments{"run", "--nps", "8"};
    for (int times = 0; times < 1000; ++times)
        arguments.insert(arguments.end(), {"--pcap", capture});
    std::setlocale(LC_CTYPE, "C.UTF-8");
    for (const std::string &line : test::lines_of(to_a_file(arguments, "C.UTF-8"))) {
        const size_t columns = std::mbstowcs(nullptr, line.c_str(), 0);
        EXPECT_LE(columns, 80u) << line;
    }
}

TEST(AProgressLine, IsShorterThanItsTerminal)
{
    std::setlocale(LC_CTYPE, "C.UTF-8");
    for (size_t columns = 1; columns <= 120; ++columns) {
        const std::string line =
            inlinectl::progress_line("replaying", 0.5, " 50%  1,234,567 packets", columns, true);
        EXPECT_LT(std::mbstowcs(nullptr, line.c_str(), 0), columns) << line;
    }
}

TEST(AProgressLine, GivesUpItsBarBeforeItsText)
{
    const auto line = [](size_t columns) {
        return inlinectl::progress_line("reading", 0.5, " 50%  7 packets", columns, false);
    };
    EXPECT_EQ(line(80), "reading     [###############               ]  50%  7 packets");
    EXPECT_EQ(line(41), "reading     [#####     ]  50%  7 packets");
    EXPECT_EQ(line(30), "reading      50%  7 packets");
    EXPECT_EQ(line(10), "reading  ");
}

TEST(InlinectlOnATerminal, DrawsNoLineWiderThanANarrowTerminal)
{
    std::setlocale(LC_CTYPE, "C.UTF-8");
    const std::string seen = on_terminal(run_of(20000), "1", 40);
    size_t drawn = 0;
    for (size_t at = seen.find('\r'); at != std::string::npos; at = seen.find('\r', at + 1)) {
        const size_t end = seen.find("\033[K", at);
        if (end == std::string::npos)
            break;
        EXPECT_LT(std::mbstowcs(nullptr, seen.substr(at + 1, end - at - 1).c_str(), 0), 40u);
        ++drawn;
    }
    EXPECT_GT(drawn, 0u) << seen;
}

TEST(AShareBar, IsAsWideAsAskedWhateverTheShare)
{
    std::setlocale(LC_CTYPE, "C.UTF-8");
    for (int percent = 0; percent <= 100; ++percent) {
        for (const bool unicode : {false, true}) {
            const std::string drawn = inlinectl::bar(percent / 100.0, 10, unicode);
            EXPECT_EQ(std::mbstowcs(nullptr, drawn.c_str(), 0), 10u) << percent;
        }
    }
}

TEST(AShareBar, ShowsAHalfAndWhatIsBarelyThere)
{
    EXPECT_EQ(inlinectl::bar(0.5, 4, false), "##  ");
    EXPECT_EQ(inlinectl::bar(0.125, 4, true), "▌   ");
    EXPECT_EQ(inlinectl::bar(0.0001, 4, false), "#   ");
    EXPECT_EQ(inlinectl::bar(0, 4, true), "    ");
}

} // namespace
