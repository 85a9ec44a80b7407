// `inlinectl trace`: what the library's sites traced, told by a process that has not loaded it as a
// host; held against the log file and against an independent reader of the exported trace.
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <thread>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tool_process.h"
#include "vlc/site_table.h"
#include "vlc/state_error.h"
#include "vlc/trace_file.h"

namespace test {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using Lines = std::vector<std::string>;

constexpr const char *state = "/tmp/state";
constexpr const char *log_file = "/tmp/inline_svc_log";
constexpr const char *small_capture = CAPTURES "/small-mtu.pcap";
constexpr const char *large_capture = CAPTURES "/many-sources.pcap";
constexpr size_t stamp_length = 20; // "Nov 21 01:38:00.123:"

std::string trimmed(const std::string &text)
{
    const size_t begin = text.find_first_not_of(' ');
    return begin == std::string::npos ? ""
                                      : text.substr(begin, text.find_last_not_of(' ') + 1 - begin);
}

// The messages of the log file as the trace shows them: on one line.
Lines logged()
{
    Lines messages;
    for (const std::string &line : lines_of(file_text(log_file))) {
        const bool begins = line.size() > stamp_length && line[stamp_length - 1] == ':' &&
                            line[stamp_length - 5] == '.';
        if (begins)
            messages.push_back(line.substr(stamp_length));
        else if (!messages.empty())
            messages.back() += " " + line;
    }
    for (std::string &message : messages)
        message = trimmed(message);
    return messages;
}

class TraceCommand : public ::testing::Test {
protected:
    static Outcome inlinectl(Lines arguments, std::function<void(pid_t)> while_it_runs = {})
    {
        return run_program({.program = INLINECTL,
                            .arguments = std::move(arguments),
                            .while_it_runs = std::move(while_it_runs)});
    }
    static void run(const char *capture = small_capture)
    {
        const Outcome outcome = inlinectl({"run", "--pcap", capture, "--state", state});
        ASSERT_EQ(0, outcome.exit_code) << outcome.err;
    }
    static Outcome trace(Lines more = {})
    {
        Lines arguments{"trace", "--state", state};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return inlinectl(arguments);
    }
    static std::vector<json> events(Lines more = {})
    {
        more.emplace_back("--json");
        const Outcome outcome = trace(std::move(more));
        EXPECT_EQ(0, outcome.exit_code) << outcome.err;
        std::vector<json> events;
        for (const std::string &line : lines_of(outcome.out))
            events.push_back(json::parse(line));
        return events;
    }
    static fs::path file(const char *buffer)
    {
        return fs::path(state) / vlc::trace_file_name("inlc", buffer);
    }
    static void flip(const fs::path &path, size_t at)
    {
        std::string bytes = file_text(path);
        bytes.at(at) = static_cast<char>(bytes[at] ^ 0x55);
        std::ofstream(path, std::ios::binary) << bytes;
    }
    static void expect_refusal(const Lines &arguments, const std::string &why)
    {
        const Outcome outcome = inlinectl(arguments);
        EXPECT_EQ(2, outcome.exit_code);
        EXPECT_EQ("", outcome.out);
        EXPECT_EQ(0U, outcome.err.find("inlinectl: " + why)) << outcome.err;
        EXPECT_EQ(1, std::count(outcome.err.begin(), outcome.err.end(), '\n')) << outcome.err;
    }
    static std::string texts(const std::vector<json> &events)
    {
        std::string texts;
        for (const json &event : events)
            texts += event["text"].get<std::string>() + "\n";
        return texts;
    }
};

// How many messages the trace has: each buffer keeps its last thousand.
constexpr size_t compared = 300;

// From the end, how many messages agree.
size_t same_at_end(const Lines &log, const std::vector<json> &events)
{
    size_t same = 0;
    while (same < log.size() && same < events.size() &&
           log[log.size() - 1 - same] == trimmed(events[events.size() - 1 - same]["text"]))
        ++same;
    return same;
}

TEST_F(TraceCommand, TellsWhatTheLogTellsInItsOrder)
{
    run();
    EXPECT_GE(same_at_end(logged(), events()), compared);
}

TEST_F(TraceCommand, OfAKilledHostEndsWhereItsLogEnds)
{
    const Outcome killed =
        inlinectl({"run", "--flows", "--pcap", large_capture, "--state", state}, [](pid_t tool) {
            constexpr uintmax_t enough = 200'000;
            std::error_code missing;
            for (int i = 0; i < 20'000; ++i) {
                const uintmax_t size = fs::file_size(log_file, missing);
                if (!missing && size > enough)
                    break;
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            }
            kill(tool, SIGKILL);
        });
    ASSERT_EQ(-SIGKILL, killed.exit_code) << killed.err;
    const Outcome shown = trace();
    EXPECT_EQ(0, shown.exit_code) << shown.err;
    EXPECT_NE("", shown.out);
    // A message is traced just before it is written, so the trace may be one ahead.
    std::vector<json> traced = events();
    const Lines log = logged();
    ASSERT_GT(traced.size(), compared);
    size_t same = same_at_end(log, traced);
    traced.pop_back();
    same = std::max(same, same_at_end(log, traced));
    EXPECT_GE(same, compared);
}

TEST_F(TraceCommand, GoesOnBehindTheHostBefore)
{
    run();
    const uint64_t before = events({"--buffer", "event"}).back()["sequence"];
    run();
    const auto after = events({"--buffer", "event"});
    EXPECT_GT(after.back()["sequence"], before);
    for (size_t i = 1; i < after.size(); ++i)
        ASSERT_EQ(after[i - 1]["sequence"].get<uint64_t>() + 1, after[i]["sequence"]);
}

TEST_F(TraceCommand, NamesSiteAndArguments)
{
    run();
    const auto found = events({"--site", "file shadowdb* format 'Number of NP'"});
    const auto all = events();
    ASSERT_FALSE(all.empty());
    const json &event = all.back();
    for (const char *key : {"time", "nanoseconds", "sequence", "component", "buffer", "number",
                            "level", "file", "line", "function", "text", "arguments"})
        EXPECT_TRUE(event.contains(key)) << key;
    EXPECT_EQ("inlc", event["component"]);
    // The line says the same.
    const std::string line = lines_of(trace({"--last", "1"}).out).at(0);
    const std::string file = event["file"];
    EXPECT_EQ(0U, line.find(event["time"].get<std::string>() + "  " +
                            event["buffer"].get<std::string>() + " "));
    EXPECT_NE(std::string::npos, line.find(file.substr(file.rfind('/') + 1) + ":" +
                                           std::to_string(event["line"].get<int>())));
    EXPECT_NE(std::string::npos, line.find(event["text"].get<std::string>()));
    EXPECT_EQ(std::string::npos, line.find('\033'));
    for (const auto &[name, value] : event["arguments"].items())
        EXPECT_NE(std::string::npos, line.find(name + "="));
}

TEST_F(TraceCommand, SelectsByBufferNumberAndSite)
{
    run();
    const auto all = events();
    const auto errors = events({"--buffer", "error"});
    const auto ordinary = events({"--buffer", "event"});
    EXPECT_EQ(all.size(), errors.size() + ordinary.size());
    for (const json &event : ordinary)
        ASSERT_EQ("event", event["buffer"]);
    const auto last = events({"--last", "7"});
    ASSERT_EQ(7U, last.size());
    EXPECT_TRUE(std::equal(last.begin(), last.end(), all.end() - 7));
    const std::string function = all.back()["function"];
    const auto of_function = events({"--site", "func " + function});
    ASSERT_FALSE(of_function.empty());
    EXPECT_EQ(std::count_if(all.begin(), all.end(),
                            [&](const json &event) { return event["function"] == function; }),
              static_cast<std::ptrdiff_t>(of_function.size()));
    EXPECT_EQ("No event is selected.\n", trace({"--site", "func no_such_function"}).out);
}

TEST_F(TraceCommand, IsAViewOfShowToo)
{
    run();
    EXPECT_EQ(trace({"--last", "20"}).out,
              inlinectl({"show", "trace", "--state", state, "--last", "20"}).out);
}

TEST_F(TraceCommand, ReadsARunningHost)
{
    Outcome shown;
    inlinectl({"run", "--flows", "--pcap", large_capture, "--state", state}, [&](pid_t tool) {
        while (!fs::exists(file("error")))
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        for (int i = 0; i < 5; ++i) {
            const Outcome once = run_program({.program = INLINECTL,
                                              .arguments = {"trace", "--state", state},
                                              .out_file = "/tmp/shown"});
            EXPECT_EQ(0, once.exit_code) << once.err;
            shown = once;
        }
        kill(tool, SIGKILL);
    });
    EXPECT_NE("", shown.out);
}

TEST_F(TraceCommand, OfADirectoryFromBeforeSaysThatNothingWasTraced)
{
    run();
    for (const char *buffer : {"event", "error"})
        fs::remove(file(buffer));
    fs::remove(fs::path(state) / vlc::sites_file_name("inlc"));
    const Outcome outcome = trace();
    EXPECT_EQ(0, outcome.exit_code);
    EXPECT_EQ("Nothing was traced here.\n", outcome.out);
    run(); // and it is gone on with
    EXPECT_FALSE(events().empty());
}

TEST_F(TraceCommand, LeavesDamagedEventsOutAndSaysSo)
{
    run();
    const size_t all = events().size();
    flip(file("event"), 4096 + 3 * sizeof(vlc::TraceRecord) + 20);
    flip(file("event"), 4096 + 5 * sizeof(vlc::TraceRecord) + 20);
    const Outcome outcome = trace({"--json"});
    EXPECT_EQ(1, outcome.exit_code);
    EXPECT_EQ(all - 2, lines_of(outcome.out).size());
    EXPECT_EQ("inlinectl: " + file("event").string() + ": 2 events left out: damaged\n",
              outcome.err);
}

TEST_F(TraceCommand, TellsWhatIsLeftWhenAFileIsDamaged)
{
    run();
    flip(file("error"), 20);
    Outcome outcome = trace();
    EXPECT_EQ(1, outcome.exit_code);
    EXPECT_NE("", outcome.out);
    EXPECT_NE(std::string::npos,
              outcome.err.find(file("error").string() + ": has a damaged header"));
    flip(file("event"), 20);
    expect_refusal({"trace", "--state", state}, file("event").string() + ": has a damaged header");
}

TEST_F(TraceCommand, WithoutItsSitesTellsNumbersWordsAndTexts)
{
    run();
    const auto with = events();
    const fs::path sites = fs::path(state) / vlc::sites_file_name("inlc");
    flip(sites, fs::file_size(sites) - 1);
    const Outcome outcome = trace({"--json"});
    EXPECT_EQ(1, outcome.exit_code);
    const Lines lines = lines_of(outcome.out);
    ASSERT_EQ(with.size(), lines.size());
    const json last = json::parse(lines.back());
    EXPECT_EQ("event " + std::to_string(with.back()["number"].get<int>()) + " of no known site",
              last["text"]);
    EXPECT_EQ(with.back()["arguments"].size(), last["arguments"].size());
    EXPECT_FALSE(last.contains("file"));
}

TEST_F(TraceCommand, RefusesWhatItCannotRead)
{
    expect_refusal({"trace"}, "nothing to look into: give --state");
    expect_refusal({"trace", "--state", "/tmp/none"}, "/tmp/none: ");
    expect_refusal({"trace", "--state", state, "--buffer", "eror"},
                   "no buffer is named 'eror', there are event and error; did you mean 'error'?");
    expect_refusal({"trace", "--state", state, "--site", "fil x"},
                   "--site 'fil x', column 1: 'fil' is no word of a query; the nearest known name "
                   "is 'file'");
    expect_refusal({"trace", "--state", state, "--json", "--ctf", "/tmp/ctf"},
                   "--json and --ctf are two forms: give one");
    expect_refusal({"show", "trace"}, "nothing to look into: give --state");
}

// ---- the export, read back

class TraceExport : public TraceCommand {
protected:
    static constexpr const char *directory = "/tmp/ctf";

