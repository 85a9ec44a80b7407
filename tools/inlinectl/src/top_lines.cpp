#include "top_lines.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include "host_words.h"
#include "numbers.h"
#include "text_columns.h"

namespace inlinectl {
namespace {

using Style = TopLine::Style;

constexpr size_t number_width = 7;

std::string number(uint64_t value, size_t width = number_width)
{
    return right(short_number(value), width);
}

std::string rate(const std::optional<double> &packets_per_second, size_t width = number_width)
{
    if (!packets_per_second)
        return right("-", width);
    return right(short_number(static_cast<uint64_t>(*packets_per_second + 0.5)), width);
}

// Both at their ends of the line; the left one gives way.
std::string two_ends(const std::string &first, const std::string &last, size_t width)
{
    if (last.size() + 2 >= width)
        return first;
    const size_t room = width - last.size() - 2;
    return left(first.substr(0, room), room) + "  " + last;
}

std::vector<TopLine> header_of(const TopFrame &frame, const TopView &view)
{
    std::vector<TopLine> lines;
    lines.push_back({two_ends("inlinectl top  " + frame.state, second_text(frame.time), view.width),
                     Style::heading});
    lines.push_back({"Card     " + frame.card});
    if (!frame.host) {
        lines.push_back({"Host     nothing is told of one"});
        return lines;
    }
    const vlc::HostState &host = *frame.host;
    const vlc::PrmLedger::Sums &sums = host.requests;
    const bool runs = host.life == vlc::HostLife::running;
    const bool is_well = host.connection.prm_is_up && host.connection.is_registered;
    lines.push_back({"Host     " + life_text(host),
                     host.life == vlc::HostLife::killed ? Style::alarm : Style::plain});
    lines.push_back({std::string("Link     ") + (runs ? "" : "at its end ") +
                         connection_text(host.connection) + "; " +
                         counted(sums.breaks, "break", "breaks"),
                     runs && !is_well ? Style::alarm : Style::plain});
    lines.push_back({"Asked    " + grouped(requests_taken(sums)) + " taken, " +
                         grouped(sums.answered) + " answered, " + grouped(sums.failed) +
                         " failed, " + grouped(sums.unanswered) + " in flight" +
                         (sums.in_doubt == 0 ? "" : ", " + grouped(sums.in_doubt) + " in doubt"),
                     sums.failed + sums.in_doubt > 0 ? Style::alarm : Style::plain});
    return lines;
}

TopLine np_line(const TopNp &np)
{
    const std::string name = right(std::to_string(np.np), 2);
    if (!np.is_read)
        return {name + "  cannot be read", Style::alarm};
    std::string text = name + " " + number(np.totals.packets, 8) + rate(np.packets_per_second, 8) +
                       number(np.totals.bytes, 8) + " ";
    for (const uint64_t rows : np.rows)
        text += number(rows, 8);
    return {text + " " + number(np.hits, 8) + number(np.totals.missed_packets, 8) +
            number(np.counters_in_use, 9)};
}

std::vector<TopLine> nps_of(const TopFrame &frame)
{
    std::vector<TopLine> lines;
    lines.push_back({});
    lines.push_back(
        {"NP  packets     p/s   bytes  svc cfg ext cnf    flow     hits  missed counters",
         Style::heading});
    for (const TopNp &np : frame.nps)
        lines.push_back(np_line(np));
    return lines;
}

const char *words_of(TopOrder order)
{
    static constexpr const char *words[] = {"packets a second", "packets", "bytes"};
    return words[static_cast<size_t>(order)];
}

std::vector<const TopEntry *> busiest(const TopFrame &frame, TopOrder order)
{
    std::vector<const TopEntry *> entries;
    entries.reserve(frame.entries.size());
    for (const TopEntry &entry : frame.entries)
        entries.push_back(&entry);
    const auto weight = [order](const TopEntry &entry) {
        const auto packets = static_cast<double>(entry.count.packets);
        const auto bytes = static_cast<double>(entry.count.bytes);
        const double first = order == TopOrder::rate ? entry.packets_per_second.value_or(0) : 0;
        return std::array{first, order == TopOrder::bytes ? bytes : packets, packets};
    };
    std::ranges::sort(entries, [&weight](const TopEntry *a, const TopEntry *b) {
        const auto first = weight(*a);
        const auto second = weight(*b);
        return first != second ? first > second
                               : std::pair(a->key, a->entry_id) < std::pair(b->key, b->entry_id);
    });
    return entries;
}

std::string entry_line(const TopEntry &entry, size_t name_width)
{
    return right(std::to_string(entry.key), 4) + " " + right(std::to_string(entry.entry_id), 10) +
           "  " + (entry.table == SHADOW_DB_SERVICE_CONFIG ? "svc cfg" : "ext cnf") + "  " +
           left(entry.name, name_width).substr(0, name_width) + number(entry.count.packets, 8) +
           rate(entry.packets_per_second, 8) + number(entry.count.bytes, 8);
}

std::vector<TopLine> entries_of(const TopFrame &frame, const TopView &view, size_t room)
{
    constexpr size_t other_columns = 50; // beside the name
    const size_t name_width =
        std::clamp<size_t>(view.width > other_columns ? view.width - other_columns : 0, 12, 60);
    std::vector<TopLine> lines;
    lines.push_back({});
    lines.push_back({two_ends("Busiest of " + counted(frame.stored, "entry", "entries") + ", by " +
                                  words_of(view.order),
                              view.keys ? "s sort  ? help  q quit" : "", view.width),
                     Style::heading});
    lines.push_back(
        {" key      entry  table    " + left("name", name_width) + " packets     p/s   bytes"});
    if (frame.entries.empty())
        lines.push_back({"no entry has got a packet"});
    for (const TopEntry *entry : busiest(frame, view.order)) {
        if (room > 0 && lines.size() >= room)
            break;
        lines.push_back({entry_line(*entry, name_width)});
    }
    return lines;
}

std::vector<TopLine> notes_of(const TopFrame &frame)
{
    constexpr size_t most = 3;
    std::vector<TopLine> lines;
    for (const std::string &note : frame.notes) {
        if (lines.size() == most) {
            lines.push_back({"and " + counted(frame.notes.size() - most, "note", "notes") +
                                 " more; see 'inlinectl audit'",
                             Style::alarm});
            break;
        }
        lines.push_back({"note: " + note, Style::alarm});
    }
    return lines;
}

std::vector<TopLine> help_lines()
{
    return {{},
            {"Keys", Style::heading},
            {"s  sort entries by packets a second, packets, bytes"},
            {"?  this help, and back"},
            {"q  quit"},
            {},
            {"p/s       packets a second, between this frame and the one before"},
            {"svc cfg   rows of the service config table; ext cnf of the ext conf table"},
            {"missed    packets that hit no table"},
            {"counters  in use: of entries and of flows"}};
}

} // namespace

TopOrder next_order(TopOrder order)
{
    return order == TopOrder::rate      ? TopOrder::packets
           : order == TopOrder::packets ? TopOrder::bytes
                                        : TopOrder::rate;
}

std::string short_number(uint64_t value)
{
    static constexpr char units[] = "kMGTPE";
    const std::string whole = grouped(value);
    if (whole.size() <= number_width)
        return whole;
    auto scaled = static_cast<double>(value);
    size_t unit = 0;
    for (scaled /= 1000; scaled >= 999.5; scaled /= 1000)
        ++unit;
    std::array<char, 16> text{};
    const int decimals = scaled >= 99.95 ? 0 : scaled >= 9.995 ? 1 : 2;
    std::snprintf(text.data(), text.size(), "%.*f%c", decimals, scaled, units[unit]);
    return text.data();
}

std::vector<TopLine> lines_of(const TopFrame &frame, const TopView &view)
{
    std::vector<TopLine> lines = header_of(frame, view);
    const auto append = [&lines](const std::vector<TopLine> &more) {
        lines.insert(lines.end(), more.begin(), more.end());
    };
    append(notes_of(frame));
    append(nps_of(frame));
    const size_t left_over = view.height > lines.size() ? view.height - lines.size() : 1;
    append(view.help ? help_lines() : entries_of(frame, view, view.height == 0 ? 0 : left_over));
    if (view.height > 0 && lines.size() > view.height)
        lines.resize(view.height);
    for (TopLine &line : lines) {
        std::ranges::replace_if(
            line.text, [](char c) { return c < ' ' || c > '~'; }, '?');
        line.text.resize(std::min(line.text.size(), view.width));
        line.text.erase(line.text.find_last_not_of(' ') + 1);
    }
    return lines;
}

} // namespace inlinectl
