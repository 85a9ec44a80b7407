// The terminal that `inlinectl top` draws on. It is given back as it was, however the command ends
// but by a kill that no program hears of.
#pragma once

#include <chrono>
#include <optional>
#include <vector>

#include "top_lines.h"

namespace inlinectl {

class TopScreen {
public:
    // Throws UsageError where standard input and output are no terminal that can be drawn on.
    explicit TopScreen(bool colour);
    ~TopScreen();
    TopScreen(const TopScreen &) = delete;
    TopScreen &operator=(const TopScreen &) = delete;

    size_t width() const;
    size_t height() const;
    void draw(const std::vector<TopLine> &lines) const;

    enum class Event { key_sort, key_help, key_quit, resized, other };
    // Nothing when the time is over, or when a signal asks the program to end.
    std::optional<Event> wait(std::chrono::milliseconds time) const;

private:
    bool colour_;
    void *screen_; // ncurses'
};

} // namespace inlinectl
