// The trace of a process in the state directory of the card that is alive.
#include <cstring>

#include <gtest/gtest.h>

#include "test_card.h"
#include "vlc/event_debug.h"
#include "vlc/site_table.h"
#include "vlc/state_error.h"
#include "vlc/trace_file.h"

namespace {

namespace fs = std::filesystem;
const char *const names[] = {"rc"};

class EventDebugFiles : public testing::Test {
protected:
    EventDebugFiles()
    {
        vlc::CardClock::set_mode(vlc::ClockMode::stepped);
        point = {ED_DEFAULT_FLAGS, 1,           ED_ERROR_BUFFER, 12, 1, 0, names,
                 "failed: %s",     "src/a.cpp", "a_function",    0};
        component.name = "component";
        std::strcpy(component.short_name, "comp");
        component.buffers[0] = {"event", 4, 0};
        component.buffers[1] = {"error", 4, 0};
        component.debug_points = &point;
        component.debug_point_count = 1;
    }
    fs::path card_path(const char *name = "card") const { return scratch.path() / name; }
    void open_card(const char *name = "card")
    {
        card = std::make_unique<vlc::VirtualLineCard>(card_test::small_card(), card_path(name));
    }
    void record(const char *text) const
    {
        _ltrace(component.buffer_handles[ED_ERROR_BUFFER], ED_EVENT_WORD_FIXED, text);
    }
    // What stands in the file, as "sequence text".
    std::vector<std::string> kept(const char *name = "card") const
    {
        std::vector<std::string> events;
        for (const auto &event :
             vlc::read_trace(card_path(name) / vlc::trace_file_name("comp", "error")).events)
            events.push_back(std::to_string(event.mark - 1) + " " + vlc::texts_of(event).at(0));
        return events;
    }
    vlc::StoredSites sites(const char *name = "card") const
    {
        return vlc::read_sites(card_path(name) / vlc::sites_file_name("comp"));
    }

