// The comparison of counted instructions with the baseline: what passes, what fails, what it says.

#include <array>
#include <cstdio>
#include <fstream>
#include <string>

#include <gtest/gtest.h>
#include <sys/wait.h>

namespace test {
namespace {

struct Outcome {
    int code;
    std::string printed;
};

class InstructionsScript : public ::testing::Test {
protected:
    InstructionsScript()
    {
        std::ofstream(counts) << R"({"benchmarks": [
            {"name": "log line", "count": 360.5}, {"name": "lookup, hit", "count": 61.5},
            {"name": "search", "error_occurred": true, "error_message": "no AVX2"}]})";
    }

    static void write_baseline(const std::string &line, const std::string &hit)
    {
        std::ofstream(baseline) << "path         instructions  ceiling  aim\n"
                                << "log line            " << line << "      500  400\n"
                                << "lookup, hit         " << hit << "        -    -\n"
                                << "search               1000        -    -\n";
    }

    static Outcome run(const std::string &arguments = {})
    {
        const std::string command =
            std::string(PROJECT_SOURCE_DIR "/scripts/instructions --from ") + counts +
            " --baseline " + baseline + " " + arguments + " 2>&1";
        FILE *output = popen(command.c_str(), "r");
        Outcome outcome{-1, {}};
        std::array<char, 4096> text{};
        while (fgets(text.data(), text.size(), output) != nullptr)
            outcome.printed += text.data();
        outcome.code = WEXITSTATUS(pclose(output));
        return outcome;
    }

    static bool says(const Outcome &outcome, const std::string &text)
    {
        return outcome.printed.find(text) != std::string::npos;
    }

    static constexpr const char *counts = "/tmp/counts.json";
    static constexpr const char *baseline = "/tmp/baseline.txt";
};

TEST_F(InstructionsScript, CountsAsInTheBaselinePass)
{
    write_baseline("360.5", "61.5");
    const Outcome outcome = run();
    EXPECT_EQ(outcome.code, 0) << outcome.printed;
    EXPECT_TRUE(says(outcome, "aim met")) << outcome.printed;
    EXPECT_TRUE(says(outcome, "as before")) << outcome.printed;
}

TEST_F(InstructionsScript, APathThatGrewByFivePercentFailsAndSaysHowToAcceptIt)
{
    write_baseline("360.5", "58.4");
    const Outcome outcome = run();
    EXPECT_EQ(outcome.code, 1);
    EXPECT_TRUE(says(outcome, "+5.3 %        -  GREW")) << outcome.printed;
    EXPECT_TRUE(says(outcome, "instructions --accept")) << outcome.printed;
}

TEST_F(InstructionsScript, APathThatGrewByTwoPercentPasses)
{
    write_baseline("353.5", "60.3");
    EXPECT_EQ(run().code, 0);
}

TEST_F(InstructionsScript, ACountAboveItsCeilingFailsWhateverTheBaselineSays)
{
    std::ofstream(counts) << R"({"benchmarks": [{"name": "log line", "count": 500.5}]})";
    std::ofstream(baseline) << "path      instructions  ceiling  aim\n"
                               "log line         500.5      500  400\n";
    const Outcome outcome = run();
    EXPECT_EQ(outcome.code, 1);
    EXPECT_TRUE(says(outcome, "ABOVE THE CEILING")) << outcome.printed;
}

TEST_F(InstructionsScript, AnImprovementPassesAndIsToBeAccepted)
{
    write_baseline("400.0", "61.5");
    const Outcome outcome = run();
    EXPECT_EQ(outcome.code, 0);
    EXPECT_TRUE(says(outcome, "-9.9 %      500  better: accept it")) << outcome.printed;
}

TEST_F(InstructionsScript, WhatTheMachineDoesNotHaveIsSaidAndPasses)
{
    write_baseline("360.5", "61.5");
    const Outcome outcome = run();
    EXPECT_EQ(outcome.code, 0);
    EXPECT_TRUE(says(outcome, "not counted: no AVX2")) << outcome.printed;
}

TEST_F(InstructionsScript, APathThatTheBaselineDoesNotHaveFails)
{
    std::ofstream(baseline) << "path      instructions  ceiling  aim\n"
                               "log line         360.5      500  400\n";
    const Outcome outcome = run();
    EXPECT_EQ(outcome.code, 1);
    EXPECT_TRUE(says(outcome, "new: accept it")) << outcome.printed;
}

TEST_F(InstructionsScript, APathThatIsNotCountedAnyMoreFails)
{
    write_baseline("360.5", "61.5");
    std::ofstream(counts) << R"({"benchmarks": [{"name": "log line", "count": 360.5}]})";
    const Outcome outcome = run();
    EXPECT_EQ(outcome.code, 1);
    EXPECT_TRUE(says(outcome, "gone: accept it")) << outcome.printed;
}

TEST_F(InstructionsScript, WhatIsAcceptedIsTheBaselineWithItsCeilings)
{
    write_baseline("300.0", "50.0");
    EXPECT_EQ(run("--accept").code, 0);
    const Outcome outcome = run();
    EXPECT_EQ(outcome.code, 0) << outcome.printed;
    EXPECT_TRUE(says(outcome, "360.5     360.5  +0.0 %      500")) << outcome.printed;
}

TEST_F(InstructionsScript, ABaselineThatCannotBeReadIsSaidWithItsPlace)
{
    EXPECT_EQ(run().code, 2) << "there is none";
    write_baseline("36o.5", "61.5");
    const Outcome outcome = run();
    EXPECT_EQ(outcome.code, 2);
    EXPECT_TRUE(says(outcome, "/tmp/baseline.txt:2: not a number: 36o.5")) << outcome.printed;
}

TEST_F(InstructionsScript, CountsThatCannotBeReadAreSaid)
{
    write_baseline("360.5", "61.5");
    std::ofstream(counts) << "[]";
    EXPECT_EQ(run().code, 2);
}

} // namespace
} // namespace test
