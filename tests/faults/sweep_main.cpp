// The sweep as a program: all points, a sample of them, or one to look at.
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "call_sweep.h"
#include "private_tmp.h"
#include "scenario_host.h"
#include "sweep_report.h"
#include "sweep_sample.h"

using namespace test;

// A fault is the kernel's to report, and a forked process leaves what it does not need.
extern "C" const char *__asan_default_options()
{
    return "handle_segv=0:handle_abort=0:detect_leaks=0:allocator_may_return_null=1";
}

namespace {

constexpr int fine = 0;
constexpr int found_something = 1;
constexpr int wrong_usage = 2;

struct Options {
    bool all = false;
    bool list = false;
    uint64_t points = 1000;
    uint64_t at_least = 1;
    uint32_t seed = 1;
    std::string card = "both";
    std::string at;
};

struct CardKind {
    const char *name;
    uint32_t type;
};
constexpr CardKind cards[] = {{"ordinary", ordinary_card}, {"unswapped", unswapped_card}};

void describe_options(CLI::App &app, Options &options)
{
    app.add_flag("--all", options.all, "Every point");
    app.add_option("--points", options.points, "About so many points a card, drawn by the seed")
        ->capture_default_str();
    app.add_option("--seed", options.seed, "Of the sample")->capture_default_str();
    app.add_option("--card", options.card, "Which kind of card")
        ->check(CLI::IsMember({"ordinary", "unswapped", "both"}))
        ->capture_default_str();
    app.add_option("--at", options.at, "One point, as the report names it")->type_name("POINT");
    app.add_option("--at-least", options.at_least, "Fail when fewer points were tried")
        ->capture_default_str();
    app.add_flag("--list", options.list, "How each service fails, and which cannot");
    app.footer("Examples:\n"
               "  call_sweep --points 300 --seed 7\n"
               "  call_sweep --card ordinary --at shmwin_malloc:0:17:once\n"
               "  call_sweep --all\n"
               "A point is SERVICE:FAILURE:CALL:once|ever; FAILURE counts a service's rows of\n"
               "--list from 0.");
}

std::function<bool(const FaultPoint &)> points_of(const Options &options, const SweepPlan &plan)
{
    if (!options.at.empty()) {
        const FaultPoint wanted = *point_named(options.at);
        return [wanted](const FaultPoint &point) {
            return point.failure == wanted.failure && point.nth == wanted.nth &&
                   point.for_ever == wanted.for_ever;
        };
    }
    if (options.all)
        return [](const FaultPoint &) { return true; };
    SweepPlan without_failures = plan;
    without_failures.takes = [](const FaultPoint &) { return false; };
    const SweepSample sample(sweep(without_failures).calls, options.points, options.seed);
    return [sample](const FaultPoint &point) { return sample.takes(point); };
}

int run(const Options &options)
{
    uint64_t tried = 0;
    bool all_fine = true;
    for (const CardKind &card : cards) {
        if (options.card != "both" && options.card != card.name)
            continue;
        SweepPlan plan = {card.type, {}, reference_scenario()};
        plan.takes = points_of(options, plan);
        SweepResult result;
        {
            SweepProgress progress(card.name, plan.scenario.size());
            result = sweep(plan, [&progress](size_t step) { progress.show(step); });
        }
        print_sweep(card.name, plan, result);
        tried += result.points();
        all_fine = all_fine && result.texts.empty();
    }
    std::printf("%llu points tried\n", static_cast<unsigned long long>(tried));
    if (tried < options.at_least) {
        std::printf("too few: at least %llu are wanted\n",
                    static_cast<unsigned long long>(options.at_least));
        return found_something;
    }
    return all_fine ? fine : found_something;
}

} // namespace

int main(int argc, char **argv)
{
    Options options;
    CLI::App app("Fails each call of each platform service in the course of one scenario");
    describe_options(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? fine : wrong_usage;
    }
    if (options.list) {
        print_failures_of_services();
        return fine;
    }
    if (!options.at.empty() && !point_named(options.at)) {
        std::fprintf(stderr, "call_sweep: --at: no such point: %s\n", options.at.c_str());
        return wrong_usage;
    }
    enter_private_tmp();
    return run(options);
}
