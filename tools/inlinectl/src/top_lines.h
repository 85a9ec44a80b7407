// A frame of `inlinectl top` as lines of text: the same for a terminal and for plain output.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "top_frame.h"

namespace inlinectl {

enum class TopOrder { rate, packets, bytes };
TopOrder next_order(TopOrder order);

struct TopView {
    size_t width = 80;
    size_t height = 24; // 0: as many lines as there are
    TopOrder order = TopOrder::rate;
    bool help = false;
    bool keys = true; // that there are keys is said
};

struct TopLine {
    enum class Style { plain, heading, alarm };
    std::string text; // ASCII, no wider than the view
    Style style = Style::plain;
};

std::vector<TopLine> lines_of(const TopFrame &frame, const TopView &view);

// A number in no more than seven columns: "1,234", "999,999", "1.23M".
std::string short_number(uint64_t number);

} // namespace inlinectl
