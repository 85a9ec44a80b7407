// Card files that are no files, and names that are like no other.
#include <sys/stat.h>

#include "test_directory.h"
#include "vlc/card_config.h"

namespace vlc::test {

TEST(CardFileRefusals, APipeIsRefusedAtOnce)
{
    TestDirectory top;
    const std::filesystem::path pipe = top.file("card.toml");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0644), 0);
    EXPECT_EQ(refusal([&] { load_card_file(pipe); }), pipe.string() + ": is no regular file");
}

TEST(CardFileRefusals, ADirectoryIsRefused)
{
    TestDirectory top;
    EXPECT_EQ(refusal([&] { load_card_file(top.path()); }),
              top.path().string() + ": cannot be read: Is a directory");
}

TEST(CardFileRefusals, ANameThatIsLikeNoKnownOneGetsNoSuggestion)
{
    TestDirectory top;
    const std::filesystem::path file = top.file("card.toml");
    write_file(file, "zyxwvut = 1\n");
    EXPECT_EQ(refusal([&] { load_card_file(file); }),
              file.string() + ":1:1: 'zyxwvut' is not known");
}

} // namespace vlc::test
