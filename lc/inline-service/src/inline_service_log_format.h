// printf formats that are taken apart while the library is compiled.
//
// A line costs little more than its write, and of the rest a printf that reads its format anew
// would be most. So a site's format becomes straight code: its literal text copied in pieces of
// known length, its numbers written in place, with few branches, since behind a system call the
// machine guesses them badly. What takes more than a few instructions is a function: a write leaves
// little of a site in the machine's first cache, so a site is kept short. A format with anything
// else in it is not `simple`, and printf does it.
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
    char conversion; // 'd', 'u', 'x', 'p', 's', '%', or 0 for none
    bool is_long;    // 64 bits
    bool has_prefix; // %#x
    size_t zeros;    // digits of an 'x' that are written at least, such as 8 of %08x
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
    const auto skip = [&](char one) { return at < format.size() && format[at] == one && ++at > 0; };
    for (FormatPiece &piece : parsed.pieces) {
        const size_t percent = std::min(format.find('%', at), format.size());
        piece = {at, percent - at, 0, false, false, 1};
        parsed.longest += piece.length + longest_number;
        if (percent == format.size())
            break;
        at = percent + 1;
        piece.has_prefix = skip('#');
        const bool is_filled = skip('0');
        for (piece.zeros = 0; at < format.size() && format[at] >= '1' && format[at] <= '9'; ++at)
            piece.zeros = 10 * piece.zeros + static_cast<size_t>(format[at] - '0');
        while (skip('l'))
            piece.is_long = true;
        piece.conversion = at < format.size() ? format[at++] : '?';
        if (piece.conversion == 'i')
            piece.conversion = 'd';
        constexpr std::string_view simple = "duxps%";
        const bool is_hexadecimal = piece.conversion == 'x';
        parsed.is_simple &= simple.find(piece.conversion) != simple.npos &&
                            is_filled == (piece.zeros > 0) &&
                            piece.zeros <= (is_hexadecimal ? piece.is_long ? 16U : 8U : 0U) &&
                            (!piece.has_prefix || (is_hexadecimal && !is_filled));
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

inline constexpr auto powers_of_ten = [] {
    std::array<uint64_t, longest_number> powers{1};
    for (size_t i = 1; i < powers.size(); ++i)
        powers[i] = 10 * powers[i - 1];
    return powers;
}();

constexpr size_t digits_of(uint64_t value)
{
    const auto bits = static_cast<size_t>(std::bit_width(value | 1));
    const size_t fewest = bits * 1233 / 4096; // 1233 / 4096 is the logarithm of 2
    return fewest + (value >= powers_of_ten[fewest]);
}

template <typename Number>
[[gnu::noinline]] char *put_large_decimal(char *out, Number value)
{
    char *const end = out + digits_of(value);
    char *first = end;
    for (; value >= 100; value /= 100) {
        first -= 2;
        std::memcpy(first, &two_digits[2 * static_cast<size_t>(value % 100)], 2);
    }
    if (value >= 10)
        std::memcpy(out, &two_digits[2 * static_cast<size_t>(value)], 2);
    else
        *out = static_cast<char>('0' + value);
    return end;
}

template <typename Number>
[[gnu::always_inline]] inline char *put_decimal(char *out, Number value)
{
    if (value < 10) { // most are
        *out = static_cast<char>('0' + value);
        return out + 1;
    }
    return put_large_decimal(out, value);
}

// All eight digits at once and those in front shifted out: a loop over them would end at another
// place for each number. Writes eight bytes, however few of them count.
[[gnu::noinline]] inline char *put_eight(char *out, uint32_t value, size_t at_least)
{
    static_assert(std::endian::native == std::endian::little);
    uint64_t digits = value;
    digits = (digits | digits << 16) & 0x0000FFFF0000FFFF;
    digits = (digits | digits << 8) & 0x00FF00FF00FF00FF;
    digits = (digits | digits << 4) & 0x0F0F0F0F0F0F0F0F;
    const uint64_t letters = (digits + 0x0606060606060606) >> 4 & 0x0101010101010101;
    digits += 0x3030303030303030 + letters * ('a' - '0' - 10);
    const auto significant = static_cast<size_t>(std::bit_width(value | 1) + 3) / 4;
    const size_t count = std::max(significant, at_least);
    digits = __builtin_bswap64(digits << (64 - 8 * count));
    std::memcpy(out, &digits, sizeof digits);
    return out + count;
}

template <typename Number>
[[gnu::always_inline]] inline char *put_hexadecimal(char *out, Number value, size_t at_least)
{
    const auto low = static_cast<uint32_t>(value);
    if constexpr (sizeof value > sizeof low) {
        const auto high = static_cast<uint32_t>(value >> 32);
        if (high != 0 || at_least > 8) {
            out = put_eight(out, high, at_least > 8 ? at_least - 8 : 1);
            at_least = 8;
        }
    }
    return put_eight(out, low, at_least);
}

// Kept: as printf has it, a null text reads "(null)". What is written behind the returned end, up
// to 15 bytes, does not count.
char *put_text(char *out, const char *end, const char *text);

// Kept: as printf has it, a null pointer reads "(nil)".
[[gnu::always_inline]] inline char *put_address(char *out, uint64_t address)
{
    if (address == 0) {
        std::memcpy(out, "(nil)", 5);
        return out + 5;
    }
    std::memcpy(out, "0x", 2);
    return put_hexadecimal(out + 2, address, 1);
}

template <FormatPiece piece, typename Argument>
[[gnu::always_inline]] inline char *put_argument(char *out, const char *end, Argument argument)
{
    using Unsigned = std::conditional_t<piece.is_long, uint64_t, uint32_t>;
    if constexpr (piece.conversion == 's') {
        return put_text(out, end, reinterpret_cast<const char *>(argument));
    } else if constexpr (piece.conversion == 'p') {
        return put_address(out, reinterpret_cast<uint64_t>(argument));
    } else if constexpr (piece.conversion == 'd') {
        const auto value = static_cast<std::make_signed_t<Unsigned>>(argument);
        auto magnitude = static_cast<Unsigned>(value);
        if (value < 0) {
            *out++ = '-';
            magnitude = 0 - magnitude;
        }
        return put_decimal(out, magnitude);
    } else if constexpr (piece.conversion == 'u') {
        return put_decimal(out, static_cast<Unsigned>(argument));
    } else {
        const auto value = static_cast<Unsigned>(argument);
        if (piece.has_prefix && value != 0) { // Kept: as printf has it, zero has none
            std::memcpy(out, "0x", 2);
            out += 2;
        }
        return put_hexadecimal(out, value, std::max<size_t>(piece.zeros, 1));
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
        out = put_argument<piece>(out, end, std::get<next>(arguments));
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
