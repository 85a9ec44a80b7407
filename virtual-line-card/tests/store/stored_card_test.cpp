// What the marker of a state says of the card that it was made for.
#include <sys/stat.h>

#include "test_directory.h"
#include "vlc/state_directory.h"

namespace vlc::test {

namespace {

CardConfig unusual_card()
{
    CardConfig card;
    card.name = "the \"left\" one\n= 3";
    card.card_type = 0xFFFFFFFF;
    card.slot = 65535;
    card.num_nps = 7;
    card.service_config_capacity = 1048576;
    card.ext_conf_capacity = 1;
    card.window_bytes = (uint64_t{5} << 30) + 1;
    return card;
}

void complete_state(const std::filesystem::path &path)
{
    StateDirectory(path, Access::read_write).complete(unusual_card());
}

} // namespace

TEST(StoredCards, EveryFieldOfACompleteStateIsKept)
{
    TestDirectory top;
    complete_state(top.path());
    const auto stored = stored_card(top.path());
    ASSERT_TRUE(stored);
    EXPECT_EQ(stored->name, unusual_card().name);
    EXPECT_EQ(stored->card_type, unusual_card().card_type);
    EXPECT_EQ(stored->slot, unusual_card().slot);
    EXPECT_EQ(stored->num_nps, unusual_card().num_nps);
    EXPECT_EQ(stored->service_config_capacity, unusual_card().service_config_capacity);
    EXPECT_EQ(stored->ext_conf_capacity, unusual_card().ext_conf_capacity);
    EXPECT_EQ(stored->window_bytes, unusual_card().window_bytes);
}

TEST(StoredCards, ThereIsNoneInAMissingAnEmptyOrAHalfMadeDirectory)
{
    TestDirectory top;
    EXPECT_FALSE(stored_card(top.file("none")));
    EXPECT_FALSE(stored_card(top.path()));
    StateDirectory(top.path(), Access::read_write);
    EXPECT_FALSE(stored_card(top.path()));
}

TEST(StoredCards, ASomebodyElsesDirectoryHasNone)
{
    TestDirectory top;
    write_file(top.file("letter.txt"), "dear");
    EXPECT_FALSE(stored_card(top.path()));
}

TEST(StoredCards, AMarkerThatWasCutOffIsRefused)
{
    TestDirectory top;
    complete_state(top.path());
    const std::filesystem::path marker = top.file("virtual-line-card");
    const std::string whole = content_of(marker);
    for (const size_t left : {whole.find('\n'), whole.find('\n') + 1, whole.size() / 2}) {
        write_file(marker, whole.substr(0, left));
        EXPECT_EQ(refusal([&] { stored_card(top.path()); }),
                  marker.string() +
                      ": is damaged: it does not say which card the state was made for");
    }
}

TEST(StoredCards, APipeInTheMarkersPlaceIsRefusedAtOnce)
{
    TestDirectory top;
    const std::filesystem::path marker = top.file("virtual-line-card");
    ASSERT_EQ(mkfifo(marker.c_str(), 0644), 0);
    const std::string told = marker.string() + ": is no regular file";
    EXPECT_EQ(refusal([&] { stored_card(top.path()); }), told);
    EXPECT_EQ(refusal([&] { StateDirectory(top.path(), Access::read_write); }), told);
}

} // namespace vlc::test
