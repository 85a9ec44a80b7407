// The log sites of the library, as the component record lists them for the event-debug facility.

#include <algorithm>
#include <array>
#include <cstring>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <link.h>

#include "baseline.h"
#include "card_fixture.h"
#include "debug_points.h"

namespace {

using Names = std::vector<std::string>;

class DebugPoints : public test::CardTest {
protected:
    DebugPoints()
    {
        attach_context();
        set_context();
        initialize_shadow_db();
    }

    // In the order of their numbers.
    static std::vector<const ed_debug_point *> by_number()
    {
        std::vector<const ed_debug_point *> points;
        for (const ed_debug_point &point : test::debug_points())
            points.push_back(&point);
        std::sort(points.begin(), points.end(),
                  [](auto *left, auto *right) { return left->number < right->number; });
        return points;
    }
};

// How many arguments a printf format takes.
size_t conversions(const std::string &format)
{
    size_t count = 0;
    for (size_t i = 0; i + 1 < format.size(); ++i) {
        if (format[i] != '%')
            continue;
        count += format[i + 1] != '%';
        ++i;
    }
    return count;
}

std::string one_line(const std::string &text)
{
    std::string line;
    for (const char character : text)
        line += character == '\n' ? std::string("\\n") : std::string(1, character);
    return line;
}

// ---- the array ---------------------------------------------------------------------------------

TEST_F(DebugPoints, AllSitesLieInOneArrayOf56ByteRecords)
{
    const auto points = test::debug_points();
    ASSERT_GT(points.size(), 100u);
    static_assert(sizeof(ed_debug_point) == 56);
    for (const ed_debug_point &point : points) {
        EXPECT_NE(point.format, nullptr);
        EXPECT_GT(point.line_filter, 0u);
        EXPECT_EQ(point.reserved, 0u);
    }
}

TEST_F(DebugPoints, NumbersAreUniqueAndDenseFromZero)
{
    std::set<uint32_t> numbers;
    for (const ed_debug_point &point : test::debug_points())
        numbers.insert(point.number);
    EXPECT_EQ(numbers.size(), test::debug_points().size());
    EXPECT_EQ(*numbers.begin(), 0u);
    EXPECT_EQ(*numbers.rbegin(), test::debug_points().size() - 1);
}

TEST_F(DebugPoints, NumbersFollowTheSourceByFileAndLine)
{
    const auto points = by_number();
    for (size_t i = 1; i < points.size(); ++i) {
        EXPECT_LT(std::make_pair(std::string(points[i - 1]->file), points[i - 1]->line_filter),
                  std::make_pair(std::string(points[i]->file), points[i]->line_filter))
            << "numbers " << i - 1 << " and " << i;
    }
}

TEST_F(DebugPoints, NoTwoSitesShareALine)
{
    std::map<std::pair<std::string, uint32_t>, int> sites;
    for (const ed_debug_point &point : test::debug_points())
        EXPECT_EQ(++sites[std::make_pair(std::string(point.file), point.line_filter)], 1)
            << point.file << ":" << point.line_filter;
}

TEST_F(DebugPoints, BuiltInFlagsAre0430)
{
    for (const ed_debug_point &point : test::debug_points())
        EXPECT_EQ(point.flags, 0x0430) << point.format;
}

TEST_F(DebugPoints, TheLevelIs0Or1AndNamesTheTraceBuffer)
{
    std::array<size_t, 2> sites = {};
    for (const ed_debug_point &point : test::debug_points()) {
        ASSERT_LE(point.level, 1) << point.format;
        EXPECT_EQ(point.trace_buffer, point.level) << point.format;
        ++sites[point.level];
    }
    EXPECT_GT(sites[0], 40u);
    EXPECT_GT(sites[1], 40u);
}

TEST_F(DebugPoints, TheFilterIsBuiltWithTheSitesOwnLineAndAFilterByteOfZero)
{
    for (const ed_debug_point &point : test::debug_points()) {
        EXPECT_EQ(point.line_filter >> 24, 0u) << point.format;
        EXPECT_LT(point.line_filter, 900u) << point.format;
    }
}

std::vector<std::string> source_lines(const std::string &file)
{
    std::vector<std::string> lines;
    std::ifstream source(PROJECT_SOURCE_DIR "/lc/inline-service/src/" + file);
    for (std::string line; std::getline(source, line);)
        lines.push_back(line);
    return lines;
}

// The line of the macro's name for any line of a call; compilers differ in which one they count.
size_t line_of_call(const std::vector<std::string> &lines, size_t line)
{
    const auto calls = [](const std::string &text) {
        return text.find("inline_svc_trace") != text.npos || text.find("ROW_") != text.npos ||
               text.find("INLINE_SVC_SITE") != text.npos;
    };
    while (line > 0 && !calls(lines.at(line - 1)))
        --line;
    return line;
}

TEST_F(DebugPoints, TheLineIsThatOfTheSiteInTheSource)
{
    std::map<std::string, std::vector<std::string>> sources;
    std::set<std::pair<std::string, size_t>> calls;
    for (const ed_debug_point &point : test::debug_points()) {
        const std::string file = test::file_name(point);
        if (sources.count(file) == 0)
            sources[file] = source_lines(file);
        ASSERT_LE(point.line_filter, sources[file].size()) << file;
        const size_t call = line_of_call(sources[file], point.line_filter);
        EXPECT_LE(point.line_filter - call, 4u) << file << ":" << point.line_filter;
        EXPECT_TRUE(calls.emplace(file, call).second) << file << ":" << call << " holds two sites";
    }
}

TEST_F(DebugPoints, FilesAreNamedUnderTheirPlatformDirectory)
{
    const std::string directory = "pellam/lc/inline-service/src/";
    for (const ed_debug_point &point : test::debug_points()) {
        const std::string file = point.file;
        EXPECT_EQ(file.substr(0, directory.size()), directory);
        EXPECT_EQ(file.substr(directory.size()).find('/'), std::string::npos);
        EXPECT_EQ(file.substr(file.size() - 4), ".cpp");
    }
}

TEST_F(DebugPoints, ThereAreAsManyArgumentNamesAsTheFormatTakesAndNoMoreThanSix)
{
    for (const ed_debug_point &point : test::debug_points()) {
        EXPECT_EQ(point.arg_count, conversions(point.format)) << point.format;
        EXPECT_LE(point.arg_count, 6u) << point.format;
        for (const std::string &name : test::argument_names(point))
            EXPECT_NE(name, "") << point.format;
    }
}

TEST_F(DebugPoints, NumbersStayWhenFlagsAndFiltersChange)
{
    std::vector<uint32_t> before;
    for (ed_debug_point &point : test::debug_points()) {
        before.push_back(point.number);
        point.flags = 0x40;
        point.line_filter = 0xFF000001;
    }
    vlc::EventDebug::instance().on_print([](const std::string &) {});
    test::Batch batch(1);
    connect();
    batch.create(1, 0, "key", "result");
    inline_svc_shadow_db_insert_action_array(batch.get());
    ASSERT_EQ(inline_svc_shadow_db_initialized(0, 0, 0, 0), 0u);
    std::vector<uint32_t> after;
    for (const ed_debug_point &point : test::debug_points())
        after.push_back(point.number);
    EXPECT_EQ(after, before);
    vlc::EventDebug::instance().on_print({});
}

// ---- names of arguments ------------------------------------------------------------------------

struct Named {
    const char *format;
    Names names;
};

TEST_F(DebugPoints, ArgumentsOfAMainEntryGoUnderTheirSourceExpressions)
{
    const Named expected[] = {
        {"************main entry uidb_index %d*********\n", {"main_entry->uidb_index"}},
        {"****Entry AppID %d\n", {"main_entry->app_ID"}},
        {"****Entry Version %x\n", {"main_entry->entry_version"}},
        {"****Entry Timestamp %x\n", {"main_entry->timestamp"}},
        {"****Entry total Number of elemenets %d\n", {"total_elements"}},
        {" DEL Main entry uidb_index %d", {"main->uidb_index"}},
        {" CREATE: Main entry is found for uidb_index %d", {"main->uidb_index"}},
    };
    for (const Named &site : expected)
        EXPECT_EQ(test::argument_names(test::debug_point(site.format)), site.names) << site.format;
}

TEST_F(DebugPoints, ArgumentsOfANodeGoUnderTheirSourceExpressions)
{
    const Named expected[] = {
        {"*******key_len %d\n", {"node->app_node.key_len"}},
        {"*******result_len %d\n", {"node->app_node.result_len"}},
        {"*******table_type %d\n", {"node->app_node.table_type"}},
        {"*******action %d\n", {"node->app_node.action"}},
        {"*******entry_id %d\n", {"node->app_node.entry_id"}},
    };
    for (const Named &site : expected)
        EXPECT_EQ(test::argument_names(test::debug_point(site.format)), site.names) << site.format;
}

TEST_F(DebugPoints, SeveralArgumentsAreNamedInTheirOrder)
{
    EXPECT_EQ(test::argument_names(test::debug_point("shared memory alloc failed %x %d")),
              (Names{"rc", "size"}));
    const ed_debug_point &six = test::debug_point("PRM async call failed(v4): np %d flags 0x%x "
                                                  "refnum 0x%x key_size %d res_size %d Err:%s");
    EXPECT_EQ(six.arg_count, 6u);
    EXPECT_EQ(test::argument_names(six),
              (Names{"np", "flags", "refnum", "key_size", "result_size", "error"}));
}

TEST_F(DebugPoints, ASiteWithoutArgumentsHasNoNames)
{
    EXPECT_EQ(test::debug_point("shared memory reset").arg_count, 0u);
}

TEST_F(DebugPoints, LinesOfATableUpdateGoUnderTheExportedFunctionsName)
{
    EXPECT_STREQ(test::debug_point("SVC CONF add enter: \n").function,
                 "inline_svc_prm_service_table_update");
    EXPECT_STREQ(test::debug_point("SVC EXT_DB add enter").function,
                 "inline_svc_prm_ext_table_update");
}

// ---- the same in every build -------------------------------------------------------------------

TEST_F(DebugPoints, TheListOfSitesIsTheOneThatWasAgreedOn)
{
    std::vector<std::string> sites;
    for (const ed_debug_point *point : by_number())
        sites.push_back(std::to_string(point->number) + "\t" + test::file_name(*point) + "\t" +
                        point->function + "\t" + (point->level == 0 ? "event" : "error") + "\t" +
                        one_line(point->format));
    test::expect_baseline("log_sites.txt", sites);
}

// ---- the component record ----------------------------------------------------------------------

struct Registration {
    ed_component record; // as it was when it was handed over
    std::vector<uint64_t> args;
};

class Component : public test::CardTest {
protected:
    Component()
    {
        attach_context();
        set_context();
        services.script("ed_init", [this](const vlc::ServiceCall &call) {
            registrations.push_back({*reinterpret_cast<const ed_component *>(call.args[0]),
                                     {call.args.begin(), call.args.begin() + call.arg_count}});
            return result;
        });
    }
    ~Component() override { services.stop_forcing(); }

