#include <climits>
#include <cstring>

#include <gtest/gtest.h>

#include "vlc/event_text.h"

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

// ---- of events that were kept

std::string kept(const char *format, std::vector<uint64_t> words, uint32_t strings,
                 std::vector<std::string> texts)
{
    return vlc::render_kept_event(format, words, strings, texts).text;
}

TEST(KeptEventTexts, HaveTheTextsThatWereKept)
{
    EXPECT_EQ("read  ab of 7", kept("read %3s of %d", {1, 7}, 1, {"ab", ""}));
}

TEST(KeptEventTexts, ReadNothingAtAnAddress)
{
    EXPECT_EQ("<?>", kept("<%s>", {0x10}, 0, {}));
    EXPECT_EQ("<?>", kept("<%s>", {0x10}, 1, {}));
}

TEST(KeptEventTexts, OfAFormatThatIsNoneAreShortAllTheSame)
{
    EXPECT_LT(kept("%999999999999d", {1}, 0, {}).size(), 1100U);
    EXPECT_LT(kept("%.2147483648s", {1}, 1, {"x"}).size(), 1100U);
    EXPECT_EQ("??", kept("%n%", {1}, 0, {}));
    EXPECT_EQ("?", kept("%lllllllllq", {1}, 0, {}));
}

// ---- comparing an argument

TEST(EventArguments, NumbersAreComparedAsWideAsTheyAreRead)
{
    const std::vector<uint64_t> words{static_cast<uint64_t>(-5), 0xFF, 0x100000001};
    const char *format = "%d %x %d";
    EXPECT_TRUE(vlc::argument_is(format, words, 0, "-5"));
    EXPECT_TRUE(vlc::argument_is(format, words, 0, "4294967291"));
    EXPECT_FALSE(vlc::argument_is(format, words, 0, "5"));
    EXPECT_TRUE(vlc::argument_is(format, words, 1, "0xff"));
    EXPECT_TRUE(vlc::argument_is(format, words, 1, "255"));
    EXPECT_TRUE(vlc::argument_is(format, words, 2, "1"));
    EXPECT_FALSE(vlc::argument_is(format, words, 3, "1"));
}

TEST(EventArguments, AreOfTheKindAndWidthOfTheirConversion)
{
    using Kind = vlc::EventArgument::Kind;
    const auto read = vlc::event_arguments(
        "%hd %u%% %lx %s %p", std::vector<uint64_t>{0xFFFF, ~uint64_t{0}, ~uint64_t{0}, 1, 2, 3});
    const std::vector<std::pair<Kind, uint64_t>> wanted{{Kind::signed_number, ~uint64_t{0}},
                                                        {Kind::unsigned_number, 0xFFFFFFFF},
                                                        {Kind::hexadecimal, ~uint64_t{0}},
                                                        {Kind::text, 0},
                                                        {Kind::hexadecimal, 2},
                                                        {Kind::hexadecimal, 3}};
    ASSERT_EQ(wanted.size(), read.size());
    for (size_t i = 0; i < wanted.size(); i++)
        EXPECT_EQ(wanted[i], std::make_pair(read[i].kind, read[i].number)) << i;
}

TEST(EventArguments, WhatIsNoNumberIsNoNumbersValue)
{
    for (const char *value : {"", "-", "x", "1x", "0x", "99999999999999999999999", " 1"})
        EXPECT_FALSE(vlc::argument_is("%d", std::vector<uint64_t>{1}, 0, value)) << value;
}

TEST(EventArguments, StringsAreComparedAsTexts)
{
    const std::vector<uint64_t> words{word_of("abc")};
    EXPECT_TRUE(vlc::argument_is("%s", words, 0, "abc"));
    EXPECT_TRUE(vlc::argument_is("100%% %.2s", words, 0, "ab"));
    EXPECT_FALSE(vlc::argument_is("%s", words, 0, "ab"));
}

} // namespace
