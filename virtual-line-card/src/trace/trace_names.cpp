// The names of the files of a component: its short name may be anything.
#include <cctype>
#include <set>

#include "vlc/state_error.h"
#include "vlc/trace_file.h"

namespace vlc {

namespace {

constexpr std::string_view sites_prefix = "sites-";
constexpr std::string_view trace_prefix = "trace-";
constexpr std::string_view hex_digits = "0123456789ABCDEF";

bool stands_for_itself(char letter)
{
    return std::isalnum(static_cast<unsigned char>(letter)) != 0 || letter == '_';
}

std::string as_file_name(std::string_view component)
{
    std::string name;
    for (const char letter : component) {
        const auto byte = static_cast<unsigned char>(letter);
        if (stands_for_itself(letter)) {
            name += letter;
        } else {
            name += {'%', hex_digits[byte >> 4], hex_digits[byte & 15]};
        }
    }
    return name;
}

std::string from_file_name(std::string_view name)
{
    std::string component;
    for (size_t i = 0; i < name.size(); ++i) {
        const bool coded = name[i] == '%' && i + 2 < name.size();
        const size_t high = coded ? hex_digits.find(name[i + 1]) : std::string_view::npos;
        const size_t low = coded ? hex_digits.find(name[i + 2]) : std::string_view::npos;
        if (high == std::string_view::npos || low == std::string_view::npos) {
            component += name[i];
            continue;
        }
        component += static_cast<char>(high << 4 | low);
        i += 2;
    }
    return component;
}

} // namespace

std::string trace_file_name(std::string_view component, std::string_view buffer)
{
    return std::string(trace_prefix) + as_file_name(component) + '-' + std::string(buffer);
}

std::string sites_file_name(std::string_view component)
{
    return std::string(sites_prefix) + as_file_name(component);
}

std::vector<std::string> traced_components(const std::filesystem::path &directory)
{
    std::set<std::string> found;
    try {
        for (const auto &entry : std::filesystem::directory_iterator(directory)) {
            std::string name = entry.path().filename();
            if (name.ends_with(".new")) {
                continue;
            }
            if (name.starts_with(sites_prefix)) {
                found.insert(from_file_name(name.substr(sites_prefix.size())));
            } else if (name.starts_with(trace_prefix)) {
                name = name.substr(trace_prefix.size());
                found.insert(from_file_name(name.substr(0, name.rfind('-'))));
            }
        }
    } catch (const std::filesystem::filesystem_error &error) {
        throw StateError(directory.string() + ": cannot be read: " + error.code().message());
    }
    return {found.begin(), found.end()};
}

} // namespace vlc
