#include "top_screen.h"

#define NCURSES_NOMACROS
#include <ncurses.h>
#include <poll.h>
#include <unistd.h>

#include "exit_code.h"
#include "interrupt.h"

namespace inlinectl {
namespace {

constexpr short alarm_pair = 1;
constexpr const char *hint = "; 'inlinectl top --once' writes one plain frame";

SCREEN *opened_terminal()
{
    if (isatty(STDIN_FILENO) == 0 || isatty(STDOUT_FILENO) == 0)
        throw UsageError(std::string("standard input and output are no terminal") + hint);
    SCREEN *screen = newterm(nullptr, stdout, stdin);
    if (screen == nullptr)
        throw UsageError(std::string("the terminal is of no kind that can be drawn on") + hint);
    return screen;
}

TopScreen::Event event_of(int key)
{
    switch (key) {
    case 's':
        return TopScreen::Event::key_sort;
    case '?':
    case 'h':
        return TopScreen::Event::key_help;
    case 'q':
    case 'Q':
        return TopScreen::Event::key_quit;
    case KEY_RESIZE:
        return TopScreen::Event::resized;
    default:
        return TopScreen::Event::other;
    }
}

} // namespace

TopScreen::TopScreen(bool colour) : colour_(colour), screen_(opened_terminal())
{
    cbreak();
    noecho();
    nodelay(stdscr, true);
    keypad(stdscr, true);
    curs_set(0);
    colour_ = colour_ && has_colors() && start_color() == OK && use_default_colors() == OK &&
              init_pair(alarm_pair, COLOR_RED, -1) == OK;
}

TopScreen::~TopScreen()
{
    endwin();
    delscreen(static_cast<SCREEN *>(screen_));
}

size_t TopScreen::width() const
{
    return static_cast<size_t>(getmaxx(stdscr));
}

size_t TopScreen::height() const
{
    return static_cast<size_t>(getmaxy(stdscr));
}

void TopScreen::draw(const std::vector<TopLine> &lines) const
{
    werase(stdscr);
    for (size_t number = 0; number < lines.size(); ++number) {
        const TopLine &line = lines[number];
        attr_t attributes = A_NORMAL;
        if (line.style == TopLine::Style::heading)
            attributes = A_BOLD;
        else if (line.style == TopLine::Style::alarm && colour_)
            attributes = static_cast<attr_t>(COLOR_PAIR(alarm_pair));
        wattrset(stdscr, static_cast<int>(attributes));
        mvwaddstr(stdscr, static_cast<int>(number), 0, line.text.c_str());
    }
    wattrset(stdscr, A_NORMAL);
    wrefresh(stdscr);
}

std::optional<TopScreen::Event> TopScreen::wait(std::chrono::milliseconds time) const
{
    pollfd ends[] = {{.fd = STDIN_FILENO, .events = POLLIN, .revents = 0},
                     {.fd = interrupt_descriptor(), .events = POLLIN, .revents = 0}};
    const int ready = poll(ends, std::size(ends), static_cast<int>(time.count()));
    if (interrupted())
        return std::nullopt;
    const int key = wgetch(stdscr);
    if (key != ERR)
        return event_of(key);
    // A terminal that is gone is readable for ever.
    if (ready > 0 && (ends[0].revents & (POLLHUP | POLLERR)) != 0)
        return Event::key_quit;
    return ready == 0 ? std::nullopt : std::optional(Event::other);
}

} // namespace inlinectl
