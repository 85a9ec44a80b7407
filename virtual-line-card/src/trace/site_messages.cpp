#include "vlc/site_messages.h"

#include <sstream>

#include "vlc/state_error.h"

namespace vlc {

namespace {

// Short names may have blanks, so they stand last, to the end of the line.
std::string rest_of(std::istream &line)
{
    std::string rest;
    line.get(); // the blank
    std::getline(line, rest);
    return rest;
}

[[noreturn]] void fail(std::string_view text)
{
    throw StateError("the host's words about its sites are not understood: '" +
                     std::string(text.substr(0, 60)) + "'");
}

} // namespace

std::string text_of_changes(const std::vector<SiteChange> &changes)
{
    std::ostringstream text;
    for (const SiteChange &change : changes)
        text << change.number << ' ' << change.before << ' ' << change.after << ' '
             << change.component << '\n';
    return text.str();
}

std::vector<SiteChange> changes_of_text(std::string_view text)
{
    std::vector<SiteChange> changes;
    std::istringstream lines{std::string(text)};
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        SiteChange change;
        if (!(words >> change.number >> change.before >> change.after))
            fail(line);
        change.component = rest_of(words);
        changes.push_back(std::move(change));
    }
    return changes;
}

std::string text_of_print(const SitePrint &print)
{
    return text_of_record(print.record) + ' ' + print.component;
}

SitePrint print_of_text(std::string_view line)
{
    const size_t blank = line.find(' ');
    if (blank == std::string_view::npos)
        fail(line);
    const std::optional<TraceRecord> record = record_of_text(line.substr(0, blank));
    if (!record)
        fail(line);
    return {std::string(line.substr(blank + 1)), *record};
}

} // namespace vlc
