// The texts of the log's lines: numbers and strings of every kind read as printf writes them.

#include <climits>
#include <cstdio>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "inline_service_attributes.h"
#include "inline_service_context.h"
#include "inline_service_flowdb.h"
#include "inline_service_hash.h"
#include "inline_service_shadowdb.h"
#include "inline_service_stat.h"
#include "log_file.h"
#include "service_recorder.h"
#include "unreadable_end.h"
#include "vlc/service_tap.h"

namespace {

const std::vector<uint32_t> numbers = [] {
    std::vector<uint32_t> all{0, INT_MAX, UINT_MAX, 0x80000000, 0x80000001};
    for (uint64_t power = 1; power <= UINT_MAX; power *= 10) {
        for (const uint64_t near : {power - 1, power, power + 1}) {
            all.push_back(static_cast<uint32_t>(near));
            all.push_back(static_cast<uint32_t>(-static_cast<int64_t>(near)));
        }
    }
    for (uint32_t bit = 0; bit < 32; ++bit)
        all.push_back(UINT32_C(1) << bit);
    return all;
}();

template <typename... Values>
std::string printed(const char *format, Values... values)
{
    char text[700];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    std::snprintf(text, sizeof text, format, values...);
#pragma GCC diagnostic pop
    return text;
}

std::string last_message()
{
    return test::log_messages().back();
}

TEST(LogTexts, SignedNumbersReadAsPrintfWritesThem)
{
    pgbl_ptr = nullptr;
    inline_svc_global_cntx context{};
    context.num_nps = 0;
    pgbl_ptr = &context;
    for (const uint32_t number : numbers) {
        if (number < INLINE_SVC_APP_TYPES)
            continue;
        inline_api_set_uidb_to_app(number, 7, 1);
        EXPECT_EQ(last_message(),
                  printed("Invalid uidb_index %d or app_type %d", 7, static_cast<int>(number)));
    }
}

TEST(LogTexts, UnsignedNumbersReadAsPrintfWritesThem)
{
    for (const uint32_t number : numbers) {
        if (number < 0x20000000)
            continue; // such a table may be had
        EXPECT_EQ(flowdb_init(number, nullptr, nullptr), nullptr);
        EXPECT_NE(test::log_text().find(printed("flow table of %u buckets is too large", number)),
                  std::string::npos)
            << number;
    }
}

TEST(LogTexts, HexadecimalNumbersReadAsPrintfWritesThem)
{
    main_entry entry{};
    for (const uint32_t number : numbers) {
        entry.entry_version = number;
        inline_svc_shadow_db_print_main_entry(&entry);
        EXPECT_NE(test::log_text().find(printed(":****Entry Version %x\n", number)),
                  std::string::npos)
            << number;
    }
}

TEST(LogTexts, AddressesReadAsPrintfWritesThem)
{
    in_hash_table without_hash{};
    for (const uint32_t number : numbers) {
        for (const uint64_t word : {uint64_t{number} << 32 | number, uint64_t{number}}) {
            auto *const entry = reinterpret_cast<void *>(word);
            if (entry == nullptr)
                continue;
            in_hash_insert(&without_hash, entry);
            EXPECT_EQ(last_message(), printed("hash of entry %p is outside the table", entry));
        }
    }
}

class LogTextsOfStrings : public testing::Test {
protected:
    // The message of a counter that cannot be read, whose error has this text.
    std::string message_about(const char *text)
    {
        inline_svc_global_cntx context{};
        pgbl_ptr = &context;
        NUM_LC_NPS = 1;
        services_.force("prm_stats_cl_read", 5);
        services_.script("prm_stats_err_string", [text](const vlc::ServiceCall &) {
            return std::optional<uint64_t>(reinterpret_cast<uint64_t>(text));
        });
        stats_sum sum{};
        inline_svc_get_stat_per_np(0, 0xC00000, &sum);
        return last_message();
    }

private:
    test::ServiceRecorder services_;
};

TEST_F(LogTextsOfStrings, ReadAsTheyAre)
{
    EXPECT_EQ(message_about("100 % of %s"),
              " Cannot read stat  stats of chip 0 for , RC= 100 % of %s\n");
    EXPECT_EQ(message_about(""), " Cannot read stat  stats of chip 0 for , RC= \n");
}

TEST_F(LogTextsOfStrings, AreReadNoFurtherThanTheirEnd)
{
    const test::UnreadableEnd memory(100);
    for (size_t length = 0; length < 70; ++length) {
        const std::string text(length, 'x');
        char *const place = reinterpret_cast<char *>(memory.last(length + 1));
        text.copy(place, length);
        place[length] = '\0';
        EXPECT_EQ(message_about(place),
                  " Cannot read stat  stats of chip 0 for , RC= " + text + "\n");
    }
}

TEST_F(LogTextsOfStrings, ThatAreNullReadAsPrintfWritesThem)
{
    EXPECT_EQ(message_about(nullptr), " Cannot read stat  stats of chip 0 for , RC= (null)\n");
}

TEST_F(LogTextsOfStrings, AreCutSoThatTheLineHas600Characters)
{
    for (const size_t length : {530u, 534u, 535u, 536u, 537u, 600u, 5000u}) {
        const std::string text(length, 'x');
        message_about(text.c_str());
        const std::string all = test::log_text();
        const std::string whole = " Cannot read stat  stats of chip 0 for , RC= " + text + "\n";
        const std::string expected = whole.substr(0, 580) + "\n";
        EXPECT_EQ(all.substr(all.size() - expected.size()), expected) << length;
    }
}

} // namespace
