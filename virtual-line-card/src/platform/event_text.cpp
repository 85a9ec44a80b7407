#include "event_text.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace vlc {

namespace {

// One conversion of a format: %[flags][width][.precision][length]type
struct Conversion {
    std::string_view adjust; // flags, width and precision as written
    std::string_view length; // "hh", "h", "", "l", "ll", "j", "z" or "t"
    char type = 0;           // 0 when the format ends inside the conversion
    const char *end = nullptr;
};

Conversion read_conversion(const char *begin) // begin: after the '%'
{
    Conversion conversion;
    const size_t adjust = std::strspn(begin, "-+ #0123456789.");
    const size_t length = std::strspn(begin + adjust, "hljzt");
    conversion.adjust = {begin, adjust};
    conversion.length = {begin + adjust, length};
    conversion.type = begin[adjust + length];
    conversion.end = begin + adjust + length + (conversion.type != 0);
    return conversion;
}

// The words of narrower types are cut to what the conversion would have read.
uint64_t as_unsigned(uint64_t word, std::string_view length)
{
    if (length == "hh")
        return static_cast<uint8_t>(word);
    if (length == "h")
        return static_cast<uint16_t>(word);
    return length.empty() ? static_cast<uint32_t>(word) : word;
}

int64_t as_signed(uint64_t word, std::string_view length)
{
    if (length == "hh")
        return static_cast<int8_t>(word);
    if (length == "h")
        return static_cast<int16_t>(word);
    return length.empty() ? static_cast<int32_t>(word) : static_cast<int64_t>(word);
}

template <typename Value>
std::string formatted(const std::string &format, Value value)
{
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const int size = std::snprintf(nullptr, 0, format.c_str(), value);
    std::string text(static_cast<size_t>(std::max(size, 0)) + 1, '\0');
    std::snprintf(text.data(), text.size(), format.c_str(), value);
#pragma GCC diagnostic pop
    text.pop_back();
    return text;
}

const char *as_text(uint64_t word)
{
    const char *text = reinterpret_cast<const char *>(static_cast<uintptr_t>(word));
    return text ? text : "(null)";
}

// With a precision, a text need not end where its buffer does.
std::string precision_of(const Conversion &conversion)
{
    const size_t dot = conversion.adjust.find('.');
    return dot == std::string_view::npos ? "" : std::string(conversion.adjust.substr(dot));
}

// How many bytes of a text the conversion reads at most.
size_t longest_text(const Conversion &conversion)
{
    const std::string precision = precision_of(conversion);
    return precision.empty() ? SIZE_MAX : std::strtoul(precision.c_str() + 1, nullptr, 10);
}

struct Argument {
    std::string in_text;
    std::string alone;
};

Argument render_argument(const Conversion &conversion, uint64_t word)
{
    const std::string adjust = '%' + std::string(conversion.adjust);
    const auto number = as_unsigned(word, conversion.length);
    switch (conversion.type) {
    case 'd':
    case 'i': {
        const auto value = static_cast<long long>(as_signed(word, conversion.length));
        return {formatted(adjust + "lld", value), std::to_string(value)};
    }
    case 'c':
        return {formatted(adjust + 'c', static_cast<int>(word)), std::to_string(word & 0xFF)};
    case 's':
        return {formatted(adjust + 's', as_text(word)),
                '"' + formatted('%' + precision_of(conversion) + 's', as_text(word)) + '"'};
    case 'p':
        return {formatted("%#llx", static_cast<unsigned long long>(word)),
                formatted("%#llx", static_cast<unsigned long long>(word))};
    case 'u':
        return {formatted(adjust + "llu", static_cast<unsigned long long>(number)),
                std::to_string(number)};
    case 'o':
    case 'x':
    case 'X':
        return {formatted(adjust + "ll" + conversion.type, static_cast<unsigned long long>(number)),
                formatted("%#llx", static_cast<unsigned long long>(number))};
    default:
        return {"?", formatted("%#llx", static_cast<unsigned long long>(word))};
    }
}

// Messages carry blanks and line ends for the log file; a printed line is finished by its printer.
std::string on_one_line(std::string text)
{
    std::replace(text.begin(), text.end(), '\n', ' ');
    const size_t begin = text.find_first_not_of(' ');
    if (begin == std::string::npos)
        return {};
    return text.substr(begin, text.find_last_not_of(' ') + 1 - begin);
}

} // namespace

EventText render_event(const char *format, std::span<const uint64_t> words)
{
    EventText event;
    const char *place = format;
    while (*place) {
        const char *percent = std::strchr(place, '%');
        if (!percent) {
            event.text += place;
            break;
        }
        event.text.append(place, percent);
        const Conversion conversion = read_conversion(percent + 1);
        place = conversion.end;
        if (conversion.type == '%') {
            event.text += '%';
        } else if (event.arguments.size() == words.size()) {
            event.text += '?';
        } else {
            Argument argument = render_argument(conversion, words[event.arguments.size()]);
            event.text += argument.in_text;
            event.arguments.push_back(std::move(argument.alone));
        }
    }
    return event;
}

std::vector<std::string_view> string_arguments(const char *format, std::span<const uint64_t> words,
                                               uint32_t *places)
{
    std::vector<std::string_view> texts;
    *places = 0;
    size_t place = 0;
    const char *percent = std::strchr(format, '%');
    while (percent && place < words.size()) {
        const Conversion conversion = read_conversion(percent + 1);
        if (conversion.type == 's') {
            const size_t most = longest_text(conversion);
            const char *text = as_text(words[place]);
            texts.emplace_back(text, strnlen(text, most));
            *places |= uint32_t{1} << place;
        }
        place += conversion.type != '%';
        percent = std::strchr(conversion.end, '%');
    }
    return texts;
}

std::string event_line(const ed_component &component, const ed_debug_point &point, uint32_t line,
                       const char *format, const uint64_t *words)
{
    const size_t count = words ? point.arg_count : 0;
    const EventText event = render_event(format ? format : "", {words, count});
    const std::string short_name(component.short_name,
                                 strnlen(component.short_name, sizeof component.short_name));
    std::string text = short_name + ' ' + (point.file ? point.file : "?") + ':' +
                       std::to_string(line) + ' ' + (point.function ? point.function : "?") + ": " +
                       on_one_line(event.text);
    if (!point.arg_names || event.arguments.empty())
        return text;
    for (size_t i = 0; i < event.arguments.size(); i++)
        text += (i == 0 ? " [" : " ") + std::string(point.arg_names[i]) + '=' + event.arguments[i];
    return text + ']';
}

} // namespace vlc
