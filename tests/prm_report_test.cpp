// The hardware error report of a failed answer, and the hexadecimal text in it.

#include <algorithm>
#include <cstring>
#include <memory>

#include "card_fixture.h"

namespace test {
namespace {

using Log = std::vector<std::string>;

std::string hex(const void *bytes, size_t length)
{
    std::string text;
    for (size_t i = 0; i < length; ++i) {
        char two[3];
        snprintf(two, sizeof two, "%02x", static_cast<const uint8_t *>(bytes)[i]);
        text += two;
    }
    return text;
}

class PrmReport : public CardTest {
protected:
    PrmReport()
    {
        // Every byte of key and result differs from its neighbours, in the record's order.
        auto *bytes = reinterpret_cast<uint8_t *>(response.get());
        for (size_t i = 32; i < sizeof *response; ++i)
            bytes[i] = static_cast<uint8_t>(i * 7);
        response->result_size = 0;
    }
    Log report()
    {
        forget_log();
        inline_svc_catastrophic_recovery(response.get());
        return log();
    }

    // On the heap, so that a sanitizer sees what is read past it.
    std::unique_ptr<prm_async_response> response = std::make_unique<prm_async_response>();
};

// ---- the report --------------------------------------------------------------------------------

TEST_F(PrmReport, AnAnswerWithoutKeyAndResultIsOneLine)
{
    response->status = 0x257C5404;
    response->np = 3;
    response->refnum = 0x201;
    response->vrf_id = 42;
    EXPECT_EQ(report(),
              (Log{"PRM connection error Error encountered while programming the hw. FIB will be "
                   "reset and routes will be reprogrammed.Error = 0x257c5404, np_id = 3, ref_num = "
                   "0x00000201 vrf id = 42"}));
}

TEST_F(PrmReport, TheLongestNumbersStillFitTheReport)
{
    response->status = 0xFFFFFFFF;
    response->np = 0x80000000;
    response->refnum = 0xFFFFFFFF;
    response->vrf_id = 0x80000000;
    EXPECT_EQ(report(),
              (Log{"PRM connection error Error encountered while programming the hw. FIB will be "
                   "reset and routes will be reprogrammed.Error = 0xffffffff, np_id = -2147483648, "
                   "ref_num = 0xffffffff vrf id = -2147483648"}));
}

TEST_F(PrmReport, AKeyHasALineOfItsOwn)
{
    response->key_size = 3;
    const Log lines = report();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[1], "key key <len 3>: " + hex(response->key, 3));
}

TEST_F(PrmReport, AResultHasALineOfItsOwnAlsoWithoutAKey)
{
    response->result_size = 5;
    const Log lines = report();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[1], "result result <len 5>: " + hex(response->result, 5));
}

TEST_F(PrmReport, KeyAndResultFollowTheReportInThisOrder)
{
    response->key_size = 1;
    response->result_size = 1;
    const Log lines = report();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[1], "key key <len 1>: " + hex(response->key, 1));
    EXPECT_EQ(lines[2], "result result <len 1>: " + hex(response->result, 1));
}

TEST_F(PrmReport, AKeyThatFillsItsFieldIsShownWhole)
{
    response->key_size = 104;
    EXPECT_EQ(report().at(1), "key key <len 104>: " + hex(response->key, 104));
}

TEST_F(PrmReport, AKeyOf200BytesIsShownAsFarAsTheBufferGoesInWholeBytes)
{
    response->key_size = 200;
    const std::string line = report().at(1);
    const std::string shown = line.substr(strlen("key "));
    EXPECT_EQ(shown.size(), 255u);
    EXPECT_EQ(shown,
              "key <len 200>: " + hex(reinterpret_cast<const uint8_t *>(response.get()) + 32, 120));
}

TEST_F(PrmReport, AResultIsShownAsFarAsTheBufferGoesInWholeBytes)
{
    response->result_size = 1244;
    const std::string shown = report().at(1).substr(strlen("result "));
    EXPECT_EQ(shown, "result <len 1244>: " + hex(response->result, 118));
    EXPECT_EQ(shown.size(), 255u);
}

