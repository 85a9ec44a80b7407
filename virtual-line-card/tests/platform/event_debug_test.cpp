#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstring>

#include <gtest/gtest.h>

#include "vlc/event_debug.h"
#include "vlc/event_manager.h"
#include "vlc/service_tap.h"

namespace {

const char *const two_names[] = {"main->index", "name"};
const char *const one_name[] = {"rc"};

uint64_t word_of(const char *text)
{
    return reinterpret_cast<uintptr_t>(text);
}

// A component with three sites, numbered out of their order in the array.
class EventDebugFacility : public testing::Test {
protected:
    EventDebugFacility()
    {
        points[0] = {ED_DEFAULT_FLAGS,
                     0,
                     ED_EVENT_BUFFER,
                     0,
                     2,
                     2,
                     two_names,
                     " index %d of %s\n",
                     "src/file.cpp",
                     "a_function",
                     0};
        points[1] = {
            ED_DEFAULT_FLAGS, 0, ED_EVENT_BUFFER, 0, 0, 0, nullptr, "no arguments", "src/file.cpp",
            "a_function",     0};
        points[2] = {
            ED_DEFAULT_FLAGS, 1, ED_ERROR_BUFFER, 0, 1, 1, one_name, "failed: %#x", "src/other.cpp",
            "b_function",     0};
        component.name = "component";
        std::strcpy(component.short_name, "comp");
        component.buffers[0] = {"event", ED_TRACE_BUFFER_ENTRIES, 0};
        component.buffers[1] = {"error", ED_TRACE_BUFFER_ENTRIES, 0};
        component.debug_points = points.data();
        component.debug_point_count = points.size();
        vlc::EventDebug::instance().on_print(
            [this](const std::string &line) { printed.push_back(line); });
    }
    ~EventDebugFacility() override
    {
        vlc::set_service_tap({});
        vlc::EventDebug::instance().on_print({});
        vlc::EventDebug::instance().on_slow_filter({});
    }

    void *buffer(uint32_t which) const { return component.buffer_handles[which]; }
    std::vector<vlc::TraceEvent> events(uint32_t which) const
    {
        return vlc::EventDebug::instance().events(&component, which);
    }
    void print(ed_debug_point &point, const uint64_t *args)
    {
        ed_print_debug(&point, &component, args, 0, 321, 0, point.format, 0);
    }
    uint32_t print_slowly(ed_debug_point &point, const uint64_t *args)
    {
        uint32_t matched = 0;
        ed_slow_debugs(&point, &component, &matched, args, 0, 321, 0, point.format, 0);
        return matched;
    }

