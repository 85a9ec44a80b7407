// What a person gets for input that is unusable: one line that says what, and nothing changed.
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <ostream>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "made_capture.h"
#include "tool_process.h"

namespace {

namespace fs = std::filesystem;
using Arguments = std::vector<std::string>;

constexpr const char *capture = "/tmp/traffic.pcap";
constexpr const char *bad = "/tmp/bad";            // the input that is wrong
constexpr const char *parent = "/tmp/parent";      // of the state directory
constexpr const char *state = "/tmp/parent/state"; // made by a run before, where a row says so

void write_file(const fs::path &path, const std::string &text)
{
    std::ofstream(path, std::ios::binary) << text;
}

struct Row {
    const char *name;
    std::function<void()> breaks;
    Arguments arguments; // behind "run --state STATE"
    const char *words;   // of the line
    bool begins_with_state = false;
    test::Environment environment = {};
};

void PrintTo(const Row &row, std::ostream *out)
{
    *out << row.name;
}

class BadInput : public ::testing::TestWithParam<Row> {
protected:
    BadInput()
    {
        fs::remove_all(bad);
        fs::remove_all(parent);
        fs::create_directory(parent);
        test::write_capture(capture, {{}, {}});
    }

    static test::Outcome run(Arguments arguments, const test::Environment &environment = {})
    {
        arguments.insert(arguments.begin(), {"run", "--state", state});
        return test::run_program(
            {.program = INLINECTL, .arguments = std::move(arguments), .environment = environment});
    }