    std::vector<Registration> registrations;
    std::optional<uint64_t> result;
};

TEST_F(Component, ItIsHandedOverOnceWithTheFourWordsOfTheInitialisation)
{
    ASSERT_EQ(inline_svc_shadow_db_initialized(1, UINT64_C(0x2222222222222222), 3,
                                               UINT64_C(0xFFFFFFFFFFFFFFFF)),
              0u);
    ASSERT_EQ(registrations.size(), 1u);
    const std::vector<uint64_t> &args = registrations[0].args;
    ASSERT_EQ(args.size(), 5u);
    EXPECT_EQ(std::vector<uint64_t>(args.begin() + 1, args.end()),
              (std::vector<uint64_t>{1, 0x2222222222222222, 3, 0xFFFFFFFFFFFFFFFF}));
}

TEST_F(Component, ItHoldsNamesBuffersPlaceholdersAndThePointsWhenItIsHandedOver)
{
    ASSERT_EQ(inline_svc_shadow_db_initialized(0, 0, 0, 0), 0u);
    const ed_component &record = registrations.at(0).record;
    EXPECT_STREQ(record.name, "libinline_service_infra");
    const char short_name[16] = {'i', 'n', 'l', 'c'};
    EXPECT_EQ(memcmp(record.short_name, short_name, sizeof short_name), 0);
    EXPECT_STREQ(record.buffers[0].name, "event");
    EXPECT_EQ(record.buffers[0].entries, 1000u);
    EXPECT_STREQ(record.buffers[1].name, "error");
    EXPECT_EQ(record.buffers[1].entries, 1000u);
    EXPECT_EQ(record.buffer_handles[0], nullptr);
    EXPECT_EQ(record.buffer_handles[1], nullptr);
    EXPECT_EQ(record.trace_word, 0u);
    EXPECT_EQ(record.dummy, ed_dummy_libinline_service_infra);
    EXPECT_EQ(record.perf_dummy, ed_perf_dummy_libinline_service_infra);
    EXPECT_NE(record.debug_points, nullptr);
    EXPECT_GT(record.debug_point_count, 100u);
}

TEST_F(Component, ItsBytesLieWhereTheFacilityReadsThem)
{
    ASSERT_EQ(inline_svc_shadow_db_initialized(0, 0, 0, 0), 0u);
    const ed_component &record = registrations.at(0).record;
    static_assert(sizeof record == 120);
    const auto word_at = [&record](size_t offset) {
        uint64_t word = 0;
        memcpy(&word, reinterpret_cast<const uint8_t *>(&record) + offset, sizeof word);
        return word;
    };
    EXPECT_STREQ(reinterpret_cast<const char *>(word_at(0)), "libinline_service_infra");
    EXPECT_EQ(word_at(8), UINT64_C(0x636C6E69)); // "inlc"
    EXPECT_EQ(word_at(16), 0u);
    EXPECT_STREQ(reinterpret_cast<const char *>(word_at(24)), "event");
    EXPECT_EQ(word_at(32), 1000u);
    EXPECT_STREQ(reinterpret_cast<const char *>(word_at(40)), "error");
    EXPECT_EQ(word_at(48), 1000u);
    EXPECT_EQ(word_at(56), 0u);
    EXPECT_EQ(word_at(64), 0u);
    EXPECT_EQ(word_at(72), 0u);
    EXPECT_EQ(word_at(80), reinterpret_cast<uint64_t>(ed_dummy_libinline_service_infra));
    EXPECT_EQ(word_at(88), reinterpret_cast<uint64_t>(ed_perf_dummy_libinline_service_infra));
    EXPECT_EQ(word_at(96), reinterpret_cast<uint64_t>(record.debug_points));
    EXPECT_EQ(word_at(104), record.debug_point_count);
    EXPECT_EQ(word_at(112), 0u);
}

TEST_F(Component, ASecondInitialisationRegistersTheSameRecordAgain)
{
    ASSERT_EQ(inline_svc_shadow_db_initialized(1, 2, 3, 4), 0u);
    root->initialized = 1;
    ASSERT_EQ(inline_svc_shadow_db_initialized(5, 6, 7, 8), 0u);
    ASSERT_EQ(registrations.size(), 2u);
    EXPECT_EQ(registrations[1].args[0], registrations[0].args[0]);
    EXPECT_EQ(std::vector<uint64_t>(registrations[1].args.begin() + 1, registrations[1].args.end()),
              (std::vector<uint64_t>{5, 6, 7, 8}));
    EXPECT_EQ(vlc::EventDebug::instance().components().size(), 1u);
}

TEST_F(Component, TheFacilitysResultIsNotLookedAt)
{
    result = 22;
    EXPECT_EQ(inline_svc_shadow_db_initialized(0, 0, 0, 0), 0u);
    EXPECT_NE(root->main_table, nullptr);
}

TEST_F(Component, ItIsRegisteredBeforeTheMainTableIsMade)
{
    services.forget();
    ASSERT_EQ(inline_svc_shadow_db_initialized(0, 0, 0, 0), 0u);
    EXPECT_EQ(services.names(), (Names{"ed_init", "shmwin_malloc"}));
}

// ---- before registration -----------------------------------------------------------------------

__attribute__((no_sanitize("address"))) bool is_component(const ed_component &candidate,
                                                          uintptr_t begin, uintptr_t end)
{
    const auto name = reinterpret_cast<uintptr_t>(candidate.name);
    const auto buffer = reinterpret_cast<uintptr_t>(candidate.buffers[0].name);
    return name >= begin && name < end && buffer >= begin && buffer < end &&
           candidate.buffers[0].entries == 1000 && candidate.buffers[1].entries == 1000;
}

// Looks for the record in the library's writable memory, since nothing names it yet.
__attribute__((no_sanitize("address"))) int find_component(dl_phdr_info *info, size_t, void *out)
{
    if (std::string(info->dlpi_name).find("libinline_service_infra") == std::string::npos)
        return 0;
    uintptr_t end = 0;
    for (int i = 0; i < info->dlpi_phnum; ++i)
        end = std::max<uintptr_t>(end, info->dlpi_phdr[i].p_vaddr + info->dlpi_phdr[i].p_memsz);
    for (int i = 0; i < info->dlpi_phnum; ++i) {
        const ElfW(Phdr) &segment = info->dlpi_phdr[i];
        if (segment.p_type != PT_LOAD || (segment.p_flags & PF_W) == 0)
            continue;
        const uintptr_t first = (info->dlpi_addr + segment.p_vaddr + 7) & ~uintptr_t{7};
        const uintptr_t last = info->dlpi_addr + segment.p_vaddr + segment.p_memsz;
        for (uintptr_t at = first; at + sizeof(ed_component) <= last; at += 8) {
            auto *candidate = reinterpret_cast<ed_component *>(at);
            if (is_component(*candidate, info->dlpi_addr, info->dlpi_addr + end))
                *static_cast<ed_component **>(out) = candidate;
        }
    }
    return 1;
}

TEST(ComponentUnregistered, TheShortNameIsSetJustBeforeTheRegistrationOnly)
{
    ed_component *component = nullptr;
    dl_iterate_phdr(find_component, &component);
    ASSERT_NE(component, nullptr);
    EXPECT_STREQ(component->name, "libinline_service_infra");
    EXPECT_STREQ(component->short_name, "");

    shadow_db root = {};
    root.initialized = 1;
    inline_svc_global_cntx context = {};
    context.shadow_db = &root;
    inline_svc_set_global_cntx(&context);
    EXPECT_STREQ(component->short_name, "");
    inline_svc_shadow_db_initialized(0, 0, 0, 0);
    EXPECT_STREQ(component->short_name, "inlc");
    EXPECT_EQ(test::library_component(), component);
    pgbl_ptr = nullptr;
    pshadow_db = nullptr;
}

} // namespace
