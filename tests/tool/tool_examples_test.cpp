// Every example in docs/TOOL.md prints what stands there.
//
// With REWRITE_EXAMPLES=1 in the environment what is printed is written into the document instead,
// for a person to read before it is kept.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#include "shell.h"
#include "tool_process.h"
#include "transcript.h"

namespace test {

void PrintTo(const Transcript &transcript, std::ostream *out)
{
    *out << "\"" << transcript.title << "\"";
}

} // namespace test

namespace {

using test::Example;
using test::Transcript;

constexpr const char *document_file = PROJECT_SOURCE_DIR "/docs/TOOL.md";
constexpr const char *directory = "/tmp/examples";

std::vector<std::string> document()
{
    return test::lines_of(test::file_text(document_file));
}

std::string joined(const std::vector<std::string> &lines)
{
    std::string text;
    for (const std::string &line : lines)
        text += line + "\n";
    return text;
}

// What a person has who has cloned the repository.
void make_directory()
{
    std::filesystem::remove_all(directory);
    std::filesystem::create_directory(directory);
    for (const char *given : {"captures", "cards", "faults", "vservices"})
        std::filesystem::create_directory_symlink(std::filesystem::path(PROJECT_SOURCE_DIR) / given,
                                                  std::filesystem::path(directory) / given);
}

void rewrite(const std::vector<std::pair<Example, std::vector<std::string>>> &changed)
{
    std::vector<std::string> lines = document();
    for (auto one = changed.rbegin(); one != changed.rend(); ++one) {
        const auto &[example, printed] = *one;
        const auto begin = lines.begin() + static_cast<ptrdiff_t>(example.line) + 1;
        const auto end = lines.begin() + static_cast<ptrdiff_t>(example.end_line);
        lines.insert(lines.erase(begin, end), printed.begin(), printed.end());
    }
    std::ofstream(document_file) << joined(lines);
}

class ToolExamples : public testing::TestWithParam<Transcript> {};

TEST_P(ToolExamples, PrintWhatStandsThere)
{
    make_directory();
    test::Shell shell(directory);
    std::vector<std::pair<Example, std::vector<std::string>>> changed;
    for (const Example &example : GetParam().examples) {
        const std::vector<std::string> printed = shell.type(example.command);
        if (test::matches(example.output, printed))
            continue;
        changed.emplace_back(example, printed);
        if (std::getenv("REWRITE_EXAMPLES") == nullptr)
            ADD_FAILURE() << "docs/TOOL.md:" << example.line + 1 << ": $ " << example.command
                          << "\n--- shown\n"
                          << joined(example.output) << "--- printed\n"
                          << joined(printed);
    }
    if (std::getenv("REWRITE_EXAMPLES") != nullptr)
        rewrite(changed);
}

INSTANTIATE_TEST_SUITE_P(, ToolExamples, testing::ValuesIn(test::transcripts_in(document())),
                         [](const auto &one) {
                             std::string name;
                             for (const char letter : one.param.title)
                                 name += std::isalnum(static_cast<unsigned char>(letter)) != 0
                                             ? std::string(1, letter)
                                             : "_";
                             return name;
                         });

// ---- the comparison itself ---------------------------------------------------------------------

TEST(Transcripts, AreReadBySectionsAndCommands)
{
    const auto all = test::transcripts_in({"# Title", "## One", "words", "```console", "$ first",
                                           "out 1", "", "$ second \\", "  more", "```", "## Empty",
                                           "```text", "$ not this", "```"});
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(all[0].title, "One");
    ASSERT_EQ(all[0].examples.size(), 2u);
    EXPECT_EQ(all[0].examples[0].output, (std::vector<std::string>{"out 1", ""}));
    EXPECT_EQ(all[0].examples[1].command, "second \\\n  more");
    EXPECT_EQ(all[0].examples[1].output, std::vector<std::string>{});
}

TEST(Transcripts, HaveCommandsThatAreGivenAFile)
{
    const auto all =
        test::transcripts_in({"## One", "```console", "$ cat <<'END'", "text", "END", "text"});
    ASSERT_EQ(all.size(), 1u);
    EXPECT_EQ(all[0].examples[0].command, "cat <<'END'\ntext\nEND");
    EXPECT_EQ(all[0].examples[0].output, std::vector<std::string>{"text"});
}

TEST(Transcripts, DifferByALine)
{
    EXPECT_TRUE(test::matches({"a", "b"}, {"a", "b"}));
    EXPECT_FALSE(test::matches({"a", "b"}, {"a", "c"}));
    EXPECT_FALSE(test::matches({"a"}, {"a", "b"}));
    EXPECT_FALSE(test::matches({"a", "b"}, {"a"}));
    EXPECT_FALSE(test::matches({}, {"a"}));
}

TEST(Transcripts, LeaveOutLinesWhereThreeDotsStand)
{
    EXPECT_TRUE(test::matches({"a", "...", "d"}, {"a", "b", "c", "d"}));
    EXPECT_TRUE(test::matches({"a", "...", "d"}, {"a", "d"}));
    EXPECT_FALSE(test::matches({"a", "...", "d"}, {"a", "b", "c"}));
}

TEST(Transcripts, TakeOneTimeForAnother)
{
    EXPECT_TRUE(test::matches({"at 10:00:00.125, process 7"}, {"at 23:59:59, process 12345"}));
    EXPECT_FALSE(test::matches({"at 10:00:00, 7 packets"}, {"at 10:00:00, 8 packets"}));
}

} // namespace