    std::array<ed_debug_point, 3> points;
    ed_component component{};
    std::vector<std::string> printed;
};

using Lines = std::vector<std::string>;

TEST_F(EventDebugFacility, RegistrationOpensBothTraceBuffersAndListsTheComponent)
{
    EXPECT_EQ(nullptr, vlc::EventDebug::instance().component("comp"));
    EXPECT_EQ(0u, ed_init(&component, 1, 2, 3, 4));
    EXPECT_EQ(&component, vlc::EventDebug::instance().component("comp"));
    EXPECT_EQ(std::vector{&component}, vlc::EventDebug::instance().components());
    EXPECT_NE(nullptr, buffer(0));
    EXPECT_NE(nullptr, buffer(1));
    EXPECT_NE(buffer(0), buffer(1));
}

TEST_F(EventDebugFacility, ANullComponentIsRefused)
{
    EXPECT_EQ(uint32_t{EINVAL}, ed_init(nullptr, 0, 0, 0, 0));
}

TEST_F(EventDebugFacility, AComponentRegisteredAnewTakesItsFormerPlace)
{
    ed_init(&component, 0, 0, 0, 0);
    ed_component again = component;
    again.buffer_handles[0] = again.buffer_handles[1] = nullptr;
    EXPECT_EQ(0u, ed_init(&again, 0, 0, 0, 0));
    EXPECT_EQ(std::vector{&again}, vlc::EventDebug::instance().components());
    EXPECT_EQ(&again, vlc::EventDebug::instance().component("comp"));
    EXPECT_NE(nullptr, again.buffer_handles[0]);
}

TEST_F(EventDebugFacility, AShortNameThatFillsItsFieldIsFound)
{
    std::memcpy(component.short_name, "sixteen letters!", 16);
    ed_init(&component, 0, 0, 0, 0);
    EXPECT_EQ(&component, vlc::EventDebug::instance().component("sixteen letters!"));
}

TEST_F(EventDebugFacility, AnEventIsRecordedWithItsSiteAndAsManyArgumentsAsTheSiteHas)
{
    vlc::CardClock::set_mode(vlc::ClockMode::stepped);
    ed_init(&component, 0, 0, 0, 0);
    const uint64_t event_word = ED_EVENT_WORD_FIXED | 2;
    const char *name = "a name";
    _ltrace(buffer(0), event_word, uint64_t{7}, name, uint64_t{9});
    const auto recorded = events(ED_EVENT_BUFFER);
    ASSERT_EQ(1u, recorded.size());
    EXPECT_EQ(0u, recorded[0].sequence);
    EXPECT_EQ(event_word, recorded[0].event_word);
    EXPECT_EQ(&points[0], recorded[0].point);
    EXPECT_EQ((std::vector<uint64_t>{7, reinterpret_cast<uintptr_t>(name)}), recorded[0].args);
    EXPECT_EQ(vlc::CardClock::now().count(), recorded[0].nanoseconds);
    EXPECT_TRUE(events(ED_ERROR_BUFFER).empty());
}

TEST_F(EventDebugFacility, ASiteWithoutArgumentsRecordsNone)
{
    ed_init(&component, 0, 0, 0, 0);
    _ltrace(buffer(0), ED_EVENT_WORD_FIXED, uint64_t{0});
    ASSERT_EQ(1u, events(ED_EVENT_BUFFER).size());
    EXPECT_EQ(&points[1], events(ED_EVENT_BUFFER)[0].point);
    EXPECT_TRUE(events(ED_EVENT_BUFFER)[0].args.empty());
}

TEST_F(EventDebugFacility, SitesNumberedAfterTheRegistrationAreFound)
{
    for (auto &point : points)
        point.number = 0;
    ed_init(&component, 0, 0, 0, 0);
    _ltrace(buffer(0), ED_EVENT_WORD_FIXED, uint64_t{0});
    points[0].number = 2;
    points[2].number = 1;
    _ltrace(buffer(0), ED_EVENT_WORD_FIXED, uint64_t{0});
    _ltrace(buffer(0), ED_EVENT_WORD_FIXED | 1, uint64_t{22});
    const auto recorded = events(ED_EVENT_BUFFER);
    ASSERT_EQ(3u, recorded.size());
    EXPECT_EQ(&points[1], recorded[1].point);
    EXPECT_EQ(&points[2], recorded[2].point);
    EXPECT_EQ(std::vector<uint64_t>{22}, recorded[2].args);
}

TEST_F(EventDebugFacility, AnEventOfNoKnownSiteIsRecordedWithItsWordAlone)
{
    ed_init(&component, 0, 0, 0, 0);
    _ltrace(buffer(1), ED_EVENT_WORD_FIXED | 3, uint64_t{7});
    ASSERT_EQ(1u, events(ED_ERROR_BUFFER).size());
    EXPECT_EQ(ED_EVENT_WORD_FIXED | 3, events(ED_ERROR_BUFFER)[0].event_word);
    EXPECT_EQ(nullptr, events(ED_ERROR_BUFFER)[0].point);
    EXPECT_TRUE(events(ED_ERROR_BUFFER)[0].args.empty());
}

TEST_F(EventDebugFacility, AnEventForNoOpenBufferIsDropped)
{
    _ltrace(buffer(0), ED_EVENT_WORD_FIXED, uint64_t{0});
    ed_init(&component, 0, 0, 0, 0);
    _ltrace(nullptr, ED_EVENT_WORD_FIXED, uint64_t{0});
    _ltrace(&component, ED_EVENT_WORD_FIXED, uint64_t{0});
    EXPECT_TRUE(events(ED_EVENT_BUFFER).empty());
    EXPECT_TRUE(events(ED_ERROR_BUFFER).empty());
}

TEST_F(EventDebugFacility, ATraceBufferKeepsTheLastThousandEvents)
{
    ed_init(&component, 0, 0, 0, 0);
    for (uint64_t i = 0; i < 1000; i++)
        _ltrace(buffer(1), ED_EVENT_WORD_FIXED | 1, i);
    ASSERT_EQ(1000u, events(ED_ERROR_BUFFER).size());
    EXPECT_EQ(0u, events(ED_ERROR_BUFFER).front().args[0]);
    _ltrace(buffer(1), ED_EVENT_WORD_FIXED | 1, uint64_t{1000});
    const auto kept = events(ED_ERROR_BUFFER);
    ASSERT_EQ(1000u, kept.size());
    EXPECT_EQ(1u, kept.front().args[0]);
    EXPECT_EQ(1u, kept.front().sequence);
    EXPECT_EQ(1000u, kept.back().args[0]);
}

TEST_F(EventDebugFacility, ATapSeesTheArgumentsOfATraceEvent)
{
    std::vector<std::vector<uint64_t>> calls;
    ed_init(&component, 0, 0, 0, 0);
    vlc::set_service_tap([&calls](const vlc::ServiceCall &call) -> std::optional<uint64_t> {
        calls.emplace_back(call.args.begin(), call.args.begin() + call.arg_count);
        return 0;
    });
    _ltrace(buffer(0), ED_EVENT_WORD_FIXED | 2, uint64_t{7}, uint64_t{8});
    _ltrace(buffer(0), ED_EVENT_WORD_FIXED, uint64_t{0});
    const auto place = reinterpret_cast<uintptr_t>(buffer(0));
    ASSERT_EQ(2u, calls.size());
    EXPECT_EQ((std::vector<uint64_t>{place, ED_EVENT_WORD_FIXED | 2, 7, 8}), calls[0]);
    EXPECT_EQ((std::vector<uint64_t>{place, ED_EVENT_WORD_FIXED, 0}), calls[1]);
    EXPECT_TRUE(events(ED_EVENT_BUFFER).empty()) << "forced: not performed";
}

TEST_F(EventDebugFacility, AMessageIsPrintedOnOneLineWithItsArgumentsUnderTheirNames)
{
    const uint64_t args[] = {static_cast<uint64_t>(-5), word_of("the table")};
    print(points[0], args);
    EXPECT_EQ(Lines{"comp src/file.cpp:321 a_function: index -5 of the table "
                    "[main->index=-5 name=\"the table\"]"},
              printed);
}

TEST_F(EventDebugFacility, AMessageWithoutArgumentsHasNoBrackets)
{
    print(points[1], nullptr);
    EXPECT_EQ(Lines{"comp src/file.cpp:321 a_function: no arguments"}, printed);
}

TEST_F(EventDebugFacility, TheFormatOfTheCallIsPrintedAndNotTheSites)
{
    const uint64_t args[] = {22};
    ed_print_debug(&points[2], &component, args, 0, 9, 0, "rc is %u%%", 0);
    EXPECT_EQ(Lines{"comp src/other.cpp:9 b_function: rc is 22% [rc=22]"}, printed);
}

TEST_F(EventDebugFacility, NullArgumentsPrintNothing)
{
    ed_print_debug(nullptr, &component, nullptr, 0, 0, 0, "x", 0);
    ed_print_debug(&points[0], nullptr, nullptr, 0, 0, 0, "x", 0);
    ed_slow_debugs(nullptr, nullptr, nullptr, nullptr, 0, 0, 0, "x", 0);
    EXPECT_EQ(Lines{}, printed);
}

TEST_F(EventDebugFacility, WithoutAPrinterLinesGoToStandardError)
{
    vlc::EventDebug::instance().on_print({});
    testing::internal::CaptureStderr();
    print(points[1], nullptr);
    EXPECT_EQ("comp src/file.cpp:321 a_function: no arguments\n",
              testing::internal::GetCapturedStderr());
}

TEST_F(EventDebugFacility, NothingPassesTheSlowFilterUntilThereIsOne)
{
    EXPECT_EQ(0u, print_slowly(points[1], nullptr));
    EXPECT_EQ(Lines{}, printed);
}

TEST_F(EventDebugFacility, TheSlowFilterDecidesBySiteAndArguments)
{
    vlc::EventDebug::instance().on_slow_filter(
        [](const ed_debug_point &point, const uint64_t *args) {
            return point.number == 1 && args[0] == 22;
        });
    const uint64_t passing[] = {22};
    const uint64_t other[] = {12};
    EXPECT_EQ(1u, print_slowly(points[2], passing));
    EXPECT_EQ(0u, print_slowly(points[2], other));
    EXPECT_EQ(0u, print_slowly(points[1], nullptr));
    EXPECT_EQ(Lines{"comp src/other.cpp:321 b_function: failed: 0x16 [rc=0x16]"}, printed);
}

TEST_F(EventDebugFacility, ASuppressedSiteThatPassesTheSlowFilterMatchesWithoutAPrint)
{
    vlc::EventDebug::instance().on_slow_filter(
        [](const ed_debug_point &, const uint64_t *) { return true; });
    points[1].flags = ED_SLOW | ED_SUPPRESS_PRINT;
    EXPECT_EQ(1u, print_slowly(points[1], nullptr));
    points[1].flags = ED_SLOW | ED_SUPPRESS_ALL;
    EXPECT_EQ(1u, print_slowly(points[1], nullptr));
    EXPECT_EQ(Lines{}, printed);
}

// ---- string arguments --------------------------------------------------------------------------

class EventTextsOfATrace : public EventDebugFacility {
protected:
    EventTextsOfATrace()
    {
        points[1].format = "read %s after %d of %s";
        points[1].arg_count = 3;
        points[1].arg_names = names.data();
        ed_init(&component, 0, 0, 0, 0);
    }
    void record(const std::string &first, uint64_t number, const std::string &second)
    {
        _ltrace(buffer(0), 0, first.c_str(), number, second.c_str());
    }
    std::array<const char *, 3> names{"what", "n", "whose"};
};

TEST_F(EventTextsOfATrace, AreKeptWhenTheStringsAreGone)
{
    {
        std::string answer = "an answer";
        std::string queue = "the queue";
        record(answer, 7, queue);
        answer.assign(answer.size(), '?');
        queue.assign(queue.size(), '?');
    }
    const vlc::TraceEvent event = events(0).at(0);
    EXPECT_EQ((Lines{"an answer", "", "the queue"}), event.texts);
    EXPECT_EQ(0b101u, event.strings);
    const std::string line = vlc::trace_line(component, event);
    EXPECT_NE(std::string::npos, line.find("read an answer after 7 of the queue "
                                           "[what=\"an answer\" n=7 whose=\"the queue\"]"))
        << line;
}

TEST_F(EventTextsOfATrace, AreCutWhereTheyDoNotFitAndTheNextStillHasItsEnd)
{
    record(std::string(300, 'a'), 7, "b");
    EXPECT_EQ((Lines{std::string(254, 'a'), "", ""}), events(0).at(0).texts);
}

TEST_F(EventTextsOfATrace, ANullStringIsSaidAsPrintfSaysIt)
{
    _ltrace(buffer(0), 0, uint64_t{0}, uint64_t{7}, "queue");
    EXPECT_EQ("(null)", events(0).at(0).texts.at(0));
}

TEST_F(EventTextsOfATrace, ATextWithAPrecisionNeedsNoEnd)
{
    points[1].format = "read %.3s after %d of %s";
    const char three[3] = {'o', 'n', 'e'};
    _ltrace(buffer(0), 0, three, uint64_t{7}, "queue");
    EXPECT_EQ("one", events(0).at(0).texts.at(0));
}

TEST_F(EventTextsOfATrace, AnEventOfNoKnownSiteHasALineToo)
{
    _ltrace(buffer(0), 9, uint64_t{0});
    EXPECT_EQ("event 9 of no known site", vlc::trace_line(component, events(0).at(0)));
}

} // namespace
