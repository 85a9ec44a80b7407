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

// The same for an event that was kept: bit n of `strings` says that argument n is a string and
// stands in `texts` at its place. Nothing is read at an address; the format may be anything.
EventText render_kept_event(const char *format, std::span<const uint64_t> words, uint32_t strings,
                            std::span<const std::string> texts);

// An argument as its conversion reads it. A string has its text elsewhere.
struct EventArgument {
    enum class Kind { signed_number, unsigned_number, hexadecimal, text } kind;
    uint64_t number = 0; // cut to its width; a signed one is extended by its sign
};
// One for each word; words behind the last conversion are hexadecimal.
std::vector<EventArgument> event_arguments(const char *format, std::span<const uint64_t> words);

// The texts of the string arguments, in order of their places; bit n of *places is set for each.
// They are the arguments' own memory.
std::vector<std::string_view> string_arguments(const char *format, std::span<const uint64_t> words,
                                               uint32_t *places);

// Whether the message's argument at this place is `value`: for a string its text, for a number the
// number in decimal or with 0x, as wide as the format reads it.
bool argument_is(const char *format, std::span<const uint64_t> words, size_t place,
                 const std::string &value);

// Messages carry blanks and line ends for the log file; where they are shown they are one line.
std::string on_one_line(std::string text);

// "SHORT FILE:LINE FUNCTION: text [name=value ...]"
std::string event_line(const ed_component &component, const ed_debug_point &point, uint32_t line,
                       const char *format, const uint64_t *words);
std::string event_line(const ed_component &component, const ed_debug_point &point, uint32_t line,
                       const EventText &event);

} // namespace vlc