    card_test::ScratchDirectory scratch;
    ed_debug_point point{};
    ed_component component{};
    std::unique_ptr<vlc::VirtualLineCard> card;
};

using Lines = std::vector<std::string>;

TEST_F(EventDebugFiles, HoldEachEventAtOnceAndCountTheSitesHits)
{
    open_card();
    ed_init(&component, 0, 0, 0, 0);
    record("one");
    EXPECT_EQ(Lines{"0 one"}, kept());
    record("two");
    EXPECT_EQ((Lines{"0 one", "1 two"}), kept());
    EXPECT_EQ(2U, sites().sites.at(0).hits);
    EXPECT_EQ(2U, vlc::EventDebug::instance().events(&component, ED_ERROR_BUFFER).size());
}

TEST_F(EventDebugFiles, SayWithEachEventByWhichSitesItIsRead)
{
    open_card();
    ed_init(&component, 0, 0, 0, 0);
    record("one");
    const auto trace = vlc::read_trace(card_path() / vlc::trace_file_name("comp", "error"));
    EXPECT_EQ(sites().check, trace.events.at(0).sites);
}

TEST_F(EventDebugFiles, SayTheOrderOfEventsInBothBuffersAlsoBehindARestart)
{
    const auto orders = [this](const char *buffer) {
        std::vector<uint64_t> found;
        for (const auto &event :
             vlc::read_trace(card_path() / vlc::trace_file_name("comp", buffer)).events)
            found.push_back(event.order);
        return found;
    };
    open_card();
    ed_init(&component, 0, 0, 0, 0);
    record("one");
    _ltrace(component.buffer_handles[ED_EVENT_BUFFER], ED_EVENT_WORD_FIXED, "two");
    record("three");
    const std::vector<uint64_t> errors = orders("error");
    EXPECT_LT(errors.at(0), orders("event").at(0));
    EXPECT_LT(orders("event").at(0), errors.at(1));
    card.reset();
    open_card();
    record("four");
    EXPECT_GT(orders("error").at(2), errors.at(1));
}

TEST_F(EventDebugFiles, FollowFlagsThatSomebodyChanged)
{
    open_card();
    ed_init(&component, 0, 0, 0, 0);
    point.flags = ED_PRINT;
    record("one");
    EXPECT_EQ(ED_PRINT, sites().sites.at(0).flags);
}

TEST_F(EventDebugFiles, AreGoneOnWithByTheNextCardInTheirDirectory)
{
    open_card();
    ed_init(&component, 0, 0, 0, 0);
    for (const char *text : {"one", "two", "three"})
        record(text);
    card.reset();
    open_card();
    EXPECT_EQ((Lines{"0 one", "1 two", "2 three"}), kept());
    record("four");
    record("five");
    EXPECT_EQ((Lines{"1 two", "2 three", "3 four", "4 five"}), kept());
    EXPECT_EQ(2U, sites().sites.at(0).hits) << "of this start";
}

TEST_F(EventDebugFiles, OfACardThatIsGoneStayAsTheyAreAndTheHandlesStayGood)
{
    open_card();
    ed_init(&component, 0, 0, 0, 0);
    void *const handle = component.buffer_handles[ED_ERROR_BUFFER];
    record("one");
    card.reset();
    record("alone");
    EXPECT_EQ(Lines{"0 one"}, kept());
    open_card("another");
    record("two");
    EXPECT_EQ(handle, component.buffer_handles[ED_ERROR_BUFFER]);
    EXPECT_EQ(Lines{"0 one"}, kept());
    EXPECT_EQ(Lines{"0 two"}, kept("another"));
    // The process's own view is one.
    const auto events = vlc::EventDebug::instance().events(&component, ED_ERROR_BUFFER);
    ASSERT_EQ(3U, events.size());
    EXPECT_EQ(2U, events[2].sequence);
}

TEST_F(EventDebugFiles, AComponentThatWasThereBeforeTheCardIsTakenAtItsNextEvent)
{
    ed_init(&component, 0, 0, 0, 0);
    record("before");
    open_card();
    record("one");
    EXPECT_EQ(Lines{"0 one"}, kept());
}

TEST_F(EventDebugFiles, HaveTheSitesThatGotTheirNumbersLate)
{
    ed_debug_point points[] = {point, point};
    points[1].function = "b_function";
    component.debug_points = points;
    component.debug_point_count = 2;
    open_card();
    ed_init(&component, 0, 0, 0, 0);
    points[1].number = 1;
    _ltrace(component.buffer_handles[ED_ERROR_BUFFER], ED_EVENT_WORD_FIXED | 1, "late");
    ASSERT_EQ(2U, sites().sites.size());
    EXPECT_EQ("b_function", sites().site(1)->function);
    EXPECT_EQ(1U, sites().site(1)->hits);
    EXPECT_EQ(Lines{"0 late"}, kept());
}

TEST_F(EventDebugFiles, AreNoObstacleWhenTheirDirectoryIsThrownAway)
{
    open_card();
    ed_init(&component, 0, 0, 0, 0);
    record("one");
    fs::remove_all(card_path());
    record("two");
    ed_init(&component, 0, 0, 0, 0); // finds no directory to keep anything in
    record("three");
    EXPECT_EQ(3U, vlc::EventDebug::instance().events(&component, ED_ERROR_BUFFER).size());
}

TEST_F(EventDebugFiles, ACardFromBeforeThemGetsThem)
{
    open_card();
    card.reset();
    for (const auto &entry : fs::directory_iterator(card_path()))
        EXPECT_EQ(std::string::npos, entry.path().filename().string().find("trace"));
    open_card();
    ed_init(&component, 0, 0, 0, 0);
    record("one");
    EXPECT_EQ(Lines{"0 one"}, kept());
}

TEST_F(EventDebugFiles, ADamagedTraceRefusesTheStartAndStays)
{
    open_card();
    ed_init(&component, 0, 0, 0, 0);
    record("one");
    card.reset();
    const fs::path file = card_path() / vlc::trace_file_name("comp", "error");
    fs::resize_file(file, 4200);
    try {
        open_card();
        ADD_FAILURE() << "the card is up";
    } catch (const vlc::StateError &error) {
        EXPECT_EQ(0U, std::string(error.what()).find(file.string() + ": is truncated"))
            << error.what();
    }
    EXPECT_EQ(4200U, fs::file_size(file));
}

TEST_F(EventDebugFiles, ATraceThatCannotBeKeptStaysInMemoryAndSaysSo)
{
    open_card();
    fs::create_directory(card_path() / vlc::trace_file_name("comp", "event"));
    testing::internal::CaptureStderr();
    EXPECT_EQ(0U, ed_init(&component, 0, 0, 0, 0));
    record("one");
    const std::string said = testing::internal::GetCapturedStderr();
    EXPECT_EQ(0U, said.find("virtual line card: the trace of comp stays in memory: ")) << said;
    EXPECT_EQ(1, std::count(said.begin(), said.end(), '\n'));
    EXPECT_EQ(1U, vlc::EventDebug::instance().events(&component, ED_ERROR_BUFFER).size());
}

} // namespace
