// What the README says that a newcomer sees is what a newcomer sees.

#include <cstdlib>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

namespace {

std::string text_of(const std::string &path)
{
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

// The block that stands behind a marker line.
std::string block_behind(const std::string &text, const std::string &marker)
{
    const size_t start = text.find("```text\n", text.find(marker));
    if (start == std::string::npos)
        return {};
    const size_t begin = start + 8;
    return text.substr(begin, text.find("```", begin) - begin);
}

TEST(Readme, ShowsWhatTheDemoPrintsWordForWord)
{
    const std::string readme = text_of(PROJECT_SOURCE_DIR "/README.md");
    const std::string command =
        "cd " PROJECT_SOURCE_DIR " && INLINECTL=" INLINECTL " scripts/demo > /tmp/demo.txt";
    ASSERT_EQ(system(command.c_str()), 0);
    const std::string shown = block_behind(readme, "<!-- demo -->");
    ASSERT_NE(shown, "");
    EXPECT_EQ(shown, text_of("/tmp/demo.txt"));
}

} // namespace
