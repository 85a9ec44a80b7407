#include "state_marker.h"

#include <cstdint>
#include <limits>
#include <sstream>
#include <string>
#include <string_view>

#define TOML_EXCEPTIONS 1
#include <toml++/toml.h>

#include "file_access.h"

namespace vlc {

namespace {

constexpr std::string_view first_words = "state of a virtual line card, version ";
constexpr int state_version = 1;
constexpr std::string_view being_made = "being made\n";

[[noreturn]] void fail(const std::filesystem::path &path, const std::string &why)
{
    throw StateError(path.string() + ": " + why);
}

// What a marker says of the holdings; none is said of a card with its host.
constexpr struct {
    Holdings holdings;
    const char *name;
} named_holdings[] = {{Holdings::card, "card"}, {Holdings::host, "host"}};

std::string text_of_marker(const Marker &marker)
{
    const CardConfig &card = marker.card;
    toml::table document{
        {"card", toml::table{{"name", card.name},
                             {"type", int64_t{card.card_type}},
                             {"slot", int64_t{card.slot}}}},
        {"nps", toml::table{{"count", int64_t{card.num_nps}},
                            {"service_config_rows", int64_t{card.service_config_capacity}},
                            {"ext_conf_rows", int64_t{card.ext_conf_capacity}}}},
        {"window", toml::table{{"bytes", static_cast<int64_t>(card.window_bytes)}}},
    };
    for (const auto &[holdings, name] : named_holdings) {
        if (marker.holdings == holdings) {
            document.insert("holds", name);
        }
    }
    std::ostringstream text;
    text << document << '\n';
    return text.str();
}

template <typename Field>
bool take(const toml::table &document, const char *place, Field &field)
{
    const auto value = document.at_path(place).value<int64_t>();
    constexpr auto most = static_cast<uint64_t>(std::numeric_limits<Field>::max());
    if (!value || *value < 0 || static_cast<uint64_t>(*value) > most) {
        return false;
    }
    field = static_cast<Field>(*value);
    return true;
}

bool take_holdings(const toml::table &document, Holdings &holdings)
{
    const toml::node *told = document.get("holds");
    if (told == nullptr) {
        return true;
    }
    for (const auto &[known, name] : named_holdings) {
        if (told->value<std::string>() == name) {
            holdings = known;
            return true;
        }
    }
    return false;
}

std::optional<Marker> marker_of_text(std::string_view text)
{
    Marker marker;
    CardConfig &card = marker.card;
    try {
        const toml::table document = toml::parse(text);
        const auto name = document.at_path("card.name").value<std::string>();
        const bool whole =
            name && take(document, "card.type", card.card_type) &&
            take(document, "card.slot", card.slot) && take(document, "nps.count", card.num_nps) &&
            take(document, "nps.service_config_rows", card.service_config_capacity) &&
            take(document, "nps.ext_conf_rows", card.ext_conf_capacity) &&
            take(document, "window.bytes", card.window_bytes) &&
            take_holdings(document, marker.holdings);
        if (!whole) {
            return std::nullopt;
        }
        card.name = *name;
    } catch (const toml::parse_error &) {
        return std::nullopt;
    }
    return marker;
}

} // namespace

std::optional<Marker> read_marker(const std::filesystem::path &directory)
{
    const std::filesystem::path path = directory / marker_name;
    const std::string text = read_file(path);
    if (!text.starts_with(first_words)) {
        fail(path, "is not the marker of a virtual line card's state");
    }
    const size_t end = text.find('\n');
    const std::string version = text.substr(first_words.size(), end - first_words.size());
    if (version != std::to_string(state_version)) {
        fail(directory, "is of version " + version + ", and this program knows version " +
                            std::to_string(state_version));
    }
    const std::string rest = end == std::string::npos ? "" : text.substr(end + 1);
    if (rest == being_made) {
        return std::nullopt;
    }
    std::optional<Marker> marker = marker_of_text(rest);
    if (!marker) {
        fail(path, "is damaged: it does not say which card the state was made for");
    }
    return marker;
}

void write_marker(const std::filesystem::path &directory, const std::optional<Marker> &marker)
{
    const std::filesystem::path unfinished = directory / unfinished_marker_name;
    const std::string text = std::string(first_words) + std::to_string(state_version) + '\n' +
                             (marker ? text_of_marker(*marker) : std::string(being_made));
    bool done = false;
    {
        const Descriptor file(
            open_file(unfinished, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_NONBLOCK));
        errno = file.number() < 0 ? errno : ENOSPC; // what a short write means
        done = file.number() >= 0 &&
               write(file.number(), text.data(), text.size()) == static_cast<ssize_t>(text.size());
    }
    const int error = errno;
    if (!done || rename(unfinished.c_str(), (directory / marker_name).c_str()) != 0) {
        const int why = done ? errno : error;
        unlink(unfinished.c_str());
        fail(directory, "no file can be made in it: " + text_of(why));
    }
}

} // namespace vlc
