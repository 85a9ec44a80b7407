#include "state_marker.h"

#include <string>
#include <string_view>

#include "card_text.h"
#include "file_access.h"

namespace vlc {

namespace {

constexpr std::string_view first_words = "state of a virtual line card, version ";
constexpr int state_version = 2;
constexpr std::string_view being_made = "being made\n";
constexpr const char *holds_key = "holds";

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
    std::string text;
    for (const auto &[holdings, name] : named_holdings) {
        if (marker.holdings == holdings)
            text = std::string(holds_key) + " = '" + name + "'\n";
    }
    return text + text_of(marker.card);
}

bool take_holdings(toml::table &document, Holdings &holdings)
{
    const toml::node *told = document.get(holds_key);
    if (told == nullptr) {
        return true;
    }
    for (const auto &[known, name] : named_holdings) {
        if (told->value<std::string>() == name) {
            holdings = known;
            document.erase(holds_key);
            return true;
        }
    }
    return false;
}

std::optional<Marker> marker_of_text(const std::filesystem::path &path, std::string_view text)
{
    const TomlReader reader(path.string());
    Marker marker;
    try {
        toml::table document = reader.parse(text);
        if (!take_holdings(document, marker.holdings) || !says_whole_card(document)) {
            return std::nullopt;
        }
        marker.card = card_of_document(reader, document);
    } catch (const StateError &) {
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
    std::optional<Marker> marker = marker_of_text(path, rest);
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
