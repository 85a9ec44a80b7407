// The kill sweep as a program: all points, a sample of them, or one to look at.
#include <cinttypes>
#include <cstdio>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>
#include <unistd.h>

#include "kill_sweep.h"
#include "private_tmp.h"

using namespace test;

// A forked process leaves what it does not need.
extern "C" const char *__asan_default_options()
{
    return "detect_leaks=0:allocator_may_return_null=1";
}

namespace {

constexpr int fine = 0;
constexpr int found_something = 1;
constexpr int wrong_usage = 2;

struct Options {
    bool all = false;
    uint64_t points = 4;
    uint64_t at_least = 1;
    uint32_t seed = 1;
    std::string card = "both";
    std::string kind = "all";
    std::vector<uint16_t> nps = {1, 2};
    std::string at;
};

void describe_options(CLI::App &app, Options &options)
{
    std::vector<std::string> kinds = {"all"};
    for (const KillKind &kind : kill_kinds)
        kinds.push_back(kind.name);
    app.add_flag("--all", options.all, "Every request, and 200 instants");
    app.add_option("--points", options.points,
                   "So many of each kind, drawn by the seed; at instants a third")
        ->check(CLI::PositiveNumber.description(""))
        ->capture_default_str();
    app.add_option("--seed", options.seed, "Of the sample, and of the instants")
        ->capture_default_str();
    app.add_option("--kind", options.kind, "Who is killed, and when")
        ->check(CLI::IsMember(kinds))
        ->capture_default_str();
    app.add_option("--card", options.card, "Which kind of card")
        ->check(CLI::IsMember({"ordinary", "unswapped", "both"}))
        ->capture_default_str();
    app.add_option("--nps", options.nps, "Cards with so many network processors")
        ->delimiter(',')
        ->check(CLI::Range(1, 8).description(""))
        ->capture_default_str();
    app.add_option("--at", options.at, "One point, as the report names it")->type_name("POINT");
    app.add_option("--at-least", options.at_least, "Fail when fewer points were tried")
        ->capture_default_str();
    std::string footer = "Kinds:\n";
    for (const KillKind &kind : kill_kinds) {
        std::string name = kind.name;
        name.resize(16, ' ');
        footer += "  " + name + kind.words + "\n";
    }
    app.footer(footer + "\nExamples:\n"
                        "  kill_sweep --points 20 --seed 7\n"
                        "  kill_sweep --all --kind host --card ordinary --nps 2\n"
                        "  kill_sweep --at card-behind:ordinary:2:17\n"
                        "A point is KIND:CARD:NPS:CALL, or KIND:CARD:NPS:CALL+INSTRUCTIONS.");
}

// At an instant a point costs many times as much.
uint64_t points_of(const KillKind &kind, const Options &options)
{
    if (options.all)
        return 0;
    return kind.instant == Instant::any ? (options.points + 2) / 3 : options.points;
}

std::vector<KillSweepPlan> plans_of(const Options &options)
{
    if (!options.at.empty()) {
        const NamedPoint named = *kill_point_named(options.at);
        return {{named.setting, 0, options.seed, {named.point}}};
    }
    std::vector<KillSweepPlan> plans;
    for (const KillKind &kind : kill_kinds) {
        for (const CardKind &card : card_kinds) {
            for (const uint16_t nps : options.nps) {
                if ((options.kind == "all" || options.kind == kind.name) &&
                    (options.card == "both" || options.card == card.name))
                    plans.push_back({{kind, card, nps},
                                     points_of(kind, options),
                                     options.seed + static_cast<uint32_t>(plans.size())});
            }
        }
    }
    return plans;
}

constexpr char head[] = "%-40s %-10s %4s %9s %7s %7s %8s\n";

KillSweepResult run(const KillSweepPlan &plan)
{
    const KillSetting &setting = plan.setting;
    const bool shows = isatty(STDERR_FILENO) != 0;
    const KillSweepResult result = sweep_kills(plan, [&](uint64_t points) {
        if (shows)
            std::fprintf(stderr, "\r\033[K%s, %s card, %u NPs: %" PRIu64 " points",
                         setting.kind.words, setting.card.name, setting.num_nps, points);
    });
    if (shows)
        std::fprintf(stderr, "\r\033[K");
    if (result.cannot_be_traced)
        std::printf("%-40s %-10s %4u  not tried: no process may be traced here\n",
                    setting.kind.words, setting.card.name, setting.num_nps);
    else
        std::printf("%-40s %-10s %4u %9" PRIu64 " %7" PRIu64 " %7" PRIu64 " %8.2f\n",
                    setting.kind.words, setting.card.name, setting.num_nps, result.requests,
                    result.points, result.failed, result.seconds);
    std::fflush(stdout);
    return result;
}

int run(const Options &options)
{
    uint64_t tried = 0;
    std::vector<std::string> texts;
    std::printf(head, "killed", "card", "NPs", "requests", "points", "failed", "seconds");
    for (const KillSweepPlan &plan : plans_of(options)) {
        const KillSweepResult result = run(plan);
        tried += result.points;
        texts.insert(texts.end(), result.texts.begin(), result.texts.end());
    }
    for (const std::string &text : texts)
        std::printf("\n%s", text.c_str());
    std::printf("%" PRIu64 " points tried\n", tried);
    if (tried < options.at_least) {
        std::printf("too few: at least %" PRIu64 " are wanted\n", options.at_least);
        return found_something;
    }
    return texts.empty() ? fine : found_something;
}

} // namespace

int main(int argc, char **argv)
{
    Options options;
    CLI::App app(
        "Kills a host or its card in the course of one scenario, and has it started again");
    describe_options(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? fine : wrong_usage;
    }
    if (!options.at.empty() && !kill_point_named(options.at)) {
        std::fprintf(stderr, "kill_sweep: --at: no such point: %s\n", options.at.c_str());
        return wrong_usage;
    }
    enter_private_tmp();
    return run(options);
}
