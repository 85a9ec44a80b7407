#include <gtest/gtest.h>

#include "tool_process.h"

namespace {

TEST(AHostInC, ProgramsItsEntryOnTheFirstStart)
{
    const test::Outcome outcome =
        test::run_program({.program = C_HOST, .arguments = {"/tmp/card"}});
    EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
    EXPECT_EQ(outcome.out, "the entry is programmed\nkey 1 entry 7: 0 packets, 0 bytes\n");
}

TEST(AHostInC, FindsItsEntryOnTheSecondStart)
{
    test::run_program({.program = C_HOST, .arguments = {"/tmp/card"}});
    const test::Outcome outcome =
        test::run_program({.program = C_HOST, .arguments = {"/tmp/card"}});
    EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
    EXPECT_EQ(outcome.out, "the entry is there\nkey 1 entry 7: 0 packets, 0 bytes\n");
}

TEST(AHostInC, IsShownInTheGuideForHostsWordForWord)
{
    const std::string guide = test::file_text(HOSTING_GUIDE);
    const std::string source = test::file_text(C_HOST_SOURCE);
    ASSERT_FALSE(source.empty());
    EXPECT_NE(guide.find("```c\n" + source + "```\n"), std::string::npos);
}

} // namespace
