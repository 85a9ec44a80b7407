// What a message hands to the event-debug and trace facilities, and when.

#include <cstring>
#include <string>
#include <vector>

#include "card_fixture.h"
#include "debug_points.h"

namespace {

using Words = std::vector<uint64_t>;

// One call of ed_print_debug or ed_slow_debugs with the packed words as they were at its time.
struct DebugCall {
    Words args;
    Words packed;
};

class LogDebug : public test::CardTest {
protected:
    LogDebug()
    {
        attach_context();
        set_context();
        initialize_shadow_db();
        services.record_debug_services(true);
        services.script("ed_print_debug",
                        [this](const vlc::ServiceCall &call) { return take(prints, call, 2); });
        services.script("ed_slow_debugs", [this](const vlc::ServiceCall &call) {
            memcpy(reinterpret_cast<void *>(call.args[2]), &slow_answer, sizeof slow_answer);
            return take(slow_debugs, call, 3);
        });
        services.forget();
    }

    std::optional<uint64_t> take(std::vector<DebugCall> &calls, const vlc::ServiceCall &call,
                                 size_t packed)
    {
        const auto *point = reinterpret_cast<const ed_debug_point *>(call.args[0]);
        const auto *words = reinterpret_cast<const uint64_t *>(call.args[packed]);
        calls.push_back({{call.args.begin(), call.args.begin() + call.arg_count},
                         {words, words + point->arg_count}});
        return 0;
    }

    // A site without arguments: a line for the two ready flags.
    void speak() { inline_svc_log_prm_state(root); }
    static ed_debug_point &site() { return test::debug_point(" PRM NOT ready and conn down \n"); }

    // A site with two, an unsigned and a signed one.
    void fail_to_allocate(uint32_t code, int32_t size)
    {
        services.force("shmwin_malloc", code, 1, 1);
        EXPECT_EQ(inline_svc_shared_mem_alloc(size), nullptr);
    }
    static ed_debug_point &allocation_site()
    {
        return test::debug_point("shared memory alloc failed %x %d");
    }

    size_t traces() const { return services.count("_ltrace"); }
    // Words behind the event word in the last trace event.
    Words traced() const
    {
        const Words args = services.calls_of("_ltrace").back().args;
        return {args.begin() + 2, args.end()};
    }
    uint64_t event_word() const { return services.calls_of("_ltrace").back().args.at(1); }
    static uint64_t word(const void *address) { return reinterpret_cast<uint64_t>(address); }

