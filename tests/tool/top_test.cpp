// `inlinectl top`: its lines, and the screen of a terminal that it draws on.
#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include "state_on_disk.h"
#include "top_lines.h"
#include "vlc/virtual_line_card.h"

namespace test {
namespace {

using inlinectl::lines_of;
using inlinectl::TopEntry;
using inlinectl::TopFrame;
using inlinectl::TopOrder;
using inlinectl::TopView;

bool has(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

// ---- lines

TopFrame full_frame()
{
    TopFrame frame{.state = "/tmp/state",
                   .card = "default, 2 NPs, type 0xD20001",
                   .time = 1795293411218416304,
                   .host = vlc::HostState{.life = vlc::HostLife::running,
                                          .process = 4711,
                                          .started = 0,
                                          .started_real = 1795293400000000000,
                                          .changed_real = 0,
                                          .ended_real = 0,
                                          .connection = {vlc::CardReach::own, true, true},
                                          .requests = {}},
                   .nps = {},
                   .entries = {},
                   .stored = 3,
                   .notes = {}};
    for (uint32_t np = 0; np < 2; ++np)
        frame.nps.push_back({.np = np,
                             .totals = {.packets = 999'999, .bytes = 123'456'789'012},
                             .packets_per_second = 1234.4,
                             .rows = {479, 25, 1'048'576},
                             .hits = 1'000'000,
                             .counters_in_use = 1008});
    frame.entries = {{.key = 1,
                      .entry_id = 7,
                      .table = 0,
                      .name = "udp 192.0.2.1:53",
                      .count = {5, 9000},
                      .packets_per_second = 1},
                     {.key = 1,
                      .entry_id = 8,
                      .table = 1,
                      .name = "192.0.2.1",
                      .count = {9, 700},
                      .packets_per_second = 0},
                     {.key = 1023,
                      .entry_id = 4294967295,
                      .table = 0,
                      .name = "tcp 255.255.255.255:65535 and more that is cut",
                      .count = {7, 800},
                      .packets_per_second = 3}};
    return frame;
}

std::string text_of_lines(const TopFrame &frame, const TopView &view)
{
    std::string text;
    for (const inlinectl::TopLine &line : lines_of(frame, view))
        text += line.text + "\n";
    return text;
}

TEST(TopLines, StandInColumns)
{
    EXPECT_EQ(text_of_lines(full_frame(), {}),
              "inlinectl top  /tmp/state                                    2026-11-21 20:36:51\n"
              "Card     default, 2 NPs, type 0xD20001\n"
              "Host     running since 2026-11-21 20:36:40, process 4711\n"
              "Link     PRM up, registered; 0 breaks\n"
              "Asked    0 taken, 0 answered, 0 failed, 0 in flight\n"
              "\n"
              "NP  packets     p/s   bytes  svc cfg ext cnf    flow     hits  missed counters\n"
              " 0  999,999   1,234    123G      479      25   1.05M    1.00M       0    1,008\n"
              " 1  999,999   1,234    123G      479      25   1.05M    1.00M       0    1,008\n"
              "\n"
              "Busiest of 3 entries, by packets a second                 s sort  ? help  q quit\n"
              " key      entry  table    name                           packets     p/s   bytes\n"
              "1023 4294967295  svc cfg  tcp 255.255.255.255:65535 and        7       3     800\n"
              "   1          7  svc cfg  udp 192.0.2.1:53                     5       1   9,000\n"
              "   1          8  ext cnf  192.0.2.1                            9       0     700\n");
}

TEST(TopLines, FollowTheOrderThatIsAskedFor)
{
    const auto first = [](TopOrder order) {
        return lines_of(full_frame(), {.order = order}).at(12).text.substr(0, 15);
    };
    EXPECT_EQ(first(TopOrder::rate), "1023 4294967295");
    EXPECT_EQ(first(TopOrder::packets), "   1          8");
    EXPECT_EQ(first(TopOrder::bytes), "   1          7");
    TopOrder order = TopOrder::rate;
    for (int times = 0; times < 3; ++times)
        order = inlinectl::next_order(order);
    EXPECT_EQ(order, TopOrder::rate);
}

TEST(TopLines, FitWhateverViewThereIs)
{
    TopFrame frame = full_frame();
    frame.state = std::string(300, 'x') + "\xC3\xA4";
    frame.notes = {"one", "two", "three", "four", "five"};
    for (size_t width = 1; width <= 200; width += 7) {
        for (size_t height = 1; height <= 40; ++height) {
            const auto lines = lines_of(frame, {.width = width, .height = height});
            EXPECT_LE(lines.size(), height);
            for (const inlinectl::TopLine &line : lines) {
                EXPECT_LE(line.text.size(), width);
                for (const char character : line.text)
                    EXPECT_TRUE(character >= ' ' && character <= '~');
            }
        }
    }
    EXPECT_TRUE(
        has(text_of_lines(frame, {}), "note: three\nand 2 notes more; see 'inlinectl audit'"));
}

TEST(TopLines, ShowNoRatesBeforeThereWasAnEarlierFrame)
{
    TopFrame frame = full_frame();
    frame.nps[0].packets_per_second.reset();
    EXPECT_TRUE(has(text_of_lines(frame, {}), " 0  999,999       -    123G "));
}

TEST(TopLines, SayWhatIsWrong)
{
    TopFrame frame = full_frame();
    frame.nps[1].is_read = false;
    frame.host->connection = {vlc::CardReach::away, false, false};
    frame.host->requests.failed = 2;
    frame.host->requests.in_doubt = 1;
    const std::string text = text_of_lines(frame, {});
    EXPECT_TRUE(has(text, "\n 1  cannot be read\n")) << text;
    EXPECT_TRUE(has(text, "\nLink     card away; 0 breaks\n")) << text;
    EXPECT_TRUE(has(text, ", 2 failed, 0 in flight, 1 in doubt\n")) << text;
    frame.host.reset();
    EXPECT_TRUE(has(text_of_lines(frame, {}), "\nHost     nothing is told of one\n\nNP"));
}

TEST(TopLines, HelpInsteadOfEntries)
{
    const std::string text = text_of_lines(full_frame(), {.help = true});
    EXPECT_TRUE(has(text, "\nq  quit\n"));
    EXPECT_FALSE(has(text, "Busiest"));
}

TEST(ShortNumbers, HaveSevenColumnsAtMost)
{
    for (const auto &[number, text] :
         std::vector<std::pair<uint64_t, std::string>>{{0, "0"},
                                                       {999'999, "999,999"},
                                                       {1'000'000, "1.00M"},
                                                       {9'999'999, "10.0M"},
                                                       {99'950'000, "100M"},
                                                       {999'499'999, "999M"},
                                                       {999'600'000, "1.00G"},
                                                       {UINT64_MAX, "18.4E"}})
        EXPECT_EQ(inlinectl::short_number(number), text);
}

// ---- one frame

using TopOnce = StateOnDisk;

TEST_F(TopOnce, IsPlainText)
{
    const std::vector<std::string> lines =
        test::lines_of(text_of({"top", "--once", "--state", state}));
    ASSERT_EQ(lines.size(), 15u);
    EXPECT_TRUE(lines[0].starts_with("inlinectl top  /tmp/state   "));
    EXPECT_EQ(lines[1], "Card     default, 2 NPs, type 0xD20001");
    EXPECT_TRUE(lines[2].starts_with("Host     stopped at 20"));
    EXPECT_EQ(lines[3], "Link     at its end PRM up, registered; 0 breaks");
    EXPECT_EQ(lines[4], "Asked    6 taken, 6 answered, 0 failed, 0 in flight");
    EXPECT_EQ(lines[12], "   1          3  ext cnf  192.0.2.1                            3       - "
                         "    180");
    for (const std::string &line : lines) {
        EXPECT_LE(line.size(), 80u);
        EXPECT_EQ(line.find('\033'), std::string::npos);
    }
}

TEST_F(TopOnce, WithAnIntervalTellsWhatCameMeanwhile)
{
    const std::string text = text_of({"top", "--once", "--interval", "0.1", "--state", state});
    EXPECT_TRUE(has(text, "192.0.2.1                            3       0     180\n")) << text;
}

TEST_F(TopOnce, RefusesBadWords)
{
    expect_refusal({"top"}, "nothing to look into: give --state");
    expect_refusal({"top", "--state", state},
                   "standard input and output are no terminal; 'inlinectl top --once' writes one "
                   "plain frame");
    expect_refusal({"top", "--state", state, "--once", "--count", "2"},
                   "--once is one frame: it cannot go with --count");
    expect_refusal({"top", "--once", "--state", "/tmp/nowhere"},
                   "/tmp/nowhere: cannot be opened: No such file or directory");
}

// ---- a terminal

class TopOnATerminal : public StateOnDisk {
protected:
    ~TopOnATerminal() override { tmux("kill-server"); }

    static std::string tmux(const std::string &words)
    {
        return run_program({.program = "/bin/sh",
                            .arguments = {"-c", "tmux -S /tmp/tmux.socket -f /dev/null " + words},
                            .environment = {"TERM=screen"}})
            .out;
    }
    // Its shell notes the terminal's settings before and after, and the exit code.
    static void start(const std::string &options = "", const std::string &environment = "")
    {
        std::ofstream("/tmp/script")
            << "stty -g > /tmp/before\n"
            << environment << " " INLINECTL << " top --state " << state << " --interval 0.2 "
            << options << " & child=$!\necho $child > /tmp/process\nfg > /dev/null\n"
            << "echo left $?\nstty -g > /tmp/after\nsleep 1000\n";
        tmux("new-session -d -x 80 -y 24 'bash -m /tmp/script'");
    }
    static std::string screen() { return tmux("capture-pane -p"); }
    static std::string wait_for(const std::string &text)
    {
        std::string seen;
        for (int tries = 0; tries < 200; ++tries) {
            seen = screen();
            if (has(seen, text))
                return seen;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        ADD_FAILURE() << "not on the screen: " << text << "\n" << seen;
        return seen;
    }
    static void press(const std::string &key) { tmux("send-keys '" + key + "'"); }
    static void expect_clean_end(const std::string &code = "0")
    {
        const std::string seen = wait_for("left " + code);
        EXPECT_FALSE(has(seen, "inlinectl top")) << seen;
        for (int tries = 0; tries < 100 && file_text("/tmp/after").empty(); ++tries)
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_EQ(file_text("/tmp/after"), file_text("/tmp/before"));
    }
};

TEST_F(TopOnATerminal, ShowsFramesUntilItIsQuit)
{
    start();
    const std::string seen = wait_for("192.0.2.1                            3       0     180");
    EXPECT_TRUE(seen.starts_with("inlinectl top  /tmp/state  ")) << seen;
    press("q");
    expect_clean_end();
}

TEST_F(TopOnATerminal, TakesKeys)
{
    start();
    wait_for("by packets a second");
    press("s");
    wait_for("by packets  ");
    press("s");
    wait_for("by bytes");
    press("?");
    wait_for("?  this help, and back");
    press("?");
    wait_for("by bytes");
    press("C-c");
    expect_clean_end();
}

TEST_F(TopOnATerminal, FollowsTheTerminalsSize)
{
    start();
    wait_for("s sort  ? help  q quit");
    tmux("resize-window -x 100 -y 13");
    const std::string seen =
        wait_for("by packets a second" + std::string(37, ' ') + "s sort  ? help  q quit");
    EXPECT_EQ(test::lines_of(seen).size(), 13u);
    press("q");
    expect_clean_end();
}

TEST_F(TopOnATerminal, EndsAfterSoManyFrames)
{
    start("--count 2");
    expect_clean_end();
}

TEST_F(TopOnATerminal, LeavesItCleanWhenItIsTerminated)
{
    start();
    wait_for("Busiest");
    kill(std::stoi(file_text("/tmp/process")), SIGTERM);
    expect_clean_end();
}

TEST_F(TopOnATerminal, LeavesItCleanWhenTheStateGoes)
{
    start();
    wait_for("Busiest");
    std::filesystem::rename(state, "/tmp/elsewhere");
    const std::string seen = wait_for("left 2");
    EXPECT_TRUE(has(seen, "inlinectl: /tmp/state: cannot be opened")) << seen;
    std::filesystem::remove_all(state);
    std::filesystem::rename("/tmp/elsewhere", state);
}

// A host in a process of its own, which is killed.
class KilledHost {
public:
    explicit KilledHost(const char *state)
    {
        int started[2];
        if (pipe(started) != 0)
            return;
        process_ = fork();
        if (process_ == 0) {
            const vlc::VirtualLineCard host(*vlc::stored_card(state), state);
            [[maybe_unused]] const ssize_t wrote = write(started[1], "x", 1);
            pause();
            _exit(0);
        }
        char byte = 0;
        EXPECT_EQ(read(started[0], &byte, 1), 1);
        close(started[0]);
        close(started[1]);
    }
    ~KilledHost() { end(); }
    void end()
    {
        if (process_ > 0) {
            kill(process_, SIGKILL);
            waitpid(process_, nullptr, 0);
        }
        process_ = -1;
    }

private:
    pid_t process_ = -1;
};

TEST_F(TopOnATerminal, TellsThatAHostRunsAndThatItWasKilled)
{
    KilledHost host(state);
    start();
    wait_for("Host     running since 20");
    host.end();
    wait_for("Host     killed; last heard of at 20");
    press("q");
    expect_clean_end();
}

// All that it writes on a terminal, for a host that was killed, which is an alarm.
std::string drawn(const char *no_color)
{
    const winsize size{.ws_row = 24, .ws_col = 80, .ws_xpixel = 0, .ws_ypixel = 0};
    int terminal = -1;
    const pid_t child = forkpty(&terminal, nullptr, nullptr, &size);
    if (child == 0) {
        setenv("TERM", "xterm", 1);
        setenv("NO_COLOR", no_color, 1);
        execl(INLINECTL, INLINECTL, "top", "--state", "/tmp/state", "--count", "1", "--interval",
              "0.1", nullptr);
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

TEST_F(TopOnATerminal, PaintsWhatIsWrongUnlessColoursAreRefused)
{
    KilledHost(state).end();
    EXPECT_TRUE(has(drawn(""), "\033[31m"));
    const std::string plain = drawn("1");
    EXPECT_TRUE(has(plain, "killed; last heard of"));
    EXPECT_FALSE(has(plain, "\033[31m"));
}

} // namespace
} // namespace test
