#include "vlc/event_text.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
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

// No message is a thousand characters long, but a format that comes from a damaged file may say so.
std::string with_numbers_cut(std::string_view adjust)
{
    constexpr size_t most_digits = 3;
    std::string cut;
    size_t digits = 0;
    for (const char letter : adjust) {
        digits = letter >= '0' && letter <= '9' ? digits + 1 : 0;
        if (digits <= most_digits)
            cut += letter;
        else
            std::fill(cut.end() - most_digits, cut.end(), '9');
    }
    return cut;
}

std::string printf_adjust(const Conversion &conversion)
{
    return '%' + with_numbers_cut(conversion.adjust);
}

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
    return dot == std::string_view::npos ? "" : with_numbers_cut(conversion.adjust.substr(dot));
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

Argument render_text(const Conversion &conversion, const char *text)
{
    return {formatted(printf_adjust(conversion) + 's', text),
            '"' + formatted('%' + precision_of(conversion) + 's', text) + '"'};
}

Argument render_number(const Conversion &conversion, uint64_t word)
{
    const std::string adjust = printf_adjust(conversion);
    const auto number = as_unsigned(word, conversion.length);
    switch (conversion.type) {
    case 'd':
    case 'i': {
        const auto value = static_cast<long long>(as_signed(word, conversion.length));
        return {formatted(adjust + "lld", value), std::to_string(value)};
    }
    case 'c':
        return {formatted(adjust + 'c', static_cast<int>(word)), std::to_string(word & 0xFF)};
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

// `argument` renders the argument at a place as its conversion says.
template <typename RenderArgument>
EventText render(const char *format, size_t count, const RenderArgument &argument)
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
        } else if (event.arguments.size() == count) {
            event.text += '?';
        } else {
            Argument rendered = argument(conversion, event.arguments.size());
            event.text += rendered.in_text;
            event.arguments.push_back(std::move(rendered.alone));
        }
    }
    return event;
}

// The conversion of the argument at a place; of type 0 when the format has none.
Conversion conversion_at(const char *format, size_t place)
{
    const char *percent = std::strchr(format, '%');
    while (percent) {
        Conversion conversion = read_conversion(percent + 1);
        if (conversion.type != '%' && place-- == 0)
            return conversion;
        percent = std::strchr(conversion.end, '%');
    }
    return {};
}

// Decimal or hexadecimal, with a sign where it has one; false for what is no number.
bool read_number(const std::string &text, uint64_t *number)
{
    const size_t digits = text.starts_with('-') ? 1 : 0;
    const bool hexadecimal =
        text.compare(digits, 2, "0x") == 0 || text.compare(digits, 2, "0X") == 0;
    if (text.size() == digits || !std::isdigit(static_cast<unsigned char>(text[digits])))
        return false;
    char *end = nullptr;
    errno = 0;
    const uint64_t value = std::strtoull(text.c_str() + digits, &end, hexadecimal ? 16 : 10);
    *number = digits == 0 ? value : uint64_t{0} - value;
    return errno == 0 && *end == '\0';
}

} // namespace

EventText render_event(const char *format, std::span<const uint64_t> words)
{
    return render(format, words.size(), [&](const Conversion &conversion, size_t place) {
        return conversion.type == 's' ? render_text(conversion, as_text(words[place]))
                                      : render_number(conversion, words[place]);
    });
}

EventText render_kept_event(const char *format, std::span<const uint64_t> words, uint32_t strings,
                            std::span<const std::string> texts)
{
    return render(format, words.size(), [&](const Conversion &conversion, size_t place) {
        const bool has_text = (strings >> place & 1) != 0 && place < texts.size();
        if (conversion.type == 's' && has_text)
            return render_text(conversion, texts[place].c_str());
        return render_number(conversion, words[place]);
    });
}

std::vector<EventArgument> event_arguments(const char *format, std::span<const uint64_t> words)
{
    using Kind = EventArgument::Kind;
    std::vector<EventArgument> arguments;
    const char *percent = std::strchr(format, '%');
    while (percent && arguments.size() < words.size()) {
        const Conversion conversion = read_conversion(percent + 1);
        const uint64_t word = words[arguments.size()];
        const uint64_t number = as_unsigned(word, conversion.length);
        percent = std::strchr(conversion.end, '%');
        if (conversion.type == '%')
            continue;
        if (conversion.type == 'd' || conversion.type == 'i')
            arguments.push_back(
                {Kind::signed_number, static_cast<uint64_t>(as_signed(word, conversion.length))});
        else if (conversion.type == 's')
            arguments.push_back({Kind::text});
        else if (conversion.type == 'u' || conversion.type == 'c')
            arguments.push_back({Kind::unsigned_number, number});
        else if (conversion.type == 'p')
            arguments.push_back({Kind::hexadecimal, word});
        else
            arguments.push_back({Kind::hexadecimal, number});
    }
    while (arguments.size() < words.size())
        arguments.push_back({Kind::hexadecimal, words[arguments.size()]});
    return arguments;
}

bool argument_is(const char *format, std::span<const uint64_t> words, size_t place,
                 const std::string &value)
{
    const Conversion conversion = conversion_at(format, place);
    if (place >= words.size() || conversion.type == 0)
        return false;
    if (conversion.type == 's') {
        const char *text = as_text(words[place]);
        return value == std::string_view(text, strnlen(text, longest_text(conversion)));
    }
    uint64_t number = 0;
    return read_number(value, &number) &&
           as_unsigned(number, conversion.length) == as_unsigned(words[place], conversion.length);
}

std::string on_one_line(std::string text)
{
    std::replace(text.begin(), text.end(), '\n', ' ');
    const size_t begin = text.find_first_not_of(' ');
    if (begin == std::string::npos)
        return {};
    return text.substr(begin, text.find_last_not_of(' ') + 1 - begin);
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
    return event_line(component, point, line, render_event(format ? format : "", {words, count}));
}

std::string event_line(const ed_component &component, const ed_debug_point &point, uint32_t line,
                       const EventText &event)
{
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