    std::vector<DebugCall> prints;
    std::vector<DebugCall> slow_debugs;
    uint32_t slow_answer = 0; // what the facility stores in *matched
};

// ---- selection, row by row ---------------------------------------------------------------------

struct Row {
    const char *name;
    uint16_t flags;
    uint8_t filter_byte;
    bool own_line; // the line id is the site's own
    bool printed;
    bool traced;
};

void PrintTo(const Row &row, std::ostream *out)
{
    *out << row.name;
}

constexpr Row rows[] = {
    {"BuiltInFlagsTraceWithoutAPrint", 0x0430, 0, true, false, true},
    {"NoFlagsTraceWithoutAPrint", 0, 0, true, false, true},
    {"PrintFlagPrintsAndTraces", 0x40, 0, true, true, true},
    {"PrintFlagWithoutAFilterIgnoresTheLine", 0x40, 0, false, true, true},
    {"OtherFlagBitsChangeNothing", 0xFC39 | 0x40, 0, true, true, true},
    {"LineFilterOnItsOwnLinePrints", 0x240, 0, true, true, true},
    {"LineFilterOnAnotherLineOnlyTraces", 0x240, 0, false, false, true},
    {"LineFilterOnAnotherLineWithSuppressAllDoesNeither", 0x244, 0, false, false, false},
    {"LineFilterOnItsOwnLineWithSuppressAllOnlyTraces", 0x244, 0, true, false, true},
    {"InvertedLineFilterOnAnotherLinePrints", 0x340, 0, false, true, true},
    {"InvertedLineFilterOnItsOwnLineOnlyTraces", 0x340, 0, true, false, true},
    {"InvertedLineFilterOnItsOwnLineWithSuppressAllDoesNeither", 0x344, 0, true, false, false},
    {"InvertedLineFilterOnAnotherLineWithSuppressAllOnlyTraces", 0x344, 0, false, false, true},
    {"InvertWithoutAFilterIsNotReached", 0x140, 0, true, true, true},
    {"FilterByteWithoutLineFilterPrints", 0x40, 1, false, true, true},
    {"FilterByteOf255WithoutLineFilterPrints", 0x40, 0xFF, false, true, true},
    {"FilterByteWithInvertOnlyTraces", 0x140, 1, true, false, true},
    {"FilterByteWithInvertOnAnotherLineOnlyTraces", 0x140, 1, false, false, true},
    {"FilterByteWithInvertAndSuppressAllDoesNeither", 0x144, 1, true, false, false},
    {"FilterByteAndLineFilterOnItsOwnLinePrints", 0x240, 1, true, true, true},
    {"FilterByteAndLineFilterOnAnotherLineOnlyTraces", 0x240, 1, false, false, true},
    {"FilterByteAndInvertedLineFilterOnAnotherLinePrints", 0x340, 1, false, true, true},
    {"SuppressPrintOnlyTraces", 0x42, 0, true, false, true},
    {"SuppressPrintOnAnotherLineOnlyTraces", 0x242, 0, false, false, true},
    {"SuppressAllOnAMatchOnlyTraces", 0x44, 0, true, false, true},
    {"BothSuppressFlagsOnAMatchOnlyTrace", 0x46, 0, true, false, true},
    {"BothSuppressFlagsOnAnotherLineDoNeither", 0x246, 0, false, false, false},
    {"SuppressPrintAloneTraces", 0x02, 0, true, false, true},
    {"SuppressAllAloneDoesNeither", 0x04, 0, true, false, false},
    {"LineFilterAloneTraces", 0x200, 0, false, false, true},
    {"SuppressAllWithAFilterByteAloneDoesNeither", 0x104, 1, true, false, false},
};

class LogDebugSelection : public LogDebug, public testing::WithParamInterface<Row> {};

TEST_P(LogDebugSelection, Row)
{
    const Row &row = GetParam();
    const uint32_t own_line = site().line_filter;
    site().flags = row.flags;
    site().line_filter =
        uint32_t{row.filter_byte} << 24 | (row.own_line ? own_line : own_line ^ 0x800000);
    speak();
    EXPECT_EQ(prints.size(), row.printed ? 1u : 0u);
    EXPECT_EQ(traces(), row.traced ? 1u : 0u);
    EXPECT_TRUE(slow_debugs.empty());
    EXPECT_EQ(log_count(" PRM NOT ready and conn down \n"), 1u) << "the file gets it in any case";
}

INSTANTIATE_TEST_SUITE_P(Rows, LogDebugSelection, testing::ValuesIn(rows),
                         [](const auto &row) { return std::string(row.param.name); });

struct Outcome {
    bool printed;
    bool slow;
    bool traced;
    bool operator==(const Outcome &) const = default;
};

// The rule once more, in words of its own.
Outcome expected_outcome(uint32_t flags, uint32_t filter_byte, bool own_line, bool slow_matches)
{
    const auto has = [flags](uint32_t flag) { return (flags & flag) != 0; };
    bool matched = false;
    Outcome outcome = {};
    if (has(0x40)) {
        const bool filtered = filter_byte != 0 || has(0x200);
        const bool kept = !has(0x200) || own_line;
        matched = !filtered || (has(0x100) ? !kept : kept);
        outcome.printed = matched && !has(0x02) && !has(0x04);
    } else if (has(0x80)) {
        outcome.slow = true;
        matched = slow_matches;
    }
    outcome.traced = !has(0x04) || matched;
    return outcome;
}

TEST_F(LogDebug, EveryCombinationOfFlagsFilterAndLineSelectsAsTheRuleSays)
{
    const uint32_t own_line = site().line_filter;
    size_t tried = 0;
    for (uint32_t bits = 0; bits < 0x800; ++bits) {
        for (const uint32_t filter_byte : {0u, 1u, 0x80u}) {
            for (const uint32_t choice : {0u, 1u, 2u, 3u}) {
                const bool own = (choice & 1) != 0;
                slow_answer = choice >> 1;
                site().flags = static_cast<uint16_t>(bits | (bits & 1 ? 0xF800 : 0));
                site().line_filter = filter_byte << 24 | (own ? own_line : own_line + 1);
                prints.clear();
                slow_debugs.clear();
                services.forget();
                speak();
                const Outcome outcome = {prints.size() == 1, slow_debugs.size() == 1,
                                         traces() == 1};
                ASSERT_EQ(outcome, expected_outcome(bits, filter_byte, own, slow_answer != 0))
                    << std::hex << "flags " << bits << " filter " << filter_byte << " own line "
                    << own << " facility " << slow_answer;
                ++tried;
            }
        }
    }
    EXPECT_EQ(tried, 0x800u * 3 * 4);
}

TEST_F(LogDebug, TheLineIdIsComparedInAllOfIts24Bits)
{
    const uint32_t own_line = site().line_filter;
    for (uint32_t bit = 0; bit < 24; ++bit) {
        site().flags = 0x240;
        site().line_filter = own_line ^ (1u << bit);
        speak();
        EXPECT_TRUE(prints.empty()) << "bit " << bit;
    }
}

TEST_F(LogDebug, FlagsOfOneSiteLeaveTheOthersAlone)
{
    site().flags = 0x40;
    fail_to_allocate(12, 1);
    EXPECT_TRUE(prints.empty());
    speak();
    EXPECT_EQ(prints.size(), 1u);
}

// ---- the slow facility -------------------------------------------------------------------------

TEST_F(LogDebug, TheSlowFacilityIsAskedWhenThePrintFlagIsClear)
{
    site().flags = 0x80;
    speak();
    EXPECT_EQ(slow_debugs.size(), 1u);
    EXPECT_TRUE(prints.empty());
    EXPECT_EQ(traces(), 1u);
}

TEST_F(LogDebug, TheSlowFacilityIsNotAskedBesideThePrintFlag)
{
    site().flags = 0xC0;
    speak();
    EXPECT_TRUE(slow_debugs.empty());
    EXPECT_EQ(prints.size(), 1u);
}

TEST_F(LogDebug, TheSlowFacilityIsNotAskedWhenThePrintFlagMatchesNothing)
{
    site().flags = 0x2C0;
    site().line_filter ^= 1;
    speak();
    EXPECT_TRUE(slow_debugs.empty());
    EXPECT_TRUE(prints.empty());
}

TEST_F(LogDebug, TheSlowFacilityIsAskedAlsoWithSuppressFlags)
{
    for (const uint16_t flags : {uint16_t{0x82}, uint16_t{0x84}, uint16_t{0x86}}) {
        site().flags = flags;
        speak();
    }
    EXPECT_EQ(slow_debugs.size(), 3u);
}

TEST_F(LogDebug, SuppressAllDropsTheTraceEventWhenTheSlowFacilityMatchesNothing)
{
    site().flags = 0x84;
    slow_answer = 0;
    speak();
    EXPECT_EQ(traces(), 0u);
}

TEST_F(LogDebug, SuppressAllKeepsTheTraceEventWhenTheSlowFacilityMatches)
{
    site().flags = 0x84;
    slow_answer = 1;
    speak();
    EXPECT_EQ(traces(), 1u);
}

TEST_F(LogDebug, MatchedIsFalseWhenTheSlowFacilityGetsIt)
{
    std::vector<uint32_t> values;
    services.script("ed_slow_debugs", [&](const vlc::ServiceCall &call) {
        uint32_t matched = 77;
        memcpy(&matched, reinterpret_cast<const void *>(call.args[2]), sizeof matched);
        values.push_back(matched);
        const uint32_t yes = 1;
        memcpy(reinterpret_cast<void *>(call.args[2]), &yes, sizeof yes);
        return std::optional<uint64_t>(0);
    });
    site().flags = 0x84;
    speak();
    speak();
    EXPECT_EQ(values, (std::vector<uint32_t>{0, 0}));
}

// ---- arguments ---------------------------------------------------------------------------------

TEST_F(LogDebug, EdPrintDebugGetsPointComponentWordsLineAndFormat)
{
    ed_debug_point &point = allocation_site();
    point.flags = 0x40;
    fail_to_allocate(12, 100);
    ASSERT_EQ(prints.size(), 1u);
    const Words &args = prints[0].args;
    ASSERT_EQ(args.size(), 8u);
    EXPECT_EQ(args[0], word(&point));
    EXPECT_EQ(args[1], word(test::library_component()));
    EXPECT_EQ(prints[0].packed, (Words{12, 100}));
    EXPECT_EQ(args[3], 0u);
    EXPECT_EQ(args[4], point.line_filter);
    EXPECT_EQ(args[5], 0u);
    EXPECT_EQ(args[6], word(point.format));
    EXPECT_STREQ(reinterpret_cast<const char *>(args[6]), "shared memory alloc failed %x %d");
    EXPECT_EQ(args[7], 0u);
}

TEST_F(LogDebug, EdSlowDebugsGetsPointComponentMatchedWordsLineAndFormat)
{
    ed_debug_point &point = allocation_site();
    point.flags = 0x80;
    fail_to_allocate(12, 100);
    ASSERT_EQ(slow_debugs.size(), 1u);
    const Words &args = slow_debugs[0].args;
    ASSERT_EQ(args.size(), 9u);
    EXPECT_EQ(args[0], word(&point));
    EXPECT_EQ(args[1], word(test::library_component()));
    EXPECT_NE(args[2], 0u);
    EXPECT_EQ(slow_debugs[0].packed, (Words{12, 100}));
    EXPECT_EQ(args[4], 0u);
    EXPECT_EQ(args[5], point.line_filter);
    EXPECT_EQ(args[6], 0u);
    EXPECT_EQ(args[7], word(point.format));
    EXPECT_EQ(args[8], 0u);
}

TEST_F(LogDebug, TheLineHandedOverIsTheSitesOwnWhateverTheFilterSays)
{
    const uint32_t own_line = site().line_filter;
    site().flags = 0x340;
    site().line_filter = 0x123456;
    speak();
    ASSERT_EQ(prints.size(), 1u);
    EXPECT_EQ(prints[0].args[4], own_line);
}

TEST_F(LogDebug, UnsignedArgumentsAreWidenedWithZeroesAndSignedOnesWithTheirSign)
{
    allocation_site().flags = 0x40;
    fail_to_allocate(0x80000001, -5);
    EXPECT_EQ(prints.at(0).packed, (Words{0x80000001, 0xFFFFFFFFFFFFFFFB}));
    EXPECT_EQ(traced(), (Words{0x80000001, 0xFFFFFFFFFFFFFFFB}));
}

TEST_F(LogDebug, SixteenBitArgumentsAreWidenedByTheirOwnSignedness)
{
    main_entry entry = {};
    entry.uidb_index = 0xFFFE;
    test::debug_point("************main entry uidb_index %d*********\n").flags = 0x40;
    inline_svc_shadow_db_print_main_entry(&entry);
    EXPECT_EQ(prints.at(0).packed, Words{0xFFFE});
}

TEST_F(LogDebug, AStringIsPassedByAddress)
{
    static const char text[] = "no such thing";
    services.force("cerr_strerror", word(text));
    context.num_nps = 1;
    root->stats_state = 0;
    services.force("shmwin_malloc", 12);
    test::debug_point("counter alloc failed: chip:%d,%s").flags = 0x40;
    EXPECT_EQ(inline_svc_stats_init(), 22u);
    EXPECT_EQ(prints.at(0).packed, (Words{0, word(text)}));
    EXPECT_EQ(traced(), (Words{0, word(text)}));
}

TEST_F(LogDebug, SixArgumentsArePassedInTheOrderOfTheMessage)
{
    static const char text[] = "too bad";
    services.force("cerr_strerror", word(text));
    services.script("prm_srh_async_resp_data", [calls = 0](const vlc::ServiceCall &call) mutable {
        auto *response = reinterpret_cast<prm_async_response *>(call.args[1]);
        *response = {};
        response->np = 1;
        response->flags = 2;
        response->status = 0xFFFFFFFF;
        response->refnum = 4;
        response->key_size = 5;
        response->result_size = 6;
        return std::optional<uint64_t>(calls++ == 0 ? 0 : PRM_RESPONSE_QUEUE_EMPTY);
    });
    ed_debug_point &point = test::debug_point("PRM async call failed(v4): np %d flags 0x%x refnum "
                                              "0x%x key_size %d res_size %d Err:%s");
    ASSERT_EQ(point.arg_count, 6u);
    point.flags = 0x40;
    inline_svc_prm_async_resp_handler();
    EXPECT_EQ(prints.at(0).packed, (Words{1, 2, 4, 5, 6, word(text)}));
}

TEST_F(LogDebug, ASiteWithoutArgumentsTracesASingleZero)
{
    speak();
    EXPECT_EQ(traced(), Words{0});
}

// ---- the trace event ---------------------------------------------------------------------------

TEST_F(LogDebug, OrdinaryMessagesGoToTheEventBuffer)
{
    speak();
    EXPECT_EQ(services.calls_of("_ltrace").back().args.at(0),
              word(test::library_component()->buffer_handles[0]));
}

TEST_F(LogDebug, FailuresGoToTheErrorBuffer)
{
    fail_to_allocate(12, 1);
    EXPECT_EQ(services.calls_of("_ltrace").back().args.at(0),
              word(test::library_component()->buffer_handles[1]));
    EXPECT_NE(test::library_component()->buffer_handles[0],
              test::library_component()->buffer_handles[1]);
}

TEST_F(LogDebug, TheBufferFollowsTheSitesTraceBufferIndexAndNotItsLevel)
{
    site().trace_buffer = 1;
    speak();
    EXPECT_EQ(services.calls_of("_ltrace").back().args.at(0),
              word(test::library_component()->buffer_handles[1]));
}

TEST_F(LogDebug, AClosedBufferIsHandedOverAsNull)
{
    test::library_component()->buffer_handles[0] = nullptr;
    speak();
    EXPECT_EQ(services.calls_of("_ltrace").back().args.at(0), 0u);
}

TEST_F(LogDebug, TheEventWordHoldsTheNumberAndTheFixedBits)
{
    speak();
    EXPECT_EQ(event_word(), UINT64_C(0x780000000) | site().number);
    fail_to_allocate(12, 1);
    EXPECT_EQ(event_word(), UINT64_C(0x780000000) | allocation_site().number);
    EXPECT_NE(site().number, allocation_site().number);
}

TEST_F(LogDebug, TheEventWordHoldsTheLowFiveBitsOfTheTraceWord)
{
    for (const uint32_t trace_word : {0x1Fu, 0x15u, 0xFFFFFFE0u, 0xFFFFFFEAu}) {
        test::library_component()->trace_word = trace_word;
        speak();
        EXPECT_EQ(event_word(),
                  UINT64_C(0x780000000) | uint64_t{trace_word & 0x1F} << 23 | site().number)
            << std::hex << trace_word;
    }
}

TEST_F(LogDebug, TheCardsTraceBuffersHoldWhatWasSent)
{
    speak();
    fail_to_allocate(0x22, 9);
    services.stop_forcing();
    const auto events =
        vlc::EventDebug::instance().events(test::library_component(), ED_ERROR_BUFFER);
    ASSERT_FALSE(events.empty());
    EXPECT_EQ(events.back().point, &allocation_site());
    EXPECT_EQ(events.back().args, (Words{0x22, 9}));
}

TEST_F(LogDebug, PrintComesBeforeTheTraceEventAndBothBeforeTheNextMessage)
{
    site().flags = 0x40;
    speak();
    speak();
    EXPECT_EQ(services.names(),
              (std::vector<std::string>{"ed_print_debug", "_ltrace", "ed_print_debug", "_ltrace"}));
}

// ---- before the library is registered ----------------------------------------------------------

TEST(LogDebugUnregistered, MessagesBeforeRegistrationTraceIntoNoBufferUnderTheirOwnNumber)
{
    test::ServiceRecorder services;
    services.record_debug_services(true);
    inline_svc_global_cntx context = {};
    inline_svc_set_global_cntx(&context);
    const auto calls = services.calls_of("_ltrace");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].args.at(0), 0u);

    shadow_db root = {};
    root.initialized = 1;
    context.shadow_db = &root;
    inline_svc_set_global_cntx(&context);
    ASSERT_EQ(inline_svc_shadow_db_initialized(0, 0, 0, 0), 0u);
    EXPECT_EQ(calls[0].args.at(1),
              UINT64_C(0x780000000) | test::debug_point(" set the global context \n").number);
    pgbl_ptr = nullptr;
    pshadow_db = nullptr;
}

} // namespace
