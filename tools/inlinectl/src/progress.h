// A progress bar on standard error, redrawn in place and gone at the end.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace inlinectl {

// One line shorter than the terminal's columns: the bar gives way first, then the text's end.
std::string progress_line(std::string doing, double share, const std::string &rest, size_t columns,
                          bool unicode);

class Progress {
public:
    explicit Progress(bool shown);
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    // Cheap to call often: it draws at most ten times a second.
    void show(const char *doing, double share, uint64_t count, const char *unit);
    void clear();

private:
    bool shown_;
    bool drawn_ = false;
    std::chrono::steady_clock::time_point next_{};
    bool unicode_;
};

} // namespace inlinectl
