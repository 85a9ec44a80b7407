#include <cerrno>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "platform_error_log.h"
#include "platform_error_text.h"
#include "platform_prm_stats.h"
#include "vlc/error_log.h"
#include "vlc/prm.h"

namespace {

TEST(ErrorTexts, CodesOfTheSystemHaveTheSystemsTexts)
{
    EXPECT_STREQ("Success", cerr_strerror(0));
    EXPECT_STREQ("No such file or directory", cerr_strerror(ENOENT));
    EXPECT_STREQ("Cannot allocate memory", cerr_strerror(ENOMEM));
    EXPECT_STREQ("Invalid argument", cerr_strerror(EINVAL));
}

TEST(ErrorTexts, EveryCodeOfPrmHasATextOfItsOwn)
{
    std::set<std::string> texts;
    for (uint32_t code = PRM_RESPONSE_QUEUE_EMPTY; code <= vlc::prm_bad_counter; code++)
        texts.insert(cerr_strerror(code));
    EXPECT_EQ(vlc::prm_bad_counter - PRM_RESPONSE_QUEUE_EMPTY + 1, texts.size());
    for (const auto &text : texts)
        EXPECT_EQ(0u, text.find("PRM: ")) << text;
    EXPECT_STREQ("PRM: table is full", cerr_strerror(vlc::prm_table_full));
    EXPECT_STREQ("PRM: no such counter", cerr_strerror(vlc::prm_bad_counter));
    EXPECT_STREQ("PRM: no such statistics table", cerr_strerror(vlc::prm_bad_statistics_table));
}

TEST(ErrorTexts, AnUnknownCodeIsNamedInHexadecimal)
{
    EXPECT_STREQ("Unknown error 0x257c540e", cerr_strerror(vlc::prm_bad_statistics_table + 1));
    EXPECT_STREQ("Unknown error 0xffffffff", cerr_strerror(UINT32_MAX));
}

TEST(ErrorTexts, ATextStaysGoodWhileOthersAreAskedFor)
{
    const char *text = cerr_strerror(0x10000);
    for (uint32_t code = 0x10001; code < 0x11000; code++)
        cerr_strerror(code);
    EXPECT_STREQ("Unknown error 0x10000", text);
    EXPECT_EQ(text, cerr_strerror(0x10000));
}

TEST(ErrorTexts, StatisticsCodesHaveTheSameTexts)
{
    EXPECT_STREQ("PRM: no such counter", prm_stats_err_string(vlc::prm_bad_counter));
    EXPECT_STREQ("Invalid argument", prm_stats_err_string(EINVAL));
    EXPECT_STREQ("Unknown error 0x10000", prm_stats_err_string(0x10000));
}

TEST(ErrorLog, AMessageIsKeptWithItsRecordAndReachesStandardError)
{
    const int record = 0;
    testing::internal::CaptureStderr();
    EXPECT_EQ(0u, zem_errmsg(&record, 0, "programming failed: 100% lost"));
    const std::string printed = testing::internal::GetCapturedStderr();
    ASSERT_EQ(1u, vlc::ErrorLog::instance().messages().size());
    EXPECT_EQ(&record, vlc::ErrorLog::instance().messages()[0].record);
    EXPECT_EQ("programming failed: 100% lost", vlc::ErrorLog::instance().messages()[0].text);
    EXPECT_NE(std::string::npos, printed.find("programming failed: 100% lost\n")) << printed;
}

TEST(ErrorLog, AMessageWithoutTextIsRefused)
{
    EXPECT_EQ(uint32_t{EINVAL}, zem_errmsg(nullptr, 0, nullptr));
    EXPECT_TRUE(vlc::ErrorLog::instance().messages().empty());
}

TEST(ErrorLog, TheOldestMessagesAreForgottenFirst)
{
    testing::internal::CaptureStderr();
    for (size_t i = 0; i <= vlc::ErrorLog::remembered; i++)
        zem_errmsg(nullptr, 0, std::to_string(i).c_str());
    testing::internal::GetCapturedStderr();
    const auto &messages = vlc::ErrorLog::instance().messages();
    EXPECT_EQ(vlc::ErrorLog::remembered, messages.size());
    EXPECT_EQ("1", messages.front().text);
    EXPECT_EQ(std::to_string(vlc::ErrorLog::remembered), messages.back().text);
}

} // namespace
