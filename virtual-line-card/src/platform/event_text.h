// Messages of debug points as text, from formats whose arguments are 64-bit words.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform_event_debug.h"

namespace vlc {

struct EventText {
    std::string text; // the message
    std::vector<std::string>
        arguments; // each as a value of its own: hexadecimal ones with 0x, strings quoted
};

// Renders a printf format; `words` are its arguments, one each: integers widened, strings by
// address. A conversion without a word shows as "?".
EventText render_event(const char *format, std::span<const uint64_t> words);

// The texts of the string arguments, in order of their places; bit n of *places is set for each.
// They are the arguments' own memory.
std::vector<std::string_view> string_arguments(const char *format, std::span<const uint64_t> words,
                                               uint32_t *places);

// "SHORT FILE:LINE FUNCTION: text [name=value ...]"
std::string event_line(const ed_component &component, const ed_debug_point &point, uint32_t line,
                       const char *format, const uint64_t *words);

} // namespace vlc
