#include "json_line.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>

#include <nlohmann/json.hpp>

namespace inlinectl {
namespace {

constexpr size_t block_bytes = size_t{1} << 16;

bool is_plain(char character)
{
    return character >= ' ' && character <= '~' && character != '"' && character != '\\';
}

} // namespace

JsonLines &JsonLines::begin(std::string_view kind)
{
    line_ += '{';
    needs_comma_ = false;
    return text("kind", kind);
}

void JsonLines::end()
{
    line_ += "}\n";
    if (line_.size() >= block_bytes)
        flush();
}

void JsonLines::flush()
{
    out_ << line_;
    line_.clear();
}

void JsonLines::put_name(std::string_view name)
{
    if (needs_comma_)
        line_ += ", ";
    needs_comma_ = true;
    if (!name.empty())
        line_.append("\"").append(name).append("\": ");
}

JsonLines &JsonLines::number(std::string_view name, uint64_t value)
{
    std::array<char, 24> digits{};
    put_name(name);
    line_.append(digits.data(),
                 std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr);
    return *this;
}

JsonLines &JsonLines::real(std::string_view name, double value)
{
    std::array<char, 64> digits{};
    put_name(name);
    std::snprintf(digits.data(), digits.size(), "%.3f", value);
    line_ += digits.data();
    return *this;
}

JsonLines &JsonLines::text(std::string_view name, std::string_view value)
{
    put_name(name);
    if (std::ranges::all_of(value, is_plain))
        line_.append("\"").append(value).append("\"");
    else
        line_ +=
            nlohmann::json(value).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    return *this;
}

JsonLines &JsonLines::flag(std::string_view name, bool value)
{
    put_name(name);
    line_ += value ? "true" : "false";
    return *this;
}

JsonLines &JsonLines::nothing(std::string_view name)
{
    put_name(name);
    line_ += "null";
    return *this;
}

JsonLines &JsonLines::open_list(std::string_view name)
{
    put_name(name);
    line_ += '[';
    needs_comma_ = false;
    return *this;
}

JsonLines &JsonLines::open_object(std::string_view name)
{
    put_name(name);
    line_ += '{';
    needs_comma_ = false;
    return *this;
}

JsonLines &JsonLines::close_list()
{
    line_ += ']';
    needs_comma_ = true;
    return *this;
}

JsonLines &JsonLines::close_object()
{
    line_ += '}';
    needs_comma_ = true;
    return *this;
}

} // namespace inlinectl