    static void SetUpTestSuite()
    {
        if (std::system("command -v babeltrace2 >/dev/null 2>&1") != 0)
            GTEST_SKIP() << "babeltrace2 is not installed";
    }
    static Lines read_back()
    {
        const Outcome outcome = run_program(
            {.program = "/usr/bin/babeltrace2",
             .arguments = {"--no-delta", "--clock-seconds", "--names", "none", directory},
             .environment = {"LC_ALL=C.UTF-8"},
             .out_file = "/tmp/read_back"});
        EXPECT_EQ(0, outcome.exit_code) << outcome.err;
        EXPECT_EQ("", outcome.err);
        return lines_of(outcome.out);
    }
};

TEST_F(TraceExport, HasEveryEventWithTimeTextAndArguments)
{
    run();
    const auto wanted = events();
    const Outcome outcome = trace({"--ctf", directory});
    ASSERT_EQ(0, outcome.exit_code) << outcome.err;
    EXPECT_EQ(0U, outcome.out.find(wanted.size() >= 1000 ? "1," : std::to_string(wanted.size())))
        << outcome.out;
    // Events of one time may change places between the streams.
    std::multimap<std::string, std::string> lines; // by time
    for (const std::string &line : read_back()) {
        ASSERT_EQ('[', line[0]);
        const size_t end = line.find(']');
        lines.emplace(line.substr(1, end - 1), line.substr(end + 1));
    }
    ASSERT_EQ(wanted.size(), lines.size());
    for (const json &event : wanted) {
        const int64_t time = event["nanoseconds"];
        char seconds[40];
        std::snprintf(seconds, sizeof seconds, "%lld.%09lld",
                      static_cast<long long>(time / 1'000'000'000),
                      static_cast<long long>(time % 1'000'000'000));
        const auto [from, to] = lines.equal_range(seconds);
        const auto found = std::find_if(from, to, [&](const auto &line) {
            std::string text = event["text"];
            return line.second.find("\"" + text + "\"") != std::string::npos &&
                   line.second.find(event["function"].get<std::string>()) != std::string::npos;
        });
        ASSERT_NE(to, found) << event.dump();
        for (const auto &[name, value] : event["arguments"].items()) {
            const std::string shown = value.is_string() ? value.get<std::string>() : "";
            EXPECT_NE(std::string::npos, found->second.find(shown)) << name;
        }
    }
}

TEST_F(TraceExport, OfSelectedEventsHasThemAlone)
{
    run();
    ASSERT_EQ(0, trace({"--buffer", "event", "--last", "5", "--ctf", directory}).exit_code);
    EXPECT_EQ(5U, read_back().size());
    EXPECT_FALSE(fs::exists(fs::path(directory) / "error"));
}

TEST_F(TraceExport, WantsADirectoryOfItsOwn)
{
    run();
    expect_refusal({"trace", "--state", state, "--ctf", state},
                   std::string(state) + ": is not empty, and a trace wants a directory of its own");
    expect_refusal({"trace", "--state", state, "--ctf", "/tmp/none/ctf"},
                   "/tmp/none/ctf: cannot be made: ");
}

} // namespace
} // namespace test
