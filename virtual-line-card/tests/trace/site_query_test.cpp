// The words that select sites and change them: every word, every letter, every mistake.
#include "vlc/site_query.h"

#include <gtest/gtest.h>

namespace vlc::test {

namespace {

StoredSite a_site()
{
    return {.number = 7,
            .line = 120,
            .level = 1,
            .trace_buffer = 1,
            .flags = ED_DEFAULT_FLAGS,
            .line_filter = 120,
            .hits = 0,
            .file = "top/src/inline_service_shadowdb_util.cpp",
            .function = "shadow_insert",
            .format = "rc=%s of \"x\" failed",
            .arg_names = {"cerr_strerror(rc)", "a == b"}};
}

bool selects(const std::string &text)
{
    return parse_site_selection(text).selects(a_site());
}

void expect_selected(std::initializer_list<const char *> queries, bool selected)
{
    for (const char *query : queries)
        EXPECT_EQ(selected, selects(query)) << query;
}

TEST(SiteQueries, WithoutAWordSelectEverySite)
{
    expect_selected({"", "  ", ";"}, true);
}

TEST(SiteQueries, FileIsThePathOrTheNameOrWhatIsBehindAnUnderscore)
{
    expect_selected({"file inline_service_shadowdb_util.cpp", "file inline_service_shadowdb_util",
                     "file shadowdb*", "file util", "file shadowdb_util.cpp", "file *shadow*",
                     "file top/src/*", "file top/*/inline_service_shadowdb_util.cpp",
                     "file inline_service_shadowdb_uti?"},
                    true);
    expect_selected({"file shadowdb", "file inline_service", "file src/*", "file ?util",
                     "file inline_service_shadowdb_util.h", "file hadowdb*"},
                    false);
}

TEST(SiteQueries, FuncIsAPatternOfTheWholeName)
{
    expect_selected({"func shadow_insert", "func shadow*", "func *ins?rt"}, true);
    expect_selected({"func insert", "func shadow", "func Shadow*"}, false);
}

TEST(SiteQueries, LineIsALineOrARangeWithOrWithoutItsEnds)
{
    expect_selected({"line 120", "line 100-200", "line 120-120", "line 120-", "line -120"}, true);
    expect_selected({"line 121", "line 12", "line 121-", "line -119", "line 100-119"}, false);
}

TEST(SiteQueries, FormatIsAPartOfTheTextAndMayBeQuoted)
{
    expect_selected(
        {"format rc=%s", "format \"of \\\"x\\\" failed\"", "format 's of \"x'", "format failed"},
        true);
    expect_selected({"format \"rc = %s\"", "format FAILED", "format f*d"}, false);
}

TEST(SiteQueries, NumberAndLevelSelectThemselves)
{
    expect_selected({"number 7", "level error"}, true);
    expect_selected({"number 8", "number 70", "level event"}, false);
}

TEST(SiteQueries, AllWordsMustHold)
{
    expect_selected({"file shadowdb* line 100-200 func *insert", "line 100- line -200"}, true);
    expect_selected({"file shadowdb* line 200-", "file prm* line 120", "line 100- line -110"},
                    false);
}

uint16_t changed(const std::string &text, uint16_t flags = ED_DEFAULT_FLAGS)
{
    for (const SiteQuery &query : parse_site_changes(text)) {
        if (query.selects(a_site()))
            flags = query.change->applied_to(flags);
    }
    return flags;
}

TEST(SiteChanges, EachLetterIsItsFlag)
{
    const std::pair<const char *, uint16_t> letters[] = {{"p", 0x40},  {"s", 0x80}, {"l", 0x200},
                                                         {"i", 0x100}, {"q", 0x02}, {"x", 0x04}};
    for (const auto &[letter, flag] : letters) {
        EXPECT_EQ(0x0430 | flag, changed(std::string("+") + letter)) << letter;
        EXPECT_EQ(0xFFFF & ~flag, changed(std::string("-") + letter, 0xFFFF)) << letter;
        EXPECT_EQ(0x0430 | flag, changed(std::string("=") + letter, 0xFFFF)) << letter;
        EXPECT_EQ(letter, flag_letters(static_cast<uint16_t>(0x0430 | flag)));
    }
    EXPECT_EQ(0x0430 | 0x40 | 0x200 | 0x100, changed("+pli"));
}

TEST(SiteChanges, TheUnderscoreIsTheBuiltInValue)
{
    EXPECT_EQ(0x0430, changed("=_", 0xFFFF));
    EXPECT_EQ("_", flag_letters(ED_DEFAULT_FLAGS));
    EXPECT_EQ("psliqx", flag_letters(0xFFFF));
}

TEST(SiteChanges, SeveralQueriesAreCarriedOutInTurn)
{
    EXPECT_EQ(0x0430 | 0x80, changed("+ps ; line 1 +x;file shadowdb* -p;"));
    EXPECT_EQ(0x0430 | 0x42, changed("+p\n+q"));
    EXPECT_EQ(0x0430 | 0x40, changed("format \"rc=%s of\" +p")) << "no change inside of quotes";
}

TEST(SiteChanges, AConditionSelectsTheSitesThatHaveTheArgument)
{
    const auto queries = parse_site_changes("arg cerr_strerror(rc)=Success line 120 +s; "
                                            "arg \"a == b\"=0x10 =s; arg 'other=x y' +s");
    ASSERT_EQ(3U, queries.size());
    EXPECT_EQ("cerr_strerror(rc)", queries[0].conditions.at(0).name);
    EXPECT_EQ("Success", queries[0].conditions.at(0).value);
    EXPECT_TRUE(queries[0].selects(a_site()));
    EXPECT_EQ("a == b", queries[1].conditions.at(0).name);
    EXPECT_EQ("0x10", queries[1].conditions.at(0).value);
    EXPECT_EQ("x y", queries[2].conditions.at(0).value);
    EXPECT_FALSE(queries[2].selects(a_site()));
}

struct Mistake {
    const char *query;
    const char *told;
};

std::string told(const Mistake &mistake, bool changes)
{
    try {
        if (changes)
            parse_site_changes(mistake.query);
        else
            parse_site_selection(mistake.query);
    } catch (const SiteQueryError &error) {
        return error.what();
    }
    return "nothing";
}

TEST(SiteChanges, AMistakeIsToldWithItsColumn)
{
    const Mistake mistakes[] = {
        {"", "column 1: there is no query"},
        {" ; ", "column 1: there is no query"},
        {"fil a +p", "column 1: 'fil' is no word of a query; the nearest known name is 'file'"},
        {"file a fun b +p", "column 8: 'fun' is no word of a query; the nearest known name is "
                            "'func'"},
        {"zzzzzzzzz +p", "column 1: 'zzzzzzzzz' is no word of a query"},
        {"file", "column 5: a pattern is missing behind 'file'"},
        {"file a", "column 7: the change is missing at the end, as '+p'"},
        {"+p; file a", "column 11: the change is missing at the end, as '+p'"},
        {"line x +p", "column 6: 'x' is no line or range of lines: N, N-M, N- or -M"},
        {"line - +p", "column 6: '-' is no line or range of lines: N, N-M, N- or -M"},
        {"line 1-2-3 +p", "column 6: '1-2-3' is no line or range of lines: N, N-M, N- or -M"},
        {"line 99999999999 +p",
         "column 6: '99999999999' is no line or range of lines: N, N-M, N- or -M"},
        {"line 9-3 +p", "column 6: '9-3' ends before it begins"},
        {"number 0x1 +p", "column 8: '0x1' is no number of a site"},
        {"level errr +p", "column 7: 'errr' is no level, which are 'event' and 'error'; the "
                          "nearest known name is 'error'"},
        {"format \"a +p", "column 8: the quote does not end"},
        {"+pz", "column 3: 'z' is no flag, which are p, s, l, i, q and x, and _ alone behind '='"},
        {"+_", "column 2: '_' is no flag, which are p, s, l, i, q and x, and _ alone behind '='"},
        {"=p_", "column 3: '_' is no flag, which are p, s, l, i, q and x, and _ alone behind '='"},
        {"+", "column 1: letters of flags are missing behind '+'"},
        {"+p file a", "column 4: 'file' stands behind the change, which ends a query; ';' begins "
                      "the next"},
        {"arg rc +s", "column 5: 'rc' is no NAME=VALUE"},
        {"arg =1 +s", "column 5: '=1' is no NAME=VALUE"},
        {"file a arg rc=1 +p",
         "column 8: 'arg' is a condition of slow sites and goes with '+s' or '=s'"},
        {"arg rc=1 -s", "column 1: 'arg' is a condition of slow sites and goes with '+s' or '=s'"},
    };
    for (const Mistake &mistake : mistakes)
        EXPECT_EQ(mistake.told, told(mistake, true)) << mistake.query;
}

TEST(SiteQueries, AMistakeIsToldWithItsColumn)
{
    const Mistake mistakes[] = {
        {"file a +p", "column 8: '+p' changes, and this only selects"},
        {"file a; file b", "column 9: one query selects, and here is another"},
        {"arg a=1", "column 1: 'arg' goes with '+s' or '=s', and this only selects"},
        {"\"\"", "column 1: '' is no word of a query; the nearest known name is 'arg'"},
    };
    for (const Mistake &mistake : mistakes)
        EXPECT_EQ(mistake.told, told(mistake, false)) << mistake.query;
}

} // namespace

} // namespace vlc::test
