#include <climits>
#include <cstring>

#include <gtest/gtest.h>

#include "event_text.h"

namespace {

std::string text_of(const char *format, std::vector<uint64_t> words)
{
    return vlc::render_event(format, words).text;
}

std::string alone(const char *format, uint64_t word)
{
    return vlc::render_event(format, std::vector{word}).arguments.at(0);
}

uint64_t word_of(const char *text)
{
    return reinterpret_cast<uintptr_t>(text);
}

// The same as printf, for an argument widened into a word by its own signedness.
template <typename Value>
void expect_like_printf(const char *format, Value value)
{
    char expected[64];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    std::snprintf(expected, sizeof expected, format, value);
#pragma GCC diagnostic pop
    EXPECT_EQ(expected, text_of(format, {static_cast<uint64_t>(value)})) << format;
}

TEST(EventTexts, IntegersAreRenderedAsPrintfDoes)
{
    for (const int value : {0, 7, -1, INT_MIN, INT_MAX}) {
        for (const char *format :
             {"%d", "%i", "%5d|", "%-5d|", "%05d", "%+d", "%.4d", "%hd", "%hhd"})
            expect_like_printf(format, value);
    }
    for (const unsigned value : {0u, 7u, UINT_MAX}) {
        for (const char *format : {"%u", "%x", "%X", "%#x", "0x%08x", "%o", "%hx", "%hhu", "%d"})
            expect_like_printf(format, value);
    }
    for (const long value : {0L, -1L, LONG_MIN}) {
        for (const char *format : {"%ld", "%lx", "%20lu"})
            expect_like_printf(format, value);
    }
    expect_like_printf("%zu", size_t{SIZE_MAX});
    expect_like_printf("%lld", -5LL);
    expect_like_printf("%c", 'q');
}

TEST(EventTexts, AStringAloneEndsWhereItsPrecisionDoes)
{
    EXPECT_EQ("\"ab\"", alone("%.2s", word_of("abc")));
    EXPECT_EQ("\"ab\"", alone("%-9.2s", word_of("abc")));
    EXPECT_EQ("\"abc\"", alone("%9s", word_of("abc")));
}

TEST(EventTexts, StringsAreReadAtTheirAddress)
{
    EXPECT_EQ("<abc>", text_of("<%s>", {word_of("abc")}));
    EXPECT_EQ("< ab>", text_of("<%3.2s>", {word_of("abc")}));
    EXPECT_EQ("<(null)>", text_of("<%s>", {0}));
}

TEST(EventTexts, PointersAreHexadecimal)
{
    EXPECT_EQ("at 0x7ea000000000", text_of("at %p", {0x7ea000000000}));
}

TEST(EventTexts, WordsAreTakenInOrderAndPercentTakesNone)
{
    EXPECT_EQ("1% of 2", text_of("%d%% of %d", {1, 2}));
}

TEST(EventTexts, AConversionWithoutAWordIsAQuestionMark)
{
    EXPECT_EQ("1 ?", text_of("%d %d", {1}));
    EXPECT_EQ("cut ?", text_of("cut %", {}));
}

TEST(EventTexts, ArgumentsAloneSayTheirKind)
{
    EXPECT_EQ("-1", alone("%5d", static_cast<uint64_t>(-1)));
    EXPECT_EQ("0xff", alone("%08x", 255));
    EXPECT_EQ("255", alone("%u", 255));
    EXPECT_EQ("\"abc\"", alone("%9s", word_of("abc")));
}

} // namespace
