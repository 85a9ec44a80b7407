// What inlinectl does when its standard streams are closed or full.
#include <filesystem>

#include <gtest/gtest.h>

#include "made_capture.h"
#include "tool_process.h"

namespace {

constexpr const char *capture = "/tmp/traffic.pcap";
constexpr const char *state = "/tmp/state";

class InlinectlStreams : public ::testing::Test {
protected:
    InlinectlStreams()
    {
        std::filesystem::remove_all(state);
        test::write_capture(capture, {{}, {}});
    }

    static test::Outcome run_without(const std::vector<int> &descriptors)
    {
        return test::run_program({.program = INLINECTL,
                                  .arguments = {"run", "--state", state, "--pcap", capture},
                                  .environment = {},
                                  .out_file = "/tmp/test.out",
                                  .while_it_runs = {},
                                  .closed = descriptors});
    }
};

TEST_F(InlinectlStreams, AClosedOneNeverTakesTheReportIntoTheState)
{
    const std::vector<std::vector<int>> cases{{0}, {1}, {2}, {0, 1}, {0, 1, 2}};
    for (const std::vector<int> &closed : cases) {
        std::filesystem::remove_all(state);
        run_without(closed);
        const test::Outcome next = run_without({});
        EXPECT_EQ(next.exit_code, 0) << closed.size() << " closed: " << next.err;
        EXPECT_NE(next.out.find("2 found, 0 new"), std::string::npos) << next.out;
    }
}

TEST_F(InlinectlStreams, AReportWithNowhereToGoIsAFailure)
{
    const test::Outcome outcome = run_without({0, 1});
    EXPECT_EQ(outcome.exit_code, 1);
    EXPECT_EQ(outcome.err, "inlinectl: the report could not be written\n");
}

TEST_F(InlinectlStreams, HelpAndVersionThatCannotBeWrittenAreFailures)
{
    const std::vector<std::vector<std::string>> asked{{"--help"}, {"run", "--help"}, {"--version"}};
    for (const std::vector<std::string> &arguments : asked) {
        const test::Outcome outcome = test::run_program({.program = INLINECTL,
                                                         .arguments = arguments,
                                                         .environment = {},
                                                         .out_file = "/dev/full"});
        EXPECT_EQ(outcome.exit_code, 1);
        EXPECT_EQ(outcome.err, "inlinectl: standard output could not be written\n");
    }
}

} // namespace
