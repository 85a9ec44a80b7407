#include "top_command.h"

#include <chrono>
#include <cmath>
#include <cstdio>
#include <iostream>
#include <memory>
#include <thread>

#include <CLI/CLI.hpp>

#include "exit_code.h"
#include "interrupt.h"
#include "standard_streams.h"
#include "terminal.h"
#include "top_screen.h"
#include "vlc/state_error.h"

namespace inlinectl {
namespace {

using std::chrono::milliseconds;

constexpr const char *examples =
    "Examples:\n"
    "  A card and its host in one directory, looked at each second:\n"
    "    inlinectl top --state card\n"
    "  A host whose card runs in another process:\n"
    "    inlinectl top --state host --connect card.socket\n"
    "  One frame as plain text, with what came within two seconds:\n"
    "    inlinectl top --state card --once --interval 2\n"
    "\n"
    "Keys: s sorts the entries by packets a second, packets or bytes; ? helps; q quits.\n"
    "Nothing is changed, and no lock is taken; no host needs to be up.\n"
    "Exit codes: 0 shown, 2 usage or what cannot be read.";

struct TopOptions {
    StatePlaces places;
    std::optional<double> interval; // seconds
    bool once = false;
    std::optional<uint64_t> count; // frames
};

milliseconds interval_of(const TopOptions &options)
{
    return milliseconds(std::lround(options.interval.value_or(1) * 1000));
}

int write_once(const TopOptions &options)
{
    TopGathering gathering(options.places);
    TopFrame frame = gathering.look();
    if (options.interval) {
        std::this_thread::sleep_for(interval_of(options));
        frame = gathering.look();
    }
    constexpr size_t entries_shown = 24;
    const TopView view{.width = 80, .height = entries_shown, .keys = false};
    for (const TopLine &line : lines_of(frame, view))
        std::cout << line.text << "\n";
    return exit_code_of_report(exit_fine);
}

// Draws a frame until it is time for the next one. Returns whether there is to be one.
bool show_frame(const TopScreen &screen, const TopFrame &frame, TopView &view, milliseconds time)
{
    using Clock = std::chrono::steady_clock;
    const Clock::time_point end = Clock::now() + time;
    for (;;) {
        view.width = screen.width();
        view.height = screen.height();
        screen.draw(lines_of(frame, view));
        const auto left = std::chrono::ceil<milliseconds>(end - Clock::now());
        const auto event = screen.wait(std::max(left, milliseconds(0)));
        if (interrupted() || event == TopScreen::Event::key_quit)
            return false;
        if (!event)
            return true;
        if (event == TopScreen::Event::key_sort)
            view.order = next_order(view.order);
        if (event == TopScreen::Event::key_help)
            view.help = !view.help;
    }
}

int watch(const TopOptions &options)
{
    watch_interrupts();
    const TopScreen screen(standard_output_style().colour);
    TopGathering gathering(options.places);
    TopView view;
    for (uint64_t shown = 1;; ++shown) {
        const bool goes_on = show_frame(screen, gathering.look(), view, interval_of(options));
        if (!goes_on || shown == options.count)
            return exit_fine;
    }
}

int top(const TopOptions &options)
{
    try {
        return options.once ? write_once(options) : watch(options);
    } catch (const vlc::StateError &unreadable) {
        throw UsageError(unreadable.what());
    }
}

void declare(CLI::App &app, TopOptions &options)
{
    declare_state_places(app, options.places);
    app.add_option("--interval", options.interval, "Seconds from frame to frame, 1 by default")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.1, 3600.0).description(""));
    app.add_flag("--once", options.once,
                 "Write one plain frame; with --interval of what came meanwhile");
    app.add_option("--count", options.count, "End after so many frames")
        ->type_name("N")
        ->check(CLI::Range(uint64_t{1}, UINT64_MAX).description(""));
    app.footer(examples);
}

void check(const TopOptions &options)
{
    check_state_places(options.places);
    if (options.once && options.count)
        throw UsageError("--once is one frame: it cannot go with --count");
}

} // namespace

Command top_command()
{
    const auto options = std::make_shared<TopOptions>();
    return {.name = "top",
            .summary = "Watch a card and its host while they are at work",
            .words_hint = "the state is given with --state",
            .declare = [options](CLI::App &app) { declare(app, *options); },
            .check = [options] { check(*options); },
            .perform = [options] { return top(*options); }};
}

} // namespace inlinectl
