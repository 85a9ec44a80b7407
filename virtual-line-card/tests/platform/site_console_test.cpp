// Sites switched at the console of a running host, and what they print to whoever follows.
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <thread>

#include <gtest/gtest.h>

#include "test_card.h"
#include "vlc/event_debug.h"
#include "vlc/host_console.h"
#include "vlc/site_table.h"
#include "vlc/state_error.h"

namespace {

using namespace vlc;
const char *const names[] = {"rc", "text(rc)"};
const char *const index_name[] = {"index"};

class SiteConsoles : public testing::Test {
protected:
    SiteConsoles()
    {
        points[0] = {ED_DEFAULT_FLAGS, 0,          ED_EVENT_BUFFER, 10,           1, 0,
                     index_name,       "index %d", "src/a.cpp",     "a_function", 0};
        points[1] = {ED_DEFAULT_FLAGS, 1,           ED_ERROR_BUFFER, 20, 2, 1, names,
                     "failed: %d %s",  "src/b.cpp", "b_function",    0};
        component.name = "component";
        std::strcpy(component.short_name, "a comp");
        component.debug_points = points;
        component.debug_point_count = 2;
        ed_init(&component, 0, 0, 0, 0);
    }
    ~SiteConsoles() override { EventDebug::instance().on_print({}); }

    void while_served(const std::function<void()> &ask)
    {
        std::atomic<bool> is_done{false};
        std::thread asker([&] {
            ask();
            is_done = true;
        });
        while (!is_done)
            card.events().run_until_idle();
        asker.join();
    }
    ConsoleAnswer set(std::string_view queries)
    {
        ConsoleAnswer answer;
        while_served([&] { answer = ConsoleClient(scratch.path()).ask(sites_verb, queries); });
        return answer;
    }
    // What the library's macro does at a site whose flags ask for a print.
    void say(ed_debug_point &point, const uint64_t *args)
    {
        uint32_t matched = 0;
        if ((point.flags & ED_PRINT) != 0)
            ed_print_debug(&point, &component, args, 0, point.line_filter, 0, point.format, 0);
        else if ((point.flags & ED_SLOW) != 0)
            ed_slow_debugs(&point, &component, &matched, args, 0, point.line_filter, 0,
                           point.format, 0);
    }
    void fail_with(uint64_t rc, const char *text)
    {
        const uint64_t args[] = {rc, reinterpret_cast<uintptr_t>(text)};
        say(points[1], args);
    }
    StoredSites stored() const { return read_sites(scratch.path() / sites_file_name("a comp")); }

