#include "sweep_report.h"

#include <cinttypes>

#include <unistd.h>

namespace test {
namespace {

constexpr char row[] = "%-40s %-31s %7s %7s %7s %8s\n";

std::string number(uint64_t value)
{
    std::string text = std::to_string(value);
    for (auto place = static_cast<ptrdiff_t>(text.size()) - 3; place > 0; place -= 3)
        text.insert(static_cast<size_t>(place), ",");
    return text;
}

std::string seconds(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.2f", value);
    return text;
}

} // namespace

void print_sweep(const std::string &card, const SweepPlan &plan, const SweepResult &result)
{
    std::printf("%s card, %zu steps\n", card.c_str(), plan.scenario.size());
    std::printf(row, "service", "failure", "calls", "points", "failed", "seconds");
    double sum = 0;
    for (size_t i = 0; i < service_failures().size(); ++i) {
        const ServiceFailure &failure = service_failures()[i];
        const SweepResult::PerFailure &found = result.per_failure[i];
        sum += found.seconds;
        std::printf(row, std::string(name_of(failure.service)).c_str(), failure.what,
                    number(result.calls[static_cast<size_t>(failure.service)]).c_str(),
                    number(found.points).c_str(), number(found.failed).c_str(),
                    seconds(found.seconds).c_str());
    }
    std::printf(row, "all", "", "", number(result.points()).c_str(),
                number(result.failed()).c_str(), seconds(sum).c_str());
    std::printf("the process rightly ended with status 1 at %s points, with an assertion at %s\n",
                number(result.exits).c_str(), number(result.assertions).c_str());
    for (const std::string &text : result.texts)
        std::printf("\n%s", text.c_str());
    std::fflush(stdout);
}

void print_failures_of_services()
{
    for (const ServiceFailure &failure : service_failures())
        std::printf("%-40s %s\n", std::string(name_of(failure.service)).c_str(), failure.what);
    for (const Infallible &service : infallible_services())
        std::printf("%-40s cannot fail: %s\n", std::string(name_of(service.service)).c_str(),
                    service.why);
}

SweepProgress::SweepProgress(std::string what, size_t steps)
    : what_(std::move(what)), steps_(steps), shown_(isatty(STDERR_FILENO) != 0)
{
}

SweepProgress::~SweepProgress()
{
    if (shown_)
        std::fprintf(stderr, "\r\033[K");
}

void SweepProgress::show(size_t step)
{
    if (shown_ && ++points_ % 64 == 0)
        std::fprintf(stderr, "\r\033[K%s card: step %zu of %zu, %s points", what_.c_str(), step,
                     steps_, number(points_).c_str());
}

} // namespace test
