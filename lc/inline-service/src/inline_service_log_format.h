// printf formats that are taken apart while the library is compiled.
//
// A line costs little more than its write, and of the rest a printf that reads its format anew
// would be most. So a site's format becomes straight code: its literal text copied in pieces of
// known length, its numbers written digit by digit. A format with anything else in it (widths,
// flags, pointers) is not `simple`, and printf does it.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <tuple>
#include <type_traits>

namespace inline_service {

// One conversion and the literal text in front of it; the last piece has no conversion.
struct FormatPiece {
    size_t begin;    // of the literal text, in the format
    size_t length;   // of the literal text
    char conversion; // 'd', 'u', 'x', 's', '%', or 0 for none
    bool is_long;    // 64 bits
};

inline constexpr size_t longest_number = 20; // digits of 64 bits, or a sign and those of 63

constexpr size_t pieces_in(std::string_view format)
{
    size_t count = 1;
    for (size_t at = format.find('%'); at < format.size(); at = format.find('%', at)) {
        ++count;
        at += at + 1 < format.size() && format[at + 1] == '%' ? 2U : 1U;
    }
    return count;
}

template <size_t count>
struct ParsedFormat {
    std::array<FormatPiece, count> pieces{};
    bool is_simple = true;
    size_t arguments = 0;
    size_t longest = 0; // without what %s brings
};

template <size_t count>
constexpr ParsedFormat<count> parse_format(std::string_view format)
{
    ParsedFormat<count> parsed;
    size_t at = 0;
    for (FormatPiece &piece : parsed.pieces) {
        const size_t percent = std::min(format.find('%', at), format.size());
        piece = {at, percent - at, 0, false};
        parsed.longest += piece.length + longest_number;
        if (percent == format.size())
            break;
        for (at = percent + 1; at < format.size() && format[at] == 'l'; ++at)
            piece.is_long = true;
        piece.conversion = at < format.size() ? format[at++] : '?';
        if (piece.conversion == 'i')
            piece.conversion = 'd';
        constexpr std::string_view simple = "duxs%";
        parsed.is_simple &= simple.find(piece.conversion) != simple.npos;
        parsed.arguments += piece.conversion != '%';
    }
    return parsed;
}

template <typename Text> // called, it gives the format
inline constexpr std::string_view format_of = Text{}();
template <typename Text>
inline constexpr auto parsed_format = parse_format<pieces_in(format_of<Text>)>(format_of<Text>);

inline constexpr auto two_digits = [] {
    std::array<char, 200> pairs{};
    for (size_t i = 0; i < 100; ++i) {
        pairs[2 * i] = static_cast<char>('0' + i / 10);
        pairs[2 * i + 1] = static_cast<char>('0' + i % 10);
    }
    return pairs;
}();

template <typename Number>
[[gnu::always_inline]] inline char *put_decimal(char *out, Number value)
{
    if (value < 10) { // most are
        *out = static_cast<char>('0' + value);
        return out + 1;
    }
    std::array<char, longest_number> digits;
    char *const end = digits.data() + digits.size();
    char *first = end;
    while (value >= 100) {
        first -= 2;
        std::memcpy(first, &two_digits[2 * static_cast<size_t>(value % 100)], 2);
        value /= 100;
    }
    if (value >= 10) {
        first -= 2;
        std::memcpy(first, &two_digits[2 * static_cast<size_t>(value)], 2);
    } else {
        *--first = static_cast<char>('0' + value);
    }
    const auto length = static_cast<size_t>(end - first);
    std::memcpy(out, first, length);
    return out + length;
}

template <typename Number>
[[gnu::always_inline]] inline char *put_hexadecimal(char *out, Number value)
{
    const int highest_bit = static_cast<int>(std::bit_width(value | 1)) - 1;
    for (int place = highest_bit & ~3; place >= 0; place -= 4)
        *out++ = "0123456789abcdef"[value >> place & 0xF];
    return out;
}

// Kept: as printf has it, a null text reads "(null)".
[[gnu::always_inline]] inline char *put_text(char *out, const char *end, const char *text)
{
    if (text == nullptr)
        text = "(null)";
    const size_t length = out < end ? strnlen(text, static_cast<size_t>(end - out)) : 0;
    std::memcpy(out, text, length);
    return out + length;
}

template <char conversion, bool is_long, typename Argument>
[[gnu::always_inline]] inline char *put_argument(char *out, const char *end, Argument argument)
{
    if constexpr (conversion == 's') {
        return put_text(out, end, reinterpret_cast<const char *>(argument));
    } else {
        using Unsigned = std::conditional_t<is_long, uint64_t, uint32_t>;
        using Signed = std::make_signed_t<Unsigned>;
        if constexpr (conversion == 'd') {
            const auto value = static_cast<Signed>(argument);
            auto magnitude = static_cast<Unsigned>(value);
            if (value < 0) {
                *out++ = '-';
                magnitude = 0 - magnitude;
            }
            return put_decimal(out, magnitude);
        } else if constexpr (conversion == 'u') {
            return put_decimal(out, static_cast<Unsigned>(argument));
        } else {
            return put_hexadecimal(out, static_cast<Unsigned>(argument));
        }
    }
}

// Prints from the piece `index` on, whose arguments follow from `next` on.
template <typename Text, size_t index, size_t next, typename Arguments>
[[gnu::always_inline]] inline char *put_from(char *out, const char *end, const Arguments &arguments)
{
    constexpr FormatPiece piece = parsed_format<Text>.pieces[index];
    std::memcpy(out, format_of<Text>.data() + piece.begin, piece.length);
    out += piece.length;
    if constexpr (piece.conversion == 0) {
        return out;
    } else if constexpr (piece.conversion == '%') {
        *out++ = '%';
        return put_from<Text, index + 1, next>(out, end, arguments);
    } else {
        out = put_argument<piece.conversion, piece.is_long>(out, end, std::get<next>(arguments));
        return put_from<Text, index + 1, next + 1>(out, end, arguments);
    }
}

// Prints a simple format and returns the end of the text. Texts of arguments are cut at `end`; what
// else there is may reach ParsedFormat<Text>::longest bytes beyond it.
template <typename Text, typename... Arguments>
[[gnu::always_inline]] inline char *put_format(char *out, const char *end, Arguments... arguments)
{
    static_assert(sizeof...(Arguments) == parsed_format<Text>.arguments);
    return put_from<Text, 0, 0>(out, end, std::tuple<Arguments...>(arguments...));
}

} // namespace inline_service