    card_test::ScratchDirectory scratch;
    VirtualLineCard card{card_test::small_card(), scratch.path()};
    ed_debug_point points[2]{};
    ed_component component{};
};

TEST_F(SiteConsoles, SwitchSitesAtOnceAndInTheTable)
{
    const ConsoleAnswer answer = set("file b +pq");
    EXPECT_EQ(0U, answer.status) << answer.text;
    const auto changes = changes_of_text(answer.text);
    ASSERT_EQ(1U, changes.size());
    EXPECT_EQ("a comp", changes[0].component);
    EXPECT_EQ(1U, changes[0].number);
    EXPECT_EQ(ED_DEFAULT_FLAGS, changes[0].before);
    EXPECT_EQ(ED_DEFAULT_FLAGS | ED_PRINT | ED_SUPPRESS_PRINT, changes[0].after);
    EXPECT_EQ(changes[0].after, points[1].flags);
    EXPECT_EQ(changes[0].after, stored().site(1)->flags);
    EXPECT_EQ(ED_DEFAULT_FLAGS, points[0].flags);
    EXPECT_EQ(ED_DEFAULT_FLAGS, stored().site(0)->flags);
}

TEST_F(SiteConsoles, CarryOutSeveralQueriesAndTellEachSiteOnce)
{
    const auto changes = changes_of_text(set("file * +p; file a -p ; line 20 +x").text);
    ASSERT_EQ(2U, changes.size());
    EXPECT_EQ(ED_DEFAULT_FLAGS, changes[0].after);
    EXPECT_EQ(ED_DEFAULT_FLAGS | ED_PRINT | ED_SUPPRESS_ALL, changes[1].after);
}

TEST_F(SiteConsoles, ChangeNothingWhenAQueryIsBadOrSelectsNothing)
{
    const std::pair<const char *, ConsoleAnswer> refused[] = {
        {"file * +p; fil a +p",
         {2, "column 12: 'fil' is no word of a query; the nearest known name is 'file'"}},
        {"file * +p; file c +p", {1, "query 2 selects no site"}},
        {"file c +p", {1, "the query selects no site"}},
        {"arg text(rx)=1 +s",
         {1, "the query selects no site: none has an argument 'text(rx)'; the nearest known name "
             "is 'text(rc)'"}},
    };
    for (const auto &[query, told] : refused) {
        const ConsoleAnswer answer = set(query);
        EXPECT_EQ(told.status, answer.status) << query;
        EXPECT_EQ(told.text, answer.text);
        EXPECT_EQ(ED_DEFAULT_FLAGS, points[0].flags);
        EXPECT_EQ(ED_DEFAULT_FLAGS, points[1].flags);
    }
}

class SlowSites : public SiteConsoles {
protected:
    // How many of three messages print.
    size_t printed(const char *query)
    {
        EXPECT_EQ(0U, set(query).status);
        size_t count = 0;
        EventDebug::instance().on_print([&](const std::string &) { ++count; });
        fail_with(22, "Invalid");
        fail_with(12, "No memory");
        fail_with(12, "Invalid");
        return count;
    }
};

TEST_F(SlowSites, PrintEverythingWithoutACondition)
{
    EXPECT_EQ(3U, printed("file b +s"));
}

TEST_F(SlowSites, PrintWhatTheirConditionsLetPass)
{
    EXPECT_EQ(1U, printed("file b arg rc=22 +s"));
    EXPECT_EQ(2U, printed("arg rc=0xc +s"));
    EXPECT_EQ(2U, printed("arg text(rc)=Invalid +s"));
    EXPECT_EQ(1U, printed("arg text(rc)=Invalid arg rc=12 +s"));
    EXPECT_EQ(1U, printed("arg 'text(rc)=No memory' =s"));
    EXPECT_EQ(0U, printed("arg rc=3 +s"));
}

TEST_F(SlowSites, ForgetTheirConditionsWhenTheyAreSlowNoMore)
{
    EXPECT_EQ(0U, printed("arg rc=3 +s"));
    EXPECT_EQ(0U, printed("file b -s"));
    EXPECT_EQ(3U, printed("file b +s"));
}

TEST_F(SlowSites, KeepTheirConditionsWhenAnotherFlagChanges)
{
    EXPECT_EQ(1U, printed("arg rc=22 +s"));
    EXPECT_EQ(1U, printed("file b +l"));
}

TEST_F(SlowSites, ThatNoQueryMadeSlowPrintNothing)
{
    points[1].flags = ED_SLOW;
    EXPECT_EQ(0U, printed("file a +p"));
}

// ---- following

class FollowedSites : public SiteConsoles {
protected:
    // What a follower hears while `speak` is carried out on the host's thread.
    std::vector<SitePrint> heard(const std::function<void()> &speak)
    {
        std::vector<SitePrint> prints;
        int ends[2];
        EXPECT_EQ(0, pipe(ends));
        std::atomic<bool> is_done{false};
        std::atomic<size_t> lines{0};
        std::thread follower([&] {
            ConsoleClient(scratch.path())
                .follow(
                    sites_topic,
                    [&](std::string_view line) {
                        prints.push_back(print_of_text(line));
                        ++lines;
                    },
                    ends[0]);
            is_done = true;
        });
        while (!card.console().has_followers(sites_topic))
            card.events().run_until_idle();
        speak();
        while (lines == 0)
            card.events().run_until_idle();
        EXPECT_EQ(1, write(ends[1], "", 1));
        while (!is_done)
            card.events().run_until_idle();
        follower.join();
        close(ends[0]);
        close(ends[1]);
        return prints;
    }
};

TEST_F(FollowedSites, GiveEventsAndSpareStandardError)
{
    ASSERT_EQ(0U, set("file b +p").status);
    testing::internal::CaptureStderr();
    const auto prints = heard([this] { fail_with(22, "Invalid"); });
    EXPECT_EQ("", testing::internal::GetCapturedStderr());
    ASSERT_EQ(1U, prints.size());
    EXPECT_EQ("a comp", prints[0].component);
    EXPECT_EQ(1U, prints[0].record.event_word);
    EXPECT_EQ(stored().check, prints[0].record.sites);
    EXPECT_EQ(22U, prints[0].record.args[0]);
    EXPECT_EQ("Invalid", texts_of(prints[0].record).at(1));
}

TEST_F(FollowedSites, ThatNobodyFollowsPrintToStandardError)
{
    ASSERT_EQ(0U, set("file b +p").status);
    testing::internal::CaptureStderr();
    fail_with(22, "Invalid");
    EXPECT_EQ("a comp src/b.cpp:20 b_function: failed: 22 Invalid [rc=22 text(rc)=\"Invalid\"]\n",
              testing::internal::GetCapturedStderr());
}

TEST_F(FollowedSites, PrintToAPrinterAllTheSame)
{
    std::vector<std::string> printed;
    EventDebug::instance().on_print([&](const std::string &line) { printed.push_back(line); });
    ASSERT_EQ(0U, set("file b +p").status);
    EXPECT_EQ(1U, heard([this] { fail_with(22, "Invalid"); }).size());
    EXPECT_EQ(1U, printed.size());
}

TEST(SiteMessages, OfAnotherKindAreRefused)
{
    for (const char *text : {"x", "1 2", "1 2 x", "1 99999 3 comp", " "})
        EXPECT_THROW(changes_of_text(text), StateError) << text;
    for (const char *line : {"", "00", "00 comp", "zz comp"})
        EXPECT_THROW(print_of_text(line), StateError) << line;
}

} // namespace