TEST_F(PrmReport, ASizeFarBeyondTheRecordReadsNoFurther)
{
    response->key_size = 0x7FFFFFFF;
    response->result_size = 0x7FFFFFFF;
    const Log lines = report();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[1], "key key <len 2147483647>: " +
                            hex(reinterpret_cast<const uint8_t *>(response.get()) + 32, 116));
    EXPECT_EQ(lines[2], "result result <len 2147483647>: " + hex(response->result, 115));
}

TEST_F(PrmReport, ASizeAboveTheSignedRangeGivesTheHeaderAlone)
{
    response->key_size = 0xFFFFFFFF;
    response->result_size = 0x80000000;
    const Log lines = report();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[1], "key key <len -1>: ");
    EXPECT_EQ(lines[2], "result result <len -2147483648>: ");
}

TEST_F(PrmReport, TheReportChangesNothingAndCallsNothing)
{
    response->key_size = 8;
    response->result_size = 8;
    const prm_async_response before = *response;
    services.forget();
    report();
    EXPECT_EQ(memcmp(response.get(), &before, sizeof before), 0);
    EXPECT_TRUE(services.calls().empty());
}

TEST_F(PrmReport, NoAnswerIsNoReport)
{
    forget_log();
    inline_svc_catastrophic_recovery(nullptr);
    EXPECT_TRUE(log().empty());
}

// ---- hexadecimal text --------------------------------------------------------------------------

class HexText : public ::testing::Test {
protected:
    // What is written into a buffer of this size; the bytes behind it must stay.
    std::string format(int32_t size, int32_t length, const char *label = "k",
                       const void *bytes = sample)
    {
        memset(buffer, '#', sizeof buffer);
        inline_svc_format_hex(buffer, size, bytes, length, label);
        const auto end = static_cast<size_t>(std::max(size, 0));
        for (size_t i = end; i < sizeof buffer; ++i)
            EXPECT_EQ(buffer[i], '#') << i;
        if (size <= 0)
            return "";
        EXPECT_NE(memchr(buffer, '\0', end), nullptr) << "the text is ended inside its buffer";
        return buffer;
    }

    static constexpr uint8_t sample[] = {0x00, 0x0F, 0xF0, 0xAB, 0xFF};
    char buffer[64];
};

TEST_F(HexText, EveryByteIsTwoLowerCaseDigits)
{
    EXPECT_EQ(format(64, 5), "k <len 5>: 000ff0abff");
}

TEST_F(HexText, ALengthOfZeroGivesTheHeaderAlone)
{
    EXPECT_EQ(format(64, 0), "k <len 0>: ");
}

TEST_F(HexText, ANegativeLengthGivesTheHeaderAlone)
{
    EXPECT_EQ(format(64, -1), "k <len -1>: ");
    EXPECT_EQ(format(64, -2147483647 - 1), "k <len -2147483648>: ");
}

// The header of a length of 5 is 11 characters.
TEST_F(HexText, OnlyWholeBytesAreWritten)
{
    EXPECT_EQ(format(11 + 1, 5), "k <len 5>: ");
    EXPECT_EQ(format(11 + 2, 5), "k <len 5>: ");
    EXPECT_EQ(format(11 + 3, 5), "k <len 5>: 00");
    EXPECT_EQ(format(11 + 4, 5), "k <len 5>: 00");
    EXPECT_EQ(format(11 + 5, 5), "k <len 5>: 000f");
    EXPECT_EQ(format(11 + 11, 5), "k <len 5>: 000ff0abff");
}

TEST_F(HexText, AHeaderThatDoesNotFitIsCutAndFollowedByNoByte)
{
    EXPECT_EQ(format(11, 5), "k <len 5>:");
    EXPECT_EQ(format(5, 5), "k <l");
    EXPECT_EQ(format(2, 5), "k");
    EXPECT_EQ(format(1, 5), "");
}

TEST_F(HexText, ABufferWithoutRoomIsLeftAlone)
{
    EXPECT_EQ(format(0, 5), "");
    EXPECT_EQ(format(-1, 5), "");
    EXPECT_EQ(buffer[0], '#');
}

TEST_F(HexText, NullArgumentsNeverFault)
{
    inline_svc_format_hex(nullptr, 64, sample, 5, "k");
    EXPECT_EQ(format(64, 5, "k", nullptr), "k <len 5>: ");
    EXPECT_EQ(format(64, 2, nullptr), " <len 2>: 000f");
}

} // namespace
} // namespace test