    // Every name under the state's parent, with its size and a hash of its content.
    static std::map<std::string, std::pair<uintmax_t, size_t>> snapshot()
    {
        std::map<std::string, std::pair<uintmax_t, size_t>> seen;
        for (const auto &file : fs::recursive_directory_iterator(parent)) {
            const bool regular = file.is_regular_file();
            seen[file.path().string()] = {
                regular ? file.file_size() : 0,
                regular ? std::hash<std::string>{}(test::file_text(file.path().string())) : 0};
        }
        return seen;
    }
};

TEST_P(BadInput, IsRefusedInOneLineAndNothingChanges)
{
    const Row &row = GetParam();
    if (row.begins_with_state) {
        ASSERT_EQ(run({"--quiet", "--pcap", capture}).exit_code, 0);
    }
    row.breaks();
    const auto before = snapshot();
    const test::Outcome outcome = run(row.arguments, row.environment);
    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(test::lines_of(outcome.err).size(), 1u) << outcome.err;
    EXPECT_TRUE(outcome.err.starts_with("inlinectl: ")) << outcome.err;
    EXPECT_NE(outcome.err.find(row.words), std::string::npos) << outcome.err;
    EXPECT_TRUE(snapshot() == before);
}

void nothing() {}

std::function<void()> holds(const std::string &text)
{
    return [text] { write_file(bad, text); };
}

std::function<void()> cut(const std::string &file, uintmax_t size)
{
    return [file, size] { fs::resize_file(fs::path(state) / file, size); };
}

std::function<void()> lacks(const std::string &file)
{
    return [file] { fs::remove(fs::path(state) / file); };
}

void damage_capture()
{
    const std::string whole = test::file_text(capture);
    write_file(bad, whole.substr(0, whole.size() - 5));
}

void change_link_type()
{
    std::string text = test::file_text(capture);
    text[20] = 105; // frames of a radio network
    write_file(bad, text);
}

void hold_lock()
{
    const int directory = open(state, O_RDONLY | O_DIRECTORY | O_CLOEXEC); // until the case ends
    ASSERT_EQ(flock(directory, LOCK_EX | LOCK_NB), 0);
}

void fill_file_system()
{
    ASSERT_EQ(mount("tmpfs", parent, "tmpfs", 0, "size=1m"), 0);
}

const Arguments with_capture{"--pcap", capture};
const Arguments with_bad_capture{"--pcap", bad};
const Arguments with_bad_card{"--card", bad, "--pcap", capture};

const std::vector<Row> rows{
    {"MissingCapture", nothing, with_bad_capture, "/tmp/bad: No such file"},
    {"DamagedCapture", damage_capture, with_bad_capture, "/tmp/bad: "},
    {"EmptyCapture", holds(""), with_bad_capture, "/tmp/bad: "},
    {"UnsupportedLinkType", change_link_type, with_bad_capture, "link"},
    {"DirectoryAsCapture", [] { fs::create_directory(bad); }, with_bad_capture,
     "/tmp/bad: not a regular file"},
    {"PipeAsCapture", [] { mkfifo(bad, 0600); }, with_bad_capture, "/tmp/bad: not a regular file"},
    {"BrokenCardFile", holds("[card\n"), with_bad_card, "/tmp/bad:1:"},
    {"CardFileOutOfRange", holds("[nps]\ncount = 9\n"), with_bad_card, "/tmp/bad:2:"},
    {"CardFileWithUnknownKey", holds("[card]\nnam = \"a\"\n"), with_bad_card, "'card.name'"},
    {"MissingCardFile", nothing, with_bad_card, "/tmp/bad: "},
    {"NoNps", nothing, {"--nps", "0", "--pcap", capture}, "--nps: "},
    {"NineNps", nothing, {"--nps", "9", "--pcap", capture}, "--nps: "},
    {"NpsThatAreNoNumber", nothing, {"--nps", "x", "--pcap", capture}, "--nps: "},
    {"StateOfSomebodyElse",
     [] {
         fs::create_directory(state);
         write_file(fs::path(state) / "notes", "mine");
     },
     with_capture, "is not the state of a virtual line card"},
    {"FileAsState", [] { write_file(state, "mine"); }, with_capture, "/tmp/parent/state: "},
    {"MarkerWithoutVersion", [] { write_file(fs::path(state) / "virtual-line-card", "mine\n"); },
     with_capture, "is not the marker", true},
    {"MarkerOfAnotherVersion",
     [] {
         write_file(fs::path(state) / "virtual-line-card",
                    "state of a virtual line card, version 99\n");
     },
     with_capture, "is of version 99", true},
    {"TruncatedWindow", cut("window", 4096), with_capture, "/tmp/parent/state/window: ", true},
    {"TruncatedNpFile", cut("np0", 100), with_capture, "/tmp/parent/state/np0: ", true},
    {"MissingNpFile", lacks("np0"), with_capture, "/tmp/parent/state/np0: ", true},
    {"MissingWindow", lacks("window"), with_capture, "/tmp/parent/state/window: ", true},
    {"MissingPrmFile", lacks("prm"), with_capture, "/tmp/parent/state/prm: ", true},
    {"AnotherNumberOfNps", nothing, {"--nps", "3"}, "was made for a card of 2 NPs", true},
    {"AnotherCardType", holds("[card]\ntype = 0xD10001\n"), with_bad_card,
     "was made for a card of 2 NPs, type 0xD20001", true},
    {"StateInUse", hold_lock, with_capture, "is in use by another process", true},
    {"FullFileSystem", fill_file_system, with_capture, "/tmp/parent/state"},
#ifdef ADDRESS_TAKEN
    {"AddressTakenOnANewState",
     nothing,
     with_capture,
     "its address 0x7ea000000000 is taken",
     false,
     {"LD_PRELOAD=" ADDRESS_TAKEN}},
    {"AddressTakenOnAnOldState",
     nothing,
     with_capture,
     "its address 0x7ea000000000 is taken",
     true,
     {"LD_PRELOAD=" ADDRESS_TAKEN}},
#endif
};

INSTANTIATE_TEST_SUITE_P(Inlinectl, BadInput, ::testing::ValuesIn(rows),
                         [](const auto &row) { return std::string(row.param.name); });

} // namespace
